// What loading, creation and definition ask the host for, in order: where they can fail.
#pragma once

#include <vector>

#include "fault_host.h"

namespace fault_test {

Sequence sequenceOfLoading();
// Also of option bits that are refused: up to the refusal.
Sequence sequenceOfCreation(uint32_t flags, bool hasName);
// DefineKey for each field, then DefineDone.
Sequence sequenceOfDefinition(size_t fields);
Sequence sequenceOfCopying();

// Whether a creation that fails there leaves the lock it has made to the host.
bool leavesTheLock(Asked asked);

// Every field kind alone, text with and without its option, all kinds together, and no field.
const std::vector<std::vector<MORVAKeyDesc>> &definitions();

}  // namespace fault_test
