// For peers with the interface of the standard's maps: the Map of contender.h on
// top of any of them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "../contender.h"

namespace bench {

// What a container keeps of a key.
template <class Key>
using Stored = std::conditional_t<isText<Key>, std::string, Key>;

// Lets texts be looked up without making a std::string. Not noexcept: that is how
// libstdc++ is told that keeping the hash beside the key pays, as it does by
// itself for std::hash<std::string>.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

template <class Key>
using StandardHash = std::conditional_t<isText<Key>, TextHash, std::hash<Key>>;

// Puts all keys in one bucket.
struct OneHash {
  using is_transparent = void;
  template <class Key>
  size_t operator()(const Key &) const {
    return 42;
  }
};

// How the container shows and removes what an iterator is at, and how to walk it in the
// order of insertion where it keeps that.
struct StandardAccess {
  template <class Iterator>
  static auto &data(Iterator at) {
    return at->second;
  }
  template <class Container, class Iterator>
  static void erase(Container &from, Iterator at) {
    from.erase(at);
  }
  template <class Container>
  static auto inOrder(Container &all) {
    return std::pair(all.begin(), all.end());
  }
};

template <class Container, class Key, class Access = StandardAccess>
class StandardMap {
 public:
  explicit StandardMap(size_t told) {
    if constexpr (requires { map_.reserve(told); }) map_.reserve(told);
  }

  bool insert(Key key, uint64_t word) { return map_.emplace(Stored<Key>(key), word).second; }

  void replace(Key key, uint64_t word) {
    const auto at = map_.find(key);
    if (at != map_.end()) {
      Access::data(at) = word;
    } else {
      map_.emplace(Stored<Key>(key), word);
    }
  }

  bool lookup(Key key, uint64_t &word) const {
    const auto at = map_.find(key);
    if (at == map_.end()) return false;
    word = Access::data(at);
    return true;
  }

  bool remove(Key key) {
    const auto at = map_.find(key);
    if (at == map_.end()) return false;
    Access::erase(map_, at);
    return true;
  }

  size_t size() const { return map_.size(); }

  void accumulate(Key key, uint64_t word) {
    const auto at = map_.find(key);
    if (at != map_.end()) {
      Access::data(at) += word;
    } else {
      map_.emplace(Stored<Key>(key), word);
    }
  }

 private:
  Container map_;
};

}  // namespace bench
