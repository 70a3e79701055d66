// Pools: blocks, their contents, and what destroying a pool means.

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

struct Block {
  unsigned char *start;
  uint64_t size;
  uint64_t seed;
};

void expectUnchanged(const Block &block, const char *when) {
  if (isFilledWith(block.start, block.size, block.seed)) return;
  throw Unmet("a block of " + shown(block.size) + " bytes has changed " + when);
}

// The options of the pools that the library makes.
constexpr uint32_t kPoolOptions[] = {0, MORVA_POOL_RECORDS, MORVA_POOL_VARKEYS};

void hasItsSlots(const Subject &subject) {
  Host host(subject);
  for (const uint32_t options : kPoolOptions) {
    HostPool *pool = host.pool(options);
    for (const unsigned slot : {2U, 3U, 4U}) expectSlot(pool, slot, "a pool");
    pool->destroy(pool);
  }
  host.endWithNothingLeft();
}

std::vector<uint64_t> sizesToTry() {
  std::vector<uint64_t> sizes;
  for (uint64_t size = 1; size <= 700; ++size) sizes.push_back(size);
  for (uint64_t size = 1024; size <= (1 << 22); size *= 2) {
    for (const uint64_t more : {size - 8, size - 1, size, size + 1, size + 16, size + size / 3}) {
      sizes.push_back(more);
    }
  }
  return sizes;
}

void alignBlocks(const Subject &subject) {
  Host host(subject);
  for (const uint32_t options : kPoolOptions) {
    HostPool *pool = host.pool(options);
    for (const uint64_t size : sizesToTry()) {
      const unsigned char *block = taken(pool, size);
      if (reinterpret_cast<uintptr_t>(block) % 8 == 0) continue;
      throw Unmet("a block of " + shown(size) + " bytes is not aligned to 8");
    }
    pool->destroy(pool);
  }
  host.endWithNothingLeft();
}

void giveWholeBlocks(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool();
  std::vector<Block> blocks;
  uint64_t all = 0;
  for (const uint64_t size : sizesToTry()) {
    if (all + size > 24U << 20) break;
    all += size;
    blocks.push_back({taken(pool, size), size, size});
    fillWith(blocks.back().start, size, size);
  }
  for (const Block &block : blocks) {
    expectUnchanged(block, "although nothing was written to it");
  }
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void giveLargeBlocks(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool(MORVA_POOL_RECORDS);
  for (const uint64_t megabytes : {3, 17, 64, 200}) {
    const uint64_t size = (megabytes << 20) + 16;
    unsigned char *block = taken(pool, size);
    std::memset(block, 0xA5, 4096);
    std::memset(block + size - 4096, 0x5A, 4096);
    expect(block[4095] == 0xA5 && block[size - 1] == 0x5A && block[size - 4096] == 0x5A,
           "a block of " + shown(size) + " bytes does not hold what was written to it");
    pool->free(pool, block);
  }
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void giveBlocksOfNoBytes(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool();
  for (const uint32_t options : {UINT32_C(0), MORVA_ZERO_FILL}) {
    unsigned char *first = taken(pool, 0, options);
    unsigned char *filled = taken(pool, 40);
    fillWith(filled, 40, 1);
    unsigned char *second = taken(pool, 0, options);
    pool->free(pool, first);
    pool->free(pool, second);
    expect(isFilledWith(filled, 40, 1), "freeing a block of no bytes changes another block");
    pool->free(pool, filled);
  }
  pool->destroy(pool);
  host.endWithNothingLeft();
}

// Blocks that were written to and freed are what a host that forgets to zero
// hands out again.
void fillWithZeros(const Subject &subject) {
  Host host(subject);
  for (const uint32_t poolOptions : kPoolOptions) {
    HostPool *pool = host.pool(poolOptions);
    for (int round = 0; round < 3; ++round) {
      for (const uint64_t size :
           {1, 8, 16, 24, 40, 88, 100, 496, 1000, 4096, 5000, 40000, 300000, 3000000}) {
        std::vector<unsigned char *> blocks;
        for (int i = 0; i < 3; ++i) {
          blocks.push_back(taken(pool, size));
          std::memset(blocks.back(), 0xDB, size);
        }
        for (unsigned char *block : blocks) pool->free(pool, block);
        for (unsigned char *&block : blocks) {
          block = taken(pool, size, MORVA_ZERO_FILL);
          const auto *wrong =
              std::find_if(block, block + size, [](unsigned char byte) { return byte != 0; });
          if (wrong != block + size) {
            throw Unmet("byte " + shown(wrong - block) + " of a block of " + shown(size) +
                        " bytes is not zero as asked for");
          }
          std::memset(block, 0xDB, size);
        }
        for (unsigned char *block : blocks) pool->free(pool, block);
      }
    }
    pool->destroy(pool);
  }
  host.endWithNothingLeft();
}

void expectApart(std::vector<Block> &blocks) {
  std::ranges::sort(blocks, {}, &Block::start);
  for (size_t i = 1; i < blocks.size(); ++i) {
    if (blocks[i - 1].start + blocks[i - 1].size <= blocks[i].start) continue;
    throw Unmet("a block of " + shown(blocks[i - 1].size) + " bytes and one of " +
                shown(blocks[i].size) + " overlap");
  }
}

void doNotOverlap(const Subject &subject) {
  Host host(subject);
  Random numbers(1);
  std::vector<HostPool *> pools;
  for (const uint32_t options : kPoolOptions) pools.push_back(host.pool(options));
  std::vector<Block> blocks;
  std::vector<HostPool *> poolOf;
  for (int i = 0; i < 6000; ++i) {
    HostPool *pool = pools[numbers.below(pools.size())];
    const uint64_t size = 1 + numbers.below(i % 50 == 0 ? 20000 : 300);
    blocks.push_back({taken(pool, size), size, 0});
    poolOf.push_back(pool);
  }
  for (size_t i = 0; i < blocks.size(); i += 2) poolOf[i]->free(poolOf[i], blocks[i].start);
  // What was freed is used again beside what was not.
  for (size_t i = 0; i < blocks.size(); i += 2) {
    blocks[i] = {taken(poolOf[i], blocks[i].size), blocks[i].size, 0};
  }
  expectApart(blocks);
  for (HostPool *pool : pools) pool->destroy(pool);
  host.endWithNothingLeft();
}

void keepContents(const Subject &subject) {
  Host host(subject);
  for (const uint32_t options : kPoolOptions) {
    HostPool *pool = host.pool(options);
    Random numbers(options + 7);
    std::vector<Block> live;
    for (int step = 0; step < 12000; ++step) {
      if (live.size() < 40 || (live.size() < 900 && numbers.below(2) == 0)) {
        const uint64_t size = numbers.below(step % 100 == 0 ? 30000 : 400);
        live.push_back({taken(pool, size), size, numbers.next()});
        fillWith(live.back().start, size, live.back().seed);
      } else {
        Block &block = live[numbers.below(live.size())];
        expectUnchanged(block, "before it was freed");
        pool->free(pool, block.start);
        block = live.back();
        live.pop_back();
      }
    }
    for (const Block &block : live) {
      expectUnchanged(block, "before it was freed");
    }
    pool->destroy(pool);
  }
  host.endWithNothingLeft();
}

// What may be held beyond what is in use: allocators keep some. A checking one,
// as this program may have itself, holds freed memory back for a while.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsChecked = true;
#elif defined(__has_feature)
constexpr bool kIsChecked = __has_feature(address_sanitizer);
#else
constexpr bool kIsChecked = false;
#endif
constexpr uint64_t kMayBeHeld = UINT64_C(1) << (kIsChecked ? 29 : 27);
constexpr int kRounds = kIsChecked ? 24 : 7;  // of 25 MiB each

void expectNoGrowth(uint64_t before, const char *what) {
  const uint64_t now = residentBytes();
  expect(now < before + kMayBeHeld,
         "memory in use has grown by " + shown((now - before) >> 20) + " MiB although " + what);
}

void reuseWhatIsFreed(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool();
  const uint64_t before = residentBytes();
  for (int round = 0; round < kRounds; ++round) {
    std::vector<unsigned char *> blocks;
    for (int i = 0; i < 400; ++i) {
      const uint64_t size = round % 2 == 0 ? 65536 : 50000;
      blocks.push_back(taken(pool, size));
      for (uint64_t at = 0; at < size; at += 4096) blocks.back()[at] = 1;
    }
    for (unsigned char *block : blocks) pool->free(pool, block);
  }
  expectNoGrowth(before, "every block was freed");
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void destroyReleasesEveryBlock(const Subject &subject) {
  Host host(subject);
  HostPool *other = host.pool();
  const uint64_t before = residentBytes();
  for (int round = 0; round < kRounds; ++round) {
    HostPool *pool = host.pool(kPoolOptions[round % 3]);
    for (int i = 0; i < 400; ++i) {
      unsigned char *block = taken(pool, 65536);
      for (uint64_t at = 0; at < 65536; at += 4096) block[at] = 1;
    }
    pool->destroy(pool);
  }
  expectNoGrowth(before, "every pool was destroyed");
  other->destroy(other);
  host.endWithNothingLeft();
}

void areIndependent(const Subject &subject) {
  Host host(subject);
  std::vector<HostPool *> pools;
  std::vector<std::vector<Block>> blocks;
  for (uint64_t i = 0; i < 12; ++i) {
    pools.push_back(host.pool(kPoolOptions[i % 3]));
    blocks.emplace_back();
    for (uint64_t k = 0; k < 50; ++k) {
      const uint64_t size = 1 + k * 13;
      blocks.back().push_back({taken(pools.back(), size), size, i * 100 + k});
      fillWith(blocks.back().back().start, size, i * 100 + k);
    }
  }
  for (size_t gone = 0; gone < pools.size(); ++gone) {
    for (size_t i = gone; i < pools.size(); ++i) {
      for (const Block &block : blocks[i]) {
        expectUnchanged(block, "when another pool was destroyed");
      }
    }
    pools[gone]->destroy(pools[gone]);
  }
  host.endWithNothingLeft();
}

void serveOtherThreadsInTurn(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool(MORVA_POOL_RECORDS);
  std::vector<Block> live;
  for (uint64_t turn = 0; turn < 20; ++turn) {
    Task([&] {
      for (const Block &block : live) {
        expectUnchanged(block, "since another thread filled it");
      }
      for (size_t i = 0; i + 1 < live.size(); i += 2) pool->free(pool, live[i].start);
      for (size_t i = 0; i + 1 < live.size(); i += 2) {
        live[i] = {taken(pool, 200), 200, turn};
        fillWith(live[i].start, 200, turn);
      }
      for (uint64_t i = 0; i < 20; ++i) {
        live.push_back({taken(pool, 200), 200, turn * 100 + i});
        fillWith(live.back().start, 200, live.back().seed);
      }
    }).wait();
  }
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void extensionPoolServesThreads(const Subject &subject) {
  Host host(subject);
  HostPool *pool = host.pool(0, "MORVA Extension");
  std::mutex mutex;
  std::deque<Block> handedOver;
  inThreads(4, [&](unsigned thread) {
    Random numbers(thread);
    std::vector<Block> own;
    for (int step = 0; step < 6000; ++step) {
      const uint64_t size = 1 + numbers.below(step % 200 == 0 ? 20000 : 500);
      const bool zero = numbers.below(4) == 0;
      Block block{taken(pool, size, zero ? MORVA_ZERO_FILL : 0), size, numbers.next()};
      if (zero) {
        const bool clean = std::all_of(block.start, block.start + size,
                                       [](unsigned char byte) { return byte == 0; });
        expect(clean, "a block is not zeroed as asked for while other threads use the pool");
      }
      fillWith(block.start, size, block.seed);
      own.push_back(block);
      if (own.size() < 30) continue;
      // Freed by this thread, or by another one.
      std::swap(own[numbers.below(own.size())], own.back());
      const Block done = own.back();
      own.pop_back();
      expectUnchanged(done, "while other threads use the pool");
      const std::lock_guard guard(mutex);
      handedOver.push_back(done);
      if (handedOver.size() < 100) continue;
      const Block foreign = handedOver.front();
      handedOver.pop_front();
      expectUnchanged(foreign, "while other threads use the pool");
      pool->free(pool, foreign.start);
    }
    for (const Block &block : own) pool->free(pool, block.start);
  });
  for (const Block &block : handedOver) pool->free(pool, block.start);
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void alwaysGive(const Subject &subject) {
  Host host(subject);
  for (const uint32_t options : kPoolOptions) {
    HostPool *pool = host.pool(options);
    for (int i = 0; i < 20000; ++i) {
      unsigned char *block = taken(pool, 1 + static_cast<uint64_t>(i) % 600);
      if (i % 3 != 0) pool->free(pool, block);
    }
    pool->destroy(pool);
  }
  host.endWithNothingLeft();
}

constexpr Check kChecks[] = {
    {"pools.have-their-slots", "A pool has the three slots that are called.", hasItsSlots},
    {"pools.align-blocks", "Every block is aligned to 8 bytes at least.", alignBlocks},
    {"pools.give-whole-blocks", "Every byte of a block can be used, whatever its size is.",
     giveWholeBlocks},
    {"pools.give-large-blocks", "A block may have hundreds of megabytes.", giveLargeBlocks},
    {"pools.give-blocks-of-no-bytes", "A block of no bytes can be had and freed.",
     giveBlocksOfNoBytes},
    {"pools.always-give", "Without a memory limit no small block is refused.", alwaysGive},
    {"pools.fill-with-zeros",
     "A block that is asked for with MORVA_ZERO_FILL is all zero bytes, used before or not.",
     fillWithZeros},
    {"pools.keep-blocks-apart", "Blocks that are in use do not overlap.", doNotOverlap},
    {"pools.keep-contents", "What is written to a block stays there until the block is freed.",
     keepContents},
    {"pools.reuse-what-is-freed", "The memory of freed blocks is used again.", reuseWhatIsFreed},
    {"pools.destroy-releases-every-block",
     "Destroying a pool releases the blocks that were not freed.", destroyReleasesEveryBlock},
    {"pools.are-independent", "Destroying a pool leaves the blocks of other pools alone.",
     areIndependent},
    {"pools.serve-other-threads-in-turn",
     "The pools of an instance may be used by one thread after another.", serveOtherThreadsInTurn},
    {"pools.extension-pool-serves-threads",
     "A pool with option 0, as the extension's is, may be used from several threads at once.",
     extensionPoolServesThreads},
};

}  // namespace

std::span<const Check> hostPoolChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
