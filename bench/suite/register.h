// Puts contenders into the registry, with every workload they do.
#pragma once

#include "contender.h"
#include "workloads/groups.h"
#include "workloads/latency.h"
#include "workloads/one_bucket.h"
#include "workloads/points.h"
#include "workloads/records.h"
#include "workloads/threads.h"

namespace bench {

template <class Contender, class Keys, class Workload>
void registerOne(const char *family) {
  if constexpr (Contender::template takes<typename Keys::Key> &&
                (Contender::does & Workload::family) != 0) {
    registry().push_back(
        {family, Keys::name, Contender::name, &Workload::template run<Contender, Keys>});
  }
}

template <class Contender, class Keys>
void registerKeys() {
  registerOne<Contender, Keys, Points>(Points::name);
  registerOne<Contender, Keys, OneBucket>(OneBucket::name);
  registerOne<Contender, Keys, Groups>(Groups::name);
  registerOne<Contender, Keys, SeveralRecords>(SeveralRecords::name);
  registerOne<Contender, Keys, Latency<false>>(Latency<false>::name);
  registerOne<Contender, Keys, Latency<true>>(Latency<true>::nameWhenTold);
  registerOne<Contender, Keys, TwoThreads>(TwoThreads::name);
}

template <class... Contender>
bool registerAll(ContenderList<Contender...>) {
  ((registerKeys<Contender, NumberKeys>(), registerKeys<Contender, TextKeys>(),
    registerKeys<Contender, IndexKeys>()),
   ...);
  return true;
}

}  // namespace bench
