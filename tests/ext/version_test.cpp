// The version queries of the extension object and the version record.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "recording_host.h"

namespace morva_test {
namespace {

struct Numbers {
  int64_t a = -77, b = -77, c = -77;
  friend bool operator==(const Numbers &, const Numbers &) = default;
};

TEST(VersionQueries, RequiredHostVersionIsSixOneOne) {
  RecordingHost host;
  Extension ext(host);
  Numbers got;
  EXPECT_EQ(ext->GetReqVersion(ext.get(), &got.a, &got.b, &got.c), MORVA_OK);
  EXPECT_EQ(got, (Numbers{6, 1, 1}));
}

TEST(VersionQueries, OwnVersionIsOneZeroThree) {
  RecordingHost host;
  Extension ext(host);
  Numbers got;
  EXPECT_EQ(ext->GetVersion(ext.get(), &got.a, &got.b, &got.c), MORVA_OK);
  EXPECT_EQ(got, (Numbers{1, 0, 3}));
}

TEST(VersionQueries, AnswerWhateverTheExtensionObjectIs) {
  MORVAExt blank = {};
  for (MORVAExt *ext : {static_cast<MORVAExt *>(nullptr), &blank}) {
    Numbers required;
    EXPECT_EQ(MORVAGetReqVersion(ext, &required.a, &required.b, &required.c), MORVA_OK);
    EXPECT_EQ(required, (Numbers{6, 1, 1}));
    Numbers own;
    EXPECT_EQ(MORVAGetVersion(ext, &own.a, &own.b, &own.c), MORVA_OK);
    EXPECT_EQ(own, (Numbers{1, 0, 3}));
  }
}

TEST(VersionQueries, NullPlacesAreLeftOutAndTheOthersStillWritten) {
  for (int missing = 0; missing != 8; ++missing) {
    Numbers required;
    EXPECT_EQ(MORVAGetReqVersion(nullptr, (missing & 1) != 0 ? nullptr : &required.a,
                                 (missing & 2) != 0 ? nullptr : &required.b,
                                 (missing & 4) != 0 ? nullptr : &required.c),
              MORVA_OK);
    EXPECT_EQ(required.a, (missing & 1) != 0 ? -77 : 6);
    EXPECT_EQ(required.b, (missing & 2) != 0 ? -77 : 1);
    EXPECT_EQ(required.c, (missing & 4) != 0 ? -77 : 1);
    Numbers own;
    EXPECT_EQ(MORVAGetVersion(nullptr, (missing & 1) != 0 ? nullptr : &own.a,
                              (missing & 2) != 0 ? nullptr : &own.b,
                              (missing & 4) != 0 ? nullptr : &own.c),
              MORVA_OK);
    EXPECT_EQ(own.a, (missing & 1) != 0 ? -77 : 1);
    EXPECT_EQ(own.b, (missing & 2) != 0 ? -77 : 0);
    EXPECT_EQ(own.c, (missing & 4) != 0 ? -77 : 3);
  }
}

TEST(VersionQueries, CallNothingOfTheHost) {
  RecordingHost host;
  Extension ext(host);
  host.forget();
  Numbers got;
  ext->GetReqVersion(ext.get(), &got.a, &got.b, &got.c);
  ext->GetVersion(ext.get(), &got.a, &got.b, &got.c);
  EXPECT_EQ(host.story(), "");
}

TEST(VersionRecord, FillsExactlyTwoHundredAndEightBytes) {
  // Two different backgrounds tell written bytes from left ones.
  std::array<std::array<unsigned char, 208 + 32>, 2> buffers;
  for (size_t i = 0; i != 2; ++i) {
    buffers[i].fill(i == 0 ? 0x11 : 0xEE);
    MORVAVersionRecord *record = reinterpret_cast<MORVAVersionRecord *>(buffers[i].data() + 16);
    qzvercn1(record);
  }
  for (size_t at = 0; at != buffers[0].size(); ++at) {
    const bool inside = at >= 16 && at < 16 + 208;
    EXPECT_EQ(buffers[0][at] == buffers[1][at], inside) << at;
  }
}

TEST(VersionRecord, AgreesWithTheVersionQueries) {
  MORVAVersionRecord record;
  std::memset(&record, 0xEE, sizeof record);
  qzvercn1(&record);
  Numbers own, required;
  MORVAGetVersion(nullptr, &own.a, &own.b, &own.c);
  MORVAGetReqVersion(nullptr, &required.a, &required.b, &required.c);
  EXPECT_EQ((Numbers{record.major, record.minor, record.patch}), own);
  EXPECT_EQ((Numbers{record.hostMajor, record.hostMinor, record.hostPatch}), required);
}

TEST(VersionRecord, NamesTheProductInPaddedTextFields) {
  MORVAVersionRecord record;
  std::memset(&record, 0xEE, sizeof record);
  qzvercn1(&record);
  EXPECT_EQ(std::string(record.eyeCatcher, 4), "nevo");
  EXPECT_EQ(record.recordVersion, 1u);
  EXPECT_EQ(std::string(record.product, sizeof record.product),
            std::string("morva") + std::string(sizeof record.product - 5, '\0'));
  EXPECT_EQ(std::string(record.version, sizeof record.version),
            std::string("1.0.3") + std::string(sizeof record.version - 5, '\0'));
  const char *compilerEnd = record.compiler + sizeof record.compiler;
  const char *terminator = std::find(static_cast<const char *>(record.compiler), compilerEnd, '\0');
  EXPECT_GT(terminator - record.compiler, 0);
  EXPECT_LT(terminator, compilerEnd);
  EXPECT_TRUE(std::all_of(terminator, compilerEnd, [](char c) { return c == 0; }));
  EXPECT_TRUE(std::all_of(record.reserved, record.reserved + sizeof record.reserved,
                          [](char c) { return c == 0; }));
}

TEST(VersionRecord, NullBufferIsLeftAlone) {
  qzvercn1(nullptr);
  MORVAVersionRecord record = {};
  qzvercn1(&record);
  EXPECT_EQ(record.major, 1u);
}

}  // namespace
}  // namespace morva_test
