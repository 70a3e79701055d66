// Reaching a record is a counting event on instances with flagSum.
#pragma once

#include "instance/record.h"

namespace morva::core {

// Adds the increment to the sum of the record at `data`; an increment of 0.0
// changes nothing, not even a -0.0.
inline void countVisit(const MORVAInst &inst, const void *data) {
  if (!has(inst, flagSum)) return;
  const double increment = relaxedLoad(inst.sumIncrement);
  if (increment != 0.0) *sumAtData(inst, data) += increment;
}

}  // namespace morva::core
