"""One change of one source file that makes it wrong."""

from dataclasses import dataclass

# The rooms of the library, and the public headers whose code it runs.
ROOMS = ("port", "ext", "instance", "keys", "tree", "ops")
HEADERS = ("include/morva/search.hpp", "include/morva/hash_methods.hpp")
HAND_WRITTEN = "hand-written"
GENERATED = ("operator", "constant", "condition", "statement", "answer")
KINDS = (HAND_WRITTEN, *GENERATED)


@dataclass(frozen=True)
class Mutant:
    """`old`, at `start` of `file`, becomes `new`."""

    file: str
    start: int
    old: str
    new: str
    kind: str
    name: str  # of a hand-written one; of a generated one what changes in which line
    breaks: str = ""  # the invariant, where somebody wrote it down

    @property
    def room(self):
        return "headers" if self.file in HEADERS else self.file.split("/")[1]

    def applied(self, text):
        end = self.start + len(self.old)
        if text[self.start : end] != self.old:
            raise ValueError(f"{self.file}: the text has changed: {self.name}")
        return text[: self.start] + self.new + text[end:]


def sources(root):
    """The files that are broken, as paths from `root`."""
    found = [path for room in ROOMS for path in sorted((root / "src" / room).glob("*.*"))]
    return [str(path.relative_to(root)) for path in found] + list(HEADERS)
