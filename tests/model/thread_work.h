// What one thread does to a table that it shares: random operations on keys
// that are its own, so that every answer is known whatever the others do.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "table_shape.h"

namespace morva_test {

// Runs `work(0)` to `work(count - 1)` in threads that start together.
void inParallel(size_t count, const std::function<void(size_t)> &work);

class ThreadWork {
 public:
  using Contents = std::map<std::string, std::vector<std::string>, KeyOrder>;

  // Uses the locked operations only. With sums, the increment is 1.0 for good.
  ThreadWork(MORVAInst *inst, const TableShape &shape, std::vector<std::string> keys,
             uint64_t seed);

  // Makes `steps` random operations and compares every answer; failures are
  // reported through GoogleTest and end the work.
  void run(size_t steps);

  // What the table must hold under the keys of this thread.
  Contents contents() const;

 private:
  struct Held {
    std::string data;
    double sum;
  };

  void step();
  void add(const std::string &key);
  void replace(const std::string &key);
  void remove(const std::string &key);
  void walk(const std::string &key);
  void changeOne(const std::string &key);
  void removeOne(const std::string &key);
  void readSums(const std::string &key);
  // The data pointers of the key's records, found one by one.
  bool findAll(const std::string &key, std::vector<void *> *cursors);

  uint64_t below(uint64_t n) { return random_() % n; }
  std::string anyData();

  MORVAInst *inst_;
  TableShape shape_;
  std::vector<std::string> keys_;
  std::map<std::string, uint32_t> bucketOf_;
  std::map<std::string, std::vector<Held>> held_;
  std::mt19937_64 random_;
};

}  // namespace morva_test
