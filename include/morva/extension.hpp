/**
 * @file
 * The extension: the library on a host, linked into the program or loaded from
 * a file. Tables are made with it.
 *
 *   auto morva = morva::extension::load();           // libmorva.so.1, embedded host
 *   if (!morva) return complain(morva.error().sentence());
 *
 * One copy of the library serves one host at a time. Loading on an embedded
 * host gives further hosts copies of their own; a copy linked into the program,
 * and any copy on a host of your own, is refused while another host has it. So
 * a program keeps one extension and makes all its tables with it. Only
 * the first extensions of two hosts, made at one moment for one copy, must be
 * kept apart by the program when one of the hosts is its own.
 */
#ifndef MORVA_EXTENSION_HPP
#define MORVA_EXTENSION_HPP

#include <dlfcn.h>

#include <cstdio>
#include <mutex>
#include <string_view>

#include "morva/ext.h"
#include "morva/host.hpp"

namespace morva {

/** Why an extension could not be had: a code, and a sentence for people. */
struct load_failure {
  errc code = errc::not_loaded;
  char text[256] = "";

  /** What is wrong, and with which file. */
  std::string_view sentence() const noexcept { return text; }
};

/** A version of the library. */
struct version_number {
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t patch = 0;

  friend auto operator<=>(const version_number &, const version_number &) = default;
};

namespace detail {

// What the library's file exports for loading.
struct entry_points {
  HostServices **slot;
  decltype(&qzextver) version;
  MORVAExt *(*entry)(void *unused, void *context);
};

struct extension_state : counted {
  shared<host_state> host;
  MORVAExt *ext = nullptr;

  // On a host of the caller's: the copy's service table pointer, whether it was
  // set for this extension, the copy's handle when it was loaded, and the next
  // of all such extensions.
  HostServices **slot = nullptr;
  bool set_slot = false;
  void *handle = nullptr;
  extension_state *next = nullptr;

  inline ~extension_state();
};

// All extensions on hosts of the caller's: a copy of the library is claimed for
// one host with its first extension, and given back with its last. The list is
// one for the program as far as the linker makes it one.
struct __attribute__((visibility("default"))) claims {
  enum class outcome { claimed, taken, wrong_version };

  std::mutex mutex;
  extension_state *first = nullptr;

  static claims &all() {
    static claims one;
    return one;
  }

  // The pointer is written for the first extension alone: others may be making
  // tables by it.
  outcome claim(extension_state &state, const entry_points &points) {
    const std::lock_guard<std::mutex> hold(mutex);
    HostServices *const wanted = state.host->services;
    HostServices *const found = *points.slot;
    if (found != nullptr && found != wanted) return outcome::taken;
    if (found == nullptr) {
      std::int64_t major = 0;
      std::int64_t minor = 0;
      points.version(wanted, &major, &minor);
      if (major != MORVA_HOST_MAJOR) {
        *points.slot = nullptr;
        return outcome::wrong_version;
      }
      state.set_slot = true;
    }
    state.slot = points.slot;
    state.next = first;
    first = &state;
    return outcome::claimed;
  }

  void drop(extension_state &state) {
    const std::lock_guard<std::mutex> hold(mutex);
    extension_state *heir = nullptr;
    for (extension_state **at = &first; *at != nullptr;) {
      if (*at == &state) {
        *at = state.next;
        continue;
      }
      if ((*at)->slot == state.slot) heir = *at;
      at = &(*at)->next;
    }
    if (!state.set_slot) return;
    if (heir != nullptr) {
      heir->set_slot = true;
    } else {
      *state.slot = nullptr;
    }
  }
};

extension_state::~extension_state() {
  if (ext != nullptr) {
    if (host->embedded != nullptr) {
      host->unload(host->embedded, ext, nullptr, 0);
    } else {
      ext->RealDestroy(ext);
    }
  }
  if (slot != nullptr) claims::all().drop(*this);
  if (handle != nullptr) dlclose(handle);
}

}  // namespace detail

/**
 * The library, ready to make tables. Tables keep it alive, and it keeps its
 * host alive. Moved, never copied. Any number of threads may use it.
 */
class extension {
 public:
  /** An extension, or why there is none. */
  using made = result<extension, load_failure>;

  /** Loads `file`, as dlopen finds it, on a new embedded host. */
  static made load(const char *file = "libmorva.so.1", const host_options &options = {}) {
    auto fresh = host::embedded(options);
    if (!fresh) return fail(fresh.error(), "no host could be made", "");
    return load(*fresh, file);
  }

  /** Loads `file`, as dlopen finds it, on a host. */
  static made load(const host &on, const char *file = "libmorva.so.1") {
    if (file == nullptr) return fail(errc::refused, "no file is named", "");
    if (!on.state_) return fail(errc::refused, "there is no host", "");
    auto state = start(on);
    if (!state) return fail(errc::no_memory, "out of memory", "");
    if (state->host->embedded == nullptr) return loadForeign(std::move(state), file);
    load_failure failure;
    const detail::host_state &host = *state->host.get();
    state->ext = host.load(host.embedded, file, failure.text, sizeof failure.text);
    if (state->ext == nullptr) return failure;
    return extension(std::move(state));
  }

  /** The library linked into the program (link libmorva), on a new embedded host. */
  static made linked(const host_options &options = {}) {
    auto fresh = host::embedded(options);
    if (!fresh) return fail(fresh.error(), "no host could be made", "");
    return linked(*fresh);
  }

  /** The library linked into the program (link libmorva), on a host. */
  static made linked(const host &on) {
    if (!on.state_) return fail(errc::refused, "there is no host", "");
    auto state = start(on);
    if (!state) return fail(errc::no_memory, "out of memory", "");
    if (state->host->embedded == nullptr) {
      return open(std::move(state), {&Exported_QZHandle, &qzextver, &morva}, "the linked library");
    }
    load_failure failure;
    const QZEntryPoints entry{"morva", &qzextver, &morva};
    const detail::host_state &host = *state->host.get();
    state->ext = host.attach(host.embedded, &entry, failure.text, sizeof failure.text);
    if (state->ext == nullptr) return failure;
    return extension(std::move(state));
  }

  extension(extension &&) noexcept = default;
  extension &operator=(extension &&) noexcept = default;
  extension(const extension &) = delete;
  extension &operator=(const extension &) = delete;

  /** The extension object; null after a move. */
  MORVAExt *native() const noexcept { return state_ ? state_->ext : nullptr; }

  /** The library's version; zeros after a move. */
  version_number version() const noexcept {
    version_number number;
    if (native() != nullptr) {
      native()->GetVersion(native(), &number.major, &number.minor, &number.patch);
    }
    return number;
  }

 private:
  using state_hold = detail::shared<detail::extension_state>;

  template <class Key, class Data, class... Features>
  friend class table;

  explicit extension(state_hold state) noexcept : state_(std::move(state)) {}

  static load_failure fail(errc code, const char *what, const char *more) {
    load_failure failure;
    failure.code = code;
    std::snprintf(failure.text, sizeof failure.text, "%s%s", what, more);
    return failure;
  }

  // A state without an extension yet; none when there is no memory.
  static state_hold start(const host &on) {
    state_hold state(new (std::nothrow) detail::extension_state);
    if (state) state->host = on.state_;
    return state;
  }

  static made loadForeign(state_hold state, const char *file) {
    state->handle = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (state->handle == nullptr) return fail(errc::not_loaded, dlerror(), "");
    const auto find = [&](const char *name) { return dlsym(state->handle, name); };
    detail::entry_points points{reinterpret_cast<HostServices **>(find("Exported_QZHandle")),
                                reinterpret_cast<decltype(&qzextver)>(find("qzextver")),
                                reinterpret_cast<decltype(&::morva::morva)>(find("morva"))};
    if (points.slot == nullptr) return fail(errc::not_loaded, file, ": no Exported_QZHandle");
    if (points.version == nullptr) return fail(errc::not_loaded, file, ": no qzextver");
    if (points.entry == nullptr) return fail(errc::not_loaded, file, ": no morva");
    // What the program has in everybody's sight is what the file's own code uses.
    if (void *slot = dlsym(RTLD_DEFAULT, "Exported_QZHandle"); slot != nullptr) {
      if (dlsym(RTLD_DEFAULT, "morva") != find("morva")) {
        return fail(errc::not_loaded, file, ": the program has another library of this kind");
      }
      points.slot = static_cast<HostServices **>(slot);
    }
    return open(std::move(state), points, file);
  }

  // Claims a copy of the library for a host of the caller's, and starts it.
  static made open(state_hold state, const detail::entry_points &points, const char *name) {
    using outcome = detail::claims::outcome;
    const outcome claimed = detail::claims::all().claim(*state.get(), points);
    if (claimed == outcome::taken) {
      return fail(errc::not_loaded, name, " serves another host already");
    }
    if (claimed == outcome::wrong_version) {
      return fail(errc::not_loaded, name, " is built for another host interface");
    }
    state->ext = points.entry(nullptr, nullptr);
    if (state->ext == nullptr) return fail(errc::no_memory, name, " could not be started");
    return extension(std::move(state));
  }

  state_hold state_;
};

}  // namespace morva

#endif
