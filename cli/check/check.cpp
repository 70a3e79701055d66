#include "check.h"

#include <cstdint>
#include <cstdio>

namespace morva::cli::check {

std::string shownStatus(uint32_t status) {
  char text[16];
  std::snprintf(text, sizeof text, status < 10 ? "%u" : "0x%08x", static_cast<unsigned>(status));
  return text;
}

void expectStatus(uint32_t actual, uint32_t expected, const std::string &what) {
  if (actual == expected) return;
  throw Unmet(what + " answered " + shownStatus(actual) + " and should answer " +
              shownStatus(expected));
}

}  // namespace morva::cli::check
