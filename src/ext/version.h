// The version numbers. MORVA_PROJECT_... come from the build, which has the
// project's version once.
#pragma once

namespace morva::core {

struct Version {
  int major, minor, patch;
};

inline constexpr Version kOwnVersion{MORVA_PROJECT_MAJOR, MORVA_PROJECT_MINOR, MORVA_PROJECT_PATCH};

// The host version the library requires.
inline constexpr Version kHostVersion{6, 1, 1};

}  // namespace morva::core
