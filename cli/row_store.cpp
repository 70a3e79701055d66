#include "row_store.h"

#include <algorithm>
#include <cstring>

namespace morva::cli {

namespace {

constexpr size_t kFirstBlock = size_t{4} << 10;
constexpr size_t kLargestBlock = size_t{4} << 20;

}  // namespace

RowStore::RowStore(Library &library)
    : library_(library),
      pool_(library.makePool("rows")),
      nextBlock_(kFirstBlock),
      largestBlock_(std::max(kFirstBlock, library.fairBlock(kLargestBlock))) {}

RowStore::~RowStore() {
  pool_->destroy(pool_);
}

const char *RowStore::keep(std::string_view text) {
  if (text.empty()) return "";
  if (text.size() > room_) {
    const size_t size = std::max(nextBlock_, text.size());
    block_ = static_cast<char *>(pool_->allocate(pool_, size, 0));
    if (block_ == nullptr) {
      room_ = 0;
      library_.failOutOfMemory();
    }
    room_ = size;
    nextBlock_ = std::min<size_t>(nextBlock_ * 2, largestBlock_);
  }
  char *copy = block_;
  std::memcpy(copy, text.data(), text.size());
  block_ += text.size();
  room_ -= text.size();
  return copy;
}

}  // namespace morva::cli
