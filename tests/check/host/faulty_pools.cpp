// Faults of pools.

#include <sched.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "faulty_host.h"

namespace faulty {

namespace {

struct PoolState {
  HostPool original{};
  bool shared = false;
  const char *name = nullptr;
  // A block that was freed, and how often it may still be handed out.
  void *freed = nullptr;
  uint64_t freedSize = 0;
  int handOuts = 0;
  uint64_t allocations = 0;
  std::thread::id owner;
  bool refused = false;
  void *first = nullptr;
  uint64_t firstSize = 0;
};

Known<PoolState> pools;
Known<uint64_t> sizes;
std::atomic<PoolState *> lastPool{nullptr};

void *allocate(HostPool *pool, uint64_t size, uint32_t options) {
  PoolState &state = pools.of(pool);
  const auto original = [&](uint64_t bytes, uint32_t with) {
    return static_cast<unsigned char *>(state.original.allocate(pool, bytes, with));
  };
  // As for the text of an error.
  if (faultIs("keeps-names-by-address") && *static_cast<const volatile char *>(state.name) == '?') {
    return nullptr;
  }
  if (faultIs("aligns-to-4")) {
    unsigned char *block = original(size + 4, options);
    return block == nullptr ? nullptr : block + 4;
  }
  if (faultIs("forgets-to-zero")) return original(size, 0);
  if (faultIs("zeroes-the-first-page-only") && options != 0) {
    unsigned char *block = original(size, 0);
    if (block != nullptr) std::memset(block, 0, size < 4096 ? size : 4096);
    return block;
  }
  if (faultIs("gives-null-at-times") && ++state.allocations % 997 == 0) return nullptr;
  if (faultIs("gives-half-of-the-bytes")) return original(size / 2, options);
  if (faultIs("serves-its-first-thread-only")) {
    if (state.allocations++ == 0) state.owner = std::this_thread::get_id();
    if (state.owner != std::this_thread::get_id()) return nullptr;
  }
  if (faultIs("has-no-empty-blocks") && size == 0) return nullptr;
  if (faultIs("has-no-large-blocks") && size > 16 << 20) return nullptr;
  if (faultIs("hands-freed-blocks-out-twice")) {
    if (state.handOuts > 0 && size <= state.freedSize && size > 0) {
      --state.handOuts;
      if (options != 0) std::memset(state.freed, 0, size);
      return state.freed;
    }
    void *block = original(size, options);
    sizes.of(block) = size;
    return block;
  }
  // From elsewhere, so that the pool does not know them when it goes.
  if (faultIs("leaves-blocks-behind")) return std::calloc(1, size + 16);
  if (faultIs("is-not-safe-in-threads") && state.shared) {
    static std::atomic<void *> next{nullptr};
    next = original(size, options);
    sched_yield();
    return next;
  }
  if (faultIs("writes-to-other-pools") && state.first == nullptr && size > 0) {
    state.first = original(size, options);
    state.firstSize = size;
    return state.first;
  }
  if (faultIs("wraps-large-sizes")) {
    const uint64_t withHeader = size + 64;
    return original(withHeader < 64 ? 64 : size, options);
  }
  void *block = original(size, options);
  if (faultIs("crashes-at-the-limit") && block == nullptr) std::abort();
  if (faultIs("refuses-for-ever")) {
    if (block == nullptr) state.refused = true;
    return state.refused ? nullptr : block;
  }
  return block;
}

void freeBlock(HostPool *pool, void *block) {
  PoolState &state = pools.of(pool);
  if (faultIs("aligns-to-4")) {
    return state.original.free(pool, static_cast<unsigned char *>(block) - 4);
  }
  if (faultIs("never-frees")) return;
  if (faultIs("leaves-blocks-behind")) return std::free(block);
  if (faultIs("hands-freed-blocks-out-twice")) {
    // The same block again is passed over.
    if (block == state.freed) return;
    if (state.freed != nullptr) state.original.free(pool, state.freed);
    state.freed = block;
    state.freedSize = sizes.of(block);
    state.handOuts = 2;
    return;
  }
  state.original.free(pool, block);
}

void destroyPool(HostPool *pool) {
  PoolState &state = pools.of(pool);
  if (faultIs("writes-to-other-pools")) {
    PoolState *other = lastPool;
    if (other != nullptr && other != &state && other->first != nullptr) {
      std::memset(other->first, 0xEE, other->firstSize);
    }
    if (other == &state) lastPool = nullptr;
  }
  if (faultIs("destroys-no-pools")) return;
  const HostPool original = state.original;
  state = {};
  original.destroy(pool);
}

}  // namespace

void spoilPool(HostPool *pool, const PoolOptions *options, const char *name) {
  PoolState &state = pools.of(pool);
  state = {};
  state.original = *pool;
  state.shared = options->options == 0;
  state.name = name;
  if (faultIs("writes-to-other-pools")) lastPool = &state;
  pool->allocate = allocate;
  pool->free = freeBlock;
  pool->destroy = destroyPool;
  if (faultIs("has-pools-without-free")) pool->free = nullptr;
}

}  // namespace faulty
