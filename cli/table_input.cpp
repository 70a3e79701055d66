#include "table_input.h"

#include <algorithm>
#include <cstdio>

#include "error.h"
#include "text.h"

namespace morva::cli {

namespace {

RecordReader::Options readerOptions(const std::string &file, const Options &options) {
  RecordReader::Options result;
  result.dialect = options.dialectFor(file);
  result.comment = options.comment;
  return result;
}

// The row as messages show it.
std::string shown(const Record &record, const Dialect &dialect) {
  if (record.plain) return quoted(record.text);
  std::string text;
  for (size_t i = 0; i < record.fields.size(); ++i) {
    if (i > 0) text += dialect.delimiter;
    text += record.fields[i];
  }
  return quoted(text);
}

}  // namespace

TableInput::TableInput(const std::string &file, const Options &options)
    : reader_(file, readerOptions(file, options)),
      dialect_(options.dialectFor(file)),
      hasHeader_(!options.noHeader),
      skipBad_(options.skipBad),
      columns_(reader_.name(), {}, hasHeader_) {
  readHeader();
}

void TableInput::readHeader() {
  if (hasHeader_) {
    if (!reader_.next(record_)) {
      throw Error(reader_.name() + ": the file is empty, there is no header with column names");
    }
    columns_ = Columns(reader_.name(), {record_.fields.begin(), record_.fields.end()}, true);
  } else {
    pending_ = read();
    if (!pending_) return;
  }
  reader_.checkLineEnds(record_, hasHeader_);
  width_ = record_.fields.size();
  if (width_ == 1) reader_.setKeepBlankLines(true);
}

void TableInput::needColumns(const std::vector<size_t> &columns) {
  for (const size_t column : columns) leastColumns_ = std::max(leastColumns_, column + 1);
}

void TableInput::needOnlyThese() {
  reader_.setFieldLimit(leastColumns_);
}

// Reads a record, good or bad, as long as it can be told where it ends.
bool TableInput::read() {
  for (;;) {
    try {
      return reader_.next(record_);
    } catch (const RowError &error) {
      refuse(error.what());
    }
  }
}

bool TableInput::next() {
  for (;;) {
    if (pending_) {
      pending_ = false;
    } else if (!read()) {
      return false;
    }
    if (isComplete()) {
      ++rows_;
      return true;
    }
  }
}

bool TableInput::isComplete() {
  const size_t count = record_.fields.size();
  if (count >= leastColumns_ && count <= mostColumns_) return true;
  const std::string has =
      "the row has " + counted(count, "column") + ": " + shown(record_, dialect_);
  if (count < leastColumns_) {
    refuse(place() + ": " + columns_.describe(leastColumns_ - 1) + " is missing, " + has);
  } else {
    refuse(place() + ": there are more than " + counted(mostColumns_, "column") + ", " + has);
  }
  return false;
}

void TableInput::reject(const std::string &reason) {
  --rows_;
  refuse(place() + ": " + reason);
}

void TableInput::refuse(const std::string &message) {
  if (!skipBad_) throw Error(message);
  if (skipped_++ == 0) firstSkipped_ = message;
}

std::string TableInput::place() const {
  return reader_.place(record_.line);
}

void TableInput::reportSkipped() const {
  if (skipped_ == 0) return;
  std::fprintf(stderr, "morva: %s: skipped %s; the first: %s\n", reader_.name().c_str(),
               counted(skipped_, "bad row").c_str(), firstSkipped_.c_str());
}

}  // namespace morva::cli
