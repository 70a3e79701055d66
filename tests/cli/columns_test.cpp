#include "columns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "error.h"

namespace morva::cli {
namespace {

using testing::ElementsAre;

const Columns &orders() {
  static const Columns columns("orders.csv", {"id", "name, first", "x=y", "id2", "twice", "twice"},
                               true);
  return columns;
}

std::string errorOf(const Columns &columns, const std::string &list) {
  try {
    columns.findList(list);
  } catch (const Error &error) {
    return error.what();
  }
  return "no error";
}

TEST(Columns, AreFoundByName) {
  EXPECT_THAT(orders().findList("id2"), ElementsAre(3));
  EXPECT_THAT(orders().findList("id2,id"), ElementsAre(3, 0));
  EXPECT_THAT(orders().findLists({"id2,id", "x=y"}), ElementsAre(3, 0, 2));
}

TEST(Columns, WithACommaInTheNameAreFoundByThemselves) {
  EXPECT_THAT(orders().findList("name, first"), ElementsAre(1));
  EXPECT_THAT(orders().findLists({"name, first", "id"}), ElementsAre(1, 0));
}

TEST(Columns, ThatAreNotThereAreAnsweredWithThoseThatAre) {
  EXPECT_EQ(
      errorOf(orders(), "ID"),
      "orders.csv: there is no column 'ID'; the columns are 'id', 'name, first', 'x=y', 'id2',"
      " 'twice', 'twice'");
  EXPECT_THAT(errorOf(orders(), "id,"), testing::StartsWith("orders.csv: there is no column ''"));
  EXPECT_THAT(errorOf(orders(), "1"), testing::StartsWith("orders.csv: there is no column '1'"));
}

TEST(Columns, WithOneNameCannotBeToldApart) {
  EXPECT_THAT(errorOf(orders(), "twice"),
              testing::StartsWith("orders.csv: more than one column is called 'twice'"));
}

TEST(Columns, WithoutAHeaderHaveNumbers) {
  const Columns columns("data", {}, false);
  EXPECT_THAT(columns.findList("3,1"), ElementsAre(2, 0));
  EXPECT_EQ(columns.describe(2), "column 3");
  for (const char *text : {"0", "-1", "a", "1.5", "", "99999999999"}) {
    EXPECT_THAT(errorOf(columns, text), testing::HasSubstr("is no such number")) << text;
  }
}

std::string keyOf(KeyMaker &maker, const std::vector<std::string> &fields) {
  Record record;
  record.fields.assign(fields.begin(), fields.end());
  return std::string(maker.make(record));
}

TEST(Keys, OfOneColumnAreTheFieldItself) {
  KeyMaker maker({1});
  EXPECT_EQ(keyOf(maker, {"a", "bc"}), "bc");
}

TEST(Keys, OfSeveralColumnsDifferWhereFieldsDiffer) {
  KeyMaker maker({0, 1, 2});
  const std::vector<std::string> texts = {"",
                                          "a",
                                          "b",
                                          "ab",
                                          ",",
                                          std::string(1, '\0'),
                                          std::string("\1\0\0\0", 4),
                                          std::string("\0\0\0\0a", 5)};
  std::map<std::string, std::vector<std::string>> seen;
  for (const std::string &first : texts) {
    for (const std::string &second : texts) {
      for (const std::string &third : texts) {
        const std::vector<std::string> fields = {first, second, third};
        const auto [place, isNew] = seen.emplace(keyOf(maker, fields), fields);
        EXPECT_TRUE(isNew);
        std::vector<std::string_view> parts;
        maker.split(place->first, parts);
        EXPECT_THAT(parts, ElementsAre(first, second, third));
      }
    }
  }
  EXPECT_EQ(seen.size(), texts.size() * texts.size() * texts.size());
}

}  // namespace
}  // namespace morva::cli
