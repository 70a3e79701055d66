// Order, duplicates and sums, without exceptions: every sale is kept under its
// customer, in the order it came, and each customer carries a running total.
#include <iostream>
#include <string_view>

#include "morva/morva.hpp"

namespace {

struct sale {
  int number;
  double amount;
};

// Up to 16 bytes of text as the key: names of any length would exclude sums.
using sales_by_customer =
    morva::table<morva::text<16>, sale, morva::ordered, morva::duplicates, morva::sums>;

struct line {
  std::string_view customer;
  sale what;
};

constexpr line kLines[] = {
    {"pear & co", {1, 12.5}}, {"apple ltd", {2, 20.0}},  {"pear & co", {3, 7.5}},
    {"fig gmbh", {4, 3.25}},  {"apple ltd", {5, -20.0}}, {"pear & co", {6, 1.0}},
};

int fail(std::string_view why) {
  std::cerr << why << '\n';
  return 1;
}

}  // namespace

int main(int argc, char **argv) {
  auto library = morva::extension::load(argc > 1 ? argv[1] : "libmorva.so.1");
  if (!library) return fail(library.error().sentence());
  auto made = sales_by_customer::make(*library, {.name = "sales", .expected = 100});
  if (!made) return fail(describe(made.error()));
  sales_by_customer &sales = *made;

  for (const auto &[customer, what] : kLines) {
    if (auto stored = sales.insert(customer, what); !stored) return fail(describe(stored.error()));
    // The key's first record carries its sum.
    if (auto sum = sales.add_to_sum(customer, what.amount); !sum) {
      return fail(describe(sum.error()));
    }
  }

  // A key too long is refused, and changes nothing.
  const auto refused = sales.insert("a customer with a long name", {7, 1.0});
  std::cout << "a long name: " << (refused ? "stored" : describe(refused.error())) << '\n';

  // Sale 5 took sale 2 back: remove both. Cursors go through the records of a key.
  for (auto at = sales.find("apple ltd"); at;) {
    auto next = sales.erase(at);
    if (!next) return fail(describe(next.error()));
    at = *next;
  }

  // Records are read and written in place.
  for (auto at : sales.equal_range("pear & co")) at.data.number += 100;

  for (auto at = sales.begin(); at != sales.end(); ++at) {
    std::cout << at->key << ": sale " << at->data.number << ", " << at->data.amount << '\n';
  }
  std::cout << "pear & co in all: " << sales.sum("pear & co") << '\n';
}
