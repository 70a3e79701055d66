"""The mistakes somebody might make: tests/mutants/*.toml, a file a room.

    [[mutant]]
    id = "a-name"
    file = "src/room/file.cpp"
    old = '''text as it is in the file'''
    new = '''what it becomes'''
    nth = 2        # where the text is there more than once: which one is meant
    breaks = "The one thing that is true of the file and is no longer true then."
"""

import tomllib

from mutant import HAND_WRITTEN, ROOMS, Mutant

FIELDS = {"id", "file", "old", "new", "nth", "breaks"}


class ListError(ValueError):
    """A list does not fit the sources; the text is what to mend."""


def positions(text, part):
    at = text.find(part)
    while at >= 0:
        yield at
        at = text.find(part, at + 1)


def locate(entry, text):
    """Where the old text of an entry is."""
    places = list(positions(text, entry["old"]))
    nth = entry.get("nth")
    if nth is None and len(places) != 1:
        raise ListError(f"{entry['id']}: its text is there {len(places)} times, not once")
    if nth is not None and not (len(places) > 1 and 1 <= nth <= len(places)):
        raise ListError(f"{entry['id']}: no {nth}. of {len(places)} places")
    return places[(nth or 1) - 1]


def mutant_of(entry, root, room):
    name = entry.get("id")
    missing = {"id", "file", "old", "new", "breaks"} - entry.keys()
    if missing or entry.keys() - FIELDS:
        raise ListError(f"{room}: {name}: fields: {sorted(missing or entry.keys() - FIELDS)}")
    if not entry["breaks"].strip().endswith("."):
        raise ListError(f"{name}: what it breaks is not a sentence")
    path = root / entry["file"]
    if not path.is_file():
        raise ListError(f"{name}: no such file: {entry['file']}")
    if entry["old"] == entry["new"]:
        raise ListError(f"{name}: changes nothing")
    start = locate(entry, path.read_text(encoding="utf-8"))
    mutant = Mutant(
        entry["file"], start, entry["old"], entry["new"], HAND_WRITTEN, name, entry["breaks"]
    )
    if mutant.room != room:
        raise ListError(f"{name}: is of {mutant.room}, not of {room}")
    return mutant


def load(root):
    """All hand-written mutants; ListError when one does not fit the sources."""
    mutants = []
    for room in (*ROOMS, "headers"):
        with open(root / "tests" / "mutants" / f"{room}.toml", "rb") as file:
            entries = tomllib.load(file)["mutant"]
        mutants += [mutant_of(entry, root, room) for entry in entries]
    seen = set()
    for mutant in mutants:
        for what in (mutant.name, mutant.breaks, (mutant.file, mutant.start, mutant.new)):
            if what in seen:
                raise ListError(f"{mutant.name}: is there twice: {what}")
            seen.add(what)
    return mutants
