// Data that lies where it is written to: what a host hands over may be a record's.
#include "table.h"

namespace morva_test {
namespace {

class OverlappingData : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, OverlappingData, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

// The first record's data moves by four bytes; the four behind it are the slot's.
TEST_P(OverlappingData, EveryRecordOfAKeyGetsWhatTheHostsDataWasBefore) {
  Table table(host, ext.get(), GetParam());
  for (const char *text : {"abcdefghijklmnop", "2", "3"}) table.put("red", text);
  const std::vector<void *> cursors = table.cursors("red");
  const char *from = static_cast<const char *>(cursors.front()) + 4;
  const std::string wanted(from, table->dataLength);
  const std::string key = table.key("red");
  ASSERT_EQ(table->Replace(table.get(), from, key.data(), static_cast<int32_t>(key.size())),
            MORVA_OK);
  for (const void *data : cursors) {
    EXPECT_EQ(std::string(static_cast<const char *>(data), table->dataLength), wanted);
  }
}

}  // namespace
}  // namespace morva_test
