/**
 * @file
 * The throwing layer, for programs that want it: nothing else of the interface
 * includes this header or throws.
 *
 *   auto morva = morva::or_throw(morva::extension::load());
 *   morva::table<std::string_view, long, morva::throws> words(morva);
 *   ++words["pear"];
 *
 * What is thrown: std::bad_alloc for no_memory, std::out_of_range for
 * not_found, morva::failure for everything else. It is thrown after the call
 * of the library has come back, so nothing passes through C code, and the
 * table is as it was before the call.
 */
#ifndef MORVA_THROWS_HPP
#define MORVA_THROWS_HPP

#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "morva/extension.hpp"
#include "morva/options.hpp"
#include "morva/result.hpp"

namespace morva {

/** The category of std::error_code for morva::errc; its name is "morva". */
inline const std::error_category &error_category() noexcept {
  struct category final : std::error_category {
    const char *name() const noexcept override { return "morva"; }
    std::string message(int error) const override {
      return std::string(describe(static_cast<errc>(error)));
    }
  };
  static const category one;
  return one;
}

inline std::error_code make_error_code(errc error) noexcept {
  return {static_cast<int>(error), error_category()};
}

/** What is thrown for errors that have no standard exception; what() is a sentence. */
class failure : public std::runtime_error {
 public:
  explicit failure(errc error) : failure(error, std::string(describe(error))) {}
  failure(errc error, const std::string &sentence) : std::runtime_error(sentence), error_(error) {}

  errc error() const noexcept { return error_; }
  std::error_code code() const noexcept { return make_error_code(error_); }

 private:
  errc error_;
};

/** Throws what stands for `error`. */
[[noreturn]] inline void raise(errc error) {
  if (error == errc::no_memory) throw std::bad_alloc();
  if (error == errc::not_found) throw std::out_of_range(std::string(describe(error)));
  throw failure(error);
}

/** Throws what stands for `error`, with its sentence. */
[[noreturn]] inline void raise(const load_failure &error) {
  if (error.code == errc::no_memory) throw std::bad_alloc();
  throw failure(error.code, std::string(error.sentence()));
}

/** The value of a result; throws when there is none. */
template <class T, class E>
T or_throw(result<T, E> &&answer) {
  if (!answer) raise(answer.error());
  if constexpr (std::is_reference_v<T>) {
    return *answer;
  } else if constexpr (!std::is_void_v<T>) {
    return *std::move(answer);
  }
}
/** The same in place. */
template <class T, class E>
decltype(auto) or_throw(const result<T, E> &answer) {
  if (!answer) raise(answer.error());
  return answer.value();
}

/** The feature: operations answer values, and throw where others answer errors. */
struct throws {};

namespace detail {

template <>
struct answers<throws> {
  template <class T>
  using type = T;

  template <class T>
  static T give(result<T> answer) {
    return or_throw(std::move(answer));
  }
};

}  // namespace detail
}  // namespace morva

template <>
struct std::is_error_code_enum<morva::errc> : std::true_type {};

#endif
