// Doubly linked lists through members of their elements: linking allocates
// nothing and so cannot fail, unlinking is constant time. An element may be on
// several lists, one per Link member. Not synchronised.
#pragma once

#include <cstdint>

namespace qzhost {

template <class T>
struct Link {
  T *prev = nullptr;
  T *next = nullptr;
};

template <class T, Link<T> T::*link>
class List {
 public:
  T *first() const { return first_; }
  uint32_t count() const { return count_; }
  static T *next(const T *element) { return (element->*link).next; }

  void pushBack(T *element) {
    (element->*link) = {last_, nullptr};
    (last_ != nullptr ? (last_->*link).next : first_) = element;
    last_ = element;
    ++count_;
  }

  void pushFront(T *element) {
    (element->*link) = {nullptr, first_};
    (first_ != nullptr ? (first_->*link).prev : last_) = element;
    first_ = element;
    ++count_;
  }

  void remove(T *element) {
    Link<T> &at = element->*link;
    (at.prev != nullptr ? (at.prev->*link).next : first_) = at.next;
    (at.next != nullptr ? (at.next->*link).prev : last_) = at.prev;
    at = {};
    --count_;
  }

 private:
  T *first_ = nullptr;
  T *last_ = nullptr;
  uint32_t count_ = 0;
};

}  // namespace qzhost
