/**
 * @file
 * The whole C++ interface but the throwing layer, which a program that wants
 * it includes itself (morva/throws.hpp). Start with table.hpp; link libqzhost,
 * and libmorva unless it is loaded from a file.
 */
#ifndef MORVA_MORVA_HPP
#define MORVA_MORVA_HPP

#include "morva/composed.hpp"
#include "morva/cursor.hpp"
#include "morva/errc.hpp"
#include "morva/extension.hpp"
#include "morva/guard.hpp"
#include "morva/host.hpp"
#include "morva/key.hpp"
#include "morva/options.hpp"
#include "morva/partition.hpp"
#include "morva/partition_hash.hpp"
#include "morva/partitioned_cursor.hpp"
#include "morva/partitioned_reader.hpp"
#include "morva/partitioned_table.hpp"
#include "morva/reader.hpp"
#include "morva/result.hpp"
#include "morva/table.hpp"

#endif
