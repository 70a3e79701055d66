#include "test_hosts.h"

#include <stdexcept>

#include "morva/host.h"
#include "recording_host.h"

namespace morva_test {
namespace {

class OnRecordingHost : public HostUnderTest {
 public:
  explicit OnRecordingHost(bool treeLocks)
      : host_(optionsFor(treeLocks)), extension_(std::make_unique<Extension>(host_)) {
    host_.keepLog(false);
  }

  MORVAExt *ext() override { return extension_->get(); }

  std::vector<RecordNode *> order(const MORVAInst *inst) override { return host_.order(inst); }

  uint64_t blocksLive(const std::string &pool) override { return host_.blocksAlive(pool); }

  uint64_t unmatchedReleases() override { return host_.unmatchedReleases(); }

  std::string faults() override {
    if (!host_.complaints().empty()) return host_.complaints().front();
    return host_.locksHeld() == 0 ? "" : "a lock is still held";
  }

  std::string close() override {
    host_.checkGuards();
    extension_.reset();
    if (!host_.complaints().empty()) return host_.complaints().front();
    return host_.nothingAlive() ? "" : host_.alive();
  }

 private:
  static RecordingHost::Options optionsFor(bool treeLocks) {
    RecordingHost::Options options;
    options.treeLocks = options.orderListLock = treeLocks;
    return options;
  }

  RecordingHost host_;
  std::unique_ptr<Extension> extension_;
};

class OnEmbeddedHost : public HostUnderTest {
 public:
  explicit OnEmbeddedHost(HostKind kind) {
    QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
    options.lockedTrees = kind == HostKind::embeddedWithTreeLocks ? 1 : 0;
    host_ = QZHostCreate(&options);
    if (host_ == nullptr) throw std::runtime_error("no embedded host");
    char error[256] = "";
    if (kind == HostKind::embeddedWithLoadedLibrary) {
      ext_ = QZHostLoad(host_, MORVA_LIBRARY_FILE, error, sizeof error);
    } else {
      const QZEntryPoints entry{"morva", qzextver, morva::morva};
      ext_ = QZHostAttach(host_, &entry, error, sizeof error);
    }
    if (ext_ != nullptr) return;
    QZHostDestroy(host_, nullptr);
    throw std::runtime_error(error);
  }
  ~OnEmbeddedHost() override { close(); }
  OnEmbeddedHost(const OnEmbeddedHost &) = delete;
  OnEmbeddedHost &operator=(const OnEmbeddedHost &) = delete;

  MORVAExt *ext() override { return ext_; }

  std::vector<RecordNode *> order(const MORVAInst *inst) override {
    std::vector<RecordNode *> records;
    const OrderNode *last = nullptr;
    for (const OrderNode *node = QZOrderFirst(inst); node != nullptr; node = QZOrderNext(node)) {
      // A list whose links disagree would not end; an empty answer never matches.
      if (QZOrderPrev(node) != last) return {};
      records.push_back(static_cast<RecordNode *>(node->record));
      last = node;
    }
    if (QZOrderLast(inst) != last) return {};
    return records;
  }

  uint64_t blocksLive(const std::string &pool) override {
    std::vector<QZPoolStats> pools(QZHostGetPoolStats(host_, nullptr, 0));
    const uint32_t count =
        QZHostGetPoolStats(host_, pools.data(), static_cast<uint32_t>(pools.size()));
    uint64_t blocks = 0;
    for (uint32_t i = 0; i < count && i < pools.size(); ++i) {
      if (pool == pools[i].name) blocks += pools[i].blocksLive;
    }
    return blocks;
  }

  uint64_t unmatchedReleases() override { return stats().unmatchedReleases; }

  std::string faults() override {
    return stats().allocationsRefused == 0 ? "" : "the host refused memory";
  }

  std::string close() override {
    if (host_ == nullptr) return "";
    const uint32_t left = QZHostDestroy(host_, nullptr);
    host_ = nullptr;
    return left == 0 ? "" : std::to_string(left) + " objects were left behind";
  }

 private:
  QZHostStats stats() const {
    QZHostStats stats{};
    QZHostGetStats(host_, &stats);
    return stats;
  }

  QZHost *host_ = nullptr;
  MORVAExt *ext_ = nullptr;
};

}  // namespace

void PrintTo(HostKind kind, std::ostream *out) {
  static const char *const names[] = {"recording", "recording, tree locks", "embedded",
                                      "embedded, tree locks", "embedded, loaded library"};
  *out << names[static_cast<int>(kind)];
}

std::unique_ptr<HostUnderTest> makeHost(HostKind kind) {
  switch (kind) {
    case HostKind::recording:
    case HostKind::recordingWithTreeLocks:
      return std::make_unique<OnRecordingHost>(kind == HostKind::recordingWithTreeLocks);
    case HostKind::embedded:
    case HostKind::embeddedWithTreeLocks:
    case HostKind::embeddedWithLoadedLibrary:
      return std::make_unique<OnEmbeddedHost>(kind);
  }
  throw std::logic_error("no such host");
}

}  // namespace morva_test
