#include "registry.h"

namespace bench {

std::vector<Entry> &registry() {
  static std::vector<Entry> entries;
  return entries;
}

}  // namespace bench
