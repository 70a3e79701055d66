// One bucket's tree, read straight from its link words.
#pragma once

#include <string>
#include <vector>

#include "table_shape.h"

namespace morva_test {

// The key that a node's key area holds.
std::string keyOf(RecordNode *node, const TableShape &shape);

// The node of `key`, by the library's order of keys; null when it is absent.
RecordNode *searchTree(RecordNode *root, const std::string &key, const TableShape &shape);

// Appends the nodes in key order to `nodes`, and answers what is wrong with
// the tree: heights, heavy bits, threads, order of keys, owners. Empty when
// all is well.
std::string walkTree(RecordNode *root, const MORVAInst *owner, const TableShape &shape,
                     std::vector<RecordNode *> *nodes);

}  // namespace morva_test
