#include "shared_file.h"

#include <dlfcn.h>

namespace morva::cli::check {

SharedFile::SharedFile(const std::string &file)
    : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) throw Unmet(std::string("the file cannot be loaded: ") + dlerror());
}

SharedFile::~SharedFile() {
  dlclose(handle_);
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
