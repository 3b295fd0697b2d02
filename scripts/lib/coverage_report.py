"""Prints the table of scripts/coverage and the places that were not reached.

usage: coverage_report.py [--mcdc] EXPORT ROOT FOLDER...

EXPORT is what llvm-cov export wrote; the sources in the named folders of ROOT count. Exits with
status 1 unless every line and branch was reached or, with --mcdc, unless every condition was seen
to decide.
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


def uses_of_macros(function):
    """Returns {file_id: (file_id, line, column)} of the use, for each expansion of a macro."""
    used_at = {}
    for line, column, _, _, _, file_id, expanded_id, kind in function["regions"]:
        if kind == EXPANSION_REGION:
            used_at[expanded_id] = (file_id, line, column)
    return used_at


def place_of(function, used_at, region, file_id):
    """Returns (file, place) of a region, which begins with its two lines and columns.

    The place of what stands in a macro is that of the use, followed by that of the region.
    """
    place = [tuple(region[:4])]
    while file_id in used_at:
        file_id, line, column = used_at[file_id]
        place.insert(0, (line, column))
    return function["filenames"][file_id], tuple(place)


def branches_of(function):
    """Yields (file, place, true count, false count) for each condition of a function.

    What the compiler decides is not among them.
    """
    used_at = uses_of_macros(function)
    for branch in function["branches"]:
        taken, not_taken, file_id = branch[4:7]
        yield *place_of(function, used_at, branch, file_id), taken, not_taken


def decisions_of(function):
    """Yields (file, place, [decided, ...]) for each expression of more than one condition.

    A condition has decided when the tests hold two evaluations that differ in it and in the value
    of the expression, and in no other condition that was evaluated in both.
    """
    used_at = uses_of_macros(function)
    for record in function["mcdc_records"]:
        file_id, decided = record[4], record[6]
        yield *place_of(function, used_at, record, file_id), decided


def in_macro(place):
    return f" (in the macro, line {place[-1][0]})" if len(place) > 1 else ""


def reached_of(data, counts):
    """Returns the rows (file, reached lines, lines, reached branches, branches) and what is missing
    as (file, line, column, text)."""
    lines = {}
    for file in data["files"]:
        if counts(file["filename"]):
            lines[file["filename"]] = dict(lines_of(file["segments"]))

    # Instances of one template share their places: what one of them reached is reached.
    branches = collections.defaultdict(dict)
    for function in data["functions"]:
        for file, place, taken, not_taken in branches_of(function):
            if counts(file):
                before = branches[file].get(place, (0, 0))
                branches[file][place] = (before[0] + taken, before[1] + not_taken)

    missing = []
    rows = []
    for file in sorted(lines):
        reached_lines = sum(1 for count in lines[file].values() if count)
        outcomes = reached = 0
        for line, count in lines[file].items():
            if not count:
                missing.append((file, line, 0, "line not reached"))
        for place, (taken, not_taken) in branches[file].items():
            line, column = place[0][:2]
            outcomes += 2
            reached += (taken > 0) + (not_taken > 0)
            if not taken:
                missing.append((file, line, column, "condition never true" + in_macro(place)))
            if not not_taken:
                missing.append((file, line, column, "condition never false" + in_macro(place)))
        rows.append((file, reached_lines, len(lines[file]), reached, outcomes))
    return rows, missing


def decided_of(data, counts):
    """Returns the rows (file, decided conditions, conditions) and what is missing.

    The conditions of a template count in each of its instances: to have decided in another one is
    not enough. An expression that was inlined into several sources is one.
    """
    tally = collections.defaultdict(lambda: [0, 0])
    missing = []
    for function in data["functions"]:
        for file, place, decided in decisions_of(function):
            if not counts(file):
                continue
            tally[file][0] += sum(decided)
            tally[file][1] += len(decided)
            for number, it_did in enumerate(decided, 1):
                if not it_did:
                    what = f"condition {number} of {len(decided)} never decides{in_macro(place)}"
                    missing.append((file, *place[0][:2], f"{what}, in {function['name']}"))
    return [(file, *tally[file]) for file in sorted(tally)], missing


def main(arguments):
    mcdc = arguments[0] == "--mcdc"
    export, root, *folders = arguments[1:] if mcdc else arguments
    with open(export, encoding="utf-8") as stream:
        data = json.load(stream)["data"][0]
    prefixes = tuple(os.path.join(root, folder) + os.sep for folder in folders)

    def counts(file):
        return file.startswith(prefixes)

    rows, missing = decided_of(data, counts) if mcdc else reached_of(data, counts)
    heads = ["conditions"] if mcdc else ["lines", "branches"]
    total = ["all sources"] + [sum(column) for column in list(zip(*rows))[1:]]
    print(f"{'file':36}" + "".join(f" {head:>22}" for head in heads))
    for name, *figures in [(os.path.relpath(row[0], root), *row[1:]) for row in rows] + [total]:
        shares = [share(*pair) for pair in zip(figures[::2], figures[1::2])]
        print(f"{name:36}" + "".join(f" {text:>22}" for text in shares))
    for file, line, column, what in sorted(missing):
        place = f"{os.path.relpath(file, root)}:{line}"
        print(f"{place}:{column}: {what}" if column else f"{place}: {what}")
    return 1 if missing or not rows else 0


def share(reached, all_of_them):
    if not all_of_them:
        return "-"
    # Rounded down, so that 100 % means all.
    percent = reached * 1000 // all_of_them / 10
    return f"{reached}/{all_of_them} {percent:5.1f} %"


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
