// What a contender is, and how it gets into the registry.
//
//   struct Contender {
//     static constexpr char name[] = "...";
//     template <class Key> static constexpr bool takes = ...;      // this kind of key
//     static constexpr unsigned does = kPoints | ...;              // these families
//     template <class Key> using Map = ...;
//     template <class Key> using Colliding = ...;                  // with kOneBucket
//     template <class Key> using Records = ...;                    // with kRecords
//     template <class Key> using Shared = ...;                     // with kThreads
//   };
//
// A Map, of keys and one word of data each:
//
//   Map(told)              `told` is how many records will come; 0 when nobody knows
//   insert(key, word)      false when the key was there, and nothing was stored
//   replace(key, word)     stores, or overwrites
//   lookup(key, word)      false when the key is not there
//   remove(key)            false when it was not there
//   size()
//   accumulate(key, word)  adds to the key's word, which begins at 0
//
// Colliding is a Map for which all keys fall in one bucket; Shared is a Map that
// several threads may use. Records is described in workloads/records.h.
#pragma once

#include <type_traits>

#include "inputs.h"
#include "registry.h"

namespace bench {

enum Families : unsigned {
  kPoints = 1,
  kOneBucket = 2,
  kGroups = 4,
  kRecords = 8,
  kLatency = 16,
  kThreads = 32,
  // What any map does.
  kMapFamilies = kPoints | kOneBucket | kGroups | kLatency,
};

template <class Key>
inline constexpr bool isNumber = std::is_same_v<Key, uint64_t>;
template <class Key>
inline constexpr bool isText = std::is_same_v<Key, std::string_view>;

template <class Key>
inline constexpr bool isNumberOrText = isNumber<Key> || isText<Key>;

template <class... Contender>
struct ContenderList {};

}  // namespace bench
