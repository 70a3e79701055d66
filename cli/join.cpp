#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "error.h"
#include "library.h"
#include "row_store.h"
#include "statistics.h"
#include "table_input.h"
#include "text.h"
#include "tiered_table.h"
#include "writer.h"

namespace morva::cli {

namespace {

struct JoinColumns {
  std::vector<size_t> left;
  std::vector<size_t> right;
};

// Resolves one --on: "A", "A,B", or with "=" between the lists for LEFT and RIGHT, "A=C,B=D" too.
void addJoinColumns(const std::string &on, const Columns &left, const Columns &right,
                    JoinColumns &columns) {
  const std::vector<std::string> parts =
      left.isColumn(on) && right.isColumn(on) ? std::vector{on} : splitList(on);
  for (const std::string &part : parts) {
    const size_t equals =
        parts.size() == 1 && left.isColumn(on) ? std::string::npos : part.find('=');
    columns.left.push_back(left.find(part.substr(0, equals)));
    columns.right.push_back(
        right.find(equals == std::string::npos ? part : part.substr(equals + 1)));
  }
}

JoinColumns joinColumns(const Options &options, const Columns &left, const Columns &right) {
  JoinColumns columns;
  for (const std::string &on : options.on) addJoinColumns(on, left, right, columns);
  return columns;
}

// The columns of the longest row.
size_t longestRow(const std::string &file, const Options &options) {
  Options lenient = options;
  lenient.skipBad = true;
  TableInput rows(file, lenient);
  size_t longest = 0;
  while (rows.next()) longest = std::max(longest, rows.row().fields.size());
  return longest;
}

class Join {
 public:
  explicit Join(const Options &options)
      : options_(options),
        left_(options.files[0], options),
        right_(options.files[1], options),
        on_(joinColumns(options, left_.columns(), right_.columns())),
        leftKeys_(on_.left),
        rightKeys_(on_.right),
        out_(STDOUT_FILENO, kStandardOutput, left_.dialect(), options.comment),
        library_(options.library, options.memoryLimit),
        rows_(library_),
        table_(library_, TieredTable::Kind::kRows, right_.reader().size()) {
    left_.needColumns(on_.left);
    right_.needColumns(on_.right);
    left_.reader().setBeforeWaiting([this] { out_.flush(); });
    rightWidth_ = right_.width();
    leftWidth_ = options.width.value_or(left_.width());
    if (!options.noHeader) {
      right_.setMostColumns(rightWidth_);
    } else if (!options.width && left_.reader().isRegular() && options.files[0] != "-") {
      leftWidth_ = longestRow(options.files[0], options);
    }
    left_.setMostColumns(leftWidth_);
  }

  void run() {
    loadRight();
    try {
      writeHeader();
      while (left_.next()) joinRow();
    } catch (const UnwritableField &error) {
      out_.flush();
      throw Error(left_.place() + ": " + error.what() + "; the output ends before this row");
    } catch (const Error &) {
      // What was joined before is right, and is passed on.
      out_.flush();
      throw;
    }
    out_.flush();
    right_.reportSkipped();
    left_.reportSkipped();
    if (options_.stats) printStatistics();
  }

 private:
  bool isRightKey(size_t column) const {
    return std::find(on_.right.begin(), on_.right.end(), column) != on_.right.end();
  }

  // Keeps what the output takes from the header and each row of RIGHT, ready to be appended to one
  // of LEFT.
  void loadRight() {
    if (!options_.noHeader) encodeRight(right_.row(), rightHeader_);
    std::string text;
    while (right_.next()) {
      const Record &row = right_.row();
      encodeRight(row, text);
      keepRight(row, text);
      rightWidth_ = std::max(rightWidth_, row.fields.size());
    }
  }

  void encodeRight(const Record &row, std::string &text) {
    text.clear();
    try {
      for (size_t column = 0; column < row.fields.size(); ++column) {
        if (isRightKey(column)) continue;
        text += out_.dialect().delimiter;
        encodeField(row.fields[column], out_.dialect(), text);
      }
    } catch (const UnwritableField &error) {
      throw Error(right_.place() + ": " + error.what());
    }
  }

  void keepRight(const Record &row, std::string_view text) {
    try {
      table_.addRow(rightKeys_.make(row), {rows_.keep(text), text.size(), row.fields.size()});
    } catch (const OutOfMemory &error) {
      throw Error(right_.place() + ": " + error.what() + " with " +
                  counted(right_.rows() - 1, "row") + " of RIGHT; nothing is written");
    }
  }

  void writeHeader() {
    if (options_.noHeader) return;
    for (const std::string &name : left_.columns().names()) out_.field(name);
    out_.append(rightHeader_);
    out_.endRow();
  }

  void joinRow() {
    const Record &row = left_.row();
    TieredTable::Cursor match = findMatch(row);
    if (!match) {
      ++unmatched_;
      if (options_.left) writeUnmatched(row);
      return;
    }
    for (; match; table_.next(match)) {
      const TieredTable::Row right = match.row();
      writeLeft(row);
      out_.append({right.text, right.length});
      appendEmptyFields(rightWidth_ - right.columns);
      out_.endRow();
    }
  }

  TieredTable::Cursor findMatch(const Record &row) {
    try {
      return table_.findRows(leftKeys_.make(row));
    } catch (const OutOfMemory &error) {
      throw Error(left_.place() + ": " + error.what() + "; the output ends before this row");
    }
  }

  void writeUnmatched(const Record &row) {
    writeLeft(row);
    for (size_t column = 0; column < rightWidth_; ++column) {
      if (!isRightKey(column)) appendEmptyFields(1);
    }
    out_.endRow();
  }

  void writeLeft(const Record &row) {
    out_.record(row, left_.dialect());
    appendEmptyFields(leftWidth_ - row.fields.size());
  }

  void appendEmptyFields(size_t count) {
    for (; count > 0; --count) out_.append({&out_.dialect().delimiter, 1});
  }

  void printStatistics() {
    const uint64_t headerRows = options_.noHeader ? 0 : 1;
    statistics_.add("rows", left_.rows());
    statistics_.add("rows of RIGHT", right_.rows());
    statistics_.add("unmatched", unmatched_);
    statistics_.add("rows written", out_.rows() - headerRows);
    statistics_.print(left_.rows() + right_.rows(), library_);
  }

  const Options &options_;
  Statistics statistics_;
  TableInput left_;
  TableInput right_;
  JoinColumns on_;
  KeyMaker leftKeys_;
  KeyMaker rightKeys_;
  Writer out_;
  Library library_;
  RowStore rows_;
  TieredTable table_;
  size_t leftWidth_ = 0;
  size_t rightWidth_ = 0;
  std::string rightHeader_;
  uint64_t unmatched_ = 0;
};

}  // namespace

void runJoin(const Options &options) {
  Join(options).run();
}

}  // namespace morva::cli
