"""Runs every example of every --help of voltaris, each of which has to succeed.

usage: check_examples.py FOLDER_OF_PROGRAMS FOLDER_OF_EXAMPLES

They run where examples/ is, with a node of examples/office.toml at the usual port and the files
office.key, office.phrase and office.id. Prints how many there are.
"""
import os
import sys

from help_texts import all_helps, examples_of
from site_of_documents import Site

LEAST_OF_EACH = 2


def prepare(site):
    site.write_secret("office.key", "9f3c5a71d2e84b60c7a1f59e0d3b8264aa17c95e")
    site.write_secret("office.phrase", "four words are not enough here\n")
    site.write_secret("office.id", "0123456789abcdef0123456789abcdef\n")
    site.start_node(["--config", "examples/office.toml"])


def faults_of(name, examples, programs, folder):
    if len(examples) < LEAST_OF_EACH:
        yield f"{name} --help has {len(examples)} examples"
    for example in examples:
        if not example.startswith("voltaris "):
            yield f"{name} --help has an example of another program: {example}"
            continue
        with Site(programs, folder) as site:
            prepare(site)
            text = site.watch(example) if is_endless(example) else site.run(example)
            if site.exit_code != 0:
                yield f"{name} --help: '{example}' ends with {site.exit_code}:\n{text}"
            elif not text and not made_files(site):
                yield f"{name} --help: '{example}' does nothing that one could see"


def is_endless(example):
    words = example.split()
    return words[:2] == ["voltaris", "watch"] and "--count" not in words


def made_files(site):
    known = {"examples", "office.key", "office.phrase", "office.id"}
    return set(os.listdir(site.folder)) - known


def main():
    programs, folder = sys.argv[1:]
    faults = []
    count = 0
    for path, text in all_helps(os.path.join(programs, "voltaris")):
        name = " ".join(("voltaris", *path))
        examples = examples_of(text)
        count += len(examples)
        faults += faults_of(name, examples, programs, folder)
    for fault in faults:
        print(fault)
    print(f"{count} examples")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
