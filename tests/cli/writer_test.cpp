#include "writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "error.h"
#include "reader.h"
#include "support.h"

namespace morva::cli {
namespace {

using morva_test::TempFile;
using testing::HasSubstr;

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

std::string written(const Rows &rows, Dialect dialect = kCsv) {
  const TempFile file;
  Writer writer(file.fd(), "file", dialect);
  for (const Row &row : rows) {
    for (const std::string &field : row) writer.field(field);
    writer.endRow();
  }
  writer.flush();
  return file.content();
}

TEST(Writer, WritesFieldsWithDelimitersAndLineEnds) {
  EXPECT_EQ(written({{"a", "b"}, {"", "c", ""}}), "a,b\n,c,\n");
  EXPECT_EQ(written({{"a", "b"}}, kTsv), "a\tb\n");
}

TEST(Writer, QuotesWhatNeedsIt) {
  EXPECT_EQ(written({{"a,b", "c\"d", "e\nf", "g\rh", "i;j", " k "}}),
            "\"a,b\",\"c\"\"d\",\"e\nf\",\"g\rh\",i;j, k \n");
  EXPECT_EQ(written({{"a,b", "c;d"}}, {';', true}), "a,b;\"c;d\"\n");
}

TEST(Writer, QuotesARowOfOneEmptyFieldSoThatItIsNoEmptyLine) {
  EXPECT_EQ(written({{""}, {"", ""}}), "\"\"\n,\n");
  EXPECT_EQ(written({{""}}, kTsv), "\n");
}

TEST(Writer, LeavesQuotesInTabSeparatedTextAsTheyAre) {
  EXPECT_EQ(written({{"\"a\"", "b,c"}}, kTsv), "\"a\"\tb,c\n");
}

TEST(Writer, RefusesWhatTabSeparatedTextCannotCarry) {
  for (const char *field : {"a\tb", "a\nb", "a\r"}) {
    EXPECT_THROW(written({{field}}, kTsv), Error) << testing::PrintToString(field);
  }
}

TEST(Writer, PassesOnCarriageReturnsThatEndNoRowOfTabSeparatedText) {
  EXPECT_EQ(written({{"a\rb", "c\r", "d"}}, kTsv), "a\rb\tc\r\td\n");
}

TEST(Writer, WritesWholeRowsOnly) {
  const TempFile file;
  Writer writer(file.fd(), "file", kTsv);
  writer.field("a");
  writer.endRow();
  writer.field("b");
  EXPECT_THROW(writer.field("c\td"), UnwritableField);
  writer.flush();
  writer.field("e\r");
  EXPECT_THROW(writer.endRow(), UnwritableField);
  writer.flush();
  writer.field("f");
  writer.endRow();
  writer.flush();
  EXPECT_EQ(file.content(), "a\nf\n");
  EXPECT_EQ(writer.rows(), 2U);
}

TEST(Writer, QuotesAFirstFieldThatLooksLikeAComment) {
  const auto writtenWith = [](const Dialect &dialect) {
    const TempFile file;
    Writer writer(file.fd(), "file", dialect, "//");
    for (const Row &row : Rows{{"//a", "//b"}, {"/", "/"}, {"//\""}, {""}}) {
      for (const std::string &field : row) writer.field(field);
      writer.endRow();
    }
    writer.flush();
    return file.content();
  };
  EXPECT_EQ(writtenWith(kCsv), "\"//a\",//b\n/,/\n\"//\"\"\"\n\"\"\n");
  EXPECT_EQ(writtenWith(kTsv), "//a\t//b\n/\t/\n//\"\n\n");
}

TEST(Writer, QuotesAFirstFieldThatLooksLikeTheStartOfAComment) {
  const auto writtenWith = [](const char *comment) {
    const TempFile file;
    Writer writer(file.fd(), "file", kCsv, comment);
    for (const Row &row : Rows{{"a", "b"}, {"ab", "c"}, {"", "b"}, {""}}) {
      for (const std::string &field : row) writer.field(field);
      writer.endRow();
    }
    writer.flush();
    return file.content();
  };
  EXPECT_EQ(writtenWith("a,b"), "\"a\",b\nab,c\n,b\n\"\"\n");
  EXPECT_EQ(writtenWith(",b"), "a,b\nab,c\n\"\",b\n\"\"\n");
}

TEST(Writer, QuotesARecordThatWhatFollowsItWouldMakeAComment) {
  const auto writtenWith = [](const char *comment) {
    const TempFile file;
    Writer writer(file.fd(), "file", kCsv, comment);
    for (const std::string_view text : {"a", "a,b", "ab", ""}) {
      Record record;
      record.text = text;
      record.fields = {text.substr(0, text.find(','))};
      writer.record(record, kCsv);
      writer.append(",b,c");
      writer.endRow();
    }
    writer.flush();
    return file.content();
  };
  EXPECT_EQ(writtenWith("a,b"), "\"a\",b,c\na,b,b,c\nab,b,c\n,b,c\n");
  EXPECT_EQ(writtenWith("a,b,b"), "\"a\",b,c\n\"a\",b,b,c\nab,b,c\n,b,c\n");
  EXPECT_EQ(writtenWith(",b"), "a,b,c\na,b,b,c\nab,b,c\n\"\",b,c\n");
  EXPECT_EQ(writtenWith("a"), "a,b,c\na,b,b,c\nab,b,c\n,b,c\n");
}

TEST(Writer, QuotesAFirstFieldThatLooksLikeAByteOrderMark) {
  EXPECT_EQ(written({{"\xEF\xBB\xBF"
                      "a",
                      "b"},
                     {"\xEF\xBB\xBF", "c"}}),
            "\"\xEF\xBB\xBF"
            "a\",b\n\xEF\xBB\xBF,c\n");
  EXPECT_EQ(written({{"\xEF\xBB\xBF"
                      "a"}},
                    kTsv),
            "\xEF\xBB\xBF"
            "a\n");
  // A row passed on as it was read, whatever it was cut into.
  const TempFile file;
  Writer writer(file.fd(), "file", kCsv);
  Record record;
  record.text =
      "\xEF\xBB\xBF"
      "a,b,c";
  record.fields = {record.text.substr(0, 4)};
  for (int row = 0; row < 2; ++row) {
    writer.record(record, kCsv);
    writer.endRow();
  }
  writer.flush();
  EXPECT_EQ(file.content(),
            "\"\xEF\xBB\xBF"
            "a\",b,c\n\xEF\xBB\xBF"
            "a,b,c\n");
}

TEST(Writer, WritesNumbersInTheirShortestForm) {
  const TempFile file;
  Writer writer(file.fd(), "file", kCsv);
  for (const double number : {3.0, 0.1, 1e6, 1e300, -0.0}) writer.number(number);
  writer.number(UINT64_MAX);
  writer.endRow();
  writer.flush();
  EXPECT_EQ(file.content(), "3,0.1,1000000,1e+300,0,18446744073709551615\n");
}

TEST(Writer, QuotesNumbersThatHoldTheDelimiter) {
  const TempFile file;
  Writer writer(file.fd(), "file", {'.', true});
  writer.number(1.5);
  writer.number(uint64_t{2});
  writer.endRow();
  writer.flush();
  EXPECT_EQ(file.content(), "\"1.5\".2\n");
}

TEST(Writer, PassesRecordsOnInItsOwnDialect) {
  const TempFile input("a,b\n\"c\",\"d,e\"\nf,g\r\r\n");
  const TempFile file;
  RecordReader reader(input.path(), {});
  Writer writer(file.fd(), "file", kCsv);
  Record record;
  while (reader.next(record)) {
    writer.record(record, kCsv);
    writer.append(",!");
    writer.endRow();
  }
  writer.flush();
  EXPECT_EQ(file.content(), "a,b,!\nc,\"d,e\",!\nf,\"g\r\",!\n");
  EXPECT_EQ(writer.rows(), 3U);
}

TEST(Writer, TurnsRecordsIntoAnotherDialect) {
  const TempFile input("a,b;c\n");
  const TempFile file;
  RecordReader reader(input.path(), {});
  Writer writer(file.fd(), "file", {';', true});
  Record record;
  ASSERT_TRUE(reader.next(record));
  writer.record(record, kCsv);
  writer.endRow();
  writer.flush();
  EXPECT_EQ(file.content(), "a;\"b;c\"\n");
}

TEST(Writer, WritesFieldsLargerThanItsBuffer) {
  const std::string large(1 << 20, 'x');
  EXPECT_EQ(written({{"a", large, "b"}, {large + "\""}}),
            "a," + large + ",b\n\"" + large + "\"\"\"\n");
}

TEST(Writer, SaysWhenTheFileCannotTakeIt) {
  const int fd = ::open("/dev/full", O_WRONLY);
  ASSERT_GE(fd, 0);
  Writer writer(fd, "the full device", kCsv);
  writer.field("a");
  writer.endRow();
  std::string message;
  try {
    writer.flush();
  } catch (const Error &error) {
    message = error.what();
  }
  EXPECT_EQ(message, "cannot write to the full device: No space left on device");
  ::close(fd);
}

TEST(Writer, WritesWhatTheReaderReadsBack) {
  std::mt19937 random(77);
  constexpr std::string_view kAlphabet = "ab,;\"\n\r\t #";
  for (const Dialect dialect : {kCsv, Dialect{';', true}, Dialect{'\t', true}}) {
    Rows rows;
    for (int i = 0; i < 3000; ++i) {
      Row &row = rows.emplace_back();
      for (size_t fields = 1 + random() % 4; fields > 0; --fields) {
        std::string &field = row.emplace_back();
        for (size_t length = random() % 6; length > 0; --length) {
          field += kAlphabet[random() % kAlphabet.size()];
        }
      }
    }
    const TempFile file(written(rows, dialect));
    RecordReader::Options options;
    options.dialect = dialect;
    options.bufferSize = 64;
    RecordReader reader(file.path(), options);
    Record record;
    for (const Row &row : rows) {
      ASSERT_TRUE(reader.next(record));
      ASSERT_EQ(Row(record.fields.begin(), record.fields.end()), row);
    }
    EXPECT_FALSE(reader.next(record));
  }
}

}  // namespace
}  // namespace morva::cli
