// A program of somebody else's, in C++: word lengths in a table on the embedded
// host. Compiled with CONSUMER_LINKED it uses the library it is linked with;
// else it loads the file that the first argument names, or libmorva.so.1.
#include <cstdio>
#include <string>
#include <string_view>

#include "morva/morva.hpp"

namespace {

using lengths = morva::table<std::string_view, std::size_t, morva::ordered>;

int problem(std::string_view what, std::string_view word = "") {
  std::fprintf(stderr, "consumer: %.*s %.*s\n", static_cast<int>(what.size()), what.data(),
               static_cast<int>(word.size()), word.data());
  return 1;
}

morva::extension::made open([[maybe_unused]] int argc, [[maybe_unused]] char **argv) {
#ifdef CONSUMER_LINKED
  return morva::extension::linked();
#else
  return morva::extension::load(argc > 1 ? argv[1] : "libmorva.so.1");
#endif
}

int use(lengths &table) {
  const std::string words[] = {"one", "three", "seventeen", std::string(3000, 'x')};
  for (const std::string &word : words) {
    const auto stored = table.insert(word, word.size());
    if (!stored) return problem(describe(stored.error()), word);
    if (!*stored) return problem("was there already:", word);
  }
  const std::string *expected = words;
  for (const auto [word, length] : table) {
    if (word != *expected++) return problem("out of order:", word);
    if (length != word.size()) return problem("found with the wrong data:", word);
  }
  if (table.contains("two")) return problem("found what is not there:", "two");
  return table.size() == std::size(words) ? 0 : problem("wrong number of records");
}

}  // namespace

int main(int argc, char **argv) {
  const auto library = open(argc, argv);
  if (!library) return problem(library.error().sentence());
  auto table = lengths::make(*library, {.name = "consumer"});
  if (!table) return problem(describe(table.error()));
  const int status = use(*table);
  if (status == 0) std::puts("consumer: all as expected");
  return status;
}
