// The tables of the C++ interface, single and in parts, against a map: all operations
// on one key, on a record and on many keys, and walks.
#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "check.h"
#include "input.h"
#include "map_model.h"
#include "morva/morva.hpp"

using morva_fuzz::Input;
using morva_fuzz::Keys;
using morva_fuzz::Model;
using morva_fuzz::Record;
using morva_fuzz::RowKey;

namespace {

// A table and its model.
template <template <class...> class Kind, class Key, class... Features>
class Driver {
  using Table = Kind<Key, uint32_t, Features...>;
  using Cursor = typename Table::cursor;
  using K = Keys<Key>;
  using Held = typename K::Held;
  static constexpr bool kDuplicates = requires(Cursor at) { at.previous(); };
  static constexpr bool kSums = requires(Table table, Cursor at) { table.sum(at); };
  static constexpr bool kMerges = requires(Table table) { table.in_order(); };
  static constexpr bool kOrdered = (std::is_same_v<Features, morva::ordered> || ...) && !kMerges;

 public:
  Driver(const morva::extension &library, Input &input, size_t expected)
      : input_(input), table_(make(library, expected)) {}

  void run() {
    const size_t checkEvery = 1 + input_.below(16);
    for (size_t step = 1; !input_.empty() && step <= 2000; ++step) {
      this->step();
      FUZZ_CHECK(table_.size() == model_.size());
      if (step % checkEvery == 0) check();
    }
    check();
    Table moved(std::move(table_));
    FUZZ_CHECK(!table_ && table_.size() == 0);
    table_ = std::move(moved);
    check();
  }

 private:
  static Table make(const morva::extension &library, size_t expected) {
    auto made = [&] {
      if constexpr (requires(Table table) { table.parts(); }) {
        return Table::make(library, {.expected = expected, .parts = 4});
      } else {
        return Table::make(library, {.expected = expected});
      }
    }();
    FUZZ_CHECK(made.has_value());
    return std::move(*made);
  }

  void step() {
    const unsigned operation = input_.byte() % 16;
    const Held held = K::make(input_.byte());
    const std::string image = K::image(held);
    const uint32_t data = ++written_;
    switch (operation) {
      case 0:
      case 1:
        FUZZ_CHECK(table_.insert(K::given(held), data).value() == inserts(image, data));
        break;
      case 2: {
        FUZZ_CHECK(table_.insert_or_assign(K::given(held), data).value() ==
                   (model_.find(image) == nullptr));
        if (model_.find(image) == nullptr) model_.append(image, data);
        for (Record &record : *model_.find(image)) record.data = data;
        model_.find(image)->front().sum = 0.0;
        break;
      }
      case 3: {
        auto found = table_.find_or_insert(K::given(held), data).value();
        FUZZ_CHECK(found.inserted == (model_.find(image) == nullptr));
        if (found.inserted) model_.append(image, data);
        FUZZ_CHECK(found.position->data == model_.find(image)->front().data);
        break;
      }
      case 4:
        FUZZ_CHECK(table_.erase(K::given(held)).value() == model_.erase(image));
        break;
      case 5:
        eraseRecord(held, image);
        break;
      case 6:
        eraseWhileWalking();
        break;
      case 7:
        eraseWhere();
        break;
      case 8:
      case 9:
        many(operation == 8);
        break;
      case 10:
        if constexpr (kSums) addToSums(held, image, data);
        break;
      case 11:
        if (data % 4 != 0) break;
        data % 8 == 0 ? table_.clear() : table_.clear_keeping_memory();
        model_ = {};
        break;
      case 12:
        if (Cursor found = table_.find(K::given(held))) {
          found->data = data;
          model_.find(image)->front().data = data;
        }
        break;
      default:
        lookUp(held, image);
        break;
    }
  }

  bool inserts(const std::string &image, uint32_t data) {
    const bool stored = kDuplicates || model_.find(image) == nullptr;
    if (stored) model_.append(image, data);
    return stored;
  }

  void lookUp(const Held &held, const std::string &image) {
    const auto &key = K::given(held);
    const std::vector<Record> *chain = model_.find(image);
    FUZZ_CHECK(table_.contains(key) == (chain != nullptr));
    FUZZ_CHECK(table_.count(key) == model_.count(image));
    FUZZ_CHECK(table_.at(key).has_value() == (chain != nullptr));
    auto reader = table_.reader();
    FUZZ_CHECK(reader.contains(key) == (chain != nullptr));
    size_t index = 0;
    for (auto entry : table_.equal_range(key)) {
      FUZZ_CHECK(chain != nullptr && index < chain->size());
      FUZZ_CHECK(K::shown(entry.key) == image && entry.data == (*chain)[index].data);
      ++index;
    }
    FUZZ_CHECK(index == model_.count(image));
    if constexpr (kSums) {
      FUZZ_CHECK(table_.sum(key) == (chain == nullptr ? 0.0 : chain->front().sum));
    }
  }

  void eraseRecord(const Held &held, const std::string &image) {
    Cursor at = table_.find(K::given(held));
    FUZZ_CHECK(static_cast<bool>(at) == (model_.find(image) != nullptr));
    if (!at) {
      FUZZ_CHECK(table_.erase(at).error() == morva::errc::no_record);
      return;
    }
    const size_t index = input_.below(model_.count(image));
    for (size_t i = 0; i < index; ++i) ++at;
    const bool last = index + 1 == model_.count(image);
    const Cursor next = table_.erase(at).value();
    FUZZ_CHECK(static_cast<bool>(next) == !last);
    model_.eraseOne(image, index);
    if (!last) FUZZ_CHECK(next->data == (*model_.find(image))[index].data);
  }

  // One record somewhere on a walk: the walk goes on with the next one.
  void eraseWhileWalking() {
    if (model_.size() == 0) return;
    auto at = table_.begin();
    for (size_t index = input_.below(std::min<size_t>(model_.size(), 256)); index > 0; --index) {
      ++at;
    }
    const std::string image = K::shown(at->key);
    const uint32_t data = at->data;
    const std::vector<Record> &chain = model_.records.at(image);
    const auto isIt = [data](const Record &record) { return record.data == data; };
    // Which of several records with the same data it is cannot be told.
    if (std::count_if(chain.begin(), chain.end(), isIt) != 1) return;
    const auto place = std::find_if(chain.begin(), chain.end(), isIt) - chain.begin();

    auto following = at;
    const bool last = ++following == table_.end();
    const std::string nextImage = last ? "" : K::shown(following->key);
    const uint32_t nextData = last ? 0 : following->data;
    const auto next = table_.erase(at).value();
    FUZZ_CHECK((next == table_.end()) == last);
    if (!last) FUZZ_CHECK(K::shown(next->key) == nextImage && next->data == nextData);
    model_.eraseOne(image, static_cast<size_t>(place));
  }

  void eraseWhere() {
    const uint32_t divisor = 2 + static_cast<uint32_t>(input_.below(6));
    const size_t before = model_.size();
    for (auto at = model_.records.begin(); at != model_.records.end();) {
      std::erase_if(at->second, [&](const Record &record) { return record.data % divisor == 0; });
      if (at->second.empty()) {
        std::erase(model_.order, at->first);
        at = model_.records.erase(at);
      } else {
        ++at;
      }
    }
    const auto gone =
        erase_if(table_, [&](const auto &entry) { return entry.data % divisor == 0; });
    FUZZ_CHECK(gone.value() == before - model_.size());
  }

  // The same keys looked for, stored or removed side by side.
  void many(bool store) {
    const size_t count = input_.below(store ? 40 : 150);
    const uint8_t first = input_.byte(), stride = input_.byte();
    std::vector<Held> keys;
    for (size_t i = 0; i < count; ++i) {
      keys.push_back(K::make(static_cast<uint8_t>(first + i * stride)));
    }
    std::vector<Cursor> found(count);
    std::vector<uint32_t> data(count);
    const std::unique_ptr<bool[]> flags(new bool[count + 1]);
    const std::span<bool> answered(flags.get(), count);
    size_t there = 0;
    for (const Held &key : keys) there += model_.find(K::image(key)) != nullptr;
    FUZZ_CHECK(table_.find_many(keys, found).value() == there);
    FUZZ_CHECK(table_.contains_many(keys, answered).value() == there);
    for (size_t i = 0; i < count; ++i) {
      const std::vector<Record> *chain = model_.find(K::image(keys[i]));
      FUZZ_CHECK(static_cast<bool>(found[i]) == (chain != nullptr));
      FUZZ_CHECK(answered[i] == (chain != nullptr));
      if (chain != nullptr) FUZZ_CHECK(found[i]->data == chain->front().data);
    }
    if (store) {
      for (uint32_t &value : data) value = ++written_;
      const size_t stored = table_.insert_many(keys, data, answered).value();
      size_t expected = 0;
      // Keys are stored in turn, so those that come twice are there the second time.
      if constexpr (!kMerges) {
        for (size_t i = 0; i < count; ++i) {
          const bool isStored = inserts(K::image(keys[i]), data[i]);
          FUZZ_CHECK(answered[i] == isStored);
          expected += isStored;
        }
      } else {
        for (size_t i = 0; i < count; ++i) expected += inserts(K::image(keys[i]), data[i]);
        settleOrder();
      }
      FUZZ_CHECK(stored == expected);
      return;
    }
    if constexpr (kSums) {
      const std::vector<double> amounts(count, 0.5);
      if (input_.bit()) {
        FUZZ_CHECK(table_.add_to_sum_many(keys, amounts, uint32_t{7}).value() == count);
        for (const Held &key : keys) {
          if (model_.find(K::image(key)) == nullptr) model_.append(K::image(key), 7);
          model_.find(K::image(key))->front().sum += 0.5;
        }
        settleOrder();
        return;
      }
    }
    size_t erased = 0;
    for (const Held &key : keys) erased += model_.erase(K::image(key));
    FUZZ_CHECK(table_.erase_many(keys).value() == erased);
  }

  // Many keys are stored part by part: which of them came first is the table's to say.
  void settleOrder() {
    if constexpr (kMerges) {
      model_.order.clear();
      auto walk = table_.in_order().value();
      for (auto entry : walk) {
        const std::string image = K::shown(entry.key);
        if (model_.order.empty() || model_.order.back() != image) model_.order.push_back(image);
      }
    }
  }

  void addToSums(const Held &held, const std::string &image, uint32_t data) {
    if constexpr (kSums) {
      const auto &key = K::given(held);
      const double amount = input_.byte() * 0.25;
      std::vector<Record> *chain = model_.find(image);
      if (data % 2 == 0) {
        if (chain == nullptr) model_.append(image, data);
        chain = model_.find(image);
        FUZZ_CHECK(table_.add_to_sum(key, amount, data).value() == chain->front().sum + amount);
      } else if (chain == nullptr) {
        FUZZ_CHECK(table_.add_to_sum(key, amount).error() == morva::errc::not_found);
        return;
      } else {
        FUZZ_CHECK(table_.add_to_sum(key, amount).value() == chain->front().sum + amount);
      }
      chain->front().sum += amount;
    }
  }

  // The whole table on a walk.
  void check() {
    Model seen;
    const auto note = [&seen](const auto &entry) { seen.append(K::shown(entry.key), entry.data); };
    if constexpr (kMerges) {
      auto walk = table_.in_order().value();
      for (auto entry : walk) note(entry);
    } else {
      for (auto entry : std::as_const(table_)) note(entry);
    }
    if (kMerges || kOrdered) FUZZ_CHECK(seen.order == model_.order);
    FUZZ_CHECK(seen.records.size() == model_.records.size());
    for (const auto &[image, chain] : model_.records) {
      const std::vector<Record> *found = seen.find(image);
      FUZZ_CHECK(found != nullptr && found->size() == chain.size());
      for (size_t i = 0; i < chain.size(); ++i) FUZZ_CHECK((*found)[i].data == chain[i].data);
    }
    FUZZ_CHECK(table_.size() == model_.size() && table_.empty() == (model_.size() == 0));
  }

  Input &input_;
  Table table_;
  Model model_;
  uint32_t written_ = 100;
};

template <template <class...> class Kind, class Key, class... Features>
void drive(const morva::extension &library, Input &input) {
  static constexpr size_t kExpected[] = {1, 4, 30, 400};
  Driver<Kind, Key, Features...>(library, input, kExpected[input.below(4)]).run();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
  using namespace morva;
  Input input(bytes, size);
  const uint8_t kind = input.byte();
  auto library = extension::linked({.locked_trees = kind >= 128});
  FUZZ_CHECK(library.has_value());
  switch (kind % 5) {
    case 0:
      drive<table, uint64_t>(*library, input);
      break;
    case 1:
      drive<table, text<12>, ordered, duplicates, sums>(*library, input);
      break;
    case 2:
      drive<table, std::string_view, ordered, locked>(*library, input);
      break;
    case 3:
      drive<table, RowKey, duplicates>(*library, input);
      break;
    default:
      drive<partitioned_table, uint64_t, sums, ordered>(*library, input);
      break;
  }
  return 0;
}
