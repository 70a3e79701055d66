// Two tables that saw the same operations. Failures are reported through GoogleTest.
#pragma once

#include "table_driver.h"

namespace morva_test {

// The instances are equal as long as they have seen the same operations, and
// not when one byte differs.
void compareTwins(TableDriver &table, TableDriver &twin, bool variableKeys);

// As many records in both, but in chains of other lengths. The tables are of
// no use afterwards.
void compareOtherChains(TableDriver &table, TableDriver &twin);

// The host has the blocks and the unmatched releases that both tables account for.
void checkPools(HostUnderTest &host, const TableDriver &table, const TableDriver &twin);

}  // namespace morva_test
