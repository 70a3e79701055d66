// A whole life on the embedded host, from its making to its end: tables of every key mode filled,
// searched, emptied and filled again, by single operations and by those on many keys. Anything may
// run out at any time: every step that fails must say so, and all others must be right.
#pragma once

#include <cstdint>
#include <string>

#include "morva/host.h"

namespace fault_test {

// How the library comes to the host.
enum class WayIn {
  attached,       // its entry points are handed over
  loaded,         // from its file
  loadedPrivate,  // from its file, which serves another host already
};
inline constexpr WayIn kWaysIn[] = {WayIn::attached, WayIn::loaded, WayIn::loadedPrivate};

const char *nameOf(WayIn way);

struct Life {
  std::string fault;      // what went wrong though nothing is allowed to; empty when nothing did
  bool complete = false;  // no step failed
};

// The library's file, held open by the test for `attached`, and another host for `loadedPrivate`.
class Surroundings {
 public:
  explicit Surroundings(WayIn way);
  ~Surroundings();
  Surroundings(const Surroundings &) = delete;
  Surroundings &operator=(const Surroundings &) = delete;

  WayIn way() const { return way_; }
  const QZEntryPoints &entryPoints() const { return entryPoints_; }
  // Why there are none; empty when all is ready.
  const std::string &fault() const { return fault_; }

 private:
  WayIn way_;
  void *handle_ = nullptr;
  QZHost *other_ = nullptr;
  QZEntryPoints entryPoints_ = {};
  std::string fault_;
};

// Runs `begin` before the first call of the host and `end` after the last.
Life live(const Surroundings &surroundings, const QZHostOptions &options, void (*begin)() = nullptr,
          void (*end)() = nullptr);

}  // namespace fault_test
