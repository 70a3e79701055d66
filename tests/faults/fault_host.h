// A host that fails on command, small and quick enough to be made some hundred thousand times: no
// log, no map, no text. It knows every call that the interface lets fail, counts what is alive and
// which locks are held, and keeps the first misuse it notices.
//
// For one thread. What a contract calls "not examined" it answers with noise, and its blocks are
// aligned to 8 bytes and no better, filled with garbage unless zeros are asked for, and guarded.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "fault_plan.h"
#include "morva/morva.h"

namespace fault_test {

// What can fail, by what is asked for. The interface defines no other failure:
//  - acquire comes back only with the lock held, and its result is not examined;
//  - the result of pack is not examined;
//  - insert, find, first and next of a tree answer what is there, null where nothing is; remove
//    is called, under the lock, for a key that find has just answered, so null is no answer to it;
//  - append answers nothing; release, free and destroy answer nothing.
enum class Asked : uint8_t {
  extensionPool,
  recordPool,
  varkeyPool,
  inodePool,
  extensionBlock,  // the extension object, an instance, its name, its buckets
  recordBlock,
  varkeyBlock,
  inodeBlock,
  lock,
  packerCompanion,
  treeCompanion,
  orderCompanion,
  packer,
  field,   // a field of the definition, refused
  finish,  // the end of the definition, refused
  tree,
  orderList,
  unlink,  // the order list does not know the record any more
};
inline constexpr size_t kAskedKinds = static_cast<size_t>(Asked::unlink) + 1;

const char *nameOf(Asked asked);

// A short sequence of what was asked for, or is expected to be.
class Sequence {
 public:
  void add(Asked asked) {
    if (size_ < kMost) asked_[size_] = asked;
    ++size_;
  }
  size_t size() const { return size_; }
  Asked operator[](size_t i) const { return asked_[i]; }
  bool operator==(const Sequence &other) const {
    if (size_ != other.size_ || size_ > kMost) return false;
    for (size_t i = 0; i < size_; ++i) {
      if (asked_[i] != other.asked_[i]) return false;
    }
    return true;
  }

 private:
  static constexpr size_t kMost = 32;
  size_t size_ = 0;
  std::array<Asked, kMost> asked_;
};

class FaultHost {
 public:
  // With container locks the tree container calls the safe callbacks, and the order list has a
  // lock too.
  explicit FaultHost(bool containerLocks);
  ~FaultHost();  // frees whatever is left; checks nothing
  FaultHost(const FaultHost &) = delete;
  FaultHost &operator=(const FaultHost &) = delete;

  HostServices *services() { return &services_; }

  // ---- failures ---------------------------------------------------------------
  // The n-th call from now on that can fail, from 1; 0 fails none. What is asked for from now on
  // is written down.
  void arm(Failing failing, uint64_t n);
  void disarm() { arm(Failing::once, 0); }
  uint64_t delivered() const { return plan_.delivered(); }
  const Sequence &asked() const { return asked_; }

  // ---- what is alive ----------------------------------------------------------
  struct Alive {
    uint32_t pools = 0, blocks = 0, locks = 0, companions = 0, objects = 0;
    bool operator==(const Alive &) const = default;
  };
  const Alive &alive() const { return alive_; }
  uint32_t varkeyBlocks() const { return varkeyBlocks_; }
  // Destroys the locks made since `first` locks had been made: those left to the host.
  size_t locksMade() const { return store_->locks.used; }
  void destroyLocksSince(size_t first);

  // ---- locks: instance locks, and those of trees and order lists -----------------
  uint32_t held() const { return held_; }
  uint32_t unmatchedReleases() const { return unmatched_; }

  // The first misuse noticed; null when there was none.
  const char *complaint() const { return complaint_; }

  struct Services : HostServices {
    FaultHost *host;
  };
  struct Pool;
  struct Block {  // in front of every block; the address behind it is 8 past a multiple of 16
    Block *previous, *next;
    Pool *pool;
    uint64_t size;
    uint64_t guard;
  };
  struct Pool : HostPool {
    FaultHost *host;
    Block blocks;  // a ring
    Asked kind;    // of its blocks
    bool alive;
  };
  struct Lock : HostLock {
    FaultHost *host;
    uint32_t depth;
    bool ofServices, alive;
  };
  struct PackerExt : RecordPackerExt {
    FaultHost *host;
    uint32_t loads;
  };
  struct Packer : RecordPacker {
    FaultHost *host;
    uint32_t fieldCount;
    bool finished, alive;
    std::array<PackerField, 8> fields;
  };
  struct ContainerExt : TreeExt {
    FaultHost *host;
    uint32_t loads;
  };
  struct Container : TreeContainer {
    FaultHost *host;
    const TreeCallbacks *callbacks;
    bool alive;
  };
  struct ListExt : OrderListExt {
    FaultHost *host;
    uint32_t loads;
  };
  struct List : OrderList {
    FaultHost *host;
    OrderNode *last;
    bool alive;
  };

  struct Functions;  // what the tables hold

 private:
  bool fails(Asked asked);
  void complain(const char *text) {
    if (complaint_ == nullptr) complaint_ = text;
  }

  Services services_;
  bool containerLocks_;

  FaultPlan plan_;
  Sequence asked_;

  Alive alive_;
  uint32_t varkeyBlocks_ = 0;
  uint32_t held_ = 0;
  uint32_t unmatched_ = 0;
  const char *complaint_ = nullptr;

  PackerExt packerExt_;
  ContainerExt containerExt_;
  ListExt listExt_;
  // Objects are not used again before the host ends, so that a call on one that has ended is
  // noticed. The next host takes their memory over.
  template <class Object>
  struct Objects {
    std::vector<std::unique_ptr<Object>> made;
    size_t used = 0;

    Object *take() {
      if (used == made.size()) made.push_back(std::make_unique<Object>());
      return made[used++].get();
    }
  };
  struct Store {
    Objects<Pool> pools;
    Objects<Lock> locks;
    Objects<Packer> packers;
    Objects<Container> containers;
    Objects<List> lists;
  };
  static std::unique_ptr<Store> takeStore();

  static std::unique_ptr<Store> spareStore_;
  std::unique_ptr<Store> store_ = takeStore();
};

}  // namespace fault_test
