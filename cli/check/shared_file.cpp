#include "shared_file.h"

#include <dlfcn.h>

#include <exception>

namespace morva::cli::check {

SharedFile::SharedFile(const std::string &file)
    : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) throw Unmet(std::string("the file cannot be loaded: ") + dlerror());
}

SharedFile::~SharedFile() {
  // A library that is found at fault may end the process here; what was found is not told yet.
  if (std::uncaught_exceptions() == 0) dlclose(handle_);
}

void *SharedFile::find(const char *name) const {
  return dlsym(handle_, name);
}

void *SharedFile::need(const char *name) const {
  void *address = find(name);
  if (address == nullptr) throw Unmet(std::string("it does not export ") + name);
  return address;
}

}  // namespace morva::cli::check
