// The commands of the program. Each throws Error when it cannot do its work.
#pragma once

#include "options.h"

namespace morva::cli {

void runCount(const Options &options);
void runSum(const Options &options);
void runDistinct(const Options &options);
void runJoin(const Options &options);
void runGenerate(const Options &options);
void runCheckExtension(const Options &options);
void runCheckHost(const Options &options);
void runHelp(const Options &options);
void runVersion(const Options &options);

// What messages call the standard output.
constexpr const char *kStandardOutput = "standard output";

}  // namespace morva::cli
