// The version record of the build. It names no date and no machine, so that a
// rebuild of the same sources gives the same bytes.
#include "ext/version.h"

#include <cstring>

#include "morva/ext.h"

#define MORVA_TEXT_OF(number) #number
#define MORVA_TEXT(number) MORVA_TEXT_OF(number)
#define MORVA_DOTTED(a, b, c) MORVA_TEXT(a) "." MORVA_TEXT(b) "." MORVA_TEXT(c)

// The numbers only: what compilers call their versions can be any length.
#if defined(__clang__)
#define MORVA_COMPILER "clang " MORVA_DOTTED(__clang_major__, __clang_minor__, __clang_patchlevel__)
#else
#define MORVA_COMPILER "gcc " MORVA_DOTTED(__GNUC__, __GNUC_MINOR__, __GNUC_PATCHLEVEL__)
#endif

namespace {

using morva::core::kHostVersion;
using morva::core::kOwnVersion;

constexpr MORVAVersionRecord kRecord{
    .eyeCatcher = {'n', 'e', 'v', 'o'},
    .recordVersion = 1,
    .major = kOwnVersion.major,
    .minor = kOwnVersion.minor,
    .patch = kOwnVersion.patch,
    .hostMajor = kHostVersion.major,
    .hostMinor = kHostVersion.minor,
    .hostPatch = kHostVersion.patch,
    .product = "morva",
    .version = MORVA_DOTTED(MORVA_PROJECT_MAJOR, MORVA_PROJECT_MINOR, MORVA_PROJECT_PATCH),
    .compiler = MORVA_COMPILER,
    .reserved = {},
};

}  // namespace

extern "C" void qzvercn1(MORVAVersionRecord *buffer) {
  if (buffer != nullptr) std::memcpy(buffer, &kRecord, sizeof kRecord);
}
