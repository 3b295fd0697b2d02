"""Runs the sessions that documents show, and compares what they write with what the document says.

usage: check_sessions.py FOLDER_OF_PROGRAMS FOLDER_OF_EXAMPLES DOCUMENT...

A session is a fenced block marked console. Lines that begin with "$ " are run in bash, one after the
other and in one folder for each document; those that follow are what they write. "..." stands for
anything, and any number of blanks for one. These lines mean something more:

  $ voltaris-node ... &   starts a node, at a port that the system chooses in place of the shown one
  $ kill %1               ends the first node of the document

Nobody listens at port 7449. Prints how many commands there were.
"""
import re
import shlex
import sys

from site_of_documents import Site


def commands_of(text):
    """Yields the commands of a document with what it says that they write."""
    for block in re.findall(r"^```console\n(.*?)^```$", text, re.S | re.M):
        for piece in re.split(r"^\$ ", block, flags=re.M)[1:]:
            lines = re.match(r"((?:[^\n]*\\\n)*[^\n]*\n)(.*)", piece, re.S)
            yield lines.group(1).strip(), lines.group(2)


def plain(text):
    return "\n".join(" ".join(line.split()) for line in text.strip().splitlines())


def is_as_shown(written, shown):
    pattern = re.escape(plain(shown)).replace(r"\.\.\.", ".*")
    return re.fullmatch(pattern, plain(written), re.S) is not None


def run(site, command):
    if command.startswith("voltaris-node ") and command.endswith("&"):
        return site.start_node(shlex.split(command)[1:-1])
    if command.startswith("kill %"):
        node = site.nodes[int(command[len("kill %"):]) - 1]
        node.terminate()
        node.wait()
        return ""
    match = re.fullmatch(r"export (\w+)=(\S*)", command)
    if match:
        site.environment[match.group(1)] = match.group(2)
        return ""
    return site.run(command)


def check(document, programs, examples):
    with open(document, encoding="utf-8") as stream:
        commands = list(commands_of(stream.read()))
    faults = 0
    with Site(programs, examples) as site:
        site.reserve_port("7449")
        for command, shown in commands:
            written = run(site, command)
            if not is_as_shown(written, shown):
                faults += 1
                print(f"{document}: $ {command}\nis said to write\n{shown}\nand writes\n{written}")
    return len(commands), faults


def main():
    programs, examples, *documents = sys.argv[1:]
    results = [check(document, programs, examples) for document in documents]
    print(f"{sum(count for count, _ in results)} commands")
    return 0 if all(count > 0 and faults == 0 for count, faults in results) else 1


if __name__ == "__main__":
    sys.exit(main())
