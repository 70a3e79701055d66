// What a fuzz target calls a finding: it says what is wrong and aborts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace morva_fuzz {

[[noreturn]] inline void finding(const char *file, int line, const std::string &text) {
  std::fprintf(stderr, "%s:%d: %s\n", file, line, text.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace morva_fuzz

#define FUZZ_CHECK(condition)                                         \
  do {                                                                \
    if (!(condition)) {                                               \
      morva_fuzz::finding(__FILE__, __LINE__, "not so: " #condition); \
    }                                                                 \
  } while (false)

// `text` is empty when all is well.
#define FUZZ_CHECK_EMPTY(text)                                            \
  do {                                                                    \
    const std::string found_ = (text);                                    \
    if (!found_.empty()) morva_fuzz::finding(__FILE__, __LINE__, found_); \
  } while (false)

// The function that every target has.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
