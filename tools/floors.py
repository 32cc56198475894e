"""The floors that docs/architecture.md tells in its table, and the includes that the tree really has."""

import re
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/architecture.md"


class Floors:
    """A row of the table is `| number | name | families | folders of source/internal/ | ... |`."""

    def __init__(self):
        section = PAGE.read_text(encoding="utf-8").split("\n## Floors\n")[1].split("\n## ")[0]
        self.names = {}  # of the floors, by their numbers
        self.floors = {}  # by families and folders
        for number, name, families, folders in re.findall(
            r"^\| (\d+) \| (.+?) \| (.*?) \| (.*?) \|", section, re.MULTILINE
        ):
            self.names[int(number)] = name
            for place in re.findall(r"`(.+?)`", families + folders):
                self.floors[place] = int(number)
        self.exceptions = set(re.findall(r"`(\S+)` includes `(\S+)`", section))

    def place(self, path):
        """The family or folder in the table that a file belongs to, None if there is none."""
        named = [path.name, path.stem]
        if "internal" in path.parts:
            named.append(path.parent.name + "/")
        elif path.suffix == ".cpp":
            named += sorted((name for name in self.floors if path.stem.startswith(name)), key=len, reverse=True)
        return next((name for name in named if name in self.floors), None)


def files():
    found = [path for top in ("include", "source") for path in (ROOT / top).rglob("*") if path.is_file()]
    return sorted(path.relative_to(ROOT) for path in found)


def includes():
    """Yields each file with a project file that it includes."""
    for path in files():
        for name in re.findall(r'^#include "(.+)"$', (ROOT / path).read_text(encoding="utf-8"), re.MULTILINE):
            top = "source" if (ROOT / "source" / name).exists() else "include"
            yield path, Path(top, name)
