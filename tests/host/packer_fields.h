// Key fields for the suites on the record packer, and a packer that is driven
// through its slots.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "companion_host.h"

namespace host_test {

struct Field {
  uint32_t type;  // 1 to 5, as MORVAKeyDesc has it
  uint32_t length;
  uint32_t rowOffset = 0;
  uint32_t options = 0;
};

// The field as the library tells the packer of it.
inline PackerField packerField(const Field &field, uint64_t keyOffset, uint32_t fieldClass = 3) {
  PackerField block = {};
  block.fieldClass = fieldClass;
  block.fieldArg = field.rowOffset;
  block.fieldLength = block.fieldLengthAgain = field.length;
  block.typeCode = block.typeCodeAgain = field.type == 5 ? 2 : field.type;
  block.subType = field.type == 5 ? 27 : 0;
  block.fieldOffset = keyOffset;
  block.fieldOptions = field.options;
  return block;
}

inline PackerClosing packerClosing(uint64_t keyLength, uint32_t closingWord = 16) {
  PackerClosing closing = {};
  closing.closingWord = closingWord;
  closing.keyLength = keyLength;
  closing.name = "lumaakey";
  return closing;
}

class DrivenPacker {
 public:
  explicit DrivenPacker(CompanionHost &host) : packer_(host.packers->makePacker(host.packers, 0)) {
    if (packer_ == nullptr) std::abort();
  }
  DrivenPacker(CompanionHost &host, const std::vector<Field> &fields) : DrivenPacker(host) {
    for (const Field &field : fields) EXPECT_TRUE(define(field));
    EXPECT_TRUE(finish());
  }
  ~DrivenPacker() { packer_->destroy(packer_); }
  DrivenPacker(const DrivenPacker &) = delete;
  DrivenPacker &operator=(const DrivenPacker &) = delete;

  // Each answers whether the packer has accepted.
  bool define(const PackerField &block) {
    if (packer_->defineField(packer_, &block) != 0) return false;
    keyLength_ += block.fieldLength;
    return true;
  }
  bool define(const Field &field) { return define(packerField(field, keyLength_)); }
  bool finish(const PackerClosing &closing) { return packer_->finish(packer_, &closing) == 0; }
  bool finish() { return finish(packerClosing(keyLength_)); }

  // The key image; what lies before and behind it must stay as it was.
  std::string pack(const void *row) const {
    constexpr size_t kGuard = 16;
    std::string area(keyLength_ + 2 * kGuard, '\x5A');
    packer_->pack(packer_, row, area.data() + kGuard, 1);
    const std::string guard(kGuard, '\x5A');
    EXPECT_EQ(area.substr(0, kGuard), guard);
    EXPECT_EQ(area.substr(kGuard + keyLength_), guard);
    return area.substr(kGuard, keyLength_);
  }
  // The row is read where it lies in memory of just its size.
  std::string pack(const std::string &row) const {
    const std::vector<char> exact(row.begin(), row.end());
    return pack(static_cast<const void *>(exact.data()));
  }

  RecordPacker *operator->() const { return packer_; }
  RecordPacker *get() const { return packer_; }
  uint64_t keyLength() const { return keyLength_; }

 private:
  RecordPacker *packer_;
  uint64_t keyLength_ = 0;
};

}  // namespace host_test
