#include "world.h"

namespace morva_test {

const char *nameOf(Failing failing) {
  return failing == Failing::once ? "once" : "from then on";
}

void arm(RecordingHost &host, Failing failing, uint64_t n) {
  if (failing == Failing::once) {
    host.failNth(n);
  } else {
    host.failFromNth(n);
  }
}

World::World(const Shape &shape) : ext(std::make_unique<Extension>(host)) {
  table = std::make_unique<Table>(host, ext->get(), shape);
  other = std::make_unique<Table>(host, ext->get(), shape, "other");
  populate();
}

World::~World() {
  host.failNever();
  table.reset();
  other.reset();
  ext.reset();
}

void World::populate() {
  Table &t = *table;
  if (t.shape().has(flagSum)) t->SetSumInc(t.get(), 1.0);
  const auto key = [](int i) { return numbered(i < 10 ? "k0" : "k", i); };
  for (int i = 0; i < 16; i++) {
    content[key(i)] = numbered("d", i);
    EXPECT_EQ(t.add(key(i), content[key(i)]), MORVA_OK);
  }
  if (t.shape().has(flagMultiData)) {
    for (int i = 0; i < 15; i++) {
      for (int further = 0; further < (i == 0 ? 4 : 2); further++) {
        const std::string text = numbered("f", further);
        EXPECT_EQ(t.add(key(i), text), MORVA_OK);
        content[key(i)].append(" ").append(text);
      }
    }
  }
  EXPECT_EQ(t->freeRecords, nullptr);
  EXPECT_EQ(t->freeInodes, nullptr);
  if (t.shape().keys != Keys::var) {
    EXPECT_EQ(t.room(), 0) << "records";
  }
  if (t.shape().has(flagOrdered)) {
    EXPECT_EQ(t->inodesUsed, t->inodeBlockCapacity) << "order nodes";
  }
  host.forget();
}

void World::setAll(const std::string &text) {
  for (auto &[key, held] : content) held = text;
}

uint32_t World::elements() const {
  uint32_t count = 0;
  for (const auto &[key, text] : content) {
    if (text == kAbsent) continue;
    count++;
    for (char c : text) count += c == ' ';
  }
  return count;
}

void World::expectContent() {
  Table &t = *table;
  EXPECT_EQ(t->NumElements(t.get()), elements());
  for (const auto &[key, text] : content) {
    EXPECT_EQ(t.all(key), text) << key;
    if (!t.shape().has(flagSum)) continue;
    for (void *data : t.cursors(key)) EXPECT_EQ(t.sumOf(t.nodeOf(data)), 1.0) << key;
  }
}

void World::expectLocksBalanced(uint64_t unmatchedReleases) {
  EXPECT_EQ(host.locksHeld(), 0u);
  EXPECT_EQ(host.unmatchedReleases(), unmatchedReleases);
}

void World::expectNothingLeft() {
  if (table) {
    EXPECT_EQ(table->destroy(), MORVA_OK);
  }
  if (other) {
    EXPECT_EQ(other->destroy(), MORVA_OK);
  }
  table.reset();
  other.reset();
  ext.reset();
  host.checkGuards();
  for (const std::string &complaint : host.complaints()) ADD_FAILURE() << complaint;
  EXPECT_TRUE(host.nothingAlive()) << host.alive();
}

}  // namespace morva_test
