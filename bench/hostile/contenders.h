// What is filled with hostile keys: Morva through both of its interfaces, a
// balanced tree without buckets, and a chained table that hashes alike. All
// compare keys by their bytes, in the same way.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <unordered_map>

#include "keys.h"
#include "morva/hash_methods.hpp"
#include "morva/morva.h"
#include "morva/morva.hpp"
#include "morva/search.hpp"

namespace bench::hostile {

template <size_t Length>
using Key = std::array<unsigned char, Length>;

// As many buckets as a table of a million keys has; fewer where the keys share fewer bits.
inline int32_t hashExp(uint32_t method) {
  return static_cast<int32_t>(std::min(sharedBits(method), 20U));
}

inline const morva::extension &library() {
  static const auto loaded = morva::extension::linked();
  if (!loaded) throw std::runtime_error(std::string(loaded.error().sentence()));
  return *loaded;
}

// The C interface, on the embedded host.
template <size_t Length>
class MorvaC {
 public:
  static constexpr char name[] = "morva C";

  explicit MorvaC(uint32_t method) {
    MORVAParms parms{};
    parms.dataLength = sizeof(uint64_t);
    parms.keyLength = Length;
    parms.flags = flagFixedKey | flagNoLock;
    parms.hashMethod = static_cast<int32_t>(method);
    parms.hashExp = hashExp(method);
    MORVAExt *ext = library().native();
    table_.reset(ext->Create(ext, &parms, nullptr, "hostile"));
    if (!table_) throw std::runtime_error("no memory for a table");
  }
  MORVAInst *inst() const { return table_.get(); }

  bool insert(const Key<Length> &key, uint64_t word) const {
    return table_->Add(table_.get(), &word, key.data(), Length) == MORVA_OK;
  }
  uint64_t find(const Key<Length> &key) const {
    void *data = nullptr;
    table_->Find(table_.get(), key.data(), Length, &data);
    return data == nullptr ? 0 : *static_cast<const uint64_t *>(data);
  }
  bool remove(const Key<Length> &key) const {
    return table_->Remove(table_.get(), key.data(), Length) == MORVA_OK;
  }

 private:
  struct TableDestroyer {
    void operator()(MORVAInst *table) const { table->Destroy(table); }
  };

  std::unique_ptr<MORVAInst, TableDestroyer> table_;
};

// The C++ interface.
template <size_t Length>
class MorvaTable {
 public:
  static constexpr char name[] = "morva::table";

  explicit MorvaTable(uint32_t method)
      : table_(valueOf(Table::make(library(), {.expected = expected(hashExp(method)),
                                               .hash = static_cast<morva::hash_method>(method)}))) {
    const MORVAInst *inst = table_.native();
    if (inst->HashSize(inst) != uint32_t{1} << hashExp(method)) {
      throw std::runtime_error("another number of buckets than asked for");
    }
  }

  bool insert(const Key<Length> &key, uint64_t word) { return valueOf(table_.insert(key, word)); }
  uint64_t find(const Key<Length> &key) const {
    const auto at = table_.find(key);
    return at ? at->data : 0;
  }
  bool remove(const Key<Length> &key) { return valueOf(table_.erase(key)) != 0; }

 private:
  using Table = morva::table<Key<Length>, uint64_t>;

  // How many keys to announce for 2^exp buckets: small tables get two a key.
  static uint64_t expected(int32_t exp) { return uint64_t{1} << (exp > 17 ? exp : exp - 1); }

  template <class Result>
  static auto valueOf(Result result) {
    if (!result) throw std::runtime_error("an operation of Morva failed");
    return *std::move(result);
  }

  Table table_;
};

// A standard container behind the same face.
template <class Container, size_t Length>
class Standard {
 public:
  explicit Standard(Container container) : container_(std::move(container)) {}

  bool insert(const Key<Length> &key, uint64_t word) {
    return container_.try_emplace(key, word).second;
  }
  uint64_t find(const Key<Length> &key) const {
    const auto at = container_.find(key);
    return at == container_.end() ? 0 : at->second;
  }
  bool remove(const Key<Length> &key) { return container_.erase(key) != 0; }

 private:
  Container container_;
};

struct BytesBefore {
  template <size_t Length>
  bool operator()(const Key<Length> &a, const Key<Length> &b) const {
    if constexpr (Length == 8) {
      return wordOf(a) < wordOf(b);
    } else {
      return morva::detail::compare_bytes(a.data(), b.data(), Length) < 0;
    }
  }
  static uint64_t wordOf(const Key<8> &key) {
    return __builtin_bswap64(morva::detail::load_word<uint64_t>(key.data()));
  }
};

template <size_t Length>
using Map = std::map<Key<Length>, uint64_t, BytesBefore>;

template <size_t Length>
class StdMap : public Standard<Map<Length>, Length> {
 public:
  static constexpr char name[] = "std::map";
  explicit StdMap(uint32_t) : Standard<Map<Length>, Length>(Map<Length>()) {}
};

// The hash, cut to the number of a bucket as a table of 2^exp buckets cuts it.
struct BucketOf {
  uint32_t method = 2;
  uint32_t mask = 0;

  template <size_t Length>
  size_t operator()(const Key<Length> &key) const {
    return morva::hash_key(method, key.data(), Length) & mask;
  }
};

template <size_t Length>
using Chained = std::unordered_map<Key<Length>, uint64_t, BucketOf>;

template <size_t Length>
class StdUnorderedMap : public Standard<Chained<Length>, Length> {
 public:
  static constexpr char name[] = "std::unordered_map";
  explicit StdUnorderedMap(uint32_t method)
      : Standard<Chained<Length>, Length>(Chained<Length>(
            size_t{1} << hashExp(method), BucketOf{method, (uint32_t{1} << hashExp(method)) - 1})) {
  }
};

}  // namespace bench::hostile
