#include "commands.h"
#include "grouping.h"

namespace morva::cli {

// A count is a sum of ones.
void runCount(const Options &options) {
  Grouping groups(options, {});
  while (groups.next()) groups.add(1);
  groups.finish("count");
}

}  // namespace morva::cli
