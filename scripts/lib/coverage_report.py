"""Prints the table of scripts/coverage and the places that were not reached.

usage: coverage_report.py EXPORT ROOT FOLDER...

EXPORT is what llvm-cov export wrote; the sources in the named folders of ROOT count. Exits with
status 1 unless every line and branch was reached.
"""
import collections
import json
import os
import sys

EXPANSION_REGION = 1


def lines_of(segments):
    """Yields (line, count) for each line that holds code.

    A line counts as often as the region that wraps it, or as the one of those beginning in it that
    ran most often.
    """
    by_line = collections.defaultdict(list)
    for line, _, count, has_count, is_entry, is_gap in segments:
        by_line[line].append((count, has_count, is_entry, is_gap))
    if not by_line:
        return
    wrapped = None
    for line in range(min(by_line), max(by_line) + 1):
        here = by_line.get(line, [])
        starts = [s for s in here if s[1] and s[2] and not s[3]]
        skipped = bool(here) and not here[0][1] and here[0][2]
        if not skipped and ((wrapped and wrapped[1]) or starts):
            counts = [s[0] for s in starts]
            if wrapped and wrapped[1]:
                counts.append(wrapped[0])
            yield line, max(counts)
        if here:
            wrapped = here[-1]


def branches_of(function):
    """Yields (file, place, true count, false count) for each condition of a function.

    The place of a condition in a macro is that of the use, followed by that of the condition. What
    the compiler decides is not among them.
    """
    files = function["filenames"]
    used_at = {}
    for line, column, _, _, _, file_id, expanded_id, kind in function["regions"]:
        if kind == EXPANSION_REGION:
            used_at[expanded_id] = (file_id, line, column)
    for branch in function["branches"]:
        line, column, end_line, end_column, taken, not_taken, file_id = branch[:7]
        place = [(line, column, end_line, end_column)]
        while file_id in used_at:
            file_id, line, column = used_at[file_id]
            place.insert(0, (line, column))
        yield files[file_id], tuple(place), taken, not_taken


def main(export, root, folders):
    with open(export, encoding="utf-8") as stream:
        data = json.load(stream)["data"][0]
    prefixes = tuple(os.path.join(root, folder) + os.sep for folder in folders)

    lines = {}
    for file in data["files"]:
        if file["filename"].startswith(prefixes):
            lines[file["filename"]] = dict(lines_of(file["segments"]))

    # Instances of one template share their places: what one of them reached is reached.
    branches = collections.defaultdict(dict)
    for function in data["functions"]:
        for file, place, taken, not_taken in branches_of(function):
            if file.startswith(prefixes):
                before = branches[file].get(place, (0, 0))
                branches[file][place] = (before[0] + taken, before[1] + not_taken)

    missing = []
    rows = []
    for file in sorted(lines):
        name = os.path.relpath(file, root)
        reached_lines = sum(1 for count in lines[file].values() if count)
        outcomes = reached = 0
        for line, count in lines[file].items():
            if not count:
                missing.append((name, line, 0, "line not reached"))
        for place, (taken, not_taken) in sorted(branches[file].items()):
            line, column = place[0][:2]
            outcomes += 2
            reached += (taken > 0) + (not_taken > 0)
            inside = f" (in the macro, line {place[-1][0]})" if len(place) > 1 else ""
            if not taken:
                missing.append((name, line, column, "condition never true" + inside))
            if not not_taken:
                missing.append((name, line, column, "condition never false" + inside))
        rows.append((name, reached_lines, len(lines[file]), reached, outcomes))

    total = ["all sources"] + [sum(row[i] for row in rows) for i in range(1, 5)]
    print(f"{'file':36} {'lines':>22} {'branches':>22}")
    for row in rows + [total]:
        print(f"{row[0]:36} {share(row[1], row[2]):>22} {share(row[3], row[4]):>22}")
    for name, line, column, what in sorted(missing):
        place = f"{name}:{line}:{column}" if column else f"{name}:{line}"
        print(f"{place}: {what}")
    return 1 if missing or not rows else 0


def share(reached, all_of_them):
    if not all_of_them:
        return "-"
    # Rounded down, so that 100 % means all.
    percent = reached * 1000 // all_of_them / 10
    return f"{reached}/{all_of_them} {percent:5.1f} %"


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
