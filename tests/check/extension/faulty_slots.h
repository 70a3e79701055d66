// Extensions that are libmorva.so but for one fault in an operation: what the three files of them
// have in common. What is not defined there is found in libmorva.so; what is, calls that and goes
// wrong once.
#pragma once

#include <cstring>
#include <span>

#include "faults.h"
#include "morva/morva.h"

// A fault that is in an instance once it is made.
struct SlotFault {
  const char *name;
  void (*patch)(MORVAInst *inst);
};

// The operation in `slot` is `function`.
#define MORVA_SLOT_FAULT(name, slot, function)           \
  {                                                      \
    name, [](MORVAInst *inst) { inst->slot = function; } \
  }

std::span<const SlotFault> recordFaults();
std::span<const SlotFault> tableFaults();

// Runs `call` on an instance that takes no lock for as long.
template <class Call>
auto withoutLock(MORVAInst *inst, Call call) {
  const uint32_t flags = inst->flags;
  inst->flags |= flagNoLock;
  const auto answer = call();
  inst->flags = (inst->flags & ~uint32_t{flagNoLock}) | (flags & flagNoLock);
  return answer;
}

inline bool isDefined(const MORVAInst *inst) {
  return inst != nullptr && (inst->flags & flagDefined) != 0;
}

// Whether operations take a lock.
inline bool hasLock(const MORVAInst *inst) {
  return isDefined(inst) && (inst->flags & flagNoLock) == 0;
}

inline void *recordOf(MORVAInst *inst, const void *key, int32_t length) {
  const double increment = inst->sumIncrement;
  void *data = nullptr;
  inst->sumIncrement = 0;
  MORVAFind(inst, key, length, &data);
  inst->sumIncrement = increment;
  return data;
}

inline bool isRaw(const MORVAInst *inst) {
  return (inst->flags & (flagFixedKey | flagVarKey)) != 0;
}
