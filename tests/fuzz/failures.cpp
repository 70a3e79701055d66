// Sequences of operations on a host that refuses what it is asked for now and
// then: an operation that fails changes nothing, and all goes on afterwards.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "instance_checker.h"
#include "recording_host.h"
#include "shapes.h"

using morva::recording::Call;
using morva::recording::Extension;
using morva::recording::RecordingHost;
using morva_fuzz::Input;
using morva_test::TableShape;

namespace {

using Contents = std::map<std::string, std::vector<std::string>, morva_test::KeyOrder>;

class Table {
 public:
  Table(RecordingHost &host, MORVAInst *inst, const TableShape &shape, Input &input)
      : host_(host), inst_(inst), shape_(shape), input_(input) {}

  void step(const std::string &key) {
    const uint8_t choice = input_.byte();
    arm(choice / 16);
    switch (choice % 8) {
      case 0:
      case 1:
        return add(key);
      case 2:
        return replace(key);
      case 3:
        return find(key);
      case 4:
        return remove(key);
      case 5:
        return removeRecord(key);
      case 6:
        return lookForNode(key);
      default:
        return clear((choice & 8) != 0);
    }
  }

  void check() {
    host_.failNever();
    Contents found;
    FUZZ_CHECK_EMPTY(morva_test::checkInstanceAlone(inst_, shape_, host_.order(inst_), &found));
    FUZZ_CHECK(found == contents_);
  }

 private:
  // Half of all calls meet no failure, the others one at their first or second
  // request, or from there on.
  void arm(unsigned how) {
    host_.failNever();
    host_.forget();
    if (how >= 8) return;
    if (how % 2 == 0) host_.failNth(1 + how / 2 % 2);
    if (how % 2 != 0) host_.failFromNth(1 + how / 2 % 2);
  }

  bool failed(MORVAStatus status) {
    const bool failed = host_.failuresDelivered() > 0;
    host_.failNever();
    FUZZ_CHECK(failed == (status == MORVA_NO_MEMORY));
    FUZZ_CHECK(host_.locksHeld() == 0);
    for (const std::string &complaint : host_.complaints()) FUZZ_CHECK_EMPTY(complaint);
    return failed;
  }

  // A new key without an order node is in its tree, but not counted: only the
  // clear operations take it out.
  bool leftUncounted(const std::string &key) {
    if (!shape_.ordered() || contents_.count(key) != 0) return false;
    const auto requests = host_.eventsOf(Call::allocate);
    return !requests.empty() && requests.back().text == "inodes";
  }

  void add(const std::string &key) {
    const std::string data = freshData();
    const MORVAStatus status = inst_->Add(inst_, data.data(), key.data(), lengthOf(key));
    if (failed(status)) {
      if (leftUncounted(key)) clear(data.size() % 2 == 0);
      return;
    }
    std::vector<std::string> &records = contents_[key];
    const bool stored = records.empty() || shape_.multi();
    FUZZ_CHECK(status == (stored ? MORVA_OK : MORVA_PRESENT));
    if (stored) records.push_back(data);
  }

  void replace(const std::string &key) {
    const std::string data = freshData();
    const MORVAStatus status = inst_->Replace(inst_, data.data(), key.data(), lengthOf(key));
    if (failed(status)) {
      if (leftUncounted(key)) clear(data.size() % 2 != 0);
      return;
    }
    FUZZ_CHECK(status == MORVA_OK);
    std::vector<std::string> &records = contents_[key];
    if (records.empty()) records.emplace_back();
    for (std::string &record : records) record = data;
  }

  void find(const std::string &key) {
    void *data = nullptr;
    const MORVAStatus status = inst_->Find(inst_, key.data(), lengthOf(key), &data);
    if (failed(status)) return;
    FUZZ_CHECK(status == MORVA_OK);
    const auto found = contents_.find(key);
    FUZZ_CHECK((data != nullptr) == (found != contents_.end()));
    if (data == nullptr) return;
    FUZZ_CHECK(std::string(static_cast<char *>(data), shape_.dataLength) == found->second.front());
  }

  void remove(const std::string &key) {
    const MORVAStatus status = inst_->Remove(inst_, key.data(), lengthOf(key));
    if (failed(status)) return;
    FUZZ_CHECK(status == (contents_.erase(key) != 0 ? MORVA_OK : MORVA_INVALID));
  }

  void removeRecord(const std::string &key) {
    const auto found = contents_.find(key);
    if (!shape_.multi() || found == contents_.end()) return;
    std::vector<std::string> &records = found->second;
    const size_t index = input_.below(records.size());
    uint64_t probe[32] = {};
    FUZZ_CHECK(shape_.probeSize(key.size()) <= sizeof probe);
    void *cursor = nullptr;
    FUZZ_CHECK(inst_->Find2(inst_, key.data(), lengthOf(key), reinterpret_cast<RecordNode *>(probe),
                            &cursor) == MORVA_OK);
    for (size_t i = 0; i < index; ++i) {
      FUZZ_CHECK(inst_->FindNext(inst_, cursor, &cursor) == MORVA_OK);
    }
    void *const before = cursor;
    const MORVAStatus status = inst_->RemoveDup(inst_, &cursor, key.data(), lengthOf(key));
    if (failed(status)) {
      // The removal of a key's only record empties the cursor whatever becomes of it.
      FUZZ_CHECK(cursor == before || (cursor == nullptr && records.size() == 1));
      return;
    }
    FUZZ_CHECK(status == MORVA_OK && cursor == nullptr);
    records.erase(records.begin() + static_cast<std::ptrdiff_t>(index));
    if (records.empty()) contents_.erase(found);
  }

  void lookForNode(const std::string &key) {
    RecordNode *node = nullptr;
    const MORVAStatus status = inst_->FindNode(inst_, key.data(), lengthOf(key), &node, nullptr);
    if (failed(status)) return;
    FUZZ_CHECK(status == MORVA_OK);
    FUZZ_CHECK((node != nullptr) == (contents_.count(key) != 0));
  }

  void clear(bool keepMemory) {
    const MORVAStatus status = keepMemory ? inst_->Clear2(inst_) : inst_->Clear(inst_);
    FUZZ_CHECK(!failed(status) && status == MORVA_OK);
    contents_.clear();
  }

  std::string freshData() { return std::string(shape_.dataLength, static_cast<char>(++written_)); }

  int32_t lengthOf(const std::string &key) const {
    return shape_.rawKeys() ? static_cast<int32_t>(key.size()) : 0;
  }

  RecordingHost &host_;
  MORVAInst *inst_;
  const TableShape &shape_;
  Input &input_;
  Contents contents_;
  unsigned written_ = 0;
};

// Locks that a creation left behind: one at most, where the order list came last.
uint64_t expectNothingMade(const RecordingHost &host, const TableShape &shape) {
  for (const std::string &complaint : host.complaints()) FUZZ_CHECK_EMPTY(complaint);
  FUZZ_CHECK(host.objectsAlive() == 0 && host.locksHeld() == 0);
  FUZZ_CHECK(host.locksAlive() == 0 ||
             (host.locksAlive() == 1 && shape.ordered() && shape.locked()));
  return host.locksAlive();
}

void run(Input input) {
  RecordingHost::Options options;
  options.treeLocks = options.orderListLock = input.bit();
  RecordingHost host(options);
  auto extension = std::make_unique<Extension>(host);
  const TableShape shape = morva_fuzz::takeShape(input);
  const std::vector<std::string> keys = morva_fuzz::takeKeys(shape, input);

  uint64_t leftLocks = 0;
  if (const uint8_t n = input.byte(); n < 64) {
    n % 2 == 0 ? host.failNth(1 + n / 2) : host.failFromNth(1 + n / 2);
  }
  MORVAInst *inst = morva_test::makeInstance(extension->get(), shape);
  const bool refused = host.failuresDelivered() > 0;
  host.failNever();
  if (inst == nullptr) {
    FUZZ_CHECK(refused);
    leftLocks = expectNothingMade(host, shape);
    inst = morva_test::makeInstance(extension->get(), shape);
  }
  FUZZ_CHECK(inst != nullptr);
  {
    Table table(host, inst, shape, input);
    const size_t checkEvery = 1 + input.below(16);
    for (size_t step = 1; !input.empty() && step <= 2000; ++step) {
      table.step(keys[input.below(keys.size())]);
      if (step % checkEvery == 0) table.check();
    }
    table.check();
  }
  FUZZ_CHECK(inst->Destroy(inst) == MORVA_OK);
  extension.reset();
  host.checkGuards();
  for (const std::string &complaint : host.complaints()) FUZZ_CHECK_EMPTY(complaint);
  FUZZ_CHECK(host.blocksAlive() == 0 && host.poolsAlive() == 0 && host.objectsAlive() == 0);
  FUZZ_CHECK(host.companionsAlive() == 0 && host.locksAlive() == leftLocks);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  run(Input(data, size));
  return 0;
}
