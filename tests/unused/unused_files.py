#!/usr/bin/env python3
"""Lists the files under tests/ that no target builds and no test uses.

    unused_files.py SOURCE BUILD

SOURCE is the source tree, BUILD a build directory of it. A test that is not built
passes for ever, and a script that nothing runs rots. The exit status is 1 where
there is such a file.

In use is
  - a source that some target compiles, and a directory that is configured;
  - what a test's command or surroundings name: a file, or a directory of data
    with all that is in it;
  - what something in use names in its text: a header that it includes, a module
    that it imports, a file beside it or with its directory, a pattern such as
    data/*.csv for files beside it.
"""

import fnmatch
import json
import os
import pathlib
import re
import sys

SOURCES = {".c", ".cc", ".cpp"}
HEADERS = {".h", ".hpp", ".inc"}
OUTSIDE = {".cmake", ".py", ".sh", ".txt", ".json"}
LEFT_OUT = {"__pycache__", ".git", "build"}

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)
IMPORT = re.compile(r"^\s*(?:from|import)\s+(\w+)", re.MULTILINE)
WORD = re.compile(r"[\w.*+\-/]+")


def files_under(directory):
    for parent, directories, names in os.walk(directory):
        directories[:] = [name for name in directories if name not in LEFT_OUT]
        for name in names:
            if not name.startswith("."):
                yield pathlib.Path(parent, name)


def text_of(file):
    try:
        return file.read_text()
    except UnicodeDecodeError:
        return ""


class Tree:
    def __init__(self, source, build):
        self.source = source
        self.build = build
        self.tests = source / "tests"
        self.unused = set(files_under(self.tests))
        self.total = len(self.unused)
        self.to_read = []

    def use(self, file):
        if file in self.unused:
            self.unused.remove(file)
            self.to_read.append(file)

    def is_configured(self, directory):
        return (self.build / directory.relative_to(self.source) / "CTestTestfile.cmake").exists()

    def use_named(self, text):
        """What a command names by its whole path."""
        for name in re.findall(re.escape(str(self.tests)) + r"/[^\s\"'\]\[;:,\\]*", text):
            path = pathlib.Path(os.path.normpath(name))
            if path.is_dir() and not self.is_configured(path):
                for file in files_under(path):
                    self.use(file)
            else:
                self.use(path)

    def start(self):
        commands = json.loads((self.build / "compile_commands.json").read_text())
        for command in commands:
            self.use(pathlib.Path(os.path.normpath(command["file"])))
            self.use_named(re.sub(r"-I\s*\S+|-isystem\s+\S+", "", command.get("command", "")))
        for file in self.tests.rglob("CMakeLists.txt"):
            if self.is_configured(file.parent):
                self.use(file)
        for file in self.build.rglob("CTestTestfile.cmake"):
            self.use_named(text_of(file))
        # What uses tests from outside.
        for file in files_under(self.source):
            if self.tests not in file.parents and self.build not in file.parents:
                if file.suffix in OUTSIDE or file.name == "Makefile":
                    self.to_read.append(file)

    def run(self):
        self.start()
        while self.to_read and self.unused:
            self.read(self.to_read.pop())
        return sorted(self.unused)

    def read(self, user):
        text = text_of(user)
        included = [name.split("/") for name in INCLUDE.findall(text)]
        imported = set(IMPORT.findall(text)) if user.suffix == ".py" else set()
        if user.suffix == ".sh":
            text = re.sub(r"\$\{?\w+\}?", "*", text)
        words = set(WORD.findall(text))
        names = {word.rsplit("/", 1)[-1] for word in words}
        patterns = [word for word in words if re.search(r"\*[^/]*\w[^/]*$", word)]
        for file in list(self.unused):
            if file.suffix in HEADERS:
                parts = file.parts
                if any(parts[-len(name) :] == tuple(self.plain(name)) for name in included):
                    self.use(file)
                    continue
            if file.suffix == ".py" and file.stem in imported:
                self.use(file)
            elif self.is_named(file, user, words, names, patterns):
                self.use(file)

    @staticmethod
    def plain(name):
        return [part for part in name if part not in {"..", "."}]

    def is_named(self, file, user, words, names, patterns):
        if file.name == "CMakeLists.txt":
            return False
        beside = user.parent == file.parent
        if file.suffix in SOURCES:
            # Naming a source is not compiling it, but in a script of its own.
            return beside and user.suffix in {".sh", ".py"} and file.name in names
        if file.name in names:
            if beside or file.parent in user.parents or user.parent in file.parents:
                return True
            ending = f"{file.parent.name}/{file.name}"
            return any(word.endswith(ending) for word in words)
        places = {
            os.path.relpath(file.parent, user.parent),
            str(file.parent.relative_to(self.source)),
        }
        for pattern in patterns:
            place, _, name = re.sub(r"^(\*?/)+", "", pattern).rpartition("/")
            if (place or ".") in places and fnmatch.fnmatchcase(file.name, name):
                return True
        return False


def main(source, build):
    tree = Tree(source, build)
    if not tree.total:
        sys.exit(f"no files under {tree.tests}")
    unused = tree.run()
    for file in unused:
        print(f"neither built nor used: {file.relative_to(source)}", file=sys.stderr)
    print(f"{tree.total} files under tests, {len(unused)} of them not in use")
    return 1 if unused else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:])))
