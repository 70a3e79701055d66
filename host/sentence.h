// Where an error sentence goes: a caller's buffer of any size, or none.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace qzhost {

class Sentence {
 public:
  Sentence(char *buffer, size_t size) : buffer_(size != 0 ? buffer : nullptr), size_(size) {}

  // Writes the sentence, cut to the buffer.
  __attribute__((format(printf, 2, 3))) void say(const char *format, ...) const {
    if (buffer_ == nullptr) return;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer_, size_, format, arguments);
    va_end(arguments);
  }

 private:
  char *buffer_;
  size_t size_;
};

}  // namespace qzhost
