// Tables of the C++ interface, for the debugger to look at. The types have names it can be told.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string_view>

#include "morva/morva.hpp"
#include "morva/throws.hpp"

namespace seen {

enum class color : std::uint32_t { red = 1, green = 2 };

struct point {
  std::int32_t x;
  std::int32_t y;
};

struct nothing {};

struct row {
  char city[6];
  std::int32_t year;
};

}  // namespace seen

void look();
void look() {}

using namespace seen;

int main(int argc, char **argv) {
  if (argc != 2) return 1;
  using morva::throws;
  try {
    const auto ext = morva::or_throw(morva::extension::load(argv[1]));
    morva::table<color, point, throws> points(ext, {.name = "points", .expected = 1});
    morva::table<morva::text<8>, double, morva::duplicates, throws> names(ext, {.expected = 1});
    morva::table<std::string_view, nothing, throws> words(ext, {.name = "words"});
    morva::table<morva::composed<&row::city, &row::year>, int, throws> places(ext);
    morva::table<int, int> none;
    auto &same = points;
    same.insert(color::red, {1, 2});
    points.insert(color::green, {3, 4});
    names.insert("ann", 0.5);
    names.insert("ann", 1.5);
    words.insert("a word");
    places.insert({"Rome", 753}, 7);
    look();
    return none ? 1 : 0;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
