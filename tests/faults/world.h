// One host, one extension and one populated instance, made afresh for every
// failure that is tried.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ops/table.h"

namespace morva_test {

// How the host fails: the n-th call that can fail, or that one and all later.
enum class Failing { once, fromThenOn };

const char *nameOf(Failing failing);
void arm(RecordingHost &host, Failing failing, uint64_t n);

inline const std::string kAbsent = "-";

class World {
 public:
  // Sixteen keys "k00" to "k15"; with flagMultiData "k00" has five records, "k15" one and each
  // other three. Every block of records and of order nodes is full afterwards, so that the next
  // record and the next order node need a block.
  explicit World(const Shape &shape);
  ~World();

  RecordingHost host;
  std::unique_ptr<Extension> ext;
  std::unique_ptr<Table> table;
  std::unique_ptr<Table> other;  // empty
  // The text of the records of every key, as Table::all gives it.
  std::map<std::string, std::string> content;

  // Lets `content` be what every key holds.
  void setAll(const std::string &text);
  // Elements that `content` makes.
  uint32_t elements() const;
  // Whether every key holds what `content` says; of an instance with sums, whether no sum moved.
  void expectContent();
  // No lock held, releases without acquisition as many as told.
  void expectLocksBalanced(uint64_t unmatchedReleases);
  // Ends instances and extension and looks whether anything is left.
  void expectNothingLeft();

 private:
  void populate();
};

}  // namespace morva_test
