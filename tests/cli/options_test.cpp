#include "options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "error.h"

namespace morva::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Options parse(const std::vector<const char *> &arguments) {
  return parseOptions(arguments);
}

struct Refusal {
  std::string text;
  std::string topic;
};

Refusal refusalOf(const std::vector<const char *> &arguments) {
  try {
    parse(arguments);
  } catch (const UsageError &error) {
    return {error.what(), error.topic()};
  }
  return {"accepted", ""};
}

TEST(Options, HoldWhatACommandIsToldAndDefaultsForTheRest) {
  const Options options = parse({"count", "file.csv", "--by", "a,b", "--by=c"});
  EXPECT_EQ(options.command, Command::kCount);
  EXPECT_THAT(options.files, ElementsAre("file.csv"));
  EXPECT_THAT(options.by, ElementsAre("a,b", "c"));
  EXPECT_FALSE(options.noHeader || options.skipBad || options.stats || options.dialect);
  EXPECT_EQ(options.memoryLimit, 0U);
}

TEST(Options, StandBeforeAndBehindFiles) {
  const Options options = parse({"join", "--left", "a", "--on", "k", "b", "--stats"});
  EXPECT_THAT(options.files, ElementsAre("a", "b"));
  EXPECT_THAT(options.on, ElementsAre("k"));
  EXPECT_TRUE(options.left && options.stats);
}

TEST(Options, MeanTheStandardInputWithoutAFile) {
  EXPECT_THAT(parse({"count", "--by", "a"}).files, ElementsAre("-"));
  EXPECT_THAT(parse({"count", "-", "--by", "a"}).files, ElementsAre("-"));
}

TEST(Options, EndAtADoubleDash) {
  EXPECT_THAT(parse({"count", "--by", "a", "--", "--by"}).files, ElementsAre("--by"));
}

TEST(Options, ChooseTheFormatByOptionOrName) {
  EXPECT_EQ(parse({"count", "--by", "a"}).dialectFor("x.tab"), kTsv);
  EXPECT_EQ(parse({"count", "--by", "a"}).dialectFor("x.tsv"), kTsv);
  EXPECT_EQ(parse({"count", "--by", "a"}).dialectFor("x.txt"), kCsv);
  EXPECT_EQ(parse({"count", "--by", "a", "--csv"}).dialectFor("x.tab"), kCsv);
  EXPECT_EQ(parse({"count", "--by", "a", "--tsv"}).dialectFor("x.csv"), kTsv);
  EXPECT_EQ(parse({"count", "--by", "a", "--delimiter", ";"}).dialectFor("x"),
            (Dialect{';', true}));
  EXPECT_EQ(parse({"count", "--by", "a", "--delimiter=\\t"}).dialectFor("x"),
            (Dialect{'\t', true}));
}

TEST(Options, ReadSizesWithUnits) {
  const auto limitOf = [](const char *size) {
    return parse({"count", "--by", "a", "--memory-limit", size}).memoryLimit;
  };
  EXPECT_EQ(limitOf("65536"), 65536U);
  EXPECT_EQ(limitOf("512K"), 512U << 10);
  EXPECT_EQ(limitOf("64m"), 64U << 20);
  EXPECT_EQ(limitOf("2G"), uint64_t{2} << 30);
  for (const char *size : {"", "K", "0", "-1", "1.5M", "64MB", "10T", "99999999999G", "1 M"}) {
    EXPECT_THAT(refusalOf({"count", "--by", "a", "--memory-limit", size}).text,
                HasSubstr("is not a size such as"))
        << size;
  }
}

TEST(Options, ReadNumbersForTheGenerator) {
  const Options options = parse({"generate", "--rows", "10", "--groups", "3", "--seed", "0"});
  EXPECT_EQ(options.rows, 10U);
  EXPECT_EQ(options.groups, 3U);
  EXPECT_EQ(options.seed, 0U);
  EXPECT_EQ(parse({"generate", "--rows", "1"}).groups, std::nullopt);
  EXPECT_THAT(refusalOf({"generate", "--rows", "0"}).text, HasSubstr("at least 1"));
  EXPECT_THAT(refusalOf({"generate", "--rows", "1e6"}).text, HasSubstr("'1e6' is not a number"));
}

TEST(Options, AskForHelpAnywhere) {
  EXPECT_EQ(parse({"--help"}).command, Command::kHelp);
  EXPECT_EQ(parse({"help"}).topic, "");
  EXPECT_EQ(parse({"help", "sum"}).topic, "sum");
  EXPECT_EQ(parse({"sum", "x", "--help", "--nonsense"}).topic, "sum");
  EXPECT_EQ(parse({"-h"}).command, Command::kHelp);
  EXPECT_EQ(parse({"--version"}).command, Command::kVersion);
}

TEST(Options, RefuseWhatIsNoCommand) {
  EXPECT_EQ(refusalOf({}).text, "no command is given");
  EXPECT_EQ(refusalOf({"cuont"}).text, "there is no command 'cuont'");
  EXPECT_EQ(refusalOf({"--by", "a"}).text, "the command comes first, and '--by' is not one");
  EXPECT_EQ(refusalOf({"help", "cuont"}).text, "there is no command 'cuont'");
  EXPECT_EQ(refusalOf({"help", "sum", "count"}).text, "help takes one command");
}

TEST(Options, RefuseWhatTheCommandDoesNotKnow) {
  const Refusal unknown = refusalOf({"count", "--bye", "a"});
  EXPECT_EQ(unknown.text, "there is no option '--bye'");
  EXPECT_EQ(unknown.topic, "count");
  EXPECT_EQ(refusalOf({"count", "--by", "a", "--value", "b"}).text,
            "option --value does not belong to count");
  EXPECT_EQ(refusalOf({"join", "a", "b", "--by", "a"}).text, "option --by does not belong to join");
}

TEST(Options, RefuseWhatIsMissingOrTwice) {
  EXPECT_EQ(refusalOf({"count", "file"}).text, "count needs --by COL[,COL]");
  EXPECT_EQ(refusalOf({"sum", "file", "--by", "a"}).text, "sum needs --value COL");
  EXPECT_EQ(refusalOf({"count", "--by"}).text, "option --by needs a value: --by COL[,COL]");
  EXPECT_EQ(refusalOf({"count", "--by", ""}).text, "option --by needs a text that is not empty");
  EXPECT_EQ(refusalOf({"count", "--by", "a", "--stats", "--stats"}).text,
            "option --stats is given twice");
  EXPECT_EQ(refusalOf({"count", "--by", "a", "--stats=yes"}).text, "option --stats takes no value");
}

TEST(Options, RefuseTheWrongNumberOfFiles) {
  EXPECT_EQ(refusalOf({"count", "a", "b", "--by", "x"}).text,
            "count takes one FILE, and 2 are given");
  EXPECT_EQ(refusalOf({"join", "a", "--on", "x"}).text,
            "join takes two files, LEFT and RIGHT, and 1 is given");
  EXPECT_EQ(refusalOf({"join", "-", "-", "--on", "x"}).text,
            "only one of LEFT and RIGHT can be the standard input");
  EXPECT_EQ(refusalOf({"generate", "--rows", "1", "x"}).text,
            "generate takes no files, and 'x' is given");
  EXPECT_EQ(refusalOf({"--version", "x"}).text, "--version takes no files, and 'x' is given");
}

TEST(Options, RefuseFormatsThatExcludeEachOther) {
  EXPECT_EQ(refusalOf({"count", "--by", "a", "--csv", "--tsv"}).text,
            "option --tsv: only one of --csv, --tsv and --delimiter can be given");
  for (const char *delimiter : {"", "ab", "\"", "\n", "\xC3"}) {
    EXPECT_THAT(refusalOf({"count", "--by", "a", "--delimiter", delimiter}).text,
                HasSubstr("is not one ASCII character"));
  }
}

TEST(Options, TakeAWidthOnlyWithoutAHeader) {
  EXPECT_EQ(parse({"join", "a", "b", "--on", "1", "--no-header", "--width", "4"}).width, 4U);
  EXPECT_EQ(refusalOf({"join", "a", "b", "--on", "k", "--width", "4"}).text,
            "option --width goes with --no-header only");
}

}  // namespace
}  // namespace morva::cli
