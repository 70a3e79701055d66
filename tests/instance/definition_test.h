// Instances that are open for definition, and short calls to define them.
#pragma once

#include "instance_test.h"

namespace morva_test {

class DefinitionTest : public InstanceTest {
 protected:
  MORVAInst *open(uint32_t flags = 0, uint32_t dataLength = 16) {
    Shape shape;
    shape.flags = flags;
    shape.dataLength = dataLength;
    MORVAInst *inst = create(shape);
    EXPECT_NE(inst, nullptr);
    host.forget();
    return inst;
  }

  static MORVAStatus field(MORVAInst *inst, uint32_t length, uint32_t type = 1, uint32_t arg = 0,
                           uint32_t fieldOptions = 0) {
    const MORVAKeyDesc desc = {length, type, arg, fieldOptions};
    return inst->DefineKey(inst, &desc);
  }

  static MORVAStatus done(MORVAInst *inst, int32_t packerArg = 0, uint32_t dataLength = 16) {
    return inst->DefineDone(inst, packerArg, dataLength);
  }
};

}  // namespace morva_test
