"""Building: the sources as they are once, then each mutant from what it changes.

    work/tree      a copy of the sources
    work/base      its build, by CMake
    work/bas1      of its first worker: changed files, and what is built from them
    work/asan      a build with sanitizers, when it is needed

Programs name the libraries by their path. A worker runs copies in which that is
its own path, which has as many letters.
"""

import json
import shlex
import shutil
import subprocess
from collections import defaultdict
from dataclasses import dataclass
from pathlib import Path

# The programs that run all of the library, and are quick.
FIRST = """
    ext_test faults_test instance_free_index_test instance_test model_test
    morva_hash_methods_test morva_keys_test morva_port_test morva_short_bytes_test
    morva_tree_test ops_internal_test ops_test
""".split()

# For what those let pass.
SECOND = """
    cpp_failures_test cpp_keys_test cpp_lookup_test cpp_records_test cpp_table_test
    host_many_test instance_threads_test morva_tree_threads_test threads_test
""".split()

# Those of them that try the public headers' own lookups.
WITH_HEADERS = ("cpp_lookup_test", "host_many_test")

CONFIGURATION = (
    "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
    "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1",
    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1",
    "-DMORVA_BUILD_TESTS=ON",
    "-DMORVA_BUILD_CLI=OFF",
    "-DMORVA_BUILD_EXAMPLES=OFF",
    "-DMORVA_INSTALL=OFF",
)


@dataclass(frozen=True)
class Plan:
    """How the sources are built, and which test programs."""

    name: str
    options: tuple
    programs: list
    sanitized: bool = False


PLAIN = Plan("base", (), [*FIRST, *SECOND])
# For what lives: some mistakes only a sanitizer sees, and all tests run under one.
SANITIZED = Plan(
    "asan",
    ("-DMORVA_SANITIZE=address,undefined",),
    [name for name in FIRST if name not in ("faults_test", "model_test")],
    True,
)

# The shared libraries, and where their objects are.
LIBRARIES = {
    "morva": "src/CMakeFiles/morva_objects.dir",
    "qzhost": "host/CMakeFiles/qzhost_objects.dir",
}


class NotCompiled(Exception):
    """The compiler or the linker refuses a mutant."""


def files_below(directory, left_out=()):
    for path in directory.iterdir():
        if path in left_out or path.name in (".git", "__pycache__"):
            continue
        if path.is_dir():
            yield from files_below(path, left_out)
        else:
            yield path


def copy_tree(root, to, left_out):
    """Makes `to` the same as the sources; what has not changed keeps its time."""
    to.mkdir(parents=True, exist_ok=True)
    wanted = {path.relative_to(root) for path in files_below(root, left_out)}
    for name in wanted:
        target = to / name
        content = (root / name).read_bytes()
        if not target.is_file() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(root / name, target)
    for path in list(files_below(to)):
        if path.relative_to(to) not in wanted:
            path.unlink()


class Base:
    """The build of the sources as they are, and how each part of it is made."""

    def __init__(self, work, plan):
        self.plan = plan
        self.tree, self.path = work / "tree", work / plan.name
        log = work / f"{plan.name}.log"
        configuration = [*CONFIGURATION, *plan.options]
        build = ["cmake", "--build", str(self.path), "--parallel", "2", "--target"]
        with open(log, "wb") as output:
            for command in (
                ["cmake", "-S", str(self.tree), "-B", str(self.path), *configuration],
                [*build, "morva", "morva_static", "qzhost", *plan.programs],
            ):
                done = subprocess.run(command, stdout=output, stderr=subprocess.STDOUT)
                if done.returncode != 0:
                    raise SystemExit(f"the sources as they are do not build: see {log}")
        self.read_compiling()
        self.read_linking()

    def read_compiling(self):
        """The command of each object, and the objects each file is part of."""
        self.commands, self.dependants = {}, defaultdict(set)
        with open(self.path / "compile_commands.json", encoding="utf-8") as file:
            entries = json.load(file)
        for entry in entries:
            command = shlex.split(entry["command"])
            obj = Path(entry["directory"]) / command[command.index("-o") + 1]
            notes = [obj.with_name(obj.name + ".d")]
            if "-include" in command:
                header = command[command.index("-include") + 1]
                notes.append(Path(header + ".gch.d"))
            if not notes[0].is_file():
                continue  # of a target that is not built here
            self.commands[obj] = (command, Path(entry["directory"]))
            for note in notes:
                for word in note.read_text(encoding="utf-8").replace("\\\n", " ").split()[1:]:
                    path = Path(word)
                    if path.is_relative_to(self.tree):
                        self.dependants[str(path.relative_to(self.tree))].add(obj)

    def read_linking(self):
        """The commands of each library and program, and what goes into it."""
        self.links = {}
        for script in self.path.rglob("link.txt"):
            directory = script.parent.parent.parent
            commands = [shlex.split(line) for line in script.read_text().splitlines()]
            first = commands[0]
            at = first.index("-o") + 1 if "-o" in first else 2
            output = (directory / first[at]).resolve()
            inputs = [
                (directory / word).resolve()
                for i, word in enumerate(first)
                if i != at and word.endswith((".o", ".a"))
            ]
            if output.is_file():
                self.links[output] = (commands, directory, inputs)

    def objects_of(self, library, file):
        objects = self.path / LIBRARIES[library]
        return sorted(obj for obj in self.dependants[file] if obj.is_relative_to(objects))

    def is_white_box(self, name):
        """Whether a program has the library in itself, and so is linked for each mutant."""
        return self.path / "lib" / "libmorva.a" in self.links[self.path / "tests" / name][2]

    def shared_library(self, name):
        return next(path for path in self.links if path.name.startswith(f"lib{name}.so"))


class Worker:
    """A place to build mutants in, one after the other."""

    def __init__(self, base, number):
        self.base = base
        # As long as the path of the build: see above.
        self.path = base.path.with_name(f"{base.path.name[:-1]}{number}")
        shutil.rmtree(self.path, ignore_errors=True)
        self.path.mkdir()
        self.changed = self.path / "changed"
        self.log = self.path / "output"
        for library in map(base.shared_library, LIBRARIES):
            self.install_library(library, library)
        self.replaced = set()
        for name in base.plan.programs:
            self.install(base.path / "tests" / name, self.path / "tests" / name)

    # ---- What is run ---------------------------------------------------------------

    def install(self, made, target):
        """Copies a library or program to where this worker runs it, and tells it so."""
        target.parent.mkdir(exist_ok=True)
        target.unlink(missing_ok=True)
        theirs, ours = (str(path / "lib").encode() for path in (self.base.path, self.path))
        target.write_bytes(made.read_bytes().replace(theirs, ours))
        target.chmod(0o755)
        return target

    def install_library(self, library, made):
        target = self.install(made, self.path / "lib" / library.name)
        stem = library.name.split(".so")[0]
        for alias in (f"{stem}.so", f"{stem}.so.1"):
            (target.parent / alias).unlink(missing_ok=True)
            (target.parent / alias).symlink_to(target.name)

    def program_as_it_is(self, name):
        return self.path / "tests" / name

    # ---- One mutant ----------------------------------------------------------------

    def begin(self, mutant):
        """Puts the changed file in front of the one as it is."""
        for library in self.replaced:
            self.install_library(library, library)
        self.replaced = set()
        shutil.rmtree(self.changed, ignore_errors=True)
        self.mutant = mutant
        self.made = {}  # what is built anew, by what it stands for
        text = (self.base.tree / mutant.file).read_text(encoding="utf-8")
        target = self.changed / mutant.file
        target.parent.mkdir(parents=True)
        target.write_text(mutant.applied(text), encoding="utf-8")

    def compile(self, obj, output, *options, mutated=True):
        command, directory = self.base.commands[obj]
        command = [*command, "-w", *options]
        command[command.index("-o") + 1] = str(output)
        if mutated:
            if "-include" in command:
                # What was compiled ahead may hold the file as it was.
                at = command.index("-include") + 1
                plain = self.changed / "ahead.hxx"
                shutil.copy(command[at], plain)
                command[at] = str(plain)
            at = command.index("-c") + 1
            if Path(command[at]) == self.base.tree / self.mutant.file:
                command[at] = str(self.changed / self.mutant.file)
            command[1:1] = [f"-I{self.changed / 'src'}", f"-I{self.changed / 'include'}"]
        output.parent.mkdir(parents=True, exist_ok=True)
        done = subprocess.run(command, cwd=directory, capture_output=True)
        if done.returncode != 0:
            raise NotCompiled(done.stderr.decode("utf-8", "replace"))
        return output.read_bytes()

    def library_objects(self):
        return [obj for name in LIBRARIES for obj in self.base.objects_of(name, self.mutant.file)]

    def is_same(self, *options):
        """Whether the mutant compiles to what the sources do, with these options."""
        return all(
            self.compile(obj, self.path / "mutated.o", *options)
            == self.compile(obj, self.path / "original.o", *options, mutated=False)
            for obj in self.library_objects()
        )

    def build(self):
        """Builds the libraries with the mutant. False when nothing is different."""
        for obj in self.library_objects():
            made = self.path / "made" / obj.relative_to(self.base.path)
            if self.compile(obj, made) != obj.read_bytes():
                self.made[obj] = made
        if not self.made:
            return False
        for library in map(self.base.shared_library, LIBRARIES):
            if any(part in self.made for part in self.base.links[library][2]):
                self.link(library)
                self.install_library(library, self.made[library])
                self.replaced.add(library)
        return True

    def link(self, output):
        """Makes a library or program anew from what is built anew of its parts."""
        commands, directory, _ = self.base.links[output]
        made = self.path / "made" / output.relative_to(self.base.path)
        made.parent.mkdir(parents=True, exist_ok=True)
        made.unlink(missing_ok=True)
        for command in commands:
            words = []
            for word in command:
                path = (directory / word).resolve()
                words.append(str(made if path == output else self.made.get(path, word)))
            done = subprocess.run(words, cwd=directory, capture_output=True)
            if done.returncode != 0:
                raise NotCompiled(done.stderr.decode("utf-8", "replace"))
        self.made[output] = made

    def remake(self, output):
        """Builds what goes into a library or program anew; tells whether anything was."""
        if output in self.made:
            return True
        changed = self.base.dependants[self.mutant.file] - set(self.library_objects())
        anew = False
        for part in self.base.links[output][2]:
            if part in changed and part not in self.made:
                made = self.path / "made" / part.relative_to(self.base.path)
                self.compile(part, made)
                self.made[part] = made
            anew |= part in self.made or part in self.base.links and self.remake(part)
        if anew:
            self.link(output)
        return anew

    def program(self, name):
        """Where to run a test program on the mutant."""
        path = self.base.path / "tests" / name
        if not self.remake(path):
            return self.program_as_it_is(name)
        return self.install(self.made[path], self.path / "mutated" / name)
