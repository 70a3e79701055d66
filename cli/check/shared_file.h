// A library under check, loaded.
#pragma once

#include <string>

#include "check.h"

namespace morva::cli::check {

class SharedFile {
 public:
  // Throws Unmet with the loader's words. `file` as in Subject.
  explicit SharedFile(const std::string &file);
  ~SharedFile();
  SharedFile(const SharedFile &) = delete;
  SharedFile &operator=(const SharedFile &) = delete;

  // Null when the library does not export the name.
  void *find(const char *name) const;
  // The same for a function or an object of a known type. Throws Unmet when it is not there.
  template <class Pointer>
  Pointer get(const char *name) const {
    return reinterpret_cast<Pointer>(need(name));
  }

 private:
  void *need(const char *name) const;

  void *handle_;
};

}  // namespace morva::cli::check
