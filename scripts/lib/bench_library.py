"""Writes the size and the number of dynamic relocations of a library as results.

usage: bench_library.py RESULT LIBRARY

The size is that of the file once it is stripped of everything that loading does not need. All
relocations count that readelf lists, each as one: those relative to the load address, those of data
by name, and those of the procedure linkage table.
"""
import json
import os
import re
import subprocess
import sys
import tempfile


def stripped_size(library):
    with tempfile.TemporaryDirectory() as folder:
        stripped = os.path.join(folder, "stripped")
        subprocess.run(["strip", "--strip-all", "-o", stripped, library], check=True)
        return os.path.getsize(stripped)


def relocations(library):
    listing = subprocess.run(["readelf", "--relocs", "--wide", library], check=True, text=True,
                             capture_output=True, env={**os.environ, "LC_ALL": "C"}).stdout
    # Sections of packed relocations (RELR) list what they unpack to.
    announced = sum(int(count) for count in
                    re.findall(r"^Relocation section .* contains (\d+) entr", listing, re.M))
    entries = len(re.findall(r"^[0-9a-f]{8,16}\b", listing, re.M))
    if not 0 < announced <= entries:
        raise SystemExit("bench_library: readelf lists something else")
    return entries


def main(result, library):
    with open(result, "w", encoding="utf-8") as out:
        json.dump({"benchmarks": [
            {"name": "P10/size", "ours": stripped_size(library)},
            {"name": "P10/relocations", "ours": relocations(library)},
        ]}, out, indent=2)


if __name__ == "__main__":
    main(*sys.argv[1:])
