#include "reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "error.h"
#include "support.h"

namespace morva::cli {
namespace {

using morva_test::FedPipe;
using morva_test::TempFile;
using testing::ElementsAre;
using testing::HasSubstr;

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

RecordReader::Options withBuffer(size_t bufferSize, Dialect dialect = kCsv) {
  RecordReader::Options options;
  options.dialect = dialect;
  options.bufferSize = bufferSize;
  return options;
}

Row copyOf(const Record &record) {
  return {record.fields.begin(), record.fields.end()};
}

Rows readAll(RecordReader &reader) {
  Rows rows;
  Record record;
  while (reader.next(record)) rows.push_back(copyOf(record));
  return rows;
}

Rows readText(std::string_view text, const RecordReader::Options &options = {}) {
  const TempFile file(text);
  RecordReader reader(file.path(), options);
  return readAll(reader);
}

template <typename Call>
std::string errorOf(Call call) {
  try {
    call();
  } catch (const Error &error) {
    return error.what();
  }
  return "no error";
}

TEST(Reader, SplitsLinesAtTheDelimiter) {
  EXPECT_EQ(readText("a,b,c\n1,,3\n"), (Rows{{"a", "b", "c"}, {"1", "", "3"}}));
  EXPECT_EQ(readText("a;b,c\n", withBuffer(64, {';', true})), (Rows{{"a", "b,c"}}));
}

TEST(Reader, TakesALastLineWithoutItsEnd) {
  EXPECT_EQ(readText("a,b\nc,d"), (Rows{{"a", "b"}, {"c", "d"}}));
  EXPECT_EQ(readText("a,b\nc,"), (Rows{{"a", "b"}, {"c", ""}}));
  EXPECT_EQ(readText("\"a\",\"b\""), (Rows{{"a", "b"}}));
}

TEST(Reader, FindsNothingInAnEmptyFile) {
  EXPECT_EQ(readText(""), Rows{});
  EXPECT_EQ(readText("\xEF\xBB\xBF"), Rows{});
}

TEST(Reader, DropsCarriageReturnsAtLineEndsOnly) {
  EXPECT_EQ(readText("a,b\r\nc\rd,e\r\n"), (Rows{{"a", "b"}, {"c\rd", "e"}}));
  EXPECT_EQ(readText("\"a\",b\r\n\"c\"\r\nd,\"e\"\r"), (Rows{{"a", "b"}, {"c"}, {"d", "e"}}));
}

TEST(Reader, DropsAByteOrderMarkAtTheStartOnly) {
  EXPECT_EQ(readText("\xEF\xBB\xBF"
                     "a,\xEF\xBB\xBFz\n"),
            (Rows{{"a", "\xEF\xBB\xBFz"}}));
  EXPECT_EQ(readText("\xEF\xBB"), (Rows{{"\xEF\xBB"}}));
}

TEST(Reader, ReadsQuotedFields) {
  EXPECT_EQ(readText("\"a,b\",\"c\"\"d\",\"\",\"\"\"\"\n"), (Rows{{"a,b", "c\"d", "", "\""}}));
  EXPECT_EQ(readText("\"x\ny\r\nz\",1\nn\n"), (Rows{{"x\ny\r\nz", "1"}, {"n"}}));
}

TEST(Reader, TakesAQuoteWithinABareFieldAsItIs) {
  EXPECT_EQ(readText("a\"b,5\" pipe\n"), (Rows{{"a\"b", "5\" pipe"}}));
}

TEST(Reader, TakesQuotesInTabSeparatedTextAsTheyAre) {
  EXPECT_EQ(readText("\"a\tb\"\n\"\"\n", withBuffer(64, kTsv)), (Rows{{"\"a", "b\""}, {"\"\""}}));
}

TEST(Reader, SkipsEmptyLinesUnlessTheyAreKept) {
  EXPECT_EQ(readText("\na\n\n\r\nb\n\n"), (Rows{{"a"}, {"b"}}));
  const TempFile file("a\n\n\r\nb\n");
  RecordReader reader(file.path(), {});
  reader.setKeepBlankLines(true);
  EXPECT_EQ(readAll(reader), (Rows{{"a"}, {""}, {""}, {"b"}}));
}

TEST(Reader, SkipsCommentLines) {
  RecordReader::Options options;
  options.comment = "//";
  EXPECT_EQ(readText("// \"x\na\n//\n/b\n \"//c\"\n\"//d\"\n/", options),
            (Rows{{"a"}, {"/b"}, {" \"//c\""}, {"//d"}, {"/"}}));
}

TEST(Reader, CountsLinesWithThoseInsideFieldsAndThoseSkipped) {
  const TempFile file("#\na\n\n\"b\n\nb\"\nc\r\n\"d\"\n");
  RecordReader::Options options;
  options.comment = "#";
  RecordReader reader(file.path(), options);
  std::vector<uint64_t> lines;
  Record record;
  while (reader.next(record)) lines.push_back(record.line);
  EXPECT_THAT(lines, ElementsAre(2, 4, 7, 8));
}

TEST(Reader, CountsLinesBehindDoubledQuotesOnce) {
  const TempFile file("\"\"\"\n\"\n\"a\"\"\r\n\n\",b\nc\n");
  RecordReader reader(file.path(), {});
  Record record;
  std::vector<uint64_t> lines;
  while (reader.next(record)) lines.push_back(record.line);
  EXPECT_THAT(lines, ElementsAre(1, 3, 6));
}

TEST(Reader, TellsPlainRecordsFromThoseWithQuotes) {
  const TempFile file("a,b\n\"a\",b\nc,d\r\n");
  RecordReader reader(file.path(), {});
  Record record;
  ASSERT_TRUE(reader.next(record));
  EXPECT_TRUE(record.plain);
  EXPECT_EQ(record.text, "a,b");
  ASSERT_TRUE(reader.next(record));
  EXPECT_FALSE(record.plain);
  ASSERT_TRUE(reader.next(record));
  EXPECT_TRUE(record.plain);
  EXPECT_EQ(record.text, "c,d");
}

TEST(Reader, CutsPlainRecordsIntoAsManyFieldsAsAskedFor) {
  const TempFile file("a,b,c,d\n\"a\",b,c,d\ne\n");
  RecordReader reader(file.path(), {});
  reader.setFieldLimit(2);
  EXPECT_EQ(readAll(reader), (Rows{{"a", "b"}, {"a", "b", "c", "d"}, {"e"}}));
}

TEST(Reader, CutsRecordsThatEndInACarriageReturnIntoAllTheirFields) {
  const TempFile file("a,b,c,d\r\r\na,b,c,d\r\n");
  RecordReader reader(file.path(), {});
  reader.setFieldLimit(2);
  EXPECT_EQ(readAll(reader), (Rows{{"a", "b", "c", "d\r"}, {"a", "b"}}));
}

// What checkLineEnds says of the first record of a text.
std::string lineEndsOf(std::string_view text, bool isHeader) {
  const TempFile file(text);
  RecordReader reader(file.path(), withBuffer(4));
  Record record;
  if (!reader.next(record)) return "no record";
  return errorOf([&] { reader.checkLineEnds(record, isHeader); });
}

TEST(Reader, TellsLineEndsOfCarriageReturnsAloneFromData) {
  for (const char *text : {"a\rb\rc\r", "a,b\rc,d", "\"a\",b\rc,d\r", "\xEF\xBB\xBFk\rb"}) {
    EXPECT_THAT(lineEndsOf(text, true), HasSubstr(":1: the header holds a carriage")) << text;
    EXPECT_THAT(lineEndsOf(text, false), HasSubstr(":1: the row holds a carriage")) << text;
  }
  for (const char *text : {"a\rb\n", "a\rb\nc", "\"x\",a\rb\n"}) {
    EXPECT_THAT(lineEndsOf(text, true), HasSubstr("the header holds a carriage")) << text;
    EXPECT_EQ(lineEndsOf(text, false), "no error") << text;
  }
  for (const char *text : {"a,b\r", "a,b\r\n", "\"a\rb\",c", "\"a\"\"\rb\"\r", "a\nb\rc"}) {
    EXPECT_EQ(lineEndsOf(text, true), "no error") << text;
    EXPECT_EQ(lineEndsOf(text, false), "no error") << text;
  }
}

TEST(Reader, ReadsRecordsLongerThanItsBuffer) {
  const std::string longField(100000, 'x');
  std::string quotedField = "\"" + longField + "\"\"\n" + longField + "\"";
  EXPECT_EQ(readText(longField + ",1\n" + quotedField + ",2\n3\n", withBuffer(4)),
            (Rows{{longField, "1"}, {longField + "\"\n" + longField, "2"}, {"3"}}));
}

TEST(Reader, RefusesRecordsAboveTheLimit) {
  RecordReader::Options options = withBuffer(16);
  options.maxRecord = 64;
  EXPECT_EQ(readText(std::string(60, 'x') + "\n" + std::string(60, 'y') + "\n", options).size(),
            2U);
  EXPECT_THAT(
      errorOf([&] { readText("a\n\"" + std::string(100, 'x') + "\"\n", options); }),
      HasSubstr(":2: the row that starts here is longer than 64 bytes; is a closing quote"));
}

TEST(Reader, RefusesAQuoteThatIsNeverClosedNamingItsLine) {
  EXPECT_THAT(errorOf([] { readText("a\nb,\"c\"\n\"d\ne\",\"f\ng,\"\"\n"); }),
              HasSubstr(":4: the quote opened here is never closed"));
}

TEST(Reader, RefusesTextBehindAClosingQuoteAndGoesOnWithTheNextLine) {
  for (const size_t bufferSize : {size_t{4}, size_t{4096}}) {
    const TempFile file("1\n\"a\nb\"c,\"d\n2\n\"e\"\"\" \n3\n\"x\"\ry\n4\n");
    RecordReader reader(file.path(), withBuffer(bufferSize));
    Record record;
    ASSERT_TRUE(reader.next(record));
    EXPECT_THAT(errorOf([&] { reader.next(record); }),
                HasSubstr(":2: there is text behind a closing quote: '\"a\\nb\"c,\"d'"));
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(copyOf(record), Row{"2"});
    EXPECT_EQ(record.line, 4U);
    EXPECT_THROW(reader.next(record), RowError);
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(copyOf(record), Row{"3"});
    EXPECT_THROW(reader.next(record), RowError);
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(copyOf(record), Row{"4"});
    EXPECT_EQ(record.line, 8U);
    EXPECT_FALSE(reader.next(record));
  }
}

TEST(Reader, ReadsFromPipesInWhateverPieces) {
  const FedPipe pipe({"a,", "b\n\"", "c\n", "\"\"", "d\",", "e", "\r", "\n", "f"});
  RecordReader reader(pipe.path(), {});
  EXPECT_FALSE(reader.isRegular());
  EXPECT_EQ(reader.size(), 0U);
  EXPECT_EQ(readAll(reader), (Rows{{"a", "b"}, {"c\n\"d", "e"}, {"f"}}));
}

TEST(Reader, AnnouncesReadsThatMayWaitOnPipesOnly) {
  const FedPipe pipe({"a\nb\n"});
  RecordReader fromPipe(pipe.path(), {});
  int calls = 0;
  fromPipe.setBeforeWaiting([&calls] { ++calls; });
  readAll(fromPipe);
  EXPECT_GE(calls, 1);

  const TempFile file("a\nb\n");
  RecordReader fromFile(file.path(), withBuffer(4));
  calls = 0;
  fromFile.setBeforeWaiting([&calls] { ++calls; });
  readAll(fromFile);
  EXPECT_EQ(calls, 0);
}

TEST(Reader, SaysWhatItCannotOpenOrRead) {
  EXPECT_THAT(errorOf([] { readText("", {}); }), "no error");
  EXPECT_THAT(errorOf([] { RecordReader("no/such/file", {}); }),
              "no/such/file: cannot open it: No such file or directory");
  EXPECT_THAT(errorOf([] { RecordReader(".", {}); }), ".: cannot read it: Is a directory");
}

// What the rules say, one character at a time.
class PlainReading {
 public:
  explicit PlainReading(std::string text) : text_(std::move(text)) {}

  Rows read() {
    Rows rows;
    while (at_ < text_.size()) {
      if (skipBlankLine()) continue;
      Row row;
      const Outcome outcome = readRow(row);
      if (outcome == kUnclosed) {
        rows.push_back({"<unclosed>"});
        break;
      }
      rows.push_back(outcome == kBad ? Row{"<bad>"} : row);
    }
    return rows;
  }

 private:
  enum Outcome { kGood, kBad, kUnclosed };

  // The length of the line end at `at`, 0 if there is none; the end of the text counts as one.
  bool atLineEnd(size_t at, size_t &length) const {
    length = 0;
    if (at == text_.size()) return true;
    if (text_[at] == '\r' && (at + 1 == text_.size() || text_[at + 1] == '\n')) {
      length = at + 1 == text_.size() ? 1 : 2;
      return true;
    }
    length = text_[at] == '\n' ? 1 : 0;
    return length == 1;
  }

  bool skipBlankLine() {
    size_t length = 0;
    if (!atLineEnd(at_, length)) return false;
    at_ += length;
    return true;
  }

  Outcome readRow(Row &row) {
    for (;;) {
      row.emplace_back();
      const Outcome outcome =
          text_[at_] == '"' && at_ < text_.size() ? readQuoted(row.back()) : readBare(row.back());
      if (outcome != kGood) return outcome;
      size_t length = 0;
      if (atLineEnd(at_, length)) {
        at_ += length;
        return kGood;
      }
      ++at_;
    }
  }

  Outcome readBare(std::string &field) {
    size_t length = 0;
    while (!atLineEnd(at_, length) && text_[at_] != ',') field += text_[at_++];
    return kGood;
  }

  Outcome readQuoted(std::string &field) {
    for (++at_;; ++at_) {
      if (at_ >= text_.size()) return kUnclosed;
      if (text_[at_] == '"') {
        ++at_;
        if (at_ >= text_.size() || text_[at_] != '"') break;
      }
      field += text_[at_];
    }
    size_t length = 0;
    if (atLineEnd(at_, length) || text_[at_] == ',') return kGood;
    while (at_ < text_.size() && text_[at_] != '\n') ++at_;
    if (at_ < text_.size()) ++at_;
    return kBad;
  }

  std::string text_;
  size_t at_ = 0;
};

Rows readWithMarks(const std::string &text, size_t bufferSize) {
  const TempFile file(text);
  RecordReader reader(file.path(), withBuffer(bufferSize));
  Rows rows;
  Record record;
  for (;;) {
    try {
      if (!reader.next(record)) return rows;
      rows.push_back(copyOf(record));
    } catch (const RowError &) {
      rows.push_back({"<bad>"});
    } catch (const Error &) {
      rows.push_back({"<unclosed>"});
      return rows;
    }
  }
}

TEST(Reader, AgreesWithAPlainReadingOnRandomTexts) {
  std::mt19937 random(20240607);
  constexpr std::string_view kAlphabet = "ab,,\"\"\"\n\n\r";
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    for (size_t length = random() % 40; length > 0; --length) {
      text += kAlphabet[random() % kAlphabet.size()];
    }
    const Rows expected = PlainReading(text).read();
    for (const size_t bufferSize : {size_t{4}, size_t{7}, size_t{4096}}) {
      ASSERT_EQ(readWithMarks(text, bufferSize), expected) << testing::PrintToString(text);
    }
  }
}

}  // namespace
}  // namespace morva::cli
