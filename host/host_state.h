// A host: its service table with everything it has handed out behind it.
//
// Whatever the host makes is a structure that starts with the public table of
// its kind, so that the address the library knows is the address of the object,
// and is on one of the lists here from its making to its destruction: that is
// how QZHostDestroy finds what is left.
//
// Thread-safety. `mutex` guards the lists and is held for the time of linking
// and unlinking only. `loading` is held while an extension is loaded or
// unloaded, library code included; it is taken before `mutex`. Counters are
// atomic. Making a service table call from within QZHostLoad is therefore fine.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <type_traits>

#include "idle_segments.h"
#include "intrusive_list.h"
#include "loader.h"
#include "lock.h"
#include "mapping.h"
#include "morva/host.h"
#include "morva/host_services.h"
#include "order_list.h"
#include "packer.h"
#include "pool.h"
#include "tree.h"

namespace qzhost {

// A companion: one object for all instances of a host, counted by its loads.
template <class Table>
struct Companion {
  Table table{};
  QZHost *host = nullptr;
  std::atomic<uint32_t> loads{0};

  void load() { loads.fetch_add(1, std::memory_order_relaxed); }
  // One load less; none less when there is none.
  void release() {
    uint32_t now = loads.load(std::memory_order_relaxed);
    while (now != 0 && !loads.compare_exchange_weak(now, now - 1, std::memory_order_relaxed)) {
    }
  }
  static Companion *of(Table *table) { return reinterpret_cast<Companion *>(table); }
};

}  // namespace qzhost

struct QZHost {
  explicit QZHost(const QZHostOptions &options);

  HostServices services{};
  const QZHostOptions options;
  qzhost::MemoryAccount memory;
  qzhost::IdleSegments idle{&memory};
  std::atomic<uint64_t> unmatchedReleases{0};

  qzhost::Companion<RecordPackerExt> packerExt;
  qzhost::Companion<TreeExt> treeExt;
  qzhost::Companion<OrderListExt> orderListExt;

  std::mutex mutex;
  qzhost::List<qzhost::Pool, &qzhost::Pool::link> pools;
  qzhost::List<qzhost::Lock, &qzhost::Lock::link> locks;
  qzhost::List<qzhost::Packer, &qzhost::Packer::link> packers;
  qzhost::List<qzhost::Tree, &qzhost::Tree::link> trees;
  qzhost::List<qzhost::OrderedList, &qzhost::OrderedList::link> orderLists;
  qzhost::List<qzhost::Extension, &qzhost::Extension::link> extensions;

  std::mutex loading;

  // A different unpredictable number for every pool.
  uint64_t nextSecret();
  // Called under `mutex` when a pool goes: an extension whose pool it was has
  // been destroyed with it.
  void forgetExtensionOf(const qzhost::Pool *pool);

  // What nextSecret() counts from.
  std::atomic<uint64_t> secret;
};

namespace qzhost {

// The host whose service table it is; null for null.
inline QZHost *hostOf(HostServices *services) {
  return reinterpret_cast<QZHost *>(services);
}

// Puts a new object on its host's list, or takes one off.
template <class ListType, class T>
void enlist(QZHost *host, ListType &list, T *object) {
  const std::lock_guard guard(host->mutex);
  list.pushBack(object);
}
template <class ListType, class T>
void delist(QZHost *host, ListType &list, T *object) {
  const std::lock_guard guard(host->mutex);
  list.remove(object);
}

}  // namespace qzhost
