#pragma once

#include <glib.h>

#include "../contender.h"

namespace bench {

// Numbers and data lie in the table's pointers, as GLib's users do; texts are
// copied for it.
template <class Key, bool OneBucket>
class GlibMap {
 public:
  explicit GlibMap(size_t)
      : table_(g_hash_table_new_full(hash(), isText<Key> ? g_str_equal : g_direct_equal,
                                     isText<Key> ? g_free : nullptr, nullptr)) {}
  ~GlibMap() { g_hash_table_destroy(table_); }
  GlibMap(const GlibMap &) = delete;
  GlibMap &operator=(const GlibMap &) = delete;

  // Would overwrite what is there; no workload inserts a key twice.
  bool insert(Key key, uint64_t word) {
    return g_hash_table_insert(table_, copied(key), pointer(word)) != 0;
  }
  void replace(Key key, uint64_t word) { insert(key, word); }

  bool lookup(Key key, uint64_t &word) const {
    gpointer stored = nullptr;
    gpointer data = nullptr;
    if (!g_hash_table_lookup_extended(table_, borrowed(key), &stored, &data)) return false;
    word = reinterpret_cast<uint64_t>(data);
    return true;
  }

  bool remove(Key key) { return g_hash_table_remove(table_, borrowed(key)) != 0; }
  size_t size() const { return g_hash_table_size(table_); }

  void accumulate(Key key, uint64_t word) {
    uint64_t before = 0;
    lookup(key, before);
    insert(key, before + word);
  }

 private:
  static guint oneHash(gconstpointer) { return 42; }
  static GHashFunc hash() {
    if (OneBucket) return oneHash;
    return isText<Key> ? g_str_hash : g_direct_hash;
  }

  static gpointer pointer(uint64_t word) { return reinterpret_cast<gpointer>(word); }
  static gconstpointer borrowed(Key key) {
    if constexpr (isText<Key>) {
      return key.data();
    } else {
      return pointer(key);
    }
  }
  static gpointer copied(Key key) {
    if constexpr (isText<Key>) {
      return g_strndup(key.data(), key.size());
    } else {
      return pointer(key);
    }
  }

  GHashTable *table_;
};

struct GlibHashTable {
  static constexpr char name[] = "GHashTable";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = GlibMap<Key, false>;
  template <class Key>
  using Colliding = GlibMap<Key, true>;
};

using Contenders = ContenderList<GlibHashTable>;

}  // namespace bench
