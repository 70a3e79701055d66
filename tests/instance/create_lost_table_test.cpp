// A host that takes its service table back while it is asked for services.
#include "instance_test.h"

namespace morva_test {
namespace {

class CreateLostTable : public InstanceTest {};

TEST_F(CreateLostTable, BeforeTheLockIsMadeFailsAndLeavesNothing) {
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0}}) {
    Shape shape;
    shape.flags = flags;
    MORVAParms parms = parmsOf(shape);
    host.forget();
    host.onEvent = [](const Event &event) {
      if (event.call == Call::makeTree) qzextent(nullptr);
    };
    EXPECT_EQ(ext->Create(ext.get(), &parms, nullptr, "ab"), nullptr);
    host.onEvent = nullptr;
    qzextent(host.services());
    EXPECT_EQ(host.count(Call::makeTree), 1u);
    EXPECT_EQ(host.count(Call::createLock), 0u);
    EXPECT_EQ(host.poolsAlive(), 1u);
    EXPECT_EQ(host.blocksAlive(), 1u);
    EXPECT_EQ(host.companionsAlive(), 0u);
    EXPECT_EQ(host.objectsAlive(), 0u);
  }
}

}  // namespace
}  // namespace morva_test
