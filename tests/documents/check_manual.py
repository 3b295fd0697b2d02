"""Checks that a manual page and the --help of its program tell of the same options.

usage: check_manual.py MANUAL PROGRAM [COMMAND...]

MANUAL is the source of the page, in the form of scdoc. COMMANDs of the program have a --help of
their own, and the options of all are on the one page. Prints how many options there are.
"""
import re
import subprocess
import sys


def options_of_help(command):
    text = subprocess.run([*command, "--help"], check=True, capture_output=True, text=True).stdout
    found = set()
    for line in text.splitlines():
        match = re.match(r"  (-[-\w,]+)", line)
        if match:
            found.update(match.group(1).split(","))
    return found


def options_of_manual(path):
    found = set()
    with open(path, encoding="utf-8") as stream:
        for line in stream:
            if line.startswith("*-"):
                found.update(re.findall(r"\*(--?[\w-]+)\*", line))
    return found


def main():
    manual, program, *commands = sys.argv[1:]
    told = options_of_help([program])
    for command in commands:
        told |= options_of_help([program, command])
    written = options_of_manual(manual)
    for option in sorted(told - written):
        print(f"{manual} says nothing of {option}")
    for option in sorted(written - told):
        print(f"{manual} tells of {option}, which there is not")
    print(f"{len(told)} options")
    return 0 if told == written and told else 1


if __name__ == "__main__":
    sys.exit(main())
