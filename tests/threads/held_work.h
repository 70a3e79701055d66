// What a thread does to a table whose keys all threads share. Each step is made
// within one hold of the table's lock, so its answers are known whatever the
// others did before.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "two_tables.h"

namespace morva_test {

class HeldWork {
 public:
  HeldWork(MORVAInst *inst, const TableShape &shape, const std::vector<std::string> &keys,
           uint64_t seed)
      : inst_(inst), shape_(shape), keys_(keys), random_(seed) {}

  void run(size_t steps);

 private:
  void step();
  void add(const std::string &key);
  void replace(const std::string &key);
  void remove(const std::string &key);
  void walk(const std::string &key);
  void sums(const std::string &key);
  void changeOne(const std::string &key);
  void removeOne(const std::string &key);
  void findNode(const std::string &key);
  void clear();
  // The same operations by themselves, beside those of others.
  void unheld(const std::string &key);

  // The data pointers of a key's records, first to last.
  std::vector<void *> recordsOf(const std::string &key);
  void expectRecords(size_t records);
  size_t below(size_t n) { return random_() % n; }
  std::string anyData() { return dataFor(shape_, random_()); }

  MORVAInst *inst_;
  const TableShape &shape_;
  const std::vector<std::string> &keys_;
  std::mt19937_64 random_;
};

}  // namespace morva_test
