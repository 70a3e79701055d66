// A key of several fields: sales grouped by region and year. The table is told
// which members of a row are the key; rows are looked up as they are.
#include <algorithm>
#include <iostream>

#include "morva/morva.hpp"
#include "morva/throws.hpp"

namespace {

struct sale {
  char region[12];
  int year;
  double amount;
};

// Whatever the case of the letters and the blanks behind them.
constexpr auto region = morva::caseless<morva::padded<&sale::region>>;

using by_place_and_year = morva::composed<region, &sale::year>;

struct group {
  int sales = 0;
  double largest = 0;
};

using groups_of_sales = morva::table<by_place_and_year, group, morva::ordered, morva::throws>;

constexpr sale kSales[] = {
    {"North", 2025, 10.0}, {"south", 2025, 5.5},  {"NORTH", 2025, 2.0},
    {"north ", 2026, 8.0}, {"South", 2025, 30.0}, {"west", 2026, 1.0},
};

}  // namespace

int main(int argc, char **argv) try {
  const auto library = or_throw(morva::extension::load(argc > 1 ? argv[1] : "libmorva.so.1"));
  groups_of_sales groups(library);

  for (const sale &each : kSales) {
    group &its = groups[each];
    its.sales += 1;
    its.largest = std::max(its.largest, each.amount);
  }
  groups.erase(sale{"WEST", 2026, 0.0});

  for (auto [key, its] : groups) {
    std::cout << key.field<region>() << ' ' << key.field<&sale::year>() << ": " << its.sales
              << " sales, the largest " << its.largest << '\n';
  }
} catch (const std::exception &error) {
  std::cerr << error.what() << '\n';
  return 1;
}
