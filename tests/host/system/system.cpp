#include "system.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cstdarg>
#include <new>

namespace host_test {

System theSystem;

}  // namespace host_test

using host_test::theSystem;

namespace {

bool isRefused() {
  return theSystem.hasMemory && !theSystem.hasMemory();
}

}  // namespace

// The linker renames: what calls `open` calls __wrap_open, and `open` itself is
// __real_open.
extern "C" {

void *__real_mmap(void *, size_t, int, int, int, off_t);
int __real_madvise(void *, size_t, int);
ssize_t __real_getrandom(void *, size_t, unsigned);
int __real_sched_yield(void);
int __real_memfd_create(const char *, unsigned);
int __real_open(const char *, int, ...);
int __real_fstat(int, struct stat *);
ssize_t __real_pread(int, void *, size_t, off_t);
ssize_t __real_write(int, const void *, size_t);
int __real_fcntl(int, int, ...);
void *__real_dlopen(const char *, int);
void *__real_dlsym(void *, const char *);
int __real_dlinfo(void *, int, void *);
char *__real_dlerror(void);

// The four forms of `new (std::nothrow)`: of one object and of several, and the
// same for types of a large alignment.
void *__real__ZnwmRKSt9nothrow_t(size_t, const std::nothrow_t &);
void *__real__ZnamRKSt9nothrow_t(size_t, const std::nothrow_t &);
void *__real__ZnwmSt11align_val_tRKSt9nothrow_t(size_t, std::align_val_t, const std::nothrow_t &);
void *__real__ZnamSt11align_val_tRKSt9nothrow_t(size_t, std::align_val_t, const std::nothrow_t &);

void *__wrap__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag) {
  if (isRefused()) return nullptr;
  return __real__ZnwmRKSt9nothrow_t(bytes, tag);
}
void *__wrap__ZnamRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag) {
  if (isRefused()) return nullptr;
  return __real__ZnamRKSt9nothrow_t(bytes, tag);
}
void *__wrap__ZnwmSt11align_val_tRKSt9nothrow_t(size_t bytes, std::align_val_t alignment,
                                                const std::nothrow_t &tag) {
  if (isRefused()) return nullptr;
  return __real__ZnwmSt11align_val_tRKSt9nothrow_t(bytes, alignment, tag);
}
void *__wrap__ZnamSt11align_val_tRKSt9nothrow_t(size_t bytes, std::align_val_t alignment,
                                                const std::nothrow_t &tag) {
  if (isRefused()) return nullptr;
  return __real__ZnamSt11align_val_tRKSt9nothrow_t(bytes, alignment, tag);
}

void *__wrap_mmap(void *at, size_t bytes, int protection, int flags, int file, off_t offset) {
  if (theSystem.mmap) return theSystem.mmap(bytes);
  return __real_mmap(at, bytes, protection, flags, file, offset);
}

int __wrap_madvise(void *at, size_t bytes, int advice) {
  return theSystem.madvise ? theSystem.madvise(advice) : __real_madvise(at, bytes, advice);
}

ssize_t __wrap_getrandom(void *to, size_t bytes, unsigned flags) {
  return theSystem.getrandom ? theSystem.getrandom() : __real_getrandom(to, bytes, flags);
}

int __wrap_sched_yield(void) {
  return theSystem.sched_yield ? theSystem.sched_yield() : __real_sched_yield();
}

int __wrap_memfd_create(const char *name, unsigned flags) {
  return theSystem.memfd_create ? theSystem.memfd_create(flags) : __real_memfd_create(name, flags);
}

int __wrap_open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  return theSystem.open ? theSystem.open(path) : __real_open(path, flags, mode);
}

int __wrap_fstat(int file, struct stat *status) {
  return theSystem.fstat ? theSystem.fstat(file, status) : __real_fstat(file, status);
}

ssize_t __wrap_pread(int file, void *to, size_t bytes, off_t offset) {
  return theSystem.pread ? theSystem.pread(file, to, bytes, offset)
                         : __real_pread(file, to, bytes, offset);
}

ssize_t __wrap_write(int file, const void *from, size_t bytes) {
  return theSystem.write ? theSystem.write(file, from, bytes) : __real_write(file, from, bytes);
}

int __wrap_fcntl(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return theSystem.fcntl ? theSystem.fcntl(file, command) : __real_fcntl(file, command, argument);
}

void *__wrap_dlopen(const char *file, int mode) {
  return theSystem.dlopen ? theSystem.dlopen(file, mode) : __real_dlopen(file, mode);
}

void *__wrap_dlsym(void *handle, const char *name) {
  return theSystem.dlsym ? theSystem.dlsym(handle, name) : __real_dlsym(handle, name);
}

int __wrap_dlinfo(void *handle, int request, void *answer) {
  return theSystem.dlinfo ? theSystem.dlinfo(handle, request, answer)
                          : __real_dlinfo(handle, request, answer);
}

char *__wrap_dlerror(void) {
  return theSystem.dlerror ? theSystem.dlerror() : __real_dlerror();
}
}

namespace host_test::real {

void *mmap(size_t bytes) {
  return __real_mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
}
int fstat(int file, struct stat *status) {
  return __real_fstat(file, status);
}
ssize_t pread(int file, void *to, size_t bytes, off_t offset) {
  return __real_pread(file, to, bytes, offset);
}
ssize_t write(int file, const void *from, size_t bytes) {
  return __real_write(file, from, bytes);
}
int memfd_create(unsigned flags) {
  return __real_memfd_create("extension", flags);
}
void *dlopen(const char *file, int mode) {
  return __real_dlopen(file, mode);
}
void *dlsym(void *handle, const char *name) {
  return __real_dlsym(handle, name);
}
int dlinfo(void *handle, int request, void *answer) {
  return __real_dlinfo(handle, request, answer);
}

}  // namespace host_test::real
