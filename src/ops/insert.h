// The workers of the insertion operations.
#pragma once

#include "morva/inst.h"

namespace morva::core {

// `replace` is 0 for add and 1 for replace.
MORVAStatus InternalAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen,
                        uint32_t replace);

// The same without duplicate chains and sums, for instances that have neither.
MORVAStatus FastInternalAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen,
                            uint32_t replace);

}  // namespace morva::core
