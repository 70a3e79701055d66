#include "host_subject.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

namespace morva::cli::check {

const MORVAHostCheck &checkTable(const Subject &subject) {
  static const auto *file = new SharedFile(subject.file);
  return *file->get<const MORVAHostCheck *>("MORVAHostForCheck");
}

DrivingLibrary::DrivingLibrary(const Subject &subject) {
  const auto *file = new SharedFile(subject.library);
  qzextver = file->get<decltype(qzextver)>("qzextver");
  entry = file->get<decltype(entry)>("morva");
}

// ---- The host ----------------------------------------------------------------------

Host::Host(const Subject &subject, const MORVAHostRequest &request) : table_(checkTable(subject)) {
  services_ = table_.create(&request, &host_);
  if (services_ != nullptr) return;
  if (request.memoryLimit != 0) throw NotApplicable("there is no host with a memory limit");
  if (request.lockedTrees != 0) throw NotApplicable("there is no host with locked trees");
  throw Unmet("create of MORVAHostForCheck answers null");
}

HostPool *Host::pool(uint32_t options, const char *name) const {
  const PoolOptions wanted{options, {}};
  HostPool *pool = services_->createPool(services_, &wanted, nullptr, name);
  expect(pool != nullptr, "createPool answers null");
  return pool;
}

HostLock *Host::lock(uint8_t option1, const char *name) const {
  const LockOptions wanted{0, option1, {}};
  HostLock *lock = services_->createLock(services_, &wanted, nullptr, name);
  expect(lock != nullptr, "createLock answers null");
  return lock;
}

void *Host::companion(const char32_t *name, uint64_t length) const {
  // With what follows the name, its terminator as a rule.
  std::vector<uint32_t> characters(name, name + length + 1);
  return services_->loadExtension(services_, characters.data(), length, 0);
}

RecordPackerExt *Host::packers() const {
  void *companion = this->companion(U"qzevp", 5);
  expect(companion != nullptr, "loadExtension of \"qzevp\" answers null");
  return static_cast<RecordPackerExt *>(companion);
}

TreeExt *Host::trees() const {
  void *companion = this->companion(U"qzeavl", 6);
  expect(companion != nullptr, "loadExtension of \"qzeavl\" answers null");
  return static_cast<TreeExt *>(companion);
}

OrderListExt *Host::lists() const {
  void *companion = this->companion(U"qzeai", 5);
  expect(companion != nullptr, "loadExtension of \"qzeai\" answers null");
  return static_cast<OrderListExt *>(companion);
}

void Host::endWithNothingLeft() {
  if (canBeEnded()) expectEqual(end(), 0U, "the number of objects left when all were given back");
}

void onHostsOfBothKinds(const Subject &subject, const std::function<void(Host &host)> &check) {
  Host plain(subject);
  check(plain);
  std::unique_ptr<Host> locked;
  try {
    locked = std::make_unique<Host>(subject, kLockedTrees);
  } catch (const NotApplicable &) {
    return;
  }
  try {
    check(*locked);
  } catch (const Unmet &complaint) {
    throw Unmet(std::string("with locked trees: ") + complaint.what());
  }
}

void expectSlot(const void *object, unsigned slot, const std::string &what) {
  void *const *slots = static_cast<void *const *>(object);
  expect(slots[slot] != nullptr, "slot " + shown(slot) + " of " + what + " is empty");
}

// ---- Memory --------------------------------------------------------------------------

unsigned char *taken(HostPool *pool, uint64_t size, uint32_t options) {
  void *block = pool->allocate(pool, size, options);
  if (block == nullptr) throw Unmet("allocate of " + shown(size) + " bytes answers null");
  return static_cast<unsigned char *>(block);
}

namespace {

constexpr uint64_t kStep = UINT64_C(0x9E3779B97F4A7C15);

unsigned char byteAt(uint64_t seed, uint64_t position) {
  return static_cast<unsigned char>((seed + position / 8) * kStep >> (8 * (position % 8)));
}

size_t pageSize() {
  return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

void fillWith(unsigned char *block, uint64_t size, uint64_t seed) {
  for (uint64_t i = 0; i < size; ++i) block[i] = byteAt(seed, i);
}

bool isFilledWith(const unsigned char *block, uint64_t size, uint64_t seed) {
  for (uint64_t i = 0; i < size; ++i) {
    if (block[i] != byteAt(seed, i)) return false;
  }
  return true;
}

uint64_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  uint64_t all = 0;
  uint64_t resident = 0;
  file >> all >> resident;
  return resident * pageSize();
}

LentBytes::LentBytes(const void *bytes, size_t size) {
  const size_t page = pageSize();
  pageBytes_ = (std::max<size_t>(size, 1) + page - 1) / page * page;
  void *pages =
      mmap(nullptr, pageBytes_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  pages_ = static_cast<unsigned char *>(pages);
  mprotect(pages_ + pageBytes_, page, PROT_NONE);
  start_ = pages_ + pageBytes_ - size;
  if (size != 0) std::memcpy(start_, bytes, size);
}

void LentBytes::takeBack() const {
  mprotect(pages_, pageBytes_, PROT_NONE);
}

void LentBytes::lockForReading() const {
  mprotect(pages_, pageBytes_, PROT_READ);
}

// ---- Threads ---------------------------------------------------------------------------

struct Task::State {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  std::exception_ptr complaint;
};

Task::Task(std::function<void()> work) : state_(std::make_shared<State>()) {
  std::thread([state = state_, work = std::move(work)] {
    std::exception_ptr complaint;
    try {
      work();
    } catch (...) {
      complaint = std::current_exception();
    }
    const std::lock_guard guard(state->mutex);
    state->done = true;
    state->complaint = complaint;
    state->changed.notify_all();
  }).detach();
}

bool Task::isDoneSoon() const {
  std::unique_lock guard(state_->mutex);
  return state_->changed.wait_for(guard, std::chrono::milliseconds(30),
                                  [this] { return state_->done; });
}

void Task::wait() const {
  std::unique_lock guard(state_->mutex);
  state_->changed.wait(guard, [this] { return state_->done; });
  if (state_->complaint != nullptr) std::rethrow_exception(state_->complaint);
}

void linger(unsigned round) {
  if (round % 61 == 0) return std::this_thread::sleep_for(std::chrono::microseconds(50));
  std::atomic<unsigned> step{0};
  while (step.fetch_add(1) < 200) {
  }
}

void inThreads(unsigned count, const std::function<void(unsigned)> &work) {
  std::barrier start(count);
  std::vector<Task> tasks;
  for (unsigned number = 0; number < count; ++number) {
    tasks.emplace_back([&start, &work, number] {
      start.arrive_and_wait();
      work(number);
    });
  }
  // All of them: the work uses what lives as long as this call.
  std::exception_ptr complaint;
  for (const Task &task : tasks) {
    try {
      task.wait();
    } catch (...) {
      if (complaint == nullptr) complaint = std::current_exception();
    }
  }
  if (complaint != nullptr) std::rethrow_exception(complaint);
}

}  // namespace morva::cli::check
