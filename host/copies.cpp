#include "copies.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "symbolic.h"

namespace qzhost {

namespace {

constinit std::mutex registry;
constinit List<Copy, &Copy::link> copies;

enum class Claim { kNew, kAgain, kTaken, kNoMemory };

// Makes the copy this host's, or counts one more use of it.
Claim claim(QZHost *host, VersionEntry qzextver, MainEntry morva, Copy **claimed) {
  const std::lock_guard guard(registry);
  for (Copy *copy = copies.first(); copy != nullptr; copy = copies.next(copy)) {
    if (copy->morva != morva) continue;
    if (copy->host != host) return Claim::kTaken;
    ++copy->uses;
    *claimed = copy;
    return Claim::kAgain;
  }
  auto *copy =
      new (std::nothrow) Copy{qzextver, morva, host, 1, false, false, nullptr, -1, 0, 0, {}};
  if (copy == nullptr) return Claim::kNoMemory;
  copies.pushBack(copy);
  *claimed = copy;
  return Claim::kNew;
}

// The host's private copy of that file, with one more use, or null.
Copy *claimPrivate(QZHost *host, const struct stat &file) {
  const std::lock_guard guard(registry);
  for (Copy *copy = copies.first(); copy != nullptr; copy = copies.next(copy)) {
    if (copy->host == host && copy->memory >= 0 && copy->device == file.st_dev &&
        copy->inode == file.st_ino) {
      ++copy->uses;
      return copy;
    }
  }
  return nullptr;
}

// Closes itself.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(-1); }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  int get() const { return number_; }
  bool isOpen() const { return number_ >= 0; }
  void reset(int number) {
    if (number_ >= 0) close(number_);
    number_ = number;
  }
  int keep() {
    const int number = number_;
    number_ = -1;
    return number;
  }

 private:
  int number_;
};

bool findEntryPoints(void *handle, const char *file, VersionEntry *qzextver, MainEntry *morva,
                     const Sentence &error) {
  *qzextver = reinterpret_cast<VersionEntry>(dlsym(handle, "qzextver"));
  if (*qzextver == nullptr) {
    error.say("'%s' has no entry point 'qzextver'", file);
    return false;
  }
  *morva = reinterpret_cast<MainEntry>(dlsym(handle, "morva"));
  if (*morva == nullptr) {
    error.say("'%s' has no entry point 'morva'", file);
    return false;
  }
  return true;
}

void sayNoMemory(const char *file, const Sentence &error) {
  error.say("cannot load '%s': there is no memory", file);
}

// A whole file, read into memory; `bytes` null when that cannot be done, for the
// reason in errno.
struct Contents {
  explicit Contents(int file) {
    struct stat status;
    if (fstat(file, &status) != 0) return;
    if (status.st_size <= 0) {
      errno = ENODATA;
      return;
    }
    size = static_cast<size_t>(status.st_size);
    bytes = new (std::nothrow) char[size];
    if (bytes == nullptr) {
      errno = ENOMEM;
      return;
    }
    for (size_t done = 0; done < size;) {
      errno = ENODATA;  // where the file is shorter than it was
      const ssize_t got = pread(file, bytes + done, size - done, static_cast<off_t>(done));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) {
        delete[] bytes;
        bytes = nullptr;
        return;
      }
      done += static_cast<size_t>(got);
    }
  }
  ~Contents() { delete[] bytes; }
  Contents(const Contents &) = delete;
  Contents &operator=(const Contents &) = delete;

  char *bytes = nullptr;
  size_t size = 0;
};

bool writeAll(int file, const Contents &contents) {
  size_t done = 0;
  while (done < contents.size) {
    errno = ENOSPC;  // where nothing is written and nothing said
    const ssize_t put = write(file, contents.bytes + done, contents.size - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += static_cast<size_t>(put);
  }
  return true;
}

// A file in memory with the library of `source`, which refers to itself (where
// it cannot be marked so, the loader notices a service table that did not
// arrive) and which nobody can change any more; -1 when it cannot be made.
int copyToMemory(int source) {
  constexpr unsigned kExecutable = 0x10;  // MFD_EXEC, which not every system knows
  constexpr unsigned kFlags = MFD_CLOEXEC | MFD_ALLOW_SEALING;
  int number = memfd_create("extension", kFlags | kExecutable);
  if (number < 0 && errno == EINVAL) number = memfd_create("extension", kFlags);
  Descriptor memory(number);
  if (!memory.isOpen()) return -1;
  const Contents library(source);
  if (library.bytes == nullptr) return -1;
  bindToItself(library.bytes, library.size);
  if (!writeAll(memory.get(), library)) return -1;
  fcntl(memory.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
  return memory.keep();
}

constexpr size_t kPathBytes = 40;

void pathOf(const Descriptor &memory, char *path) {
  snprintf(path, kPathBytes, "/proc/self/fd/%d", memory.get());
}

// The system takes a name it knows for the library that was loaded under it. A
// library that could not be unloaded may still have the name of our descriptor;
// another number is another name.
bool findUnusedPath(Descriptor *memory, char *path) {
  for (int tries = 0; tries < 100; ++tries) {
    pathOf(*memory, path);
    void *known = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
    if (known == nullptr) return true;
    dlclose(known);
    const int other = fcntl(memory->get(), F_DUPFD_CLOEXEC, memory->get() + 1);
    if (other < 0) return false;
    memory->reset(other);
  }
  errno = EBUSY;
  return false;
}

// The program, or a library it is linked with, has a library of this kind in
// sight of everybody, and it is not this one: then this one's references to its
// own names have been bound to the other's.
bool isOvershadowed(MainEntry morva) {
  return dlsym(RTLD_DEFAULT, "Exported_QZHandle") != nullptr &&
         dlsym(RTLD_DEFAULT, "morva") != reinterpret_cast<void *>(morva);
}

// Somebody beside these hosts has given the copy a service table: the program,
// for a host of its own.
bool servesOutsider(void *handle) {
  void *place = dlsym(RTLD_DEFAULT, "Exported_QZHandle");
  if (place == nullptr) place = dlsym(handle, "Exported_QZHandle");
  return place != nullptr && *static_cast<HostServices **>(place) != nullptr;
}

// `shared` is a copy of the file that is not to be used by this host: another
// one has it, or it is not its own master.
Copy *loadPrivate(QZHost *host, void *shared, const char *file, const Sentence &error) {
  link_map *map = nullptr;
  if (dlinfo(shared, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name == nullptr ||
      map->l_name[0] == '\0') {
    error.say("cannot load '%s' a second time: its file is not known", file);
    return nullptr;
  }
  // The system remembers the name as it was given; a relative one may mean
  // another file by now, or none.
  const bool sameForEver = map->l_name[0] == '/' || strchr(file, '/') == nullptr;
  const Descriptor source(open(sameForEver ? map->l_name : file, O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!source.isOpen() || fstat(source.get(), &status) != 0) {
    error.say("cannot load '%s' a second time: %s", file, strerror(errno));
    return nullptr;
  }
  if (Copy *copy = claimPrivate(host, status)) return copy;

  Descriptor memory(copyToMemory(source.get()));
  char path[kPathBytes];
  if (!memory.isOpen() || !findUnusedPath(&memory, path)) {
    error.say("cannot load '%s' a second time: %s", file, strerror(errno));
    return nullptr;
  }
  void *handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    error.say("cannot load '%s' a second time: %s", file, dlerror());
    return nullptr;
  }
  VersionEntry qzextver;
  MainEntry morva;
  Copy *copy = nullptr;
  if (!findEntryPoints(handle, file, &qzextver, &morva, error)) {
    dlclose(handle);
    return nullptr;
  }
  switch (claim(host, qzextver, morva, &copy)) {
    case Claim::kNew:
      copy->handle = handle;
      copy->memory = memory.keep();
      copy->device = status.st_dev;
      copy->inode = status.st_ino;
      return copy;
    case Claim::kAgain:
      dlclose(handle);
      return copy;
    case Claim::kTaken:
      // The entry points are those of a library that the file depends on, and
      // there is one of that for both.
      error.say("cannot load '%s': what it depends on serves another host", file);
      break;
    case Claim::kNoMemory:
      sayNoMemory(file, error);
      break;
  }
  dlclose(handle);
  return nullptr;
}

}  // namespace

Copy *loadCopy(QZHost *host, const char *file, const Sentence &error) {
  void *handle = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char *reason = dlerror();
    error.say("cannot load '%s': %s", file, reason != nullptr ? reason : "unknown reason");
    return nullptr;
  }
  VersionEntry qzextver;
  MainEntry morva;
  Copy *copy = nullptr;
  if (!findEntryPoints(handle, file, &qzextver, &morva, error)) {
    dlclose(handle);
    return nullptr;
  }
  if (isOvershadowed(morva)) {
    copy = loadPrivate(host, handle, file, error);
    dlclose(handle);
    return copy;
  }
  switch (claim(host, qzextver, morva, &copy)) {
    case Claim::kNew:
      if (servesOutsider(handle)) {
        releaseCopy(copy);
        copy = loadPrivate(host, handle, file, error);
        break;
      }
      copy->handle = handle;
      return copy;
    case Claim::kAgain:
      // Also of a copy that was attached: from now on it must stay loaded.
      if (copy->handle == nullptr) {
        copy->handle = handle;
        return copy;
      }
      break;
    case Claim::kTaken:
      copy = loadPrivate(host, handle, file, error);
      break;
    case Claim::kNoMemory:
      sayNoMemory(file, error);
      break;
  }
  dlclose(handle);
  return copy;
}

Copy *attachCopy(QZHost *host, const QZEntryPoints &entry, const char *name,
                 const Sentence &error) {
  Copy *copy = nullptr;
  switch (claim(host, entry.qzextver, entry.morva, &copy)) {
    case Claim::kNew:
      // Whose a copy is that is no shared library cannot be seen.
      if (dlsym(RTLD_DEFAULT, "morva") != reinterpret_cast<void *>(entry.morva) ||
          !servesOutsider(RTLD_DEFAULT))
        return copy;
      releaseCopy(copy);
      [[fallthrough]];
    case Claim::kTaken:
      error.say("'%s' serves another host", name);
      return nullptr;
    case Claim::kAgain:
      return copy;
    case Claim::kNoMemory:
      break;
  }
  error.say("cannot attach '%s': there is no memory", name);
  return nullptr;
}

void releaseCopy(Copy *copy) {
  {
    const std::lock_guard guard(registry);
    if (--copy->uses != 0) return;
  }
  // Nobody else can claim the copy yet: other hosts find it taken, and this one
  // is busy here. So the next host finds no trace of this one's table.
  if (copy->hasTable) {
    int64_t major = 0, minor = 0;
    copy->qzextver(nullptr, &major, &minor);
  }
  {
    const std::lock_guard guard(registry);
    copies.remove(copy);
  }
  if (copy->handle != nullptr) dlclose(copy->handle);
  if (copy->memory >= 0) close(copy->memory);
  delete copy;
}

}  // namespace qzhost
