// Two tables of one shape on one host, which threads share; what is wrong with
// them and what they hold is asked when nobody uses them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "instance_checker.h"
#include "shared_table.h"

namespace morva_test {

inline constexpr size_t kMany = 8;

// So many steps that threads take turns in the midst of them; under the thread
// sanitizer they do so anyway, and slowly.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr size_t kLonger = 1;
#else
inline constexpr size_t kLonger = 4;
#endif

class TwoTables {
 public:
  explicit TwoTables(const TableShape &shape, HostKind kind = HostKind::embedded)
      : shape_(shape), host_(makeHost(kind)), one_(make()), two_(make()) {}
  ~TwoTables() {
    EXPECT_EQ(host_->unmatchedReleases(), 0u);
    EXPECT_EQ(host_->faults(), "");
    EXPECT_EQ(one_->Destroy(one_), MORVA_OK);
    EXPECT_EQ(two_->Destroy(two_), MORVA_OK);
    EXPECT_EQ(host_->close(), "");
  }
  TwoTables(const TwoTables &) = delete;
  TwoTables &operator=(const TwoTables &) = delete;

  MORVAExt *ext() const { return host_->ext(); }
  MORVAInst *one() const { return one_; }
  MORVAInst *two() const { return two_; }

  // Expects a sound table, and answers what it holds.
  ThreadWork::Contents contentsOf(MORVAInst *inst) const {
    ThreadWork::Contents contents;
    EXPECT_EQ(checkInstanceAlone(inst, shape_, host_->order(inst), &contents), "");
    return contents;
  }

 private:
  MORVAInst *make() {
    MORVAInst *inst = makeInstance(host_->ext(), shape_);
    if (inst == nullptr) throw std::runtime_error("no instance of " + shape_.text());
    if (shape_.sums()) inst->SetSumInc(inst, 1.0);
    return inst;
  }

  TableShape shape_;
  std::unique_ptr<HostUnderTest> host_;
  MORVAInst *one_;
  MORVAInst *two_;
};

// The keys at number, number + of, number + 2 of and so on.
inline std::vector<std::string> shareOf(const std::vector<std::string> &keys, size_t number,
                                        size_t of) {
  std::vector<std::string> mine;
  for (size_t i = number; i < keys.size(); i += of) mine.push_back(keys[i]);
  return mine;
}

inline MORVAStatus addTo(MORVAInst *inst, const std::string &key, const std::string &data) {
  return inst->Add(inst, data.data(), key.data(), lengthOf(key));
}

inline MORVAStatus replaceIn(MORVAInst *inst, const std::string &key, const std::string &data) {
  return inst->Replace(inst, data.data(), key.data(), lengthOf(key));
}

inline MORVAStatus removeFrom(MORVAInst *inst, const std::string &key) {
  return inst->Remove(inst, key.data(), lengthOf(key));
}

}  // namespace morva_test
