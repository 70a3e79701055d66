#include "host_checks.h"

#include <vector>

namespace morva::cli::check {

std::span<const Check> hostChecks() {
  static const std::vector<Check> all = [] {
    std::vector<Check> list;
    for (const auto subject :
         {hostGateChecks, hostServiceChecks, hostCompanionChecks, hostPoolChecks, hostLockChecks,
          hostPackerChecks, hostTreeChecks, hostLockedTreeChecks, hostOrderChecks, hostLimitChecks,
          hostLeakChecks, hostTableChecks, hostSharedTableChecks}) {
      const std::span<const Check> checks = subject();
      list.insert(list.end(), checks.begin(), checks.end());
    }
    return list;
  }();
  return all;
}

}  // namespace morva::cli::check
