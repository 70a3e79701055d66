// The recording host, by the name that the tests know it by.
#pragma once

#include "../../recording/recording_host.h"

namespace morva_test {

using namespace morva::recording;

}  // namespace morva_test
