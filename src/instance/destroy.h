// Taking an instance apart, whole or half built.
#pragma once

#include "instance/instance.h"

namespace morva::core {

enum class LockFate {
  destroyed,
  left,  // a creation that fails leaves the lock it made to the host
};

// Releases everything that `inst` has, itself last.
void dismantle(MORVAInst *inst, LockFate lock);

}  // namespace morva::core
