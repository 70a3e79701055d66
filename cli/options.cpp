#include "options.h"

#include <limits>
#include <set>
#include <string_view>
#include <utility>

#include "error.h"
#include "text.h"

namespace morva::cli {

namespace {

using std::string_view;

constexpr unsigned bit(Command command) {
  return 1U << static_cast<unsigned>(command);
}

constexpr unsigned kOfCount = bit(Command::kCount);
constexpr unsigned kOfSum = bit(Command::kSum);
constexpr unsigned kOfDistinct = bit(Command::kDistinct);
constexpr unsigned kOfJoin = bit(Command::kJoin);
constexpr unsigned kOfGenerate = bit(Command::kGenerate);
constexpr unsigned kOfChecks = bit(Command::kCheckExtension) | bit(Command::kCheckHost);
constexpr unsigned kOfTables = kOfCount | kOfSum | kOfDistinct | kOfJoin;

struct CommandName {
  string_view name;
  Command command;
};

constexpr CommandName kCommands[] = {
    {"count", Command::kCount},          {"sum", Command::kSum},
    {"distinct", Command::kDistinct},    {"join", Command::kJoin},
    {"generate", Command::kGenerate},    {"check-extension", Command::kCheckExtension},
    {"check-host", Command::kCheckHost}, {"help", Command::kHelp},
};

std::optional<Command> commandNamed(string_view name) {
  for (const CommandName &entry : kCommands) {
    if (entry.name == name) return entry.command;
  }
  return std::nullopt;
}

[[noreturn]] void refuseValue(string_view option, string_view value, const char *expected) {
  throw UsageError("option " + std::string(option) + ": " + quoted(value) + " is not " + expected);
}

uint64_t wholeNumber(string_view option, string_view value, uint64_t least, const char *expected) {
  uint64_t number = 0;
  if (!parseWhole(value, number) || number < least) refuseValue(option, value, expected);
  return number;
}

uint64_t sizeInBytes(string_view option, string_view value) {
  static constexpr const char *kExpected = "a size such as 65536, 512K, 64M or 2G";
  unsigned shift = 0;
  string_view digits = value;
  if (!digits.empty()) {
    switch (digits.back()) {
      case 'K':
      case 'k':
        shift = 10;
        break;
      case 'M':
      case 'm':
        shift = 20;
        break;
      case 'G':
      case 'g':
        shift = 30;
        break;
      default:
        break;
    }
    if (shift != 0) digits.remove_suffix(1);
  }
  uint64_t number = 0;
  const uint64_t most = std::numeric_limits<uint64_t>::max() >> shift;
  if (!parseWhole(digits, number) || number == 0 || number > most) {
    refuseValue(option, value, kExpected);
  }
  return number << shift;
}

void setDialect(Options &options, string_view option, Dialect dialect) {
  if (options.dialect) {
    throw UsageError("option " + std::string(option) +
                     ": only one of --csv, --tsv and --delimiter can be given");
  }
  options.dialect = dialect;
}

Dialect delimitedBy(string_view option, string_view value) {
  if (value == "\\t") value = "\t";
  const bool usable = value.size() == 1 && value[0] != '"' && value[0] != '\n' &&
                      value[0] != '\r' && static_cast<unsigned char>(value[0]) < 0x80 &&
                      value[0] != '\0';
  if (!usable) {
    refuseValue(option, value, "one ASCII character other than the quote (\\t stands for a tab)");
  }
  return {value[0], true};
}

std::string nonEmpty(string_view option, string_view value) {
  if (value.empty())
    throw UsageError("option " + std::string(option) + " needs a text that is not empty");
  return std::string(value);
}

struct OptionEntry {
  string_view name;
  // What its value is called in messages; empty for an option without.
  string_view value;
  unsigned commands;
  bool repeatable;
  void (*apply)(Options &options, string_view option, string_view value);
};

constexpr OptionEntry kOptions[] = {
    {"--by", "COL[,COL]", kOfCount | kOfSum | kOfDistinct, true,
     [](Options &o, string_view name, string_view v) { o.by.push_back(nonEmpty(name, v)); }},
    {"--value", "COL", kOfSum, false,
     [](Options &o, string_view name, string_view v) { o.value = nonEmpty(name, v); }},
    {"--empty-as-zero", "", kOfSum, false,
     [](Options &o, string_view, string_view) { o.emptyAsZero = true; }},
    {"--keys-only", "", kOfDistinct, false,
     [](Options &o, string_view, string_view) { o.keysOnly = true; }},
    {"--on", "COL[,COL]", kOfJoin, true,
     [](Options &o, string_view name, string_view v) { o.on.push_back(nonEmpty(name, v)); }},
    {"--left", "", kOfJoin, false, [](Options &o, string_view, string_view) { o.left = true; }},
    {"--width", "N", kOfJoin, false,
     [](Options &o, string_view name, string_view v) {
       o.width = wholeNumber(name, v, 1, "a number of columns");
     }},
    {"--csv", "", kOfTables, false,
     [](Options &o, string_view name, string_view) { setDialect(o, name, kCsv); }},
    {"--tsv", "", kOfTables, false,
     [](Options &o, string_view name, string_view) { setDialect(o, name, kTsv); }},
    {"--delimiter", "C", kOfTables, false,
     [](Options &o, string_view name, string_view v) {
       setDialect(o, name, delimitedBy(name, v));
     }},
    {"--no-header", "", kOfTables, false,
     [](Options &o, string_view, string_view) { o.noHeader = true; }},
    {"--comment", "TEXT", kOfTables, false,
     [](Options &o, string_view name, string_view v) { o.comment = nonEmpty(name, v); }},
    {"--skip-bad", "", kOfTables, false,
     [](Options &o, string_view, string_view) { o.skipBad = true; }},
    {"--memory-limit", "SIZE", kOfTables, false,
     [](Options &o, string_view name, string_view v) { o.memoryLimit = sizeInBytes(name, v); }},
    {"--library", "FILE", kOfTables | bit(Command::kCheckHost) | bit(Command::kVersion), false,
     [](Options &o, string_view name, string_view v) { o.library = nonEmpty(name, v); }},
    {"--stats", "", kOfTables, false, [](Options &o, string_view, string_view) { o.stats = true; }},
    {"--only", "NAME", kOfChecks, true,
     [](Options &o, string_view name, string_view v) { o.only.push_back(nonEmpty(name, v)); }},
    {"--time-limit", "SECONDS", kOfChecks, false,
     [](Options &o, string_view name, string_view v) {
       static constexpr const char *kExpected = "a number of seconds, 1 to 3600";
       o.timeLimit = wholeNumber(name, v, 1, kExpected);
       if (o.timeLimit > 3600) refuseValue(name, v, kExpected);
     }},
    {"--json", "", kOfChecks, false, [](Options &o, string_view, string_view) { o.json = true; }},
    {"--list", "", kOfChecks, false,
     [](Options &o, string_view, string_view) { o.listChecks = true; }},
    {"--rows", "N", kOfGenerate, false,
     [](Options &o, string_view name, string_view v) {
       o.rows = wholeNumber(name, v, 1, "a number of rows, at least 1");
     }},
    {"--groups", "N", kOfGenerate, false,
     [](Options &o, string_view name, string_view v) {
       o.groups = wholeNumber(name, v, 1, "a number of groups, at least 1");
     }},
    {"--seed", "N", kOfGenerate, false,
     [](Options &o, string_view name, string_view v) {
       o.seed = wholeNumber(name, v, 0, "a whole number");
     }},
};

const OptionEntry *findOption(string_view name) {
  for (const OptionEntry &entry : kOptions) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

class Parser {
 public:
  explicit Parser(std::span<const char *const> arguments) : arguments_(arguments) {}

  Options parse() {
    parseCommand();
    while (at_ < arguments_.size() && !askedForHelp_) parseArgument();
    if (askedForHelp_) return help(topic_);
    check();
    return std::move(options_);
  }

 private:
  static Options help(string_view topic) {
    Options options;
    options.topic = topic;
    return options;
  }

  void parseCommand() {
    if (arguments_.empty()) throw UsageError("no command is given");
    const string_view name = arguments_[at_++];
    if (name == "--help" || name == "-h") {
      askedForHelp_ = true;
    } else if (name == "--version" || name == "-V") {
      options_.command = Command::kVersion;
    } else if (const auto command = commandNamed(name)) {
      options_.command = *command;
      topic_ = name;
    } else if (name.starts_with("-")) {
      throw UsageError("the command comes first, and " + quoted(name) + " is not one");
    } else {
      throw UsageError("there is no command " + quoted(name));
    }
  }

  void parseArgument() {
    const string_view argument = arguments_[at_++];
    if (onlyFiles_ || argument == "-" || !argument.starts_with("-")) {
      options_.files.emplace_back(argument);
    } else if (argument == "--") {
      onlyFiles_ = true;
    } else if (argument == "--help" || argument == "-h") {
      askedForHelp_ = true;
    } else {
      parseOption(argument);
    }
  }

  void parseOption(string_view argument) {
    const size_t equals = argument.find('=');
    const string_view name = argument.substr(0, equals);
    const OptionEntry *entry = findOption(name);
    if (entry == nullptr) fail("there is no option " + quoted(name));
    if ((entry->commands & bit(options_.command)) == 0) {
      fail("option " + std::string(name) + " does not belong to " + called());
    }
    if (!seen_.insert(name).second && !entry->repeatable) {
      fail("option " + std::string(name) + " is given twice");
    }
    string_view value;
    if (entry->value.empty()) {
      if (equals != string_view::npos) fail("option " + std::string(name) + " takes no value");
    } else if (equals != string_view::npos) {
      value = argument.substr(equals + 1);
    } else if (at_ < arguments_.size()) {
      value = arguments_[at_++];
    } else {
      fail("option " + std::string(name) + " needs a value: " + std::string(name) + ' ' +
           std::string(entry->value));
    }
    try {
      entry->apply(options_, name, value);
    } catch (const UsageError &error) {
      fail(error.what());
    }
  }

  void check() {
    switch (options_.command) {
      case Command::kSum:
        require("--by");
        require("--value");
        takeOneFile();
        break;
      case Command::kCount:
      case Command::kDistinct:
        require("--by");
        takeOneFile();
        break;
      case Command::kJoin:
        require("--on");
        takeTwoFiles();
        if (options_.width && !options_.noHeader) fail("option --width goes with --no-header only");
        break;
      case Command::kGenerate:
        require("--rows");
        takeNoFiles();
        break;
      case Command::kCheckExtension:
      case Command::kCheckHost:
        takeOneLibrary();
        break;
      case Command::kHelp:
        takeTopic();
        break;
      case Command::kVersion:
        takeNoFiles();
        break;
    }
  }

  void require(string_view option) {
    if (seen_.contains(option)) return;
    fail(called() + " needs " + std::string(option) + ' ' + std::string(findOption(option)->value));
  }

  void takeOneFile() {
    if (options_.files.size() > 1) {
      fail(called() + " takes one FILE, and " + std::to_string(options_.files.size()) +
           " are given");
    }
    if (options_.files.empty()) options_.files.emplace_back("-");
  }

  void takeOneLibrary() {
    if (options_.listChecks) {
      for (const string_view other : {"--json", "--only", "--time-limit"}) {
        if (seen_.contains(other)) fail("option --list does not go with " + std::string(other));
      }
      return takeNoFiles();
    }
    if (options_.files.size() != 1) {
      fail(called() + " takes one FILE, and " + std::to_string(options_.files.size()) +
           (options_.files.size() == 1 ? " is given" : " are given"));
    }
    // The loader takes an empty name for the program itself.
    if (options_.files[0].empty()) fail("the name of FILE is empty");
  }

  void takeTwoFiles() {
    if (options_.files.size() != 2) {
      fail(called() + " takes two files, LEFT and RIGHT, and " +
           std::to_string(options_.files.size()) +
           (options_.files.size() == 1 ? " is given" : " are given"));
    }
    if (options_.files[0] == "-" && options_.files[1] == "-") {
      fail("only one of LEFT and RIGHT can be the standard input");
    }
  }

  void takeNoFiles() {
    if (!options_.files.empty()) {
      fail(called() + " takes no files, and " + quoted(options_.files[0]) + " is given");
    }
  }

  void takeTopic() {
    topic_.clear();
    if (options_.files.size() > 1) fail("help takes one command");
    if (options_.files.empty()) return;
    if (!commandNamed(options_.files[0])) fail("there is no command " + quoted(options_.files[0]));
    options_.topic = std::exchange(options_.files, {})[0];
  }

  // The command as the user wrote it.
  std::string called() const {
    return options_.command == Command::kVersion ? "--version" : topic_;
  }

  [[noreturn]] void fail(const std::string &text) { throw UsageError(text, topic_); }

  std::span<const char *const> arguments_;
  size_t at_ = 0;
  bool onlyFiles_ = false;
  bool askedForHelp_ = false;
  std::string topic_;
  std::set<string_view> seen_;
  Options options_;
};

}  // namespace

Options parseOptions(std::span<const char *const> arguments) {
  return Parser(arguments).parse();
}

}  // namespace morva::cli
