"""Checks that the helps of a program fit on a terminal.

usage: check_help_width.py PROGRAM [COMMAND...]

Every command that the program lists in its help is looked at, and those that are named. Prints how
many lines there are.
"""
import os
import sys

from help_texts import all_helps, help_of

TERMINAL_WIDTH = 80


def main():
    program, *unlisted = sys.argv[1:]
    helps = list(all_helps(program))
    helps += [((name,), help_of(program, (name,))) for name in unlisted]
    lines = 0
    faults = 0
    for path, text in helps:
        name = " ".join((os.path.basename(program), *path))
        for line in text.splitlines():
            lines += 1
            if len(line) > TERMINAL_WIDTH:
                faults += 1
                print(f"{name} --help has a line of {len(line)} columns: {line}")
    print(f"{lines} lines")
    return 0 if lines and not faults else 1


if __name__ == "__main__":
    sys.exit(main())
