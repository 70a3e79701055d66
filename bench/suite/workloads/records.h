// Several records per key, each with an amount: store them, walk those of each
// key, sum their amounts, remove one of each key, remove the rest. Contenders
// that keep the keys in the order they first came walk them all in it as well.
//
// A contender's Records:
//
//   Records(told)              `told` is how many keys will come
//   add(key, word, amount)     behind the key's other records
//   forEach(key, use)          calls use(word) for each record of the key
//   sum(key)                   of the amounts of its records
//   removeFirst(key)           removes one record, the first where there is an order
//   removeAll(key)             answers how many records that were
//   static constexpr bool keepsOrder
//   static constexpr size_t many
//                              with it, in place of all above but `told`:
//   addMany(keys, records)
//   forEachOfMany(keys, use), sumMany(keys, use), removeFirstOfMany(keys),
//   removeMany(keys)           as above, for each of the keys in turn
//   forAll(use)                with keepsOrder: by first coming of the key, then of the record
#pragma once

#include <algorithm>

#include "../adapters/records_of_map.h"
#include "../contender.h"
#include "../many.h"

namespace bench {

struct SeveralRecords {
  static constexpr char name[] = "records";
  static constexpr unsigned family = kRecords;
  static constexpr size_t kPerKey = 4;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    return Life<typename Contender::template Records<typename Keys::Key>, Keys>(job).run();
  }

 private:
  template <class Records, class Keys>
  class Life {
   public:
    explicit Life(const Job &job)
        : n_(job.n),
          rows_(rowKeys(job)),
          keys_(shuffled(0, keyCount(job), job.sample + 1)),
          records_(keys_.size()) {}

    Sample run() {
      double inOrder = 0;
      if constexpr (TakesMany<Records>) {
        inOrder = liveWithMany();
      } else {
        inOrder = live();
      }
      sample_.push_back({"records_total", "ns", total_, 0});
      if (Records::keepsOrder)
        sample_.push_back({"records_total_ordered", "ns", total_ + inOrder, 0});
      return sample_;
    }

   private:
    double live() {
      measure("records_insert", [&](Checksum &) {
        for (size_t i = 0; i < n_; ++i) records_.add(rows_[i], i, amount(i));
      });
      measure("records_walk", [&](Checksum &sum) {
        eachKey([&](auto key) { records_.forEach(key, [&](uint64_t word) { sum.add(word); }); });
      });
      measure("records_sum", [&](Checksum &sum) {
        eachKey([&](auto key) { sum.add(static_cast<uint64_t>(records_.sum(key))); });
      });
      const double inOrder = walkInOrder();
      measure("records_remove_one",
              [&](Checksum &) { eachKey([&](auto key) { records_.removeFirst(key); }); });
      measure("records_remove_all",
              [&](Checksum &sum) { eachKey([&](auto key) { sum.add(records_.removeAll(key)); }); });
      return inOrder;
    }

    double liveWithMany() {
      measure("records_insert", [&](Checksum &) {
        std::vector<AmountRecord> records;
        inPortions<Records>(rows_, 0, n_, [&](auto keys, size_t place) {
          records.clear();
          for (size_t i = place; i < place + keys.size(); ++i) records.push_back({i, amount(i)});
          records_.addMany(keys, records);
        });
      });
      measure("records_walk", [&](Checksum &sum) {
        manyKeys([&](auto keys) {
          records_.forEachOfMany(keys, [&](uint64_t word) { sum.add(word); });
        });
      });
      measure("records_sum", [&](Checksum &sum) {
        manyKeys([&](auto keys) {
          records_.sumMany(keys, [&](double total) { sum.add(static_cast<uint64_t>(total)); });
        });
      });
      const double inOrder = walkInOrder();
      measure("records_remove_one",
              [&](Checksum &) { manyKeys([&](auto keys) { records_.removeFirstOfMany(keys); }); });
      measure("records_remove_all", [&](Checksum &sum) {
        manyKeys([&](auto keys) { sum.add(records_.removeMany(keys)); });
      });
      return inOrder;
    }

    static double amount(size_t i) { return static_cast<double>(i % 1000); }

    static size_t keyCount(const Job &job) { return std::max<size_t>(1, job.n / kPerKey); }

    // Every key comes as often as every other, at random.
    static Indices rowKeys(const Job &job) {
      Indices rows = shuffled(0, job.n, job.sample);
      for (uint64_t &row : rows) row %= keyCount(job);
      return rows;
    }

    template <class Use>
    void eachKey(Use use) {
      for (size_t i = 0; i < keys_.size(); ++i) use(keys_[i]);
    }

    template <class Use>
    void manyKeys(Use use) {
      inPortions<Records>(keys_, 0, keys_.size(), [&](auto keys, size_t) { use(keys); });
    }

    template <class Work, class Sum = Checksum>
    double measure(const char *workload, Work work, Sum sum = {}) {
      Stopwatch watch;
      watch.time([&] { work(sum); });
      const double each = watch.total() / static_cast<double>(n_);
      sample_.push_back({workload, "ns", each, sum.value()});
      total_ += each;
      return each;
    }

    double walkInOrder() {
      if constexpr (Records::keepsOrder) {
        const double each = measure(
            "records_walk_in_order",
            [&](OrderedChecksum &sum) { records_.forAll([&](uint64_t word) { sum.add(word); }); },
            OrderedChecksum());
        total_ -= each;
        return each;
      }
      return 0;
    }

    const size_t n_;
    const Keys rows_;
    const Keys keys_;
    Records records_;
    Sample sample_;
    double total_ = 0;
  };
};

}  // namespace bench
