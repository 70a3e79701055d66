// What a table of the C++ interface must hold, as a map of texts, and the keys it is
// used with.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "morva/composed.hpp"
#include "morva/key.hpp"

namespace morva_fuzz {

struct Row {
  char name[6];
  std::int32_t year;
  double price;
};
using RowKey = morva::composed<morva::caseless<&Row::name>, &Row::year, &Row::price>;

// ---- keys: held so that operations can take them, and the bytes that tell them apart ----

// `number` picks one of few keys.
template <class Key>
struct Keys {
  using Held = Key;
  static Held make(uint8_t number) { return static_cast<Key>(number) * UINT64_C(0x100000001); }
  static const Held &given(const Held &held) { return held; }
  static std::string image(const Held &held) { return std::to_string(held); }
  static std::string shown(const Key &key) { return std::to_string(key); }
};

struct TextKeys {
  using Held = std::string;
  static std::string_view given(const Held &held) { return held; }
  static std::string image(const Held &held) { return held; }
  static std::string shown(std::string_view key) { return std::string(key); }
};
template <>
struct Keys<morva::text<12>> : TextKeys {
  static Held make(uint8_t number) {
    return std::string(number % 12, 'a') + (number > 200 ? "" : std::string(number % 2, 'b'));
  }
};
// Some do not fit the image that lookups make on the stack.
template <>
struct Keys<std::string_view> : TextKeys {
  static Held make(uint8_t number) {
    return std::string(number % 8 == 7 ? 250 + number : number / 16, static_cast<char>(number));
  }
};
template <>
struct Keys<RowKey> {
  using Held = Row;
  static Held make(uint8_t number) {
    Row row{};
    for (int i = 0; i < number % 8 && i < 6; ++i) row.name[i] = number % 16 > 7 ? 'x' : 'X';
    row.year = number / 64;
    row.price = number % 32 > 15 ? -0.0 : 0.0;
    return row;
  }
  static const Held &given(const Held &held) { return held; }
  static std::string image(const Held &held) {
    std::string name(held.name, strnlen(held.name, sizeof held.name));
    for (char &c : name) c = c == 'x' ? 'X' : c;
    return name + '/' + std::to_string(held.year) + '/' + std::to_string(held.price + 0.0);
  }
  template <class View>
  static std::string shown(const View &key) {
    return std::string(key.template get<0>()) + '/' + std::to_string(key.template get<1>()) + '/' +
           std::to_string(key.template get<2>());
  }
};

// ---- the model ----------------------------------------------------------------

struct Record {
  uint32_t data;
  double sum;
};

struct Model {
  std::map<std::string, std::vector<Record>> records;
  std::vector<std::string> order;

  std::vector<Record> *find(const std::string &key) {
    const auto found = records.find(key);
    return found == records.end() ? nullptr : &found->second;
  }
  size_t count(const std::string &key) { return find(key) == nullptr ? 0 : find(key)->size(); }
  void append(const std::string &key, uint32_t data) {
    if (find(key) == nullptr) order.push_back(key);
    records[key].push_back({data, 0.0});
  }
  size_t erase(const std::string &key) {
    const size_t count = this->count(key);
    records.erase(key);
    std::erase(order, key);
    return count;
  }
  void eraseOne(const std::string &key, size_t index) {
    std::vector<Record> &chain = records.at(key);
    chain.erase(chain.begin() + static_cast<std::ptrdiff_t>(index));
    if (chain.empty()) erase(key);
  }
  size_t size() const {
    size_t size = 0;
    for (const auto &[key, chain] : records) size += chain.size();
    return size;
  }
};

}  // namespace morva_fuzz
