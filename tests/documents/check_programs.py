"""Compiles every program that a document shows.

usage: check_programs.py INCLUDE_DIR C_COMPILER CXX_COMPILER DOCUMENT...

A program is a fenced block marked c or cpp that has a main. Prints how many there were.
"""
import re
import subprocess
import sys

STANDARDS = {
    "c": ["-x", "c", "-std=c99", "-D_POSIX_C_SOURCE=200809L"],
    "cpp": ["-x", "c++", "-std=c++20"],
}
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]


def programs(text):
    for language, code in re.findall(r"^```(c|cpp)\n(.*?)^```$", text, re.S | re.M):
        if re.search(r"\bmain\(", code):
            yield language, code


def main():
    include, c_compiler, cxx_compiler, *documents = sys.argv[1:]
    compilers = {"c": c_compiler, "cpp": cxx_compiler}
    count = 0
    for document in documents:
        with open(document, encoding="utf-8") as stream:
            text = stream.read()
        for language, code in programs(text):
            command = [*compilers[language].split(), *STANDARDS[language], *WARNINGS,
                       "-I", include, "-fsyntax-only", "-"]
            subprocess.run(command, input=code, text=True, check=True)
            count += 1
    print(f"{count} programs compile")
    return 0 if count > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
