// The pools of a host: the public table in front of a BlockPool.
//
// A pool made with option 0 ("MORVA Extension", "inodes", and whatever a caller
// makes) may be used from several threads and serialises itself. The others are
// used under their instance's lock; their allocate and free take no lock at all
// and are separate entries of the table, so that no call has to ask.
#pragma once

#include <mutex>
#include <type_traits>

#include "block_pool.h"
#include "intrusive_list.h"
#include "morva/host_pool.h"
#include "morva/host_services.h"

struct QZHost;

namespace qzhost {

struct Pool {
  Pool(QZHost *host, const PoolOptions *options, void *context, const char *name);

  HostPool table;
  QZHost *host;
  Link<Pool> link;
  // The context word the pool was made with; tells whose "MORVA Extension" it is.
  void *context;
  // All blocks are zero filled.
  bool zeroFill;
  char name[32]{};
  // Taken by pools made with option 0 only.
  std::mutex mutex;
  BlockPool blocks;
};
static_assert(std::is_standard_layout_v<Pool>, "a pool is its table");

// HostServices.createPool.
HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                     const char *name);

// Takes a pool off its host's list and frees it; HostPool.destroy.
void destroyPool(HostPool *table);

}  // namespace qzhost
