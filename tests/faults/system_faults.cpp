#include "system_faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>

namespace fault_test {
namespace {

// Plain data, for allocations come before and after everything else.
constinit bool armed = false;
constinit SystemCall kind = SystemCall::newMemory;
constinit FaultPlan plan;
constinit Outstanding out{};

// The blocks that are out which may have been refused. Few are at any time.
constexpr size_t kMostBlocks = 4096;
constinit void *blocks[kMostBlocks] = {};

bool fails(SystemCall call) {
  return armed && call == kind && plan.fails();
}

void *refusable(void *block) {
  if (block == nullptr) return nullptr;
  for (void *&place : blocks) {
    if (place != nullptr) continue;
    place = block;
    ++out.blocks;
    return block;
  }
  std::abort();
}

void giveBack(void *block) {
  if (block == nullptr) return;
  if (out.blocks != 0) {
    for (void *&place : blocks) {
      if (place != block) continue;
      place = nullptr;
      --out.blocks;
      break;
    }
  }
  std::free(block);
}

void *allocate(size_t size, size_t alignment = 0) {
  if (alignment == 0) return std::malloc(size != 0 ? size : 1);
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void *need(void *block) {
  if (block == nullptr) std::abort();
  return block;
}

size_t of(std::align_val_t alignment) {
  return static_cast<size_t>(alignment);
}

}  // namespace

const char *nameOf(SystemCall call) {
  static constexpr const char *kNames[] = {"operator new", "mmap",   "madvise",      "getrandom",
                                           "dlopen",       "dlinfo", "open",         "fstat",
                                           "pread",        "write",  "memfd_create", "fcntl"};
  return kNames[static_cast<size_t>(call)];
}

void planSystemFailure(SystemCall call, Failing failing, uint64_t n) {
  kind = call;
  plan = FaultPlan(failing, n);
}

void beginSystemFailures() {
  armed = true;
}

void endSystemFailures() {
  armed = false;
}

uint64_t systemFailures() {
  return plan.delivered();
}

Outstanding outstanding() {
  return out;
}

}  // namespace fault_test

using namespace fault_test;

// ---- memory --------------------------------------------------------------------

void *operator new(size_t size) {
  return need(allocate(size));
}
void *operator new[](size_t size) {
  return need(allocate(size));
}
void *operator new(size_t size, std::align_val_t alignment) {
  return need(allocate(size, of(alignment)));
}
void *operator new[](size_t size, std::align_val_t alignment) {
  return need(allocate(size, of(alignment)));
}
// The library of the language asks for memory it can do without in this way too: only what is
// asked for between begin and end is counted.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  if (fails(SystemCall::newMemory)) return nullptr;
  return armed ? refusable(allocate(size)) : allocate(size);
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept {
  if (fails(SystemCall::newMemory)) return nullptr;
  return armed ? refusable(allocate(size)) : allocate(size);
}
void *operator new(size_t size, std::align_val_t alignment, const std::nothrow_t &) noexcept {
  if (fails(SystemCall::newMemory)) return nullptr;
  return armed ? refusable(allocate(size, of(alignment))) : allocate(size, of(alignment));
}
void *operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t &) noexcept {
  if (fails(SystemCall::newMemory)) return nullptr;
  return armed ? refusable(allocate(size, of(alignment))) : allocate(size, of(alignment));
}
void operator delete(void *block) noexcept {
  giveBack(block);
}
void operator delete[](void *block) noexcept {
  giveBack(block);
}
void operator delete(void *block, size_t) noexcept {
  giveBack(block);
}
void operator delete[](void *block, size_t) noexcept {
  giveBack(block);
}
void operator delete(void *block, std::align_val_t) noexcept {
  giveBack(block);
}
void operator delete[](void *block, std::align_val_t) noexcept {
  giveBack(block);
}
void operator delete(void *block, size_t, std::align_val_t) noexcept {
  giveBack(block);
}
void operator delete[](void *block, size_t, std::align_val_t) noexcept {
  giveBack(block);
}
void operator delete(void *block, const std::nothrow_t &) noexcept {
  giveBack(block);
}
void operator delete[](void *block, const std::nothrow_t &) noexcept {
  giveBack(block);
}

// ---- the system ----------------------------------------------------------------

extern "C" {

void *__real_mmap(void *start, size_t bytes, int protection, int flags, int file, off_t offset);
int __real_munmap(void *start, size_t bytes);
int __real_madvise(void *start, size_t bytes, int advice);
ssize_t __real_getrandom(void *buffer, size_t bytes, unsigned flags);
void *__real_dlopen(const char *file, int mode);
int __real_dlclose(void *handle);
int __real_dlinfo(void *handle, int request, void *answer);
int __real_open(const char *path, int flags, ...);
int __real_close(int file);
int __real_fstat(int file, struct stat *status);
ssize_t __real_pread(int file, void *buffer, size_t bytes, off_t offset);
ssize_t __real_write(int file, const void *buffer, size_t bytes);
int __real_memfd_create(const char *name, unsigned flags);
int __real_fcntl(int file, int command, ...);

void *__wrap_mmap(void *start, size_t bytes, int protection, int flags, int file, off_t offset) {
  if (fails(SystemCall::mmap)) {
    errno = ENOMEM;
    return MAP_FAILED;
  }
  void *mapped = __real_mmap(start, bytes, protection, flags, file, offset);
  if (mapped != MAP_FAILED) out.mapped += static_cast<int64_t>(bytes);
  return mapped;
}

int __wrap_munmap(void *start, size_t bytes) {
  const int result = __real_munmap(start, bytes);
  if (result == 0) out.mapped -= static_cast<int64_t>(bytes);
  return result;
}

int __wrap_madvise(void *start, size_t bytes, int advice) {
  if (fails(SystemCall::madvise)) {
    errno = EINVAL;
    return -1;
  }
  return __real_madvise(start, bytes, advice);
}

ssize_t __wrap_getrandom(void *buffer, size_t bytes, unsigned flags) {
  if (fails(SystemCall::getrandom)) {
    errno = EAGAIN;
    return -1;
  }
  return __real_getrandom(buffer, bytes, flags);
}

void *__wrap_dlopen(const char *file, int mode) {
  // Whether a name is known is a question: no is an answer, not a failure.
  const bool isQuestion = (mode & RTLD_NOLOAD) != 0;
  if (!isQuestion && fails(SystemCall::dlopen)) {
    return __real_dlopen("/nowhere/nothing.so", mode);  // so that there is a reason to tell
  }
  void *handle = __real_dlopen(file, mode);
  if (handle != nullptr) ++out.handles;
  return handle;
}

int __wrap_dlclose(void *handle) {
  --out.handles;
  return __real_dlclose(handle);
}

int __wrap_dlinfo(void *handle, int request, void *answer) {
  return fails(SystemCall::dlinfo) ? -1 : __real_dlinfo(handle, request, answer);
}

int __wrap_open(const char *path, int flags, ...) {
  if (fails(SystemCall::open)) {
    errno = EMFILE;
    return -1;
  }
  va_list rest;
  va_start(rest, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
  va_end(rest);
  const int file = __real_open(path, flags, mode);
  if (file >= 0) ++out.files;
  return file;
}

int __wrap_close(int file) {
  const int result = __real_close(file);
  if (result == 0) --out.files;
  return result;
}

int __wrap_fstat(int file, struct stat *status) {
  if (fails(SystemCall::fstat)) {
    errno = EIO;
    return -1;
  }
  return __real_fstat(file, status);
}

ssize_t __wrap_pread(int file, void *buffer, size_t bytes, off_t offset) {
  if (fails(SystemCall::pread)) {
    errno = EIO;
    return -1;
  }
  return __real_pread(file, buffer, bytes, offset);
}

ssize_t __wrap_write(int file, const void *buffer, size_t bytes) {
  if (fails(SystemCall::write)) {
    errno = ENOSPC;
    return -1;
  }
  return __real_write(file, buffer, bytes);
}

int __wrap_memfd_create(const char *name, unsigned flags) {
  if (fails(SystemCall::memfdCreate)) {
    errno = EMFILE;
    return -1;
  }
  const int file = __real_memfd_create(name, flags);
  if (file >= 0) ++out.files;
  return file;
}

int __wrap_fcntl(int file, int command, ...) {
  if (fails(SystemCall::fcntl)) {
    errno = EMFILE;
    return -1;
  }
  va_list rest;
  va_start(rest, command);
  int result;
  if (command == F_DUPFD_CLOEXEC || command == F_ADD_SEALS) {
    result = __real_fcntl(file, command, va_arg(rest, int));
  } else {
    result = __real_fcntl(file, command, va_arg(rest, void *));
  }
  va_end(rest);
  if (result >= 0 && command == F_DUPFD_CLOEXEC) ++out.files;
  return result;
}

}  // extern "C"
