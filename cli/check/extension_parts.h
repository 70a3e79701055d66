// The checks of an extension, by subject; each part is in the file of its name.
#pragma once

#include <span>

#include "check.h"

namespace morva::cli::check {

std::span<const Check> entryChecks();
std::span<const Check> createChecks();
std::span<const Check> defineChecks();
std::span<const Check> keyChecks();
std::span<const Check> storeChecks();
std::span<const Check> lookupChecks();
std::span<const Check> duplicateChecks();
std::span<const Check> sumChecks();
std::span<const Check> orderChecks();
std::span<const Check> clearChecks();
std::span<const Check> accessorChecks();
std::span<const Check> equalityChecks();
std::span<const Check> hashChecks();
std::span<const Check> treeChecks();
std::span<const Check> recordChecks();
std::span<const Check> lockChecks();
std::span<const Check> memoryChecks();
std::span<const Check> togetherChecks();
std::span<const Check> routineChecks();
std::span<const Check> randomChecks();

}  // namespace morva::cli::check
