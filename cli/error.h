// What ends the program early.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace morva::cli {

constexpr int kStatusError = 1;
constexpr int kStatusUsage = 2;

// Something went wrong with the data, the library or the machine: exit status 1.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One row is bad and the next one can be read: an Error unless bad rows are skipped.
class RowError : public Error {
 public:
  using Error::Error;
};

// A field cannot be carried by the format that is written.
class UnwritableField : public Error {
 public:
  using Error::Error;
};

// The pools of the host have no memory left.
class OutOfMemory : public Error {
 public:
  using Error::Error;
};

// The program was called wrongly: exit status 2. `topic` is what to ask the help for, may be empty.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string &text, std::string topic = {})
      : std::runtime_error(text), topic_(std::move(topic)) {}
  const std::string &topic() const { return topic_; }

 private:
  std::string topic_;
};

}  // namespace morva::cli
