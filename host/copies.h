// The copies of extension libraries in this process, and whose they are.
//
// A copy keeps one pointer to one service table, so it serves one host at a
// time, any number of extension objects of it. A copy is known by the address of
// its entry function: whatever names a file is loaded under, and whether it came
// with the program or through dlopen, the same code is the same copy.
//
// A host that asks for a file whose copy serves another host gets a private one:
// the file is copied into a nameless file in memory and loaded from there, which
// makes it a different library to the system. A host has one private copy of a
// file at most. A private copy is marked to find its own names in itself first;
// a file whose names the program has as well, from another file, is therefore
// loaded privately in any case.
//
// Thread-safety: claiming and releasing are serialised by a process-wide mutex;
// a copy's users are one host, and that host's `loading` is held by the caller.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "intrusive_list.h"
#include "morva/host.h"
#include "sentence.h"

namespace qzhost {

using VersionEntry = MORVAStatus (*)(HostServices *table, int64_t *major, int64_t *minor);
using MainEntry = MORVAExt *(*)(void *unused, void *context);

struct Copy {
  VersionEntry qzextver;
  MainEntry morva;
  QZHost *host;
  // Extension objects, loads under way included.
  uint32_t uses;
  // Has been given the host's service table, and found to want this version.
  bool hasTable;
  bool accepted;
  // From dlopen; null for a copy that came with the program.
  void *handle;
  // A private copy's file in memory, else -1. It stays open as long as the copy
  // is loaded: its number is part of the name the system knows the copy by.
  int memory;
  // What a private copy was copied from.
  dev_t device;
  ino_t inode;
  Link<Copy> link;
};

// Loads `file` for `host`; null, with a sentence, when that fails.
Copy *loadCopy(QZHost *host, const char *file, const Sentence &error);

// The copy with these entry points, which came with the program; null, with a
// sentence, when it serves another host.
Copy *attachCopy(QZHost *host, const QZEntryPoints &entry, const char *name, const Sentence &error);

// Ends one use. The last one takes the service table back and unloads the file.
void releaseCopy(Copy *copy);

}  // namespace qzhost
