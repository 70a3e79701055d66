// Blocks between guard bytes. Under the address sanitizer the guards are
// poisoned too, so that a read beyond a block is found as well as a write.
#include <sys/mman.h>

#include <cstdlib>

#include "recording_state.h"

#if defined(__SANITIZE_ADDRESS__)
#define MORVA_RECORDING_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MORVA_RECORDING_ASAN 1
#endif
#endif
#ifdef MORVA_RECORDING_ASAN
#include <sanitizer/asan_interface.h>
#define MORVA_RECORDING_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define MORVA_RECORDING_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define MORVA_RECORDING_POISON(address, size) (static_cast<void>(address), static_cast<void>(size))
#define MORVA_RECORDING_UNPOISON(address, size) \
  (static_cast<void>(address), static_cast<void>(size))
#endif

namespace morva::recording {
namespace {

// 24 makes blocks 8-aligned where the memory around them is 16-aligned.
constexpr uint64_t kGuardSize = 24;
constexpr unsigned char kGuardByte = 0xFB;
constexpr unsigned char kFreedByte = 0x5D;
constexpr uint64_t kArenaSize = uint64_t{1} << 32;
constexpr uint64_t kLargestBlock = uint64_t{1} << 45;

void *map(uint64_t size) {
  void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return memory == MAP_FAILED ? nullptr : memory;
}

unsigned char *frontGuard(const Block &block) {
  return block.raw;
}
unsigned char *backGuard(const Block &block) {
  return block.raw + kGuardSize + block.size;
}
unsigned char *body(const Block &block) {
  return block.raw + kGuardSize;
}

void closeGuards(const Block &block) {
  MORVA_RECORDING_POISON(frontGuard(block), kGuardSize);
  MORVA_RECORDING_POISON(backGuard(block), block.raw + block.rawSize - backGuard(block));
}

void openGuards(const Block &block) {
  MORVA_RECORDING_UNPOISON(block.raw, block.rawSize);
}

}  // namespace

bool State::takeRaw(uint64_t rawSize, Block *block) {
  block->rawSize = rawSize;
  if (block->size >= options.lazyFrom) {
    block->origin = Origin::mapping;
    block->raw = static_cast<unsigned char *>(map(rawSize));
    return block->raw != nullptr;
  }
  if (options.poolAddressesAscend) {
    if (arena == nullptr) arena = static_cast<unsigned char *>(map(kArenaSize));
    if (arena == nullptr || rawSize > kArenaSize - arenaUsed) return false;
    block->origin = Origin::arena;
    block->raw = arena + arenaUsed;
    arenaUsed += (rawSize + 15) / 16 * 16;
    return true;
  }
  block->origin = Origin::heap;
  block->raw = static_cast<unsigned char *>(std::malloc(rawSize));
  return block->raw != nullptr;
}

void State::giveRaw(const Block &block) {
  openGuards(block);
  switch (block.origin) {
    case Origin::heap:
      std::memset(block.raw, kFreedByte, block.rawSize);
      std::free(block.raw);
      break;
    case Origin::mapping:
      munmap(block.raw, block.rawSize);
      break;
    case Origin::arena:
      std::memset(block.raw, kFreedByte, block.rawSize);
      MORVA_RECORDING_POISON(block.raw, block.rawSize);
      break;
  }
}

void *State::take(Pool &pool, uint64_t size, uint32_t blockOptions) {
  if (size > kLargestBlock) return nullptr;
  std::lock_guard<std::recursive_mutex> guard(mutex);
  Block block;
  block.pool = &pool;
  block.size = size;
  if (!takeRaw(size + 2 * kGuardSize, &block)) return nullptr;
  const bool zero = (blockOptions & MORVA_ZERO_FILL) != 0;
  // Fresh mappings are zero, and touching them all would make them real.
  if (block.origin != Origin::mapping) std::memset(body(block), zero ? 0 : options.garbage, size);
  std::memset(frontGuard(block), kGuardByte, kGuardSize);
  std::memset(backGuard(block), kGuardByte, kGuardSize);
  closeGuards(block);
  blocks[body(block)] = block;
  return body(block);
}

bool State::guardsIntact(const Block &block) const {
  openGuards(block);
  bool intact = true;
  for (uint64_t at = 0; at != kGuardSize; ++at) {
    intact = intact && frontGuard(block)[at] == kGuardByte && backGuard(block)[at] == kGuardByte;
  }
  closeGuards(block);
  return intact;
}

void State::give(Pool &pool, void *address) {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  const auto found = blocks.find(address);
  if (found == blocks.end()) {
    complain("freed what is no living block, to pool " + pool.name);
    return;
  }
  if (found->second.pool != &pool) {
    complain("freed a block of pool " + found->second.pool->name + " to pool " + pool.name);
  }
  if (!guardsIntact(found->second))
    complain("freed a block with damaged guards, pool " + pool.name);
  giveRaw(found->second);
  blocks.erase(found);
}

void State::giveAll(Pool &pool) {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  for (auto at = blocks.begin(); at != blocks.end();) {
    if (at->second.pool != &pool) {
      ++at;
      continue;
    }
    if (!guardsIntact(at->second)) {
      complain("a block of pool " + pool.name + " ended with damaged guards");
    }
    giveRaw(at->second);
    at = blocks.erase(at);
  }
}

void State::checkGuards() {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  for (const auto &[address, block] : blocks) {
    if (!guardsIntact(block)) {
      complain("a block of pool " + block.pool->name + " has damaged guards");
    }
  }
}

State::~State() {
  for (const auto &[address, block] : blocks) giveRaw(block);
  if (arena != nullptr) {
    MORVA_RECORDING_UNPOISON(arena, arenaUsed);
    munmap(arena, kArenaSize);
  }
}

}  // namespace morva::recording
