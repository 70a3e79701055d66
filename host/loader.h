// Extensions: loading, checking and releasing them (QZHostLoad, QZHostAttach,
// QZHostUnload).
//
// An extension is a use of a copy of its library (copies.h) and the extension
// object that its entry function answered. The entry function's context word is
// the address of the Extension: the pool the library makes with it is thereby
// known as the extension's, also when the entry function fails afterwards.
//
// A program may call RealDestroy on an extension object itself. Its record here
// then stays, without object and pool, and keeps the library loaded, whose code
// is running at that moment, until the host is destroyed.
//
// Thread-safety: QZHost::loading serialises all of it.
#pragma once

#include "copies.h"
#include "intrusive_list.h"
#include "morva/host.h"

namespace qzhost {

struct Pool;

struct Extension {
  // Null once the program has destroyed it.
  MORVAExt *object;
  // The pool "MORVA Extension"; null when the object has no pool of this host.
  Pool *pool;
  Copy *copy;
  // For sentences; null when there was no memory for it.
  char *name;
  Link<Extension> link;
};

// Destroys the extension object and releases the library. QZHost::loading must
// be held.
void closeExtension(QZHost *host, Extension *extension);

}  // namespace qzhost
