// Hosts that break one promise each. They are the embedded host with other
// functions in the tables that it hands out. Which fault a library has is said by
// the name under which it is loaded: FAULT.so.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "morva/check_host.h"
#include "morva/record_packer.h"
#include "morva/tree_container.h"

namespace faulty {

extern const std::string theFault;

inline bool faultIs(std::string_view name) {
  return name == theFault;
}

// The embedded host's own functions.
struct Originals {
  HostServices services;
  RecordPackerExt packers;
  RecordPacker packer;
  TreeExt trees;
  TreeContainer tree;
  OrderListExt lists;
};
extern Originals originals;

// What is known of objects, by their addresses; from any thread.
template <class Value>
class Known {
 public:
  // Stays where it is.
  Value &of(const void *object) {
    const std::lock_guard guard(mutex_);
    return values_[object];
  }

 private:
  std::mutex mutex_;
  std::map<const void *, Value> values_;
};

// Each puts the functions of the fault, if it is one of its kind, into a table
// that is about to be handed out.
void spoilServices(HostServices *services);
void spoilPool(HostPool *pool, const PoolOptions *options, const char *name);
void spoilLock(HostLock *lock, const LockOptions *options);
void spoilPackers(RecordPackerExt *packers);
void spoilTrees(TreeExt *trees);
void spoilLists(OrderListExt *lists);

}  // namespace faulty
