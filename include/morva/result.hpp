/**
 * @file
 * A value, or the reason why there is none.
 *
 *   morva::result<bool> stored = orders.insert(17, order);
 *   if (!stored) complain(describe(stored.error()));
 *   else if (!*stored) ...                     // the key was there already
 *
 * A result that is not looked at is a warning. Asking a result for a value
 * that it does not hold is a mistake in the program, and ends it: test first,
 * or use the throwing layer of morva/throws.hpp.
 */
#ifndef MORVA_RESULT_HPP
#define MORVA_RESULT_HPP

#include <cstdlib>
#include <optional>
#include <type_traits>
#include <utility>

#include "morva/errc.hpp"

namespace morva {

/** A T, or an E. T may be a reference or void. Moves and copies as T does. */
template <class T, class E = errc>
class [[nodiscard]] result {
 public:
  using value_type = T;
  using error_type = E;

  constexpr result(T value) : value_(std::move(value)) {}
  constexpr result(E error) : error_(error) {}

  constexpr bool has_value() const noexcept { return value_.has_value(); }
  constexpr explicit operator bool() const noexcept { return has_value(); }

  /** The value; ends the program when there is none. */
  constexpr T &value() & { return *held(); }
  constexpr const T &value() const & { return *const_cast<result *>(this)->held(); }
  constexpr T &&value() && { return std::move(*held()); }

  constexpr T &operator*() & { return value(); }
  constexpr const T &operator*() const & { return value(); }
  constexpr T &&operator*() && { return std::move(*this).value(); }
  constexpr T *operator->() { return held(); }
  constexpr const T *operator->() const { return const_cast<result *>(this)->held(); }

  /** The value, or `otherwise`. */
  template <class U>
  constexpr T value_or(U &&otherwise) const & {
    return value_ ? *value_ : static_cast<T>(std::forward<U>(otherwise));
  }
  template <class U>
  constexpr T value_or(U &&otherwise) && {
    return value_ ? std::move(*value_) : static_cast<T>(std::forward<U>(otherwise));
  }

  /** Why there is no value; of no meaning when there is one. */
  constexpr const E &error() const noexcept { return error_; }

 private:
  constexpr T *held() {
    if (!value_) std::abort();
    return &*value_;
  }

  std::optional<T> value_;
  E error_{};
};

/** A reference, or an E. */
template <class T, class E>
class [[nodiscard]] result<T &, E> {
 public:
  using value_type = T &;
  using error_type = E;

  constexpr result(T &value) noexcept requires(!std::is_convertible_v<T &, E>) : value_(&value) {}
  constexpr result(std::in_place_t, T &value) noexcept : value_(&value) {}
  constexpr result(E error) : error_(error) {}

  constexpr bool has_value() const noexcept { return value_ != nullptr; }
  constexpr explicit operator bool() const noexcept { return has_value(); }

  /** The reference; ends the program when there is none. */
  constexpr T &value() const {
    if (value_ == nullptr) std::abort();
    return *value_;
  }
  constexpr T &operator*() const { return value(); }
  constexpr T *operator->() const { return &value(); }

  /** A copy of what is referred to, or `otherwise`. */
  template <class U>
  constexpr std::remove_const_t<T> value_or(U &&otherwise) const {
    using copy = std::remove_const_t<T>;
    return value_ != nullptr ? *value_ : static_cast<copy>(std::forward<U>(otherwise));
  }

  constexpr const E &error() const noexcept { return error_; }

 private:
  T *value_ = nullptr;
  E error_{};
};

/** Done, or an E. */
template <class E>
class [[nodiscard]] result<void, E> {
 public:
  using value_type = void;
  using error_type = E;

  constexpr result() noexcept : done_(true) {}
  constexpr result(E error) : error_(error) {}

  constexpr bool has_value() const noexcept { return done_; }
  constexpr explicit operator bool() const noexcept { return done_; }
  /** Ends the program when it was not done. */
  constexpr void value() const {
    if (!done_) std::abort();
  }
  constexpr const E &error() const noexcept { return error_; }

 private:
  bool done_ = false;
  E error_{};
};

}  // namespace morva

#endif
