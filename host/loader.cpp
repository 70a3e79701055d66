#include "loader.h"

#include <dlfcn.h>

#include <cinttypes>
#include <cstring>
#include <mutex>
#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

// The host interface that is offered here.
constexpr int64_t kMajor = 6, kMinor = 1, kPatch = 1;

constexpr char kEyeCatcher[8] = {'n', 'e', 'v', 'o'};

char *duplicate(const char *text) {
  const size_t bytes = strlen(text) + 1;
  auto *copy = new (std::nothrow) char[bytes];
  if (copy != nullptr) memcpy(copy, text, bytes);
  return copy;
}

// Hands the service table over and compares interface versions, once per copy:
// while it serves, it may be reading the table.
bool acceptCopy(QZHost *host, Copy *copy, const char *name, const Sentence &error) {
  if (copy->accepted) return true;
  int64_t major = 0, minor = 0;
  copy->hasTable = true;
  const MORVAStatus status = copy->qzextver(&host->services, &major, &minor);
  if (status != MORVA_OK) {
    error.say("'%s' refused the service table with status 0x%08" PRIx32, name, status);
    return false;
  }
  if (major != kMajor || minor < 0 || minor > kMinor) {
    error.say("'%s' needs host %" PRId64 ".%" PRId64 ", this host is %" PRId64 ".%" PRId64
              ".%" PRId64,
              name, major, minor, kMajor, kMinor, kPatch);
    return false;
  }
  // The references of a private copy may have been bound to those of the first
  // one. Nothing follows from this of a copy that is not private: in a program
  // that names Exported_QZHandle itself, the place in use is the program's.
  const auto *place = copy->memory < 0
                          ? nullptr
                          : static_cast<HostServices **>(dlsym(copy->handle, "Exported_QZHandle"));
  if (place != nullptr && *place != &host->services) {
    error.say("'%s' uses the service table of another library", name);
    return false;
  }
  copy->accepted = true;
  return true;
}

bool offers(int64_t major, int64_t minor, int64_t patch) {
  if (major != kMajor) return major < kMajor;
  if (minor != kMinor) return minor < kMinor;
  return patch <= kPatch;
}

// Checks what the entry function answered.
bool acceptObject(MORVAExt *object, const char *name, const Sentence &error) {
  if (object->GetReqVersion == nullptr || object->Create == nullptr) {
    error.say("'%s' answered an extension object without '%s'", name,
              object->Create == nullptr ? "Create" : "GetReqVersion");
    return false;
  }
  int64_t major = 0, minor = 0, patch = 0;
  const MORVAStatus status = object->GetReqVersion(object, &major, &minor, &patch);
  if (status != MORVA_OK) {
    error.say("'%s' does not tell the host version it needs: status 0x%08" PRIx32, name, status);
    return false;
  }
  if (!offers(major, minor, patch)) {
    error.say("'%s' needs host %" PRId64 ".%" PRId64 ".%" PRId64 ", this host is %" PRId64
              ".%" PRId64 ".%" PRId64,
              name, major, minor, patch, kMajor, kMinor, kPatch);
    return false;
  }
  return true;
}

// Any pool that was made with this context word.
Pool *findPoolOf(QZHost *host, const void *context) {
  const std::lock_guard guard(host->mutex);
  Pool *pool = host->pools.first();
  while (pool != nullptr && pool->context != context) pool = host->pools.next(pool);
  return pool;
}

// The pool of an extension object, which it must have got from this host.
Pool *findPool(QZHost *host, const HostPool *table) {
  const std::lock_guard guard(host->mutex);
  Pool *pool = host->pools.first();
  while (pool != nullptr && &pool->table != table) pool = host->pools.next(pool);
  return pool;
}

void deleteExtension(QZHost *host, Extension *extension) {
  // Nothing if the library keeps to the rules.
  while (Pool *pool = findPoolOf(host, extension)) destroyPool(&pool->table);
  releaseCopy(extension->copy);
  delete[] extension->name;
  delete extension;
}

// Makes an extension of a copy, whose use it takes over in any case.
MORVAExt *startExtension(QZHost *host, Copy *copy, const char *name, const Sentence &error) {
  auto *extension = new (std::nothrow) Extension{nullptr, nullptr, copy, nullptr, {}};
  if (extension == nullptr) {
    error.say("cannot load '%s': there is no memory", name);
    releaseCopy(copy);
    return nullptr;
  }
  extension->name = duplicate(name);
  if (!acceptCopy(host, copy, name, error)) {
    deleteExtension(host, extension);
    return nullptr;
  }
  const uint64_t refused = host->memory.refused();
  MORVAExt *object = copy->morva(nullptr, extension);
  if (object == nullptr) {
    error.say(host->memory.refused() != refused
                  ? "'%s' answered no extension object: there is no memory within the host's limit"
                  : "'%s' answered no extension object",
              name);
    deleteExtension(host, extension);
    return nullptr;
  }
  if (memcmp(object->eyeCatcher, kEyeCatcher, sizeof kEyeCatcher) != 0 ||
      object->RealDestroy == nullptr) {
    // Not an object that could be asked to destroy itself.
    error.say("'%s' answered something that is not an extension object", name);
    deleteExtension(host, extension);
    return nullptr;
  }
  if (!acceptObject(object, name, error)) {
    object->RealDestroy(object);
    deleteExtension(host, extension);
    return nullptr;
  }
  extension->object = object;
  extension->pool = findPool(host, object->pool);
  enlist(host, host->extensions, extension);
  return object;
}

Extension *findExtension(QZHost *host, const MORVAExt *object) {
  const std::lock_guard guard(host->mutex);
  Extension *extension = host->extensions.first();
  while (extension != nullptr && extension->object != object)
    extension = host->extensions.next(extension);
  return extension;
}

}  // namespace

void closeExtension(QZHost *host, Extension *extension) {
  delist(host, host->extensions, extension);
  if (extension->object != nullptr) extension->object->RealDestroy(extension->object);
  deleteExtension(host, extension);
}

}  // namespace qzhost

MORVAExt *QZHostLoad(QZHost *host, const char *file, char *error, size_t errorSize) {
  const qzhost::Sentence sentence(error, errorSize);
  if (file == nullptr || file[0] == '\0') {
    sentence.say("no file is named");
    return nullptr;
  }
  if (host == nullptr) {
    sentence.say("there is no host to load '%s'", file);
    return nullptr;
  }
  const std::lock_guard guard(host->loading);
  qzhost::Copy *copy = qzhost::loadCopy(host, file, sentence);
  return copy != nullptr ? qzhost::startExtension(host, copy, file, sentence) : nullptr;
}

MORVAExt *QZHostAttach(QZHost *host, const QZEntryPoints *entry, char *error, size_t errorSize) {
  const qzhost::Sentence sentence(error, errorSize);
  if (entry == nullptr) {
    sentence.say("no entry points are named");
    return nullptr;
  }
  const char *name = entry->name != nullptr ? entry->name : "extension";
  if (entry->qzextver == nullptr || entry->morva == nullptr) {
    sentence.say("'%s' has no entry point '%s'", name,
                 entry->qzextver == nullptr ? "qzextver" : "morva");
    return nullptr;
  }
  if (host == nullptr) {
    sentence.say("there is no host to attach '%s'", name);
    return nullptr;
  }
  const std::lock_guard guard(host->loading);
  qzhost::Copy *copy = qzhost::attachCopy(host, *entry, name, sentence);
  return copy != nullptr ? qzhost::startExtension(host, copy, name, sentence) : nullptr;
}

uint32_t QZHostUnload(QZHost *host, MORVAExt *ext, char *error, size_t errorSize) {
  const qzhost::Sentence sentence(error, errorSize);
  if (host == nullptr || ext == nullptr) {
    sentence.say(host == nullptr ? "there is no host" : "no extension is named");
    return 1;
  }
  const std::lock_guard guard(host->loading);
  qzhost::Extension *extension = qzhost::findExtension(host, ext);
  if (extension == nullptr) {
    sentence.say("the extension is not one of this host");
    return 1;
  }
  // The object itself is the one block that may be left.
  const uint64_t blocks = extension->pool != nullptr ? extension->pool->blocks.blocksLive() : 0;
  if (blocks > 1) {
    sentence.say("'%s' still has instances: %" PRIu64 " blocks of memory are in use",
                 extension->name != nullptr ? extension->name : "extension", blocks - 1);
    return 1;
  }
  qzhost::closeExtension(host, extension);
  return 0;
}
