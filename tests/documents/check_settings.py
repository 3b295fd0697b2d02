"""Checks that a manual page tells of every setting of voltaris, with what holds when nobody sets it.

usage: check_settings.py MANUAL PROGRAM

The settings are those that "voltaris config show" knows. On the page, a setting is a line that
begins with its name between stars, and its preset stands in what follows. Prints how many there are.
"""
import json
import os
import re
import subprocess
import sys


def settings_of(program):
    kept = {name: value for name, value in os.environ.items() if not name.startswith("VOLTARIS_")}
    shown = subprocess.run([program, "config", "show", "-o", "json"], check=True,
                           capture_output=True, text=True,
                           env={**kept, "VOLTARIS_CONFIG": os.devnull}).stdout
    # The format stands for itself here, as it had to be given.
    presets = {name: setting["value"] for name, setting in json.loads(shown)["settings"].items()}
    return {**presets, "output": "table"}


def entries_of(text):
    """The settings of a page, each with the lines that belong to it."""
    section = re.search(r"^# SETTINGS\n(.*?)^# ", text, re.S | re.M).group(1)
    parts = re.split(r"^\*([\w-]+)\* = ", section, flags=re.M)[1:]
    return dict(zip(parts[::2], parts[1::2]))


def preset_text(value):
    if isinstance(value, list):
        return ", ".join(f'"{item}"' for item in value)
    if isinstance(value, str):
        return f'"{value}"'
    if isinstance(value, bool):
        return "true" if value else "false"
    return f"{value:g}"


def main():
    manual, program = sys.argv[1:]
    settings = settings_of(program)
    with open(manual, encoding="utf-8") as stream:
        entries = entries_of(stream.read())
    faults = [f"{manual} says nothing of {name}" for name in settings if name not in entries]
    faults += [f"{manual} tells of {name}, which is no setting"
               for name in entries if name not in settings]
    for name, value in settings.items():
        if value is None or name not in entries:
            continue
        if f"_{preset_text(value)}_ unless set" not in " ".join(entries[name].split()):
            faults.append(f"{manual} does not say that {name} is _{preset_text(value)}_ unless set")
    for fault in faults:
        print(fault)
    print(f"{len(settings)} settings")
    return 0 if settings and not faults else 1


if __name__ == "__main__":
    sys.exit(main())
