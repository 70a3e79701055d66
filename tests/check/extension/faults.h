// What the deliberately broken extensions are made of: libmorva.so, and one fault. A library knows
// which by the name under which it was loaded, broken_FAULT.so.
#pragma once

#include <dlfcn.h>

#include <string>

inline bool faultIs(const char *name) {
  static const std::string fault = [] {
    static const char here = 0;
    Dl_info info = {};
    if (dladdr(&here, &info) == 0 || info.dli_fname == nullptr) return std::string();
    const std::string path = info.dli_fname;
    const size_t start = path.rfind("broken_");
    const size_t end = path.rfind(".so");
    if (start == std::string::npos || end == std::string::npos || end < start) return std::string();
    return path.substr(start + 7, end - start - 7);
  }();
  return fault == name;
}
