"""Checks that a manual page and the --help of its program tell of the same options and commands.

usage: check_manual.py MANUAL PROGRAM [COMMAND...]

MANUAL is the source of the page, in the form of scdoc. Every command that the program lists in its
help, and those that are named, have their names on the page, and the options of all are there.
Prints how many options there are.
"""
import os
import re
import sys

from help_texts import all_helps, help_of, options_of


def options_of_manual(text):
    found = set()
    for line in text.splitlines():
        if line.startswith("*-"):
            found.update(re.findall(r"\*(--?[\w-]+)\*", line))
    return found


def main():
    manual, program, *unlisted = sys.argv[1:]
    with open(manual, encoding="utf-8") as stream:
        text = stream.read()
    faults = []
    told = set()
    helps = list(all_helps(program))
    helps += [((name,), help_of(program, (name,))) for name in unlisted]
    for path, help_text in helps:
        told |= options_of(help_text)
        name = " ".join((os.path.basename(program), *path))
        if f"*{name}*" not in text:
            faults.append(f"{manual} says nothing of {name}")
    written = options_of_manual(text)
    faults += [f"{manual} says nothing of {option}" for option in sorted(told - written)]
    faults += [f"{manual} tells of {option}, which there is not"
               for option in sorted(written - told)]
    for fault in faults:
        print(fault)
    print(f"{len(told)} options")
    return 0 if told and not faults else 1


if __name__ == "__main__":
    sys.exit(main())
