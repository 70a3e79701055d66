// One table of the scenario with what it must hold, as far as its operations succeeded.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "morva/host.h"
#include "morva/many.h"

namespace fault_test {

class ScenarioTable {
 public:
  // Made and, where its key is made of fields, defined; or not made, with nothing left of it.
  ScenarioTable(MORVAExt *ext, uint32_t flags);
  ScenarioTable(ScenarioTable &&) = default;

  bool isMade() const { return inst_ != nullptr; }

  void addSome();
  void addMany();
  void findMany();
  void addToSums();
  void removeMany();
  void clear();
  void clearKeeping();
  // Every key by Find2, the counts, the order in both directions.
  void check();
  void destroy();

  const std::string &fault() const { return fault_; }
  bool ranOut() const { return ranOut_; }

 private:
  static constexpr int kKeys = 96;

  struct Key {
    int records = 0;
    double sum = 0;
    uint64_t data = 0;
    // Found, but neither counted nor in the order: its order node could not be had.
    bool uncounted = false;
  };

  bool has(uint32_t bits) const { return (flags_ & bits) != 0; }
  void say(const char *what, int key);
  QZKey keyOf(int key) const;
  void *find2(int key);
  void added(int key, uint64_t data, MORVAStatus status);
  void empty();

  MORVAInst *inst_ = nullptr;
  uint32_t flags_;
  std::array<Key, kKeys> keys_;
  std::vector<int> order_;
  uint64_t clock_ = 0;
  std::string fault_;
  bool ranOut_ = false;
};

}  // namespace fault_test
