// Holds a whole instance against its model and against the invariants that no
// operation may break.
#pragma once

#include <string>
#include <vector>

#include "table_model.h"

namespace morva_test {

// What is wrong with `inst`; empty when all is well. Learns the addresses of
// slots seen for the first time, and expects all others where they were.
// `order` is the insertion order as the host has it.
std::string checkInstance(MORVAInst *inst, const TableModel &model,
                          const std::vector<RecordNode *> &order);

// As far as it can be checked without a model: the trees, the duplicate
// chains, the order and the counts that never drift. Answers the contents, the
// data of each key's records in chain order, through `contents`.
std::string checkInstanceAlone(MORVAInst *inst, const TableShape &shape,
                               const std::vector<RecordNode *> &order,
                               std::map<std::string, std::vector<std::string>, KeyOrder> *contents);

// The nodes of one key's records, first to last, given the first.
std::string walkChain(RecordNode *first, const TableShape &shape, size_t atMost,
                      std::vector<RecordNode *> *nodes);

// The node of the last record of a key, given the first (several records per key).
RecordNode *lastOfChain(RecordNode *first, const TableShape &shape);

// Notes where a slot is, or tells whether it has moved.
bool seenAt(Slot *slot, RecordNode *node);

inline char *dataOf(RecordNode *node, const TableShape &shape, size_t keyLen) {
  return reinterpret_cast<char *>(node) + shape.dataInNode(keyLen);
}

}  // namespace morva_test
