// Extensions linked into the program, and the same files loaded beside them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "loader_test.h"
#include "morva/morva.h"

namespace host_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr QZEntryPoints kLinked{"morva", qzextver, morva::morva};

MORVAExt *attach(const HostPtr &host) {
  char error[1024] = "";
  MORVAExt *ext = QZHostAttach(host.get(), &kLinked, error, sizeof error);
  EXPECT_NE(ext, nullptr) << error;
  return ext;
}

std::string refusal(QZHost *host, const QZEntryPoints *entry) {
  char error[1024] = "";
  EXPECT_EQ(QZHostAttach(host, entry, error, sizeof error), nullptr);
  return error;
}

TEST(Attaching, MakesAnExtensionOfTheLinkedLibrary) {
  const HostPtr host = makeHost();
  MORVAExt *ext = attach(host);
  EXPECT_EQ(ext->Create, &MORVACreate);
  EXPECT_EQ(Exported_QZHandle, QZHostServices(host.get()));
  EXPECT_EQ(statsOf(host).extensions, 1u);
  EXPECT_TRUE(works(ext));
  unload(host, ext);
  EXPECT_EQ(Exported_QZHandle, nullptr);
  EXPECT_EQ(statsOf(host).extensions, 0u);
}

TEST(Attaching, IsNotDisturbedByAnotherFileWithTheSameNames) {
  const HostPtr host = makeHost();
  const HostPtr second = makeHost();
  MORVAExt *ext = attach(host);
  load(second, fixture("sound"));
  EXPECT_EQ(Exported_QZHandle, QZHostServices(host.get()));
  EXPECT_TRUE(works(ext));
  EXPECT_EQ(statsOf(second).pools, 1u);
}

TEST(Attaching, IsRefusedWhileAnotherHostHasTheLibrary) {
  HostPtr first = makeHost();
  const HostPtr second = makeHost();
  MORVAExt *ext = attach(first);
  EXPECT_THAT(refusal(second.get(), &kLinked),
              AllOf(HasSubstr("'morva'"), HasSubstr("another host")));
  EXPECT_EQ(QZHostAttach(second.get(), &kLinked, nullptr, 0), nullptr);
  EXPECT_EQ(Exported_QZHandle, QZHostServices(first.get()));
  EXPECT_TRUE(works(ext));
  first.reset();
  EXPECT_EQ(Exported_QZHandle, nullptr);
  EXPECT_TRUE(works(attach(second)));
}

TEST(Attaching, IsPossibleAgainAfterUnloading) {
  const HostPtr first = makeHost(), second = makeHost();
  MORVAExt *ext = attach(first), *again = attach(first);
  unload(first, ext);
  EXPECT_THAT(refusal(second.get(), &kLinked), HasSubstr("another host"));
  unload(first, again);
  unload(second, attach(second));
  EXPECT_TRUE(works(attach(first)));
}

TEST(Attaching, TheSameHostMayDoTwice) {
  const HostPtr host = makeHost();
  MORVAExt *first = attach(host), *second = attach(host);
  EXPECT_NE(first, second);
  EXPECT_TRUE(works(first));
  unload(host, first);
  EXPECT_EQ(Exported_QZHandle, QZHostServices(host.get()));
  EXPECT_TRUE(works(second));
}

TEST(Attaching, SaysWhatIsMissing) {
  const HostPtr host = makeHost();
  EXPECT_THAT(refusal(host.get(), nullptr), HasSubstr("no entry points"));
  const QZEntryPoints noVersion{"here", nullptr, morva::morva}, noMain{"here", qzextver, nullptr},
      noName{nullptr, qzextver, nullptr};
  EXPECT_EQ(refusal(host.get(), &noVersion), "'here' has no entry point 'qzextver'");
  EXPECT_EQ(refusal(host.get(), &noMain), "'here' has no entry point 'morva'");
  EXPECT_THAT(refusal(host.get(), &noName), HasSubstr("no entry point 'morva'"));
  EXPECT_THAT(refusal(nullptr, &kLinked), AllOf(HasSubstr("no host"), HasSubstr("'morva'")));
  EXPECT_EQ(QZHostAttach(nullptr, nullptr, nullptr, 0), nullptr);
}

TEST(Attaching, ReadsTheEntryPointsDuringTheCallOnly) {
  const HostPtr host = makeHost();
  char name[] = "mine";
  QZEntryPoints entry{name, qzextver, morva::morva};
  MORVAExt *ext = QZHostAttach(host.get(), &entry, nullptr, 0);
  memset(name, 'x', 4);
  entry = {};
  MORVAInst *inst = makeInstance(ext);
  char error[256] = "";
  EXPECT_EQ(QZHostUnload(host.get(), ext, error, sizeof error), 1u);
  EXPECT_THAT(error, HasSubstr("'mine' still has instances"));
  inst->Destroy(inst);
  unload(host, ext);
}

TEST(Attaching, ALibraryWithoutANameIsPossible) {
  const HostPtr host = makeHost();
  const QZEntryPoints entry{nullptr, qzextver, morva::morva};
  MORVAExt *ext = QZHostAttach(host.get(), &entry, nullptr, 0);
  ASSERT_NE(ext, nullptr);
  EXPECT_TRUE(works(ext));
}

// ---- entry points that misbehave -------------------------------------------------

MORVAStatus wantsMore(HostServices *, int64_t *major, int64_t *minor) {
  *major = 6;
  *minor = 9;
  return MORVA_OK;
}
MORVAStatus answersNothing(HostServices *, int64_t *, int64_t *) {
  return MORVA_OK;
}
MORVAExt *answersNull(void *, void *) {
  return nullptr;
}

TEST(Attaching, ChecksTheVersionsToo) {
  const HostPtr host = makeHost();
  const QZEntryPoints newer{"newer", wantsMore, answersNull},
      silent{"silent", answersNothing, answersNull}, empty{"empty", qzextver, answersNull};
  EXPECT_THAT(refusal(host.get(), &newer), HasSubstr("'newer' needs host 6.9"));
  EXPECT_THAT(refusal(host.get(), &silent), HasSubstr("'silent' needs host 0.0"));
  EXPECT_THAT(refusal(host.get(), &empty), HasSubstr("'empty' answered no extension object"));
  EXPECT_EQ(statsOf(host).extensions, 0u);
  EXPECT_TRUE(works(attach(host)));
}

// ---- the linked library and its file ------------------------------------------------

TEST(Attaching, AnotherHostMayLoadTheFileMeanwhile) {
  const HostPtr first = makeHost(), second = makeHost(), third = makeHost();
  MORVAExt *a = attach(first), *b = load(second, kMorva), *c = load(third, kMorva);
  EXPECT_NE(a->Create, b->Create);
  EXPECT_NE(b->Create, c->Create);
  EXPECT_EQ(Exported_QZHandle, QZHostServices(first.get()));
  MORVAInst *instances[] = {makeInstance(a), makeInstance(b), makeInstance(c)};
  for (uint64_t round = 0; round < 5; ++round)
    for (MORVAInst *inst : instances) EXPECT_TRUE(works(inst, 100 * round, 100));
  for (const HostPtr *host : {&first, &second, &third}) EXPECT_EQ(statsOf(*host).locks, 1u);
  for (MORVAInst *inst : instances) inst->Destroy(inst);
  unload(second, b);
  EXPECT_EQ(Exported_QZHandle, QZHostServices(first.get()));
  EXPECT_TRUE(works(a));
  EXPECT_TRUE(works(c));
}

TEST(Attaching, TheSameHostLoadingTheFileSharesTheLinkedLibrary) {
  const HostPtr host = makeHost(), other = makeHost();
  MORVAExt *attached = attach(host), *loaded = load(host, kMorva);
  EXPECT_EQ(attached->Create, loaded->Create);
  unload(host, attached);
  EXPECT_TRUE(works(loaded));
  EXPECT_EQ(QZHostAttach(other.get(), &kLinked, nullptr, 0), nullptr);
  unload(host, loaded);
  EXPECT_TRUE(works(attach(other)));
}

TEST(Attaching, IsRefusedWhileAnotherHostHasLoadedTheFile) {
  HostPtr first = makeHost();
  const HostPtr second = makeHost();
  EXPECT_EQ(load(first, kMorva)->Create, &MORVACreate);
  EXPECT_THAT(refusal(second.get(), &kLinked), HasSubstr("another host"));
  first.reset();
  EXPECT_TRUE(works(attach(second)));
}

}  // namespace
}  // namespace host_test
