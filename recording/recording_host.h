// A host made for tests and checks. It hands out garbage-filled memory between
// guard bytes, writes down every call an extension makes, lets the n-th call of
// any service that can fail, fail, and knows at every moment what is still alive.
//
// Its blocks are aligned to 8 bytes and no better, its unused slots abort when
// called, and what a contract calls "not examined" it answers with noise. All
// of it may be used from several threads at once; the log, the packer blocks
// and the counts are to be read when the library is at rest.
//
// It shares no code with the embedded host: its tree container, order list and
// record packer are the plainest that can work.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "morva/morva.h"

namespace morva::recording {

// What a recorded call was. `object` in Event numbers the object called (pools,
// locks, ... are numbered from 1 in the order they were made, each kind for
// itself), or the object that came out of a call that makes one (0 on failure).
enum class Call {
  createLock,     // text = name; a = context word; b = option byte 0, c = option byte 1;
                  // d = the name pointer itself
  createPool,     // text = name; a = context word; b = option word
  loadExtension,  // text = name; a = length; b = last argument
  allocate,       // object = pool; text = pool name; a = size; b = option word; c = block address
  freeBlock,      // object = pool; text = pool name; c = block address
  destroyPool,    // object = pool; text = pool name
  acquire,        // object = lock; text = lock name; a = mode; b = wait
  release,        // object = lock; text = lock name; a = 1 when nobody had acquired it
  destroyLock,    // object = lock; text = lock name
  makePacker,     // object = packer; a = argument
  makeTree,  // object = tree; a = word0, b = word1, c = callbacks; d = both last arguments ored
  makeOrderList,     // object = list; c = the companion handed over
  releaseCompanion,  // text = companion name
  destroyPacker,
  destroyTree,
  destroyOrderList,
  defineField,
  finish,      // a = the answer; the blocks are in RecordingHost::fields
               // and ::closings
  pack,        // a = host key, b = destination, c = last argument
  treeNext,    // a = node, b = answer
  treeInsert,  // a = node, b = answer, c = bucket address, d = bucket array
  treeFind,
  treeRemove,
  treeFirst,  // a = probe, b = answer, c = bucket address
  append,     // a = order node, b = its record
  unlink,     // a = the record of the image, b = answer
};

// Calls that answer something are written down when they come back, so that
// what a tree container called in between stands before it.
struct Event {
  Call call;
  uint32_t object = 0;
  std::string text;
  uint64_t a = 0, b = 0, c = 0, d = 0;
};

// The calls that can be made to fail: createLock, createPool, loadExtension,
// allocate, makePacker, makeTree, makeOrderList, defineField, finish.
bool canFail(Call call);

class RecordingHost {
 public:
  struct Options {
    uint8_t garbage = 0xA5;      // fills memory not asked to be zero
    bool treeLocks = false;      // container calls the safe callbacks, its object carries a lock
    bool orderListLock = false;  // the order list carries a lock
    bool poolAddressesAscend = false;  // each block lies above the ones before, none is reused
    uint64_t lazyFrom = uint64_t{64} << 20;  // blocks of this size are mapped, not filled
  };

  RecordingHost();
  explicit RecordingHost(const Options &options);
  ~RecordingHost();  // frees whatever is left; checks nothing
  RecordingHost(const RecordingHost &) = delete;
  RecordingHost &operator=(const RecordingHost &) = delete;

  HostServices *services();

  // ---- failures ---------------------------------------------------------------
  void failNth(uint64_t n);      // the n-th (from 1) call that can fail from now on, once
  void failFromNth(uint64_t n);  // that one and all later ones
  void failCall(Call call, uint64_t n = 1);  // the n-th call of that kind from now on, once
  void failNever();
  uint64_t failuresDelivered() const;  // since the last of the calls above

  // ---- the log ----------------------------------------------------------------
  const std::vector<Event> &events() const;
  void forget();            // empties the log
  void keepLog(bool keep);  // long runs switch it off; counting goes on
  std::vector<Event> eventsOf(Call call) const;
  uint64_t count(Call call) const;
  // One word per event, such as "createPool(records) allocate(records) acquire release".
  // A tree's or an order list's lock is named, "acquire(tree)"; a call answered with a
  // failure, or a release of a lock that nobody holds, ends in "!".
  std::string story() const;

  // ---- packer blocks as they came ---------------------------------------------
  std::vector<PackerField> fields;
  std::vector<PackerClosing> closings;
  std::vector<std::string> closingNames;  // copied while the call ran

  // ---- what is alive ----------------------------------------------------------
  uint64_t poolsAlive() const;
  uint64_t blocksAlive() const;  // blocks not freed, in pools not destroyed
  uint64_t blocksAlive(const std::string &pool) const;
  uint64_t bytesAlive(const std::string &pool) const;
  uint64_t locksAlive() const;
  uint64_t companionsAlive() const;
  uint64_t objectsAlive() const;  // packers, trees, order lists
  bool nothingAlive() const;
  bool isBlock(const void *address) const;        // a living block starts there
  uint64_t blockSize(const void *address) const;  // its size, 0 when there is none
  std::string alive() const;                      // for messages

  // ---- locks ------------------------------------------------------------------
  // "alive" counts the locks that createLock made; a tree's or an order list's lock, named
  // "tree" and "order", lives and ends with its object.
  // Acquisitions minus releases of all locks, never below 0; releases that had
  // no acquisition are counted apart and do nothing.
  uint64_t locksHeld() const;
  uint64_t unmatchedReleases() const;
  uint64_t mostLocksHeldAtOnce() const;  // since the last forget()

  // ---- misuse the host noticed: overwritten guards, unknown or freed blocks,
  // destroyed objects used, wrong arguments (mode, wait, zeros). Empty when all is well.
  const std::vector<std::string> &complaints() const;
  void checkGuards();  // adds complaints for every damaged live block

  // ---- hooks ------------------------------------------------------------------
  // Runs after every recorded event; may be empty.
  std::function<void(const Event &)> onEvent;

  // The insertion order the list holds, first to last, as record nodes.
  std::vector<RecordNode *> order(const MORVAInst *inst) const;

  struct State;  // internal, defined in the source file

 private:
  std::unique_ptr<State> state_;
};

// A host whose table is in Exported_QZHandle and an extension on it; destroys
// the extension (not the instances) at the end of its scope. Defined here so
// that the test program itself calls for the library's symbols, whichever way
// it is linked.
class Extension {
 public:
  explicit Extension(RecordingHost &host, void *context = nullptr) : ext_(load(host, context)) {}
  ~Extension() {
    if (ext_ != nullptr) ext_->RealDestroy(ext_);
  }
  Extension(const Extension &) = delete;
  Extension &operator=(const Extension &) = delete;
  MORVAExt *get() const { return ext_; }
  MORVAExt *operator->() const { return ext_; }

 private:
  static MORVAExt *load(RecordingHost &host, void *context) {
    qzextent(host.services());
    return morva::morva(nullptr, context);
  }

  MORVAExt *ext_;
};

}  // namespace morva::recording
