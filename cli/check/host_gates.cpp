// What no other check of a host can do without.

#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

void exportsItsTable(const Subject &subject) {
  const MORVAHostCheck &table = checkTable(subject);
  expectEqual(table.version, uint32_t{MORVA_HOST_CHECK_VERSION}, "version of MORVAHostForCheck");
  expectEqual(table.reserved, 0U, "the reserved word of MORVAHostForCheck");
  expect(table.create != nullptr, "create of MORVAHostForCheck is null");
  expect((table.orderFirst == nullptr) == (table.orderNext == nullptr),
         "MORVAHostForCheck has one of orderFirst and orderNext without the other");
  expect((table.keys == nullptr) == (table.keyCount == 0),
         "MORVAHostForCheck has one of keys and keyCount without the other");
  for (uint64_t i = 0; i < table.keyCount; ++i) {
    const MORVAHostKey &key = table.keys[i];
    expect(key.fields != nullptr && key.fieldCount != 0 && key.make != nullptr,
           "key " + shown(i) + " of MORVAHostForCheck has no fields or no make");
  }
}

void canBeMade(const Subject &subject) {
  const Host host(subject);
  expectSlot(host.services(), 3, "the service table (createLock)");
  expectSlot(host.services(), 6, "the service table (createPool)");
  expectSlot(host.services(), 9, "the service table (loadExtension)");
}

void canBeMadeAgain(const Subject &subject) {
  if (checkTable(subject).destroy == nullptr) throw NotApplicable("the host cannot be ended");
  for (int round = 0; round < 100; ++round) {
    Host host(subject);
    HostPool *pool = host.pool();
    fillWith(taken(pool, 1000), 1000, 1);
    pool->destroy(pool);
    HostLock *lock = host.lock();
    lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
    lock->release(lock);
    lock->destroy(lock);
    host.endWithNothingLeft();
  }
}

constexpr Check kChecks[] = {
    {"file.loads", "The file is a shared library that can be loaded.",
     [](const Subject &subject) { const SharedFile file(subject.file); }, true},
    {"file.exports-its-check-table",
     "The file exports MORVAHostForCheck, of a version that is known and complete.",
     exportsItsTable, true},
    {"host.can-be-made",
     "A host without memory limit and without locked trees can be made, and its service table has "
     "the three slots that are called.",
     canBeMade, true},
    {"host.can-be-made-again", "Hosts can be made, used and ended one after another.",
     canBeMadeAgain},
};

}  // namespace

std::span<const Check> hostGateChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
