#!/usr/bin/env python3
"""Prints the files of a compile database that stand for sources: a source itself, or the file of a
unity build that includes it. What a database compiles more than once is printed once.

usage: compile_units.py DATABASE ROOT SOURCE...

DATABASE is the folder of compile_commands.json, SOURCEs are relative to ROOT. Sources that nothing
compiles are named on standard error, and the exit status is 1.
"""

import json
import pathlib
import re
import sys


def main() -> int:
    database, root = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    wanted = {root / source for source in sys.argv[3:]}
    entries = json.loads((database / "compile_commands.json").read_text())
    compiled = {pathlib.Path(entry["file"]) for entry in entries}
    found = set()
    units = set()
    for unit in compiled:
        sources = {unit}
        if unit.parent.name == "Unity":
            sources = {
                pathlib.Path(name)
                for name in re.findall(r'^#include "(.*)"$', unit.read_text(), re.MULTILINE)
            }
        if sources & wanted:
            found |= sources & wanted
            units.add(unit)
    print(*sorted(units), sep="\n")
    for source in sorted(wanted - found):
        print(f"no target compiles {source.relative_to(root)}", file=sys.stderr)
    return 0 if found == wanted else 1


if __name__ == "__main__":
    sys.exit(main())
