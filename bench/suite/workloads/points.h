// One key, one record: insert, find in four ways, replace, a mixture, remove, and
// the memory a record takes. One process goes through the whole life of a
// table; small tables live many times over, each time in other orders, for processors learn
// them. Of large tables all but insert use a part of the keys, drawn from all.
#pragma once

#include <algorithm>
#include <stdexcept>

#include "../contender.h"
#include "../many.h"

namespace bench {

template <class Map, class Keys>
class PointLives {
 public:
  explicit PointLives(const Job &job)
      : n_(job.n),
        each_(std::min(n_, kMostOperations)),
        lives_(std::max<size_t>(1, kLeastOperations / n_)),
        keys_(shuffledRows(0, n_, lives_, 3 * job.sample)),
        inAnotherOrder_(part(shuffledRows(0, n_, lives_, 3 * job.sample + 1))),
        absent_(part(shuffledRows(n_, n_, lives_, 3 * job.sample + 2))),
        words_(n_ * lives_) {
    const Indices next = oneCycle(n_, job.sample);
    for (size_t i = 0; i < words_.size(); ++i) words_[i] = keys_.word(i - i % n_ + next[i % n_]);
  }

  Sample run() {
    for (; first_ != keys_.size(); first_ += n_) live();
    Sample sample;
    for (const Phase *phase :
         {&insert_, &hit_, &dependent_, &miss_, &replace_, &mixed_, &remove_}) {
      const size_t operations = lives_ * (phase == &insert_ ? n_ : each_);
      sample.push_back({phase->name, "ns", phase->watch.total() / static_cast<double>(operations),
                        phase->checksum.value()});
    }
    // Of less, single pages would be most.
    if (n_ >= kLeastForMemory)
      sample.push_back({"memory", "bytes", static_cast<double>(bytes_) / static_cast<double>(n_),
                        insert_.checksum.value()});
    return sample;
  }

 private:
  static constexpr size_t kLeastOperations = 1 << 17;
  static constexpr size_t kMostOperations = 1 << 18;
  static constexpr size_t kLeastForMemory = 50'000;
  // In the mixture, a key goes so many operations after it came.
  static constexpr size_t kStay = 256;

  struct Phase {
    const char *name;
    Stopwatch watch;
    Checksum checksum;
  };

  void live() {
    const uint64_t before = residentBytes();
    const double start = threadNanoseconds();
    Map map(n_);
    made_ = threadNanoseconds() - start;
    fill(map);
    const uint64_t after = residentBytes();
    if (bytes_ == 0 && after > before) bytes_ = after - before;
    find(map);
    change(map);
    if (map.size() != n_ - each_) throw std::logic_error("a table has records it should not have");
  }

  void fill(Map &map) {
    run(insert_, [&](Checksum &sum) {
      if constexpr (TakesMany<Map>) {
        inPortions<Map>(keys_, first_, n_, [&](auto keys, size_t place) {
          sum.add(map.insertMany(keys, std::span(words_).subspan(place, keys.size())));
        });
      } else {
        for (size_t i = first_; i != first_ + n_; ++i) sum.add(map.insert(keys_[i], words_[i]));
      }
    });
    insert_.watch.add(made_);
    insert_.checksum.add(map.size());
  }

  void find(Map &map) {
    run(hit_, [&](Checksum &sum) { lookupAll(map, inAnotherOrder_, sum); });
    run(dependent_, [&](Checksum &sum) {
      auto key = keys_[first_];
      forEachPlace([&](size_t) { key = keys_.at(lookup(map, key, sum)); });
    });
    run(miss_, [&](Checksum &sum) { lookupAll(map, absent_, sum); });
  }

  void change(Map &map) {
    run(replace_,
        [&](Checksum &) { forEachPlace([&](size_t i) { map.replace(inAnotherOrder_[i], i); }); });
    run(mixed_, [&](Checksum &sum) { mix(map, sum); });
    forEachPlace([&](size_t i) { map.remove(absent_[i]); });
    replace_.checksum.add(mixed_.checksum.value());
    run(remove_, [&](Checksum &sum) {
      if constexpr (TakesMany<Map>) {
        inPortions<Map>(inAnotherOrder_, first_, each_,
                        [&](auto keys, size_t) { sum.add(map.removeMany(keys)); });
      } else {
        forEachPlace([&](size_t i) { sum.add(map.remove(inAnotherOrder_[i])); });
      }
    });
  }

  // Two lookups, an insertion, and the removal of what was inserted a while ago.
  void mix(Map &map, Checksum &sum) {
    forEachPlace([&](size_t i) {
      switch (i % 4) {
        case 2:
          sum.add(map.insert(absent_[i], i));
          break;
        case 3:
          if (i > first_ + kStay) sum.add(map.remove(absent_[i - 1 - kStay]));
          break;
        default:
          lookup(map, keys_[i], sum);
      }
    });
  }

  // Tables that live more than once are small, and use all keys each time.
  Indices part(Indices places) const {
    places.resize(lives_ * each_);
    return places;
  }

  // The places that the operations of this life use.
  template <class Use>
  void forEachPlace(Use use) {
    const size_t last = first_ + each_;
    for (size_t i = first_; i != last; ++i) use(i);
  }

  void lookupAll(const Map &map, const Keys &keys, Checksum &sum) {
    if constexpr (TakesMany<Map>) {
      inPortions<Map>(keys, first_, each_, [&](auto some, size_t) {
        map.lookupMany(some, [&](bool there, uint64_t word) {
          sum.add(there);
          sum.add(word);
        });
      });
    } else {
      forEachPlace([&](size_t i) { lookup(map, keys[i], sum); });
    }
  }

  template <class Key>
  static uint64_t lookup(const Map &map, const Key &key, Checksum &sum) {
    uint64_t word = 0;
    sum.add(map.lookup(key, word));
    sum.add(word);
    return word;
  }

  template <class Work>
  static void run(Phase &phase, Work work) {
    phase.watch.time([&] { work(phase.checksum); });
  }

  const size_t n_;
  const size_t each_;
  const size_t lives_;
  const Keys keys_;
  const Keys inAnotherOrder_;
  const Keys absent_;
  Indices words_;
  size_t first_ = 0;
  double made_ = 0;
  uint64_t bytes_ = 0;
  Phase insert_{"insert", {}, {}};
  Phase hit_{"find_hit", {}, {}};
  Phase dependent_{"find_dependent", {}, {}};
  Phase miss_{"find_miss", {}, {}};
  Phase replace_{"replace", {}, {}};
  Phase mixed_{"mixed", {}, {}};
  Phase remove_{"remove", {}, {}};
};

struct Points {
  static constexpr char name[] = "points";
  static constexpr unsigned family = kPoints;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    return PointLives<typename Contender::template Map<typename Keys::Key>, Keys>(job).run();
  }
};

}  // namespace bench
