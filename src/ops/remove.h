// The worker of whole-key removal.
#pragma once

#include "morva/inst.h"

namespace morva::core {

// Removes a key with all its records. `takeLock` 0 is for a caller that holds
// the lock; its two failures after the checks release that lock all the same.
MORVAStatus internalRemove(MORVAInst *inst, const void *key, int32_t keyLen, uint32_t takeLock);

}  // namespace morva::core
