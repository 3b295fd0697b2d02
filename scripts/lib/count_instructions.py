"""Counts the library's instructions in the operations of instructions_probe with callgrind.

usage: count_instructions.py [--update] RECORD LIBRARY PROGRAM

Counted is what runs in the code of LIBRARY itself. libcrypto and the C library, which choose their
code by the processor, are left out. Runs that differ in the number of rounds alone are compared, so
that making messages and starting do not count. Prints a table of the figures for one operation,
those in RECORD and those of now; the exit status is 1 when one has grown by more than 2 %. With
--update the figures of now become the record.
"""
import argparse
import json
import os
import re
import subprocess
import tempfile

# The operations, and how often a round does each.
OPERATIONS = {"sign": 8, "verify": 160, "decode": 160, "fold": 160}
ROUNDS = (1, 3)
MOST_GROWTH = 0.02


def library_instructions(profile, library):
    """Returns the instructions that a profile of callgrind attributes to the library itself."""
    total = 0
    inside = False
    skip = False
    for line in profile:
        if line.startswith("ob="):
            inside = os.path.basename(line[3:].strip()) == library
        elif line.startswith("calls="):
            # What follows is the cost of the called function.
            skip = True
        elif re.match(r"[0-9+*-]", line):
            if inside and not skip:
                total += int(line.split()[1])
            skip = False
    return total


def count(program, library, operation, rounds):
    with tempfile.NamedTemporaryFile("r", encoding="utf-8") as profile:
        subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--compress-strings=no",
             "--compress-pos=no", f"--callgrind-out-file={profile.name}",
             program, operation, str(rounds)],
            check=True)
        return library_instructions(profile, library)


def per_operation(program, library):
    figures = {}
    few, many = ROUNDS
    for operation, times in OPERATIONS.items():
        more = (count(program, library, operation, many) -
                count(program, library, operation, few))
        if more <= 0:
            raise SystemExit(f"count_instructions: callgrind did not see {operation}")
        figures[operation] = round(more / ((many - few) * times))
    return figures


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--update", action="store_true")
    parser.add_argument("record")
    parser.add_argument("library")
    parser.add_argument("program")
    options = parser.parse_args()

    library = os.path.basename(os.path.realpath(options.library))
    now = per_operation(options.program, library)
    if options.update:
        with open(options.record, "w", encoding="utf-8") as out:
            json.dump(now, out, indent=2)
            out.write("\n")
    with open(options.record, encoding="utf-8") as stream:
        recorded = json.load(stream)
    if recorded.keys() != now.keys():
        raise SystemExit("count_instructions: the record has other operations")

    print("operation  recorded      now    change")
    grown = []
    for operation, figure in now.items():
        change = figure / recorded[operation] - 1
        if change > MOST_GROWTH:
            grown.append(operation)
        print(f"{operation:9}  {recorded[operation]:8}  {figure:7}  {change:+7.1%}"
              f"{'  grown' if change > MOST_GROWTH else ''}")
    return 1 if grown else 0


if __name__ == "__main__":
    raise SystemExit(main())
