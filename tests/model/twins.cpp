#include "twins.h"

#include <gtest/gtest.h>

namespace morva_test {

void compareTwins(TableDriver &table, TableDriver &twin, bool variableKeys) {
  MORVAInst *a = table.inst();
  MORVAInst *b = twin.inst();
  uint32_t equal = 7;
  if (variableKeys) {
    EXPECT_EQ(a->Equals(a, b, &equal), MORVA_INVALID);
    EXPECT_EQ(equal, 7u);
    return;
  }
  EXPECT_EQ(a->Equals(a, b, &equal), MORVA_OK);
  EXPECT_EQ(equal, 1u);
  EXPECT_EQ(b->Equals(b, a, nullptr), MORVA_OK);
  EXPECT_EQ(a->Equals(a, nullptr, &equal), MORVA_INVALID);
  EXPECT_EQ(a->Equals(a, a, &equal), MORVA_OK);
  EXPECT_EQ(equal, 1u) << "an instance does not equal itself";
  if (!twin.flipOneByte()) return;
  EXPECT_EQ(a->Equals(a, b, &equal), MORVA_OK);
  EXPECT_EQ(equal, 0u) << "one byte differs";
  twin.flipOneByte();
}

void compareOtherChains(TableDriver &table, TableDriver &twin) {
  if (!table.lengthenChain(true) || !twin.lengthenChain(false)) return;
  uint32_t equal = 7;
  EXPECT_EQ(MORVAEquals(table.inst(), twin.inst(), &equal), MORVA_OK);
  EXPECT_EQ(equal, 0u);
  EXPECT_EQ(MORVAEquals(twin.inst(), table.inst(), &equal), MORVA_OK);
  EXPECT_EQ(equal, 0u);
}

void checkPools(HostUnderTest &host, const TableDriver &table, const TableDriver &twin) {
  const bool variableKeys = table.model().shape().keyMode == KeyMode::variable;
  const auto both = [&](auto count) { return count(table.model()) + count(twin.model()); };
  EXPECT_EQ(host.blocksLive(variableKeys ? "varkeys" : "records"),
            both([&](const TableModel &model) -> uint64_t {
              return variableKeys ? model.slots().made() : model.slots().blocks().size();
            }));
  EXPECT_EQ(host.blocksLive("inodes"),
            both([](const TableModel &model) { return model.orderSlots().blocks(); }));
  EXPECT_EQ(host.unmatchedReleases(),
            table.expectedUnmatchedReleases() + twin.expectedUnmatchedReleases());
}

}  // namespace morva_test
