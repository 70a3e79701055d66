// Thousands of operations in no order, beside a table that is as plain as can be.
#include <algorithm>
#include <list>
#include <map>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

struct Record {
  uint64_t value;
  double sum;
};

// The table, and what ought to be in it.
class Run {
 public:
  Run(Lab &lab, uint32_t flags, uint64_t seed)
      : lab_(lab),
        table_(lab, {.flags = flags,
                     .dataLength = 11,
                     .hashMethod = static_cast<int32_t>(2 + seed % 8),
                     .hashExp = static_cast<int32_t>(seed % 5)}),
        random_(seed * 64 + flags) {}

  void go(int steps) {
    for (int step = 0; step != steps; ++step) {
      act();
      if (step % 250 == 249) compare();
    }
    compare();
    table_.destroy();
  }

 private:
  bool has(uint32_t flag) const { return table_.shape().has(flag); }

  std::string someKey() { return keyNumber(random_.below(70)); }

  void expectAnswer(MORVAStatus answer, MORVAStatus wanted, const char *operation) {
    expectStatus(answer, wanted, std::string(operation) + ' ' + table_.kind());
  }

  void act() {
    const std::string key = someKey();
    const uint64_t value = random_.next();
    switch (random_.below(20)) {
      default:
        return add(key, value);
      case 0:
      case 1:
        return replace(key, value);
      case 2:
      case 3:
      case 4:
        return find(key);
      case 5:
      case 6:
      case 7:
        return remove(key);
      case 8:
      case 9:
        return atCursor(key, value);
      case 10:
        if (has(flagSum))
          table_->SetSumInc(table_.get(), increment_ = static_cast<double>(value % 16) / 4);
        return;
      case 11:
        if (random_.below(40) == 0) clear();
        return;
    }
  }

  void add(const std::string &key, uint64_t value) {
    const auto known = model_.find(key);
    const bool refused = known != model_.end() && !has(flagMultiData);
    expectAnswer(table_.add(key, value), refused ? MORVA_PRESENT : MORVA_OK, "Add");
    if (refused) return;
    if (known == model_.end()) order_.push_back(key);
    model_[key].push_back({value, increment_});
  }

  void replace(const std::string &key, uint64_t value) {
    expectAnswer(table_.replace(key, value), MORVA_OK, "Replace");
    std::vector<Record> &records = model_[key];
    if (records.empty()) {
      order_.push_back(key);
      records.push_back({});
    }
    for (Record &record : records) record.value = value;
    records[0].sum = increment_;
  }

  void find(const std::string &key) {
    void *data = nullptr;
    expectAnswer(table_.find(key, &data), MORVA_OK, "Find");
    const auto known = model_.find(key);
    expectEqual(data != nullptr, known != model_.end(), "finding a key, " + table_.kind() + ',');
    if (data != nullptr) known->second[0].sum += increment_;
  }

  void remove(const std::string &key) {
    const bool known = model_.erase(key) != 0;
    if (known) order_.remove(key);
    expectAnswer(table_.remove(key), known ? MORVA_OK : MORVA_INVALID, "Remove");
  }

  // Walks to some record of the key, and replaces or removes it there.
  void atCursor(const std::string &key, uint64_t value) {
    const auto known = model_.find(key);
    if (known == model_.end()) return;
    std::vector<Record> &records = known->second;
    void *data = table_.found(key);
    records[0].sum += increment_;
    size_t at = 0;
    for (size_t steps = random_.below(records.size()); steps != 0; --steps) {
      expectAnswer(table_->FindNext(table_.get(), data, &data), MORVA_OK, "FindNext");
      records[++at].sum += increment_;
    }
    table_.mustHold(data, records[at].value, "a record of a chain");
    if (!has(flagMultiData) || value % 2 == 0) {
      expectAnswer(table_->ReplaceDup(table_.get(), data, table_.payload(value).data()), MORVA_OK,
                   "ReplaceDup");
      records[at] = {value, increment_};
      return;
    }
    const std::string bytes = table_.image(key);
    expectAnswer(
        table_->RemoveDup(table_.get(), &data, bytes.data(), static_cast<int32_t>(bytes.size())),
        MORVA_OK, "RemoveDup");
    records.erase(records.begin() + static_cast<ptrdiff_t>(at));
    if (records.empty()) {
      model_.erase(known);
      order_.remove(key);
    }
  }

  void clear() {
    MORVAInst *inst = table_.get();
    expectAnswer(random_.below(2) == 0 ? inst->Clear(inst) : inst->Clear2(inst), MORVA_OK, "Clear");
    model_.clear();
    order_.clear();
  }

  void compare() {
    if (has(flagSum)) table_->SetSumInc(table_.get(), 0);
    uint32_t count = 0;
    for (uint64_t n = 0; n != 70; ++n) {
      const auto known = model_.find(keyNumber(n));
      if (known == model_.end()) {
        table_.expectAbsent(keyNumber(n));
        continue;
      }
      const std::vector<Record> &records = known->second;
      count += static_cast<uint32_t>(records.size());
      if (has(flagSum)) {
        expectEqual(table_.sum(known->first), records[0].sum,
                    "the sum of a key, " + table_.kind() + ',');
      }
      if (!has(flagMultiData)) {
        table_.expectValue(known->first, records[0].value);
        continue;
      }
      const std::vector<void *> chain = table_.chain(known->first);
      expectEqual(chain.size(), records.size(),
                  "the number of records of a key, " + table_.kind() + ',');
      for (size_t at = 0; at != chain.size(); ++at) {
        table_.mustHold(chain[at], records[at].value, "a record of a chain");
        double sum = 0;
        if (!has(flagSum)) continue;
        table_->SumDup(table_.get(), chain[at], &sum);
        expectEqual(sum, records[at].sum, "the sum of a record, " + table_.kind() + ',');
      }
    }
    table_.expectCount(count);
    if (has(flagSum)) table_->SetSumInc(table_.get(), increment_);
    if (!has(flagOrdered)) return;
    const std::vector<RecordNode *> nodes = lab_.host.order(table_.get());
    expectEqual(nodes.size(), order_.size(), "the length of the order, " + table_.kind() + ',');
    size_t at = 0;
    for (const std::string &key : order_) {
      expect(table_.keyOf(nodes[at++]) == table_.image(key),
             "the insertion order is another, " + table_.kind());
    }
  }

  Lab &lab_;
  Table table_;
  Random random_;
  double increment_ = 0;
  std::map<std::string, std::vector<Record>> model_;
  std::list<std::string> order_;
};

template <uint32_t kMode>
void everyOption(const Subject &subject) {
  for (const bool treeLocks : {false, true}) {
    RecordingHost::Options options;
    options.treeLocks = options.orderListLock = treeLocks;
    Lab lab(subject, options);
    lab.host.keepLog(false);
    uint64_t seed = treeLocks ? 100 : 1;
    for (const uint32_t flags : allFlags()) {
      if ((flags & (flagFixedKey | flagVarKey)) == kMode) Run(lab, flags, ++seed).go(1500);
    }
    lab.end();
    lab.expectNothingLeft();
    lab.expectNoComplaints();
  }
}

constexpr Check kChecks[] = {
    {"random.fixed-keys",
     "Random operations agree with a plain table, for all options of fixed keys.",
     everyOption<flagFixedKey>},
    {"random.variable-keys",
     "Random operations agree with a plain table, for all options of variable keys.",
     everyOption<flagVarKey>},
    {"random.packed-keys",
     "Random operations agree with a plain table, for all options of packed keys.", everyOption<0>},
};

}  // namespace

std::span<const Check> randomChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
