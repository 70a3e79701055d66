#include "columns.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "error.h"
#include "text.h"

namespace morva::cli {

std::vector<std::string> splitList(std::string_view list) {
  std::vector<std::string> parts;
  for (size_t start = 0;;) {
    const size_t comma = list.find(',', start);
    parts.emplace_back(list.substr(start, comma - start));
    if (comma == std::string_view::npos) return parts;
    start = comma + 1;
  }
}

bool Columns::isColumn(const std::string &text) const {
  return std::find(names_.begin(), names_.end(), text) != names_.end();
}

size_t Columns::findNumber(const std::string &column) const {
  uint64_t number = 0;
  if (!parseWhole(column, number) || number == 0 || number > UINT32_MAX) {
    throw Error(file_ + ": without a header columns are numbered from 1, and " + quoted(column) +
                " is no such number");
  }
  return number - 1;
}

size_t Columns::find(const std::string &column) const {
  if (!hasHeader_) return findNumber(column);
  const auto found = std::find(names_.begin(), names_.end(), column);
  if (found == names_.end()) {
    throw Error(file_ + ": there is no column " + quoted(column) + "; the columns are " +
                quotedList(names_));
  }
  if (std::find(found + 1, names_.end(), column) != names_.end()) {
    throw Error(file_ + ": more than one column is called " + quoted(column) +
                "; the columns are " + quotedList(names_));
  }
  return static_cast<size_t>(found - names_.begin());
}

std::vector<size_t> Columns::findList(const std::string &list) const {
  if (isColumn(list)) return {find(list)};
  std::vector<size_t> places;
  for (const std::string &column : splitList(list)) places.push_back(find(column));
  return places;
}

std::vector<size_t> Columns::findLists(const std::vector<std::string> &lists) const {
  std::vector<size_t> places;
  for (const std::string &list : lists) {
    const std::vector<size_t> more = findList(list);
    places.insert(places.end(), more.begin(), more.end());
  }
  return places;
}

std::string Columns::describe(size_t column) const {
  if (column < names_.size()) return "column " + quoted(names_[column]);
  return "column " + std::to_string(column + 1);
}

std::string_view KeyMaker::makeLong(const Record &record) {
  key_.clear();
  for (size_t i = 0; i < columns_.size(); ++i) {
    const std::string_view field = record.fields[columns_[i]];
    if (i + 1 < columns_.size()) {
      // No field is longer than the longest record, 1 GiB.
      const auto length = static_cast<uint32_t>(field.size());
      key_.append(reinterpret_cast<const char *>(&length), sizeof length);
    }
    key_ += field;
  }
  return key_;
}

void KeyMaker::split(std::string_view key, std::vector<std::string_view> &fields) const {
  fields.clear();
  for (size_t i = 0; i + 1 < columns_.size(); ++i) {
    uint32_t length = 0;
    std::memcpy(&length, key.data(), sizeof length);
    fields.push_back(key.substr(sizeof length, length));
    key.remove_prefix(sizeof length + length);
  }
  fields.push_back(key);
}

}  // namespace morva::cli
