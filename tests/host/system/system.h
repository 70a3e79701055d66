// The system as the embedded host sees it: each call it makes for memory, files
// and libraries can be answered by a test instead. The linker leads the host's
// calls here (CMakeLists.txt), nobody else's behave differently.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <utility>

namespace host_test {

// What answers in the system's place; empty ones leave it to the system.
struct System {
  std::function<bool()> hasMemory;  // for the `new` that may answer null
  std::function<void *(size_t bytes)> mmap;
  std::function<int(int advice)> madvise;
  std::function<ssize_t()> getrandom;
  std::function<int()> sched_yield;

  std::function<int(unsigned flags)> memfd_create;
  std::function<int(const char *path)> open;
  std::function<int(int file, struct stat *status)> fstat;
  std::function<ssize_t(int file, void *to, size_t bytes, off_t offset)> pread;
  std::function<ssize_t(int file, const void *from, size_t bytes)> write;
  std::function<int(int file, int command)> fcntl;

  std::function<void *(const char *file, int mode)> dlopen;
  std::function<void *(void *handle, const char *name)> dlsym;
  std::function<int(void *handle, int request, void *answer)> dlinfo;
  std::function<char *()> dlerror;
};

extern System theSystem;

// The system itself, for answers that change little of its own.
namespace real {
void *mmap(size_t bytes);
int fstat(int file, struct stat *status);
ssize_t pread(int file, void *to, size_t bytes, off_t offset);
ssize_t write(int file, const void *from, size_t bytes);
int memfd_create(unsigned flags);
void *dlopen(const char *file, int mode);
void *dlsym(void *handle, const char *name);
int dlinfo(void *handle, int request, void *answer);
}  // namespace real

// Has a call answered otherwise as long as it lives:
//   const Instead refused(theSystem.open, [](const char *) { return -1; });
template <class Call>
class Instead {
 public:
  template <class Answer>
  Instead(Call &call, Answer answer) : call_(call) {
    call_ = std::move(answer);
  }
  ~Instead() { call_ = nullptr; }
  Instead(const Instead &) = delete;
  Instead &operator=(const Instead &) = delete;

 private:
  Call &call_;
};

// Answers to System::hasMemory: every allocation is refused; or the n-th from
// now on, from 1.
inline bool never() {
  return false;
}
inline auto allBut(int n) {
  return [n]() mutable { return --n != 0; };
}

}  // namespace host_test
