// One check of a library that somebody else made, and how it says what is wrong.
#pragma once

#include <cstdint>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>

namespace morva::cli::check {

// What is checked.
struct Subject {
  // The file, as dlopen is to be given it.
  std::string file;
  // The extension that a host under check is driven with.
  std::string library;
};

// A check is a process of its own: it starts with nothing loaded, may crash and hang, and need not
// clean up. It comes back when the promise is kept and throws when it is not.
struct Check {
  // "subject.promise", in small letters with hyphens; what --only takes. Never changes its meaning.
  const char *name;
  // What the library under check owes its users, as a sentence.
  const char *promise;
  void (*run)(const Subject &subject);
  // Without it nothing else makes sense: the checks after one that fails are not run.
  bool gate = false;
};

// A promise that is not kept. The text says what was seen and what was to be seen.
class Unmet : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The library under check does not offer what the check is about, and need not.
class NotApplicable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Not to be called below a function of the library under check, which cannot be thrown through.
inline void expect(bool condition, const std::string &complaint) {
  if (!condition) throw Unmet(complaint);
}

template <class Value>
std::string shown(const Value &value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// A status or another number that means more in hexadecimal.
std::string shownStatus(uint32_t status);

template <class Value>
void expectEqual(const Value &actual, const Value &expected, const std::string &what) {
  if (actual == expected) return;
  throw Unmet(what + " is " + shown(actual) + " and should be " + shown(expected));
}

// As expectEqual; the values are shown as statuses are written down.
void expectStatus(uint32_t actual, uint32_t expected, const std::string &what);

}  // namespace morva::cli::check
