#include "keys/hash.h"

namespace morva::core {

uint32_t hashAnyKey(uint32_t method, const unsigned char *bytes, uint32_t length) {
  return hash_key(method, bytes, length);
}

}  // namespace morva::core
