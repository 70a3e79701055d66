// Keys that all fall into one bucket, under each hash method: they are stored,
// found and removed, and the bucket's tree stays as low as it promises.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "keys.h"
#include "table_shape.h"
#include "test_hosts.h"
#include "tree_height.h"
#include "tree_walk.h"

namespace morva_test {
namespace {

using bench::hostile::collidingTails;
using bench::hostile::heightBound;
using bench::hostile::kFirstMethod;
using bench::hostile::kLastMethod;
using bench::hostile::sharedBits;
using bench::hostile::sizeOf;

constexpr size_t kKeys = 5000;

struct Attack {
  uint32_t method;
  uint32_t length;
};

std::vector<std::string> keysOf(const Attack &attack) {
  std::vector<std::string> keys;
  for (const bench::hostile::Tail &tail : collidingTails(attack.method, attack.length, kKeys)) {
    keys.push_back(std::string(attack.length - tail.size(), '\0') +
                   std::string(tail.begin(), tail.end()));
  }
  return keys;
}

class HostileKeys : public ::testing::TestWithParam<uint32_t> {
 protected:
  void expectLowTree(const Attack &attack, const std::vector<std::string> &keys);
};

INSTANTIATE_TEST_SUITE_P(Method, HostileKeys, ::testing::Range(kFirstMethod, kLastMethod + 1));

void HostileKeys::expectLowTree(const Attack &attack, const std::vector<std::string> &keys) {
  ASSERT_EQ(keys.size(), kKeys);
  TableShape shape;
  shape.flags = flagNoLock;
  shape.keyLength = attack.length;
  shape.hashMethod = static_cast<int32_t>(attack.method);
  shape.hashExp = static_cast<int32_t>(std::min(sharedBits(attack.method), 16U));
  const auto host = makeHost(HostKind::embedded);
  MORVAInst *inst = makeInstance(host->ext(), shape);
  ASSERT_NE(inst, nullptr);

  const auto length = static_cast<int32_t>(attack.length);
  uint32_t bucket = 0;
  ASSERT_EQ(inst->HashVal(inst, keys[0].data(), length, &bucket), MORVA_OK);
  const std::string data(shape.dataLength, 'd');
  for (const std::string &key : keys) {
    uint32_t its = UINT32_MAX;
    ASSERT_EQ(inst->HashVal(inst, key.data(), length, &its), MORVA_OK);
    ASSERT_EQ(its, bucket);
    ASSERT_EQ(inst->Add(inst, data.data(), key.data(), length), MORVA_OK) << "a key came twice";
  }
  const auto expectSound = [&](size_t records) {
    EXPECT_EQ(inst->BucketSize(inst, bucket), records);
    RecordNode *root = MORVABucketAt(inst->buckets, bucket)->root;
    const auto size = sizeOf(root);
    EXPECT_EQ(size.nodes, records);
    EXPECT_LE(static_cast<double>(size.height), heightBound(records));
    std::vector<RecordNode *> nodes;
    EXPECT_EQ(walkTree(root, inst, shape, &nodes), "");
    EXPECT_EQ(nodes.size(), records);
  };
  expectSound(kKeys);
  for (size_t i = 0; i < kKeys; i += 2) {
    ASSERT_EQ(inst->Remove(inst, keys[i].data(), length), MORVA_OK);
  }
  expectSound(kKeys / 2);
  for (size_t i = 0; i < kKeys; ++i) {
    void *found = inst;
    ASSERT_EQ(inst->Find(inst, keys[i].data(), length, &found), MORVA_OK);
    EXPECT_EQ(found != nullptr, i % 2 == 1);
  }
  EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
  EXPECT_EQ(host->close(), "");
}

TEST_P(HostileKeys, OfEightBytesLeaveTheTreeOfTheirBucketLow) {
  const Attack attack{GetParam(), 8};
  std::vector<std::string> keys = keysOf(attack);
  expectLowTree(attack, keys);
  // In the order of the tree, and the other way around.
  std::sort(keys.begin(), keys.end(), KeyOrder());
  expectLowTree(attack, keys);
  std::reverse(keys.begin(), keys.end());
  expectLowTree(attack, keys);
}

TEST_P(HostileKeys, OfSixteenBytesLeaveTheTreeOfTheirBucketLow) {
  const Attack attack{GetParam(), 16};
  expectLowTree(attack, keysOf(attack));
}

}  // namespace
}  // namespace morva_test
