// Everything that is asked of a host, by subject.
#pragma once

#include <span>

#include "check.h"

namespace morva::cli::check {

// All of it; the gates first.
std::span<const Check> hostChecks();

std::span<const Check> hostGateChecks();
std::span<const Check> hostServiceChecks();
std::span<const Check> hostCompanionChecks();
std::span<const Check> hostPoolChecks();
std::span<const Check> hostLockChecks();
std::span<const Check> hostPackerChecks();
std::span<const Check> hostTreeChecks();
std::span<const Check> hostLockedTreeChecks();
std::span<const Check> hostOrderChecks();
std::span<const Check> hostLimitChecks();
std::span<const Check> hostLeakChecks();
std::span<const Check> hostTableChecks();
std::span<const Check> hostSharedTableChecks();

}  // namespace morva::cli::check
