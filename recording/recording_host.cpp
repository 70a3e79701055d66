#include "recording_host.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "recording_state.h"

namespace morva::recording {
namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

const char *wordFor(Call call) {
  switch (call) {
    case Call::createLock:
      return "createLock";
    case Call::createPool:
      return "createPool";
    case Call::loadExtension:
      return "loadExtension";
    case Call::allocate:
      return "allocate";
    case Call::freeBlock:
      return "freeBlock";
    case Call::destroyPool:
      return "destroyPool";
    case Call::acquire:
      return "acquire";
    case Call::release:
      return "release";
    case Call::destroyLock:
      return "destroyLock";
    case Call::makePacker:
      return "makePacker";
    case Call::makeTree:
      return "makeTree";
    case Call::makeOrderList:
      return "makeOrderList";
    case Call::releaseCompanion:
      return "releaseCompanion";
    case Call::destroyPacker:
      return "destroyPacker";
    case Call::destroyTree:
      return "destroyTree";
    case Call::destroyOrderList:
      return "destroyOrderList";
    case Call::defineField:
      return "defineField";
    case Call::finish:
      return "finish";
    case Call::pack:
      return "pack";
    case Call::treeNext:
      return "treeNext";
    case Call::treeInsert:
      return "treeInsert";
    case Call::treeFind:
      return "treeFind";
    case Call::treeRemove:
      return "treeRemove";
    case Call::treeFirst:
      return "treeFirst";
    case Call::append:
      return "append";
    case Call::unlink:
      return "unlink";
  }
  return "?";
}

bool failed(const Event &event) {
  switch (event.call) {
    case Call::createLock:
    case Call::createPool:
    case Call::loadExtension:
    case Call::makePacker:
    case Call::makeTree:
    case Call::makeOrderList:
      return event.object == 0;
    case Call::allocate:
      return event.c == 0;
    case Call::release:
    case Call::defineField:
    case Call::finish:
      return event.a != 0;
    default:
      return false;
  }
}

// Instance locks go by the caller's names; only the containers' are told apart.
bool named(const Event &event, const State &host) {
  switch (event.call) {
    case Call::createLock:
    case Call::destroyLock:
      return false;
    case Call::acquire:
    case Call::release:
      return !host.locks[event.object - 1]->ofServices;
    default:
      return !event.text.empty();
  }
}

template <typename Object>
uint64_t countAlive(const std::vector<std::unique_ptr<Object>> &objects) {
  return static_cast<uint64_t>(std::count_if(objects.begin(), objects.end(),
                                             [](const auto &object) { return object->alive; }));
}

}  // namespace

bool canFail(Call call) {
  switch (call) {
    case Call::createLock:
    case Call::createPool:
    case Call::loadExtension:
    case Call::allocate:
    case Call::makePacker:
    case Call::makeTree:
    case Call::makeOrderList:
    case Call::defineField:
    case Call::finish:
      return true;
    default:
      return false;
  }
}

// Far more than any test makes.
constexpr size_t kLongestLog = size_t{1} << 22;
constexpr size_t kMostComplaints = 1000;

void State::record(const Event &event) {
  {
    Guard guard(mutex);
    if (keepLog && events.size() < kLongestLog) {
      events.push_back(event);
    } else if (keepLog) {
      // An extension that calls without end must not take all memory.
      keepLog = false;
      complaints.emplace_back("more calls than can be written down");
    }
  }
  if (owner.onEvent) owner.onEvent(event);
}

void State::complain(const std::string &text) {
  Guard guard(mutex);
  if (complaints.size() < kMostComplaints) complaints.push_back(text);
}

bool State::fails(Call call) {
  Guard guard(mutex);
  if (!plan.active || !canFail(call) || (plan.onlyOneKind && plan.kind != call)) return false;
  ++plan.seen;
  const bool fail = plan.allLater ? plan.seen >= plan.n : plan.seen == plan.n;
  if (fail) ++plan.delivered;
  return fail;
}

void State::expectAlive(const Tracked &object, const char *what) {
  Guard guard(mutex);
  if (!object.alive) {
    complain(std::string("used ") + what + " " + std::to_string(object.number) + " after its end");
  }
}

bool State::end(Tracked &object, const char *what) {
  Guard guard(mutex);
  expectAlive(object, what);
  return std::exchange(object.alive, false);
}

RecordingHost::RecordingHost() : RecordingHost(Options()) {}

RecordingHost::RecordingHost(const Options &options)
    : state_(std::make_unique<State>(*this, options)) {}

RecordingHost::~RecordingHost() = default;

HostServices *RecordingHost::services() {
  return &state_->services;
}

void RecordingHost::failNth(uint64_t n) {
  Guard guard(state_->mutex);
  state_->plan = FailurePlan();
  state_->plan.active = true;
  state_->plan.n = n;
}

void RecordingHost::failFromNth(uint64_t n) {
  Guard guard(state_->mutex);
  failNth(n);
  state_->plan.allLater = true;
}

void RecordingHost::failCall(Call call, uint64_t n) {
  Guard guard(state_->mutex);
  failNth(n);
  state_->plan.onlyOneKind = true;
  state_->plan.kind = call;
}

void RecordingHost::failNever() {
  Guard guard(state_->mutex);
  state_->plan = FailurePlan();
}

uint64_t RecordingHost::failuresDelivered() const {
  Guard guard(state_->mutex);
  return state_->plan.delivered;
}

const std::vector<Event> &RecordingHost::events() const {
  return state_->events;
}

void RecordingHost::forget() {
  Guard guard(state_->mutex);
  state_->events.clear();
  state_->mostLocksHeld = state_->locksHeld;
}

void RecordingHost::keepLog(bool keep) {
  Guard guard(state_->mutex);
  state_->keepLog = keep;
}

std::vector<Event> RecordingHost::eventsOf(Call call) const {
  Guard guard(state_->mutex);
  std::vector<Event> found;
  std::copy_if(state_->events.begin(), state_->events.end(), std::back_inserter(found),
               [call](const Event &event) { return event.call == call; });
  return found;
}

uint64_t RecordingHost::count(Call call) const {
  return eventsOf(call).size();
}

std::string RecordingHost::story() const {
  Guard guard(state_->mutex);
  std::string text;
  for (const Event &event : state_->events) {
    if (!text.empty()) text += ' ';
    text += wordFor(event.call);
    if (named(event, *state_)) text += "(" + event.text + ")";
    if (failed(event)) text += '!';
  }
  return text;
}

uint64_t RecordingHost::poolsAlive() const {
  Guard guard(state_->mutex);
  return countAlive(state_->pools);
}

uint64_t RecordingHost::blocksAlive() const {
  Guard guard(state_->mutex);
  return state_->blocks.size();
}

uint64_t RecordingHost::blocksAlive(const std::string &pool) const {
  Guard guard(state_->mutex);
  return static_cast<uint64_t>(
      std::count_if(state_->blocks.begin(), state_->blocks.end(),
                    [&](const auto &entry) { return entry.second.pool->name == pool; }));
}

uint64_t RecordingHost::bytesAlive(const std::string &pool) const {
  Guard guard(state_->mutex);
  uint64_t bytes = 0;
  for (const auto &[address, block] : state_->blocks) {
    if (block.pool->name == pool) bytes += block.size;
  }
  return bytes;
}

uint64_t RecordingHost::locksAlive() const {
  Guard guard(state_->mutex);
  return static_cast<uint64_t>(
      std::count_if(state_->locks.begin(), state_->locks.end(),
                    [](const auto &lock) { return lock->alive && lock->ofServices; }));
}

uint64_t RecordingHost::companionsAlive() const {
  Guard guard(state_->mutex);
  return countAlive(state_->packerExts) + countAlive(state_->containerExts) +
         countAlive(state_->listExts);
}

uint64_t RecordingHost::objectsAlive() const {
  Guard guard(state_->mutex);
  return countAlive(state_->packers) + countAlive(state_->containers) + countAlive(state_->lists);
}

bool RecordingHost::nothingAlive() const {
  return alive().empty();
}

std::string RecordingHost::alive() const {
  Guard guard(state_->mutex);
  std::string text;
  const auto add = [&text](uint64_t count, const char *what) {
    if (count != 0) text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
  };
  add(poolsAlive(), "pools");
  add(blocksAlive(), "blocks");
  add(locksAlive(), "locks");
  add(companionsAlive(), "companions");
  add(objectsAlive(), "companion objects");
  return text;
}

bool RecordingHost::isBlock(const void *address) const {
  Guard guard(state_->mutex);
  return state_->blocks.count(address) != 0;
}

uint64_t RecordingHost::blockSize(const void *address) const {
  Guard guard(state_->mutex);
  const auto found = state_->blocks.find(address);
  return found == state_->blocks.end() ? 0 : found->second.size;
}

uint64_t RecordingHost::locksHeld() const {
  Guard guard(state_->mutex);
  return state_->locksHeld;
}

uint64_t RecordingHost::unmatchedReleases() const {
  Guard guard(state_->mutex);
  return state_->unmatchedReleases;
}

uint64_t RecordingHost::mostLocksHeldAtOnce() const {
  Guard guard(state_->mutex);
  return state_->mostLocksHeld;
}

const std::vector<std::string> &RecordingHost::complaints() const {
  return state_->complaints;
}

void RecordingHost::checkGuards() {
  state_->checkGuards();
}

std::vector<RecordNode *> RecordingHost::order(const MORVAInst *inst) const {
  std::vector<RecordNode *> records;
  const List *list = static_cast<const List *>(inst->orderList);
  if (list == nullptr || list->head == nullptr) return records;
  for (const OrderNode *node : list->nodes) {
    records.push_back(static_cast<RecordNode *>(node->record));
  }
  return records;
}

}  // namespace morva::recording
