// Failing system services under the embedded host: this program's allocations that may answer null,
// and its calls of the functions named here, which the linker leads to us (--wrap). What they hand
// out is counted, so that a leak shows.
#pragma once

#include <cstdint>

#include "fault_plan.h"

namespace fault_test {

enum class SystemCall : uint8_t {
  newMemory,  // operator new(size_t, nothrow), also of arrays
  mmap,
  madvise,
  getrandom,
  dlopen,
  dlinfo,
  open,
  fstat,
  pread,
  write,
  memfdCreate,
  fcntl,
};
inline constexpr SystemCall kSystemCalls[] = {
    SystemCall::newMemory, SystemCall::mmap,   SystemCall::madvise,     SystemCall::getrandom,
    SystemCall::dlopen,    SystemCall::dlinfo, SystemCall::open,        SystemCall::fstat,
    SystemCall::pread,     SystemCall::write,  SystemCall::memfdCreate, SystemCall::fcntl};

const char *nameOf(SystemCall call);

// From the next host call on: the n-th call of that kind fails.
void planSystemFailure(SystemCall call, Failing failing, uint64_t n);
void beginSystemFailures();
void endSystemFailures();
uint64_t systemFailures();

// What has been handed out and not come back.
struct Outstanding {
  int64_t blocks, mapped, handles, files;
  bool operator==(const Outstanding &) const = default;
};
Outstanding outstanding();

}  // namespace fault_test
