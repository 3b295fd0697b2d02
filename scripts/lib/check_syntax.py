#!/usr/bin/env python3
"""Has the compiler of a build look at sources, each by itself, without making objects of them.

usage: check_syntax.py DATABASE ROOT SOURCE...

DATABASE is the folder of compile_commands.json, SOURCEs are relative to ROOT. What the compiler says
is printed. The exit status is 1 when it refuses a source, or when nothing compiles one.
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys


def command_of(entry: dict) -> list[str]:
    words = shlex.split(entry["command"])
    output = words.index("-o")
    return words[:output] + words[output + 2 :] + ["-fsyntax-only"]


def main() -> int:
    database, root = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    entries = json.loads((database / "compile_commands.json").read_text())
    by_source = {pathlib.Path(entry["file"]): entry for entry in entries}
    sources = [root / source for source in sys.argv[3:]]
    status = 0
    for source in sources:
        if source not in by_source:
            print(f"no target compiles {source.relative_to(root)}")
            status = 1

    def look_at(entry: dict) -> subprocess.CompletedProcess:
        return subprocess.run(
            command_of(entry),
            cwd=entry["directory"],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for result in pool.map(look_at, (by_source[s] for s in sources if s in by_source)):
            print(result.stdout, end="")
            status = status or (1 if result.returncode else 0)
    return status


if __name__ == "__main__":
    sys.exit(main())
