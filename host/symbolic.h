// Makes a copy of a shared library refer to itself.
#pragma once

#include <cstddef>

namespace qzhost {

// Marks the ELF image so that the system looks for its symbols in the image
// before anywhere else. Without the mark a private copy of a library that the
// program itself is linked with would use the program's: its service table
// pointer, its operations, its callbacks.
//
// `image` is the file, writable. False, and nothing changed, when it is no
// 64-bit little-endian ELF library or has no place for the mark.
bool bindToItself(void *image, size_t bytes);

}  // namespace qzhost
