// What the program tells about itself.
#pragma once

#include <string>

namespace morva::cli {

// The overview, or the help of a command.
std::string helpText(const std::string &topic);

}  // namespace morva::cli
