// Everything that is asked of an extension.
#pragma once

#include <span>

#include "check.h"

namespace morva::cli::check {

// The gates first.
std::span<const Check> extensionChecks();

}  // namespace morva::cli::check
