#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

namespace {

// A pool of the smallest kind: one block at a time, from the heap, filled with
// 0xA5, with room for 16 bytes more than asked for.
struct SmallPool : HostPool {
  SmallPool() : HostPool{} {
    HostPool::allocate = [](HostPool *pool, uint64_t size, uint32_t options) -> void * {
      auto *self = static_cast<SmallPool *>(pool);
      self->calls++;
      self->sizeAsked = size;
      self->optionsAsked = options;
      if (self->refuse) return nullptr;
      self->block = std::make_unique<uint8_t[]>(size + 16);
      std::memset(self->block.get(), 0xA5, size + 16);
      return self->block.get();
    };
    HostPool::free = [](HostPool *pool, void *) { static_cast<SmallPool *>(pool)->frees++; };
    HostPool::destroy = [](HostPool *pool) { static_cast<SmallPool *>(pool)->destroys++; };
  }
  bool refuse = false;
  int calls = 0, frees = 0, destroys = 0;
  uint64_t sizeAsked = 0;
  uint32_t optionsAsked = 0xFFFFFFFF;
  std::unique_ptr<uint8_t[]> block;
};

}  // namespace

TEST(Duplicate, CopiesExactlyTheBytesAskedForWithoutATerminator) {
  for (size_t n = 0; n <= port_test::longest; n++) {
    SmallPool pool;
    const std::vector<uint8_t> source = port_test::randomBytes(n + 1, n);
    auto *copy = static_cast<uint8_t *>(skMemDup(source.data(), n, &pool));
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy, pool.block.get());
    ASSERT_TRUE(std::equal(copy, copy + n, source.begin())) << n;
    for (size_t i = n; i < n + 16; i++) ASSERT_EQ(copy[i], 0xA5) << n << " at " << i;
    ASSERT_EQ(pool.calls, 1);
    ASSERT_EQ(pool.sizeAsked, n);
    ASSERT_EQ(pool.optionsAsked, 0u);
    ASSERT_EQ(pool.frees, 0);
    ASSERT_EQ(pool.destroys, 0);
  }
}

TEST(Duplicate, OfNothingIsABlockOfNoBytes) {
  SmallPool pool;
  EXPECT_NE(skMemDup("", 0, &pool), nullptr);
  EXPECT_EQ(pool.calls, 1);
  EXPECT_EQ(pool.sizeAsked, 0u);
}

TEST(Duplicate, IsNullForANullSourceAndThePoolIsNotAsked) {
  SmallPool pool;
  EXPECT_EQ(skMemDup(nullptr, 5, &pool), nullptr);
  EXPECT_EQ(skMemDup(nullptr, 0, &pool), nullptr);
  EXPECT_EQ(pool.calls, 0);
}

TEST(Duplicate, IsNullForANullPool) {
  EXPECT_EQ(skMemDup("abc", 3, nullptr), nullptr);
  EXPECT_EQ(skMemDup(nullptr, 3, nullptr), nullptr);
}

TEST(Duplicate, IsNullWhenThePoolHasNoMemory) {
  SmallPool pool;
  pool.refuse = true;
  EXPECT_EQ(skMemDup("abc", 3, &pool), nullptr);
  EXPECT_EQ(pool.calls, 1);
  EXPECT_EQ(pool.frees, 0);
}
