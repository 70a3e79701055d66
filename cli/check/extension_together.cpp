// Several instances, several extension objects, several threads.
#include <atomic>
#include <thread>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

void instancesAreApart(const Subject &subject) {
  Lab lab(subject);
  std::vector<Table> tables;
  for (const uint32_t flags : allFlags()) tables.emplace_back(lab, Shape{.flags = flags});
  for (uint64_t n = 0; n != 40; ++n) {
    for (size_t at = 0; at != tables.size(); ++at) tables[at].mustAdd(keyNumber(n), n * 100 + at);
  }
  for (size_t at = 1; at < tables.size(); at += 2) tables[at].destroy();
  for (size_t at = 0; at < tables.size(); at += 2) {
    for (uint64_t n = 0; n != 40; ++n) tables[at].expectValue(keyNumber(n), n * 100 + at);
  }
  lab.expectNoComplaints();
}

void extensionsAreApart(const Subject &subject) {
  Lab lab(subject);
  MORVAExt *other = lab.enter();
  expect(other != nullptr, "the entry function answers null the second time");
  expect(other != lab.ext && other->pool != lab.ext->pool,
         "two calls of the entry function answer one object, or two with one pool");
  Table one(lab, lab.ext, {}), two(lab, other, {});
  for (uint64_t n = 0; n != 100; ++n) {
    one.mustAdd(keyNumber(n), n);
    two.mustAdd(keyNumber(n), n + 1);
  }
  expect(one->ext == lab.ext && two->ext == other, "an instance names another extension object");
  one.destroy();
  lab.end();
  for (uint64_t n = 0; n != 100; ++n) two.expectValue(keyNumber(n), n + 1);
  two.destroy();
  expectStatus(other->RealDestroy(other), MORVA_OK, "RealDestroy");
  lab.expectNothingLeft();
  lab.expectNoComplaints();
}

constexpr uint64_t kThreads = 4;

// Runs `work` in each thread and expects that it counted no mistake.
template <class Work>
void inThreads(const Work &work, const char *what) {
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (uint64_t part = 0; part != kThreads; ++part) {
    threads.emplace_back([&, part] { wrong += work(part); });
  }
  for (std::thread &thread : threads) thread.join();
  expectEqual(wrong.load(), 0, std::string("the number of wrong answers to ") + what);
}

void threadsShareAnInstance(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  for (const uint32_t flags : {uint32_t{flagFixedKey | flagOrdered}, uint32_t{flagVarKey},
                               uint32_t{flagMultiData | flagSum}}) {
    const Table table(lab, {.flags = flags, .hashExp = 3});
    constexpr uint64_t kEach = 400;
    inThreads(
        [&](uint64_t part) {
          int wrong = 0;
          for (uint64_t n = 0; n != kEach; ++n) {
            const std::string key = keyNumber(n * kThreads + part);
            void *data = nullptr;
            wrong += table.add(key, n) != MORVA_OK;
            wrong += table.find(key, &data) != MORVA_OK || !table.holds(data, n);
            if (n % 2 == 0) wrong += table.remove(key) != MORVA_OK;
          }
          return wrong;
        },
        "threads that share an instance");
    table.expectCount(kThreads * kEach / 2);
    for (uint64_t n = 0; n != kEach * kThreads; ++n) {
      if (n / kThreads % 2 == 0) {
        table.expectAbsent(keyNumber(n));
      } else {
        table.expectValue(keyNumber(n), n / kThreads);
      }
    }
    expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks that threads left held");
  }
  lab.expectNoComplaints();
}

void threadsReadTogether(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  for (const uint32_t mode : kKeyModes) {
    const Table table(lab, {.flags = mode | flagNoLock});
    for (uint64_t n = 0; n != 300; ++n) table.mustAdd(keyNumber(n), n);
    inThreads(
        [&](uint64_t part) {
          int wrong = 0;
          for (uint64_t n = 0; n != 1000; ++n) {
            const uint64_t number = (n * 7 + part) % 400;
            const std::string key = table.image(keyNumber(number));
            alignas(8) char probe[128];
            void *data = nullptr;
            wrong += table->Find2(table.get(), key.data(), static_cast<int32_t>(key.size()),
                                  reinterpret_cast<RecordNode *>(probe), &data) != MORVA_OK;
            wrong += number < 300 ? !table.holds(data, number) : data != nullptr;
          }
          return wrong;
        },
        "threads that read one table with Find2");
  }
}

void threadsMakeInstances(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  inThreads(
      [&](uint64_t part) {
        int wrong = 0;
        for (uint64_t n = 0; n != 30; ++n) {
          MORVAInst *inst = createInstance(lab.ext, {.flags = flagFixedKey | flagOrdered});
          if (inst == nullptr) return wrong + 1;
          wrong += inst->Add(inst, "12345678", &part, sizeof part) != MORVA_OK;
          wrong += inst->Destroy(inst) != MORVA_OK;
        }
        return wrong;
      },
      "threads that make instances");
  expectEqual(lab.host.alive(), std::string("1 pools, 1 blocks"), "what threads left alive");
  lab.expectNoComplaints();
}

constexpr Check kChecks[] = {
    {"instances.are-apart", "Instances of every kind know nothing of each other.",
     instancesAreApart},
    {"extensions.are-apart",
     "Each call of the entry function answers an object of its own, with a life of its own.",
     extensionsAreApart},
    {"threads.share-an-instance", "Threads may use one instance that has a lock.",
     threadsShareAnInstance},
    {"threads.read-together", "Threads may read a table that nobody changes with Find2.",
     threadsReadTogether},
    {"threads.make-instances", "Threads may make and destroy instances at once.",
     threadsMakeInstances},
};

}  // namespace

std::span<const Check> togetherChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
