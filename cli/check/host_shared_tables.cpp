// Whole tables in several threads.

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include "host_checks.h"
#include "host_table_model.h"

namespace morva::cli::check {

namespace {

// What threads ask of an instance: each has a key of its own.
struct Hand {
  Hand(MORVAInst *instance, const TableShape &shape) : inst(instance), key(shape) {
    probe.resize((sizeof(RecordNode) + std::max<size_t>(inst->keyLength, 400)) / 8 + 2);
  }
  MORVAStatus add(uint64_t number) {
    key.set(number);
    const TableData data = TableData::of(number, 1);
    return inst->Add(inst, &data, key.data(), key.length());
  }
  MORVAStatus replace(uint64_t number) {
    key.set(number);
    const TableData data = TableData::of(number, 1);
    return inst->Replace(inst, &data, key.data(), key.length());
  }
  MORVAStatus remove(uint64_t number) {
    key.set(number);
    return inst->Remove(inst, key.data(), key.length());
  }
  // Of a record that nobody removes meanwhile the number, or -1.
  int64_t find(uint64_t number) {
    key.set(number);
    void *data = nullptr;
    const MORVAStatus status = inst->Find(inst, key.data(), key.length(), &data);
    return numberOf(status, data);
  }
  int64_t find2(uint64_t number) {
    key.set(number);
    auto *node = reinterpret_cast<RecordNode *>(probe.data());
    void *data = nullptr;
    const MORVAStatus status = inst->Find2(inst, key.data(), key.length(), node, &data);
    return numberOf(status, data);
  }
  static int64_t numberOf(MORVAStatus status, const void *data) {
    if (status != MORVA_OK || data == nullptr) return -1;
    const auto *found = static_cast<const TableData *>(data);
    return *found == TableData::of(found->number, 1) ? static_cast<int64_t>(found->number) : -1;
  }

  MORVAInst *inst;
  TableKey key;
  std::vector<uint64_t> probe;
};

MORVAInst *madeInstance(const Extension &extension, const TableShape &shape) {
  MORVAInst *inst = newInstance(extension, shape);
  expect(inst != nullptr, "an instance cannot be made");
  return inst;
}

std::vector<TableShape> shapesWithLocks(const Host &host) {
  std::vector<TableShape> shapes = {{flagFixedKey | flagOrdered}, {flagVarKey}};
  shapes.push_back({flagFixedKey | flagLockOpt});
  for (uint64_t i = 0; i < host.table().keyCount; ++i) {
    shapes.push_back({flagOrdered, &host.table().keys[i]});
  }
  return shapes;
}

// The host and the library, for as long as a check lasts.
struct Setting {
  explicit Setting(const Subject &subject, const MORVAHostRequest &request = kPlainHost)
      : host(subject, request), library(subject), extension(library, host) {
    expect(extension.get() != nullptr, "the library's entry function answers null");
  }
  void end() {
    extension.destroy();
    host.endWithNothingLeft();
  }

  Host host;
  DrivingLibrary library;
  Extension extension;
};

void shareATable(const MORVAHostRequest &request, const Subject &subject) {
  Setting setting(subject, request);
  for (const TableShape &shape : shapesWithLocks(setting.host)) {
    MORVAInst *inst = madeInstance(setting.extension, shape);
    inThreads(4, [&](unsigned thread) {
      Hand hand(inst, shape);
      // Each thread has keys of its own, all of them in the same few buckets.
      const auto own = [&](uint64_t i) { return i * 4 + thread; };
      for (int round = 0; round < 4; ++round) {
        for (uint64_t i = 0; i < 150; ++i) {
          expectStatus(hand.add(own(i)), MORVA_OK, "Add beside other threads");
        }
        for (uint64_t i = 0; i < 150; ++i) {
          expectEqual<int64_t>(hand.find(own(i)), own(i), "the record found beside other threads");
          if (i % 3 == 0) {
            expectStatus(hand.replace(own(i)), MORVA_OK, "Replace beside other threads");
          }
        }
        for (uint64_t i = round == 3 ? 75 : 0; i < 150; ++i) {
          expectStatus(hand.remove(own(i)), MORVA_OK, "Remove beside other threads");
        }
      }
    });
    expectEqual<uint64_t>(inst->NumElements(inst), 300, "the number of records left by 4 threads");
    Hand hand(inst, shape);
    for (uint64_t number = 0; number < 300; ++number) {
      expectEqual<int64_t>(hand.find(number), static_cast<int64_t>(number),
                           "the record found after other threads");
    }
    inst->Destroy(inst);
  }
  setting.end();
}

void areMadeInThreads(const Subject &subject) {
  Setting setting(subject);
  const std::vector<TableShape> shapes = shapesWithLocks(setting.host);
  inThreads(4, [&](unsigned thread) {
    for (unsigned round = 0; round < 60; ++round) {
      const TableShape &shape = shapes[(thread + round) % shapes.size()];
      MORVAInst *inst = madeInstance(setting.extension, shape);
      Hand hand(inst, shape);
      for (uint64_t i = 0; i < 20; ++i) {
        expectStatus(hand.add(i), MORVA_OK, "Add while other threads make instances");
      }
      for (uint64_t i = 0; i < 20; ++i) {
        expectEqual<int64_t>(hand.find(i), static_cast<int64_t>(i), "the record found");
      }
      inst->Destroy(inst);
    }
  });
  setting.end();
}

void areReadInThreads(const Subject &subject) {
  Setting setting(subject);
  for (const TableShape &shape : shapesWithLocks(setting.host)) {
    MORVAInst *inst = madeInstance(setting.extension, shape);
    Hand filling(inst, shape);
    for (uint64_t i = 0; i < 300; ++i) expectStatus(filling.add(i), MORVA_OK, "Add");
    inThreads(4, [&](unsigned thread) {
      Hand hand(inst, shape);
      Random numbers(thread);
      for (int i = 0; i < 4000; ++i) {
        const uint64_t number = numbers.below(400);
        expectEqual<int64_t>(hand.find2(number),
                             number < 300 ? static_cast<int64_t>(number) : int64_t{-1},
                             "the record that Find2 finds beside other readers");
      }
    });
    inst->Destroy(inst);
  }
  setting.end();
}

// MORVAFind2 with a fixed key that is too long releases the lock without
// having it; another thread is in the middle of something then.
void surviveUnmatchedReleases(const Subject &subject) {
  Setting setting(subject);
  const TableShape shape{flagFixedKey};
  MORVAInst *inst = madeInstance(setting.extension, shape);
  std::atomic<int> inside{0};
  std::atomic<bool> met{false};
  inThreads(4, [&](unsigned thread) {
    Hand hand(inst, shape);
    const std::string tooLong(inst->keyLength + 1, 'x');
    HostLock *lock = inst->lock;
    for (uint64_t i = 0; i < 1500; ++i) {
      if (thread == 0) {
        void *data = nullptr;
        const MORVAStatus status =
            inst->Find2(inst, tooLong.data(), static_cast<int32_t>(tooLong.size()),
                        reinterpret_cast<RecordNode *>(hand.probe.data()), &data);
        expectStatus(status, MORVA_INVALID, "Find2 with a key that is too long");
      } else {
        lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
        if (inside.fetch_add(1) != 0) met = true;
        // Operations acquire the lock once more.
        const MORVAStatus status = hand.replace(i % 50 * 4 + thread);
        if (i % 4 == 0) linger(static_cast<unsigned>(i));
        inside.fetch_sub(1);
        lock->release(lock);
        expectStatus(status, MORVA_OK, "Replace while another thread releases without a hold");
      }
    }
  });
  expect(!met, "two threads hold the lock of an instance at once");
  expectEqual<uint64_t>(inst->NumElements(inst), 150, "NumElements");
  inst->Destroy(inst);
  setting.end();
}

void areSearchedBesideChanges(const Subject &subject) {
  Setting setting(subject, kLockedTrees);
  for (TableShape shape : shapesWithLocks(setting.host)) {
    shape.hashExp = 2;
    MORVAInst *inst = madeInstance(setting.extension, shape);
    Hand filling(inst, shape);
    for (uint64_t i = 0; i < 100; ++i) expectStatus(filling.add(i), MORVA_OK, "Add");
    inThreads(4, [&](unsigned thread) {
      Hand hand(inst, shape);
      Random numbers(thread);
      for (uint64_t i = 0; i < 2500; ++i) {
        if (thread == 0) {
          // The first hundred keys stay.
          const uint64_t number = 100 + i % 40;
          const MORVAStatus status = i / 40 % 2 == 0 ? hand.add(number) : hand.remove(number);
          expectStatus(status, MORVA_OK, "a change beside readers");
        } else {
          const uint64_t number = numbers.below(100);
          expectEqual<int64_t>(hand.find2(number), static_cast<int64_t>(number),
                               "the record that Find2 finds beside changes");
        }
      }
    });
    inst->Destroy(inst);
  }
  setting.end();
}

constexpr Check kChecks[] = {
    {"tables.are-shared-by-threads", "Several threads may use one table, each key by one of them.",
     [](const Subject &subject) { shareATable(kPlainHost, subject); }},
    {"tables.are-shared-with-locked-trees",
     "Several threads may use one table of a host with locked trees.",
     [](const Subject &subject) { shareATable(kLockedTrees, subject); }},
    {"tables.are-made-in-threads", "Several threads may make and destroy tables at once.",
     areMadeInThreads},
    {"tables.are-read-in-threads", "Find2 serves many threads when nobody changes the table.",
     areReadInThreads},
    {"tables.survive-unmatched-releases",
     "A release without a hold, as Find2 makes it, leaves other threads' holds alone.",
     surviveUnmatchedReleases},
    {"tables.are-searched-beside-changes",
     "With locked trees Find2 finds what is there while another thread changes the table.",
     areSearchedBesideChanges},
};

}  // namespace

std::span<const Check> hostSharedTableChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
