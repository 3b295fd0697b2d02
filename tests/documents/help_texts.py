"""What the --help of voltaris tells: its commands, their options and their examples."""
import re
import subprocess


def help_of(program, path=()):
    return subprocess.run([program, *path, "--help"], check=True, capture_output=True,
                          text=True).stdout


def commands_of(text):
    """The commands that a help lists below its own."""
    sections = re.findall(r"^(?:Subcommands|Commands that ask nodes|Other commands):\n((?:  .*\n)+)", text, re.M)
    return [name for section in sections for name in re.findall(r"^  (\w+)", section, re.M)]


def options_of(text):
    found = set()
    for line in text.splitlines():
        match = re.match(r"  (-[-\w,]+)", line)
        if match:
            found.update(match.group(1).split(","))
    return found


def examples_of(text):
    """The command lines below "Examples:", with those that go on put together."""
    section = re.search(r"^Examples:\n((?:  .*\n)+)", text, re.M)
    if not section:
        return []
    lines = section.group(1).replace("\\\n", " ").splitlines()
    return [line.strip() for line in lines]


def all_helps(program):
    """Yields the path of every command, the program itself first, with its help."""
    paths = [()]
    while paths:
        path = paths.pop(0)
        text = help_of(program, path)
        yield path, text
        paths.extend((*path, command) for command in commands_of(text))
