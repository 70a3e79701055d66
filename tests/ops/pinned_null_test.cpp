// Asking whether a node is pinned.
#include "instance/release.h"
#include "table.h"

namespace morva_test {
namespace {

class Pinned : public OpsTest {};

TEST_F(Pinned, NoNodeIsNotEvenWhereTheListNamesNone) {
  Table table(host, ext.get(), Shape{});
  table.pin(nullptr);
  EXPECT_EQ(morva::core::Locked(table.get(), nullptr), 0u);
  RecordNode *node = table.put("red", "1");
  EXPECT_EQ(morva::core::Locked(table.get(), node), 0u);
  table.pin(node);
  EXPECT_EQ(morva::core::Locked(table.get(), node), 1u);
}

}  // namespace
}  // namespace morva_test
