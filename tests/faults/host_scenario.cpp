#include "host_scenario.h"

#include <dlfcn.h>

#include "scenario_table.h"

namespace fault_test {
namespace {

// The tables, which live side by side.
constexpr uint32_t kTables[] = {
    flagFixedKey,
    flagFixedKey | flagNoLock | flagOrdered,
    flagFixedKey | flagOrdered | flagSum | flagMultiData,
    flagVarKey,
    flagVarKey | flagOrdered | flagLockOpt,
    flagSum,
    flagOrdered | flagSum | flagMultiData | flagPackOpt | flagDefineOpt,
};
constexpr size_t kTableCount = std::size(kTables);

// What a table goes through; the tables take turns.
void (ScenarioTable::*const kSteps[])() = {
    &ScenarioTable::addSome, &ScenarioTable::findMany,     &ScenarioTable::addMany,
    &ScenarioTable::check,   &ScenarioTable::addToSums,    &ScenarioTable::removeMany,
    &ScenarioTable::check,   &ScenarioTable::clearKeeping, &ScenarioTable::addSome,
    &ScenarioTable::check,   &ScenarioTable::clear,        &ScenarioTable::addMany,
    &ScenarioTable::check};

class Host {
 public:
  Host(const Surroundings &surroundings, const QZHostOptions &options, Life *life)
      : surroundings_(surroundings), life_(*life), host_(QZHostCreate(&options)) {
    life_.complete = true;
  }

  void run() {
    if (host_ == nullptr) return fail();
    MORVAExt *ext = comeIn();
    if (ext != nullptr) {
      useTables(ext);
      leave(ext);
    }
    QZHostStats left;
    if (QZHostDestroy(host_, &left) != 0) say("the host found something left in use");
    if (left.memoryLimit != 0 && left.bytesMappedPeak > left.memoryLimit) {
      say("more memory was taken than the limit allows");
    }
    if (left.bytesLive != 0) say("the host found blocks left in use");
  }

 private:
  void fail() { life_.complete = false; }
  void say(const std::string &fault) {
    if (life_.fault.empty()) life_.fault = fault;
  }

  MORVAExt *comeIn() {
    char error[256] = "";
    MORVAExt *ext = surroundings_.way() == WayIn::attached
                        ? QZHostAttach(host_, &surroundings_.entryPoints(), error, sizeof error)
                        : QZHostLoad(host_, MORVA_LIBRARY_FILE, error, sizeof error);
    if (ext != nullptr) return ext;
    fail();
    if (error[0] == '\0') say("the library did not come in, and nobody says why");
    QZHostStats stats;
    QZHostGetStats(host_, &stats);
    if (stats.extensions != 0 || stats.pools != 0 || stats.bytesLive != 0) {
      say("a library that did not come in left something behind");
    }
    return nullptr;
  }

  void useTables(MORVAExt *ext) {
    std::vector<ScenarioTable> tables;
    tables.reserve(kTableCount);
    for (const uint32_t flags : kTables) {
      QZHostStats before, after;
      QZHostGetStats(host_, &before);
      ScenarioTable table(ext, flags);
      if (table.isMade()) {
        tables.push_back(std::move(table));
        continue;
      }
      fail();
      QZHostGetStats(host_, &after);
      const uint32_t lockLeft = after.locks - before.locks;
      // A creation whose order list cannot be made leaves its lock to the host.
      locksLeft_ += lockLeft;
      const bool mayLeave = (flags & flagOrdered) != 0 && (flags & flagNoLock) == 0;
      if (lockLeft > (mayLeave ? 1u : 0u) || before.bytesLive != after.bytesLive ||
          before.pools != after.pools || before.companions != after.companions ||
          before.trees != after.trees || before.packers != after.packers ||
          before.orderLists != after.orderLists) {
        say("a table that could not be made left something behind");
      }
    }
    for (const auto step : kSteps) {
      for (ScenarioTable &table : tables) (table.*step)();
    }
    // Statistics allocate nothing.
    QZPoolStats pools[64];
    QZHostStats stats;
    QZHostGetStats(host_, &stats);
    if (QZHostGetPoolStats(host_, pools, 64) != stats.pools) say("the pools are counted wrongly");
    for (ScenarioTable &table : tables) {
      table.destroy();
      if (!table.fault().empty()) say(table.fault());
      if (table.ranOut()) fail();
    }
  }

  void leave(MORVAExt *ext) {
    QZHostStats stats;
    QZHostGetStats(host_, &stats);
    if (stats.pools != 1 || stats.locks != locksLeft_ || stats.companions != 0 ||
        stats.packers != 0 || stats.trees != 0 || stats.orderLists != 0) {
      say("the tables left something behind");
    }
    if (stats.unmatchedReleases != 0) say("a lock was released too often");
    char error[256] = "";
    if (QZHostUnload(host_, ext, error, sizeof error) != 0) say(error);
    // The locks that failed creations left are the host's: it must find these, and no more.
    if (locksLeft_ == 0) return;
    if (QZHostDestroy(host_, nullptr) != locksLeft_) {
      say("the host found another number of locks left to it");
    }
    host_ = nullptr;
  }

  const Surroundings &surroundings_;
  Life &life_;
  QZHost *host_;
  uint32_t locksLeft_ = 0;
};

}  // namespace

const char *nameOf(WayIn way) {
  static constexpr const char *kNames[] = {"attached", "loaded", "loaded a second time"};
  return kNames[static_cast<size_t>(way)];
}

Surroundings::Surroundings(WayIn way) : way_(way) {
  if (way == WayIn::attached) {
    handle_ = dlopen(MORVA_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
      fault_ = dlerror();
      return;
    }
    entryPoints_.name = "morva";
    entryPoints_.qzextver =
        reinterpret_cast<decltype(entryPoints_.qzextver)>(dlsym(handle_, "qzextver"));
    entryPoints_.morva = reinterpret_cast<decltype(entryPoints_.morva)>(dlsym(handle_, "morva"));
  } else if (way == WayIn::loadedPrivate) {
    char error[256] = "";
    other_ = QZHostCreate(nullptr);
    if (QZHostLoad(other_, MORVA_LIBRARY_FILE, error, sizeof error) == nullptr) fault_ = error;
  }
}

Surroundings::~Surroundings() {
  QZHostDestroy(other_, nullptr);
  if (handle_ != nullptr) dlclose(handle_);
}

Life live(const Surroundings &surroundings, const QZHostOptions &options, void (*begin)(),
          void (*end)()) {
  Life life;
  if (begin != nullptr) begin();
  Host(surroundings, options, &life).run();
  if (end != nullptr) end();
  return life;
}

}  // namespace fault_test
