#include <cstdio>
#include <iostream>
#include <string>

#include "morva/morva.hpp"
#include "morva/throws.hpp"

// Counts the words of standard input, and prints them in the order they first came.
int main(int argc, char **argv) try {
  const auto library = or_throw(morva::extension::load(argc > 1 ? argv[1] : "libmorva.so.1"));
  morva::table<std::string_view, long, morva::ordered, morva::throws> words(library);
  for (std::string word; std::cin >> word;) ++words[word];
  for (auto [word, count] : words) std::cout << count << ' ' << word << '\n';
} catch (const std::exception &error) {
  return std::fprintf(stderr, "%s\n", error.what()), 1;
}
