"""Why some mutants live: tests/mutants/survivors.toml.

    [[survivor]]
    file = "src/room/file.cpp"
    name = "the line | what becomes of it"     # as the report has it
    equal = true                               # nothing can tell it from the sources
    why = "The reason."
"""

import tomllib

from handwritten import ListError


def load(root):
    """The explanations, by the file and the name of the mutant."""
    with open(root / "tests" / "mutants" / "survivors.toml", "rb") as file:
        entries = tomllib.load(file).get("survivor", [])
    explained = {}
    for entry in entries:
        if entry.keys() != {"file", "name", "equal", "why"}:
            raise ListError(f"survivors.toml: fields of {entry.get('name')}")
        key = (entry["file"], entry["name"])
        if key in explained:
            raise ListError(f"survivors.toml: explained twice: {entry['name']}")
        if not entry["why"].strip().endswith("."):
            raise ListError(f"survivors.toml: no sentence explains {entry['name']}")
        explained[key] = entry
    return explained


def check(explained, mutants):
    """Every explanation is of a mutant that there is."""
    there = {(mutant.file, mutant.name) for mutant in mutants}
    for file, name in explained.keys() - there:
        raise ListError(f"survivors.toml explains a mutant that is not made: {file}: {name}")
