#!/bin/sh
# guide_test.sh COMPILER SOURCE_DIR LIBRARY_DIR WORK_DIR
# The pieces of code in docs/cpp.md, put together, are a program that runs.
set -eu
compiler=$1 source=$2 libraries=$3 work=$4
mkdir -p "$work"

{
  cat <<'HEAD'
#undef NDEBUG
#include <cassert>
#include <iostream>
#include <string_view>

#include "morva/morva.hpp"
#include "morva/throws.hpp"

static int complain(std::string_view why) {
  std::cerr << why << '\n';
  return 1;
}

int main() {
HEAD
  awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/docs/cpp.md"
  echo '}'
} >"$work/guide.cpp"

"$compiler" -std=c++20 -Wall -Wextra -Werror -I"$source/include" "$work/guide.cpp" \
  -L"$libraries" -lqzhost -Wl,-rpath,"$libraries" -o "$work/guide"
"$work/guide"
