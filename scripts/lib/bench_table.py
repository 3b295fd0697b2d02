"""Prints the table of scripts/bench.

usage: bench_table.py [--bits 32|64] [--scale N] [--strict] RESULT...

Each RESULT is a JSON file as Google Benchmark writes it. Of a benchmark, the counters "ours",
"floor" (or the peer's figure), "ratio" and "excess" are read, from the median of its repetitions
where there is one. Any program can add a row: a file with the name and the counters, and a line in
ROWS. Rows without a result are left out. With --strict the exit status is 1 unless all goals of the
rows printed are met.
"""
import argparse
import collections
import json

# A row names its benchmark, what is measured, the unit of ours and the floor, which of the counters
# the goal is about, and the most that it may be in 64 and in 32 bits; None: reported only.
# "speedup" is how many times the floor is ours, and its goal is the least that it may be.
Row = collections.namedtuple("Row", "row benchmark measure floor unit figure goal64 goal32")

ROWS = [
    Row("P1", "P1/decode", "verify, decode, release a full reply",
        "HMAC of its bytes", "ns", "ratio", 2.0, 2.7),
    Row("P2", "P2/collect/20", "the same with fold and walk, 20 replies a result",
        "HMAC of its bytes", "ns", "ratio", 3.0, 4.0),
    Row("P2", "P2/collect/1", "the same, one reply a result",
        "HMAC of its bytes", "ns", "ratio", None, None),
    Row("P3", "P3/decode", "allocations to decode, above one an element",
        "elements", "", "excess", 3, 3),
    Row("P3", "P3/growth", "allocations to decode 29 rows, above those of 1 row",
        "those of 1 row", "", "excess", 0, 0),
    Row("P3", "P3/fold", "allocations to fold, above one for 64 attributes",
        "attributes / 64", "", "excess", 4, 4),
    Row("P4", "P4/net_snmp", "verify, decode, release a value of a full reply",
        "net-snmp v3", "ns", "ratio", 1 / 12, None),
    Row("P4", "P4/protobuf_c", "decode and release it, not verified",
        "protobuf-c", "ns", "ratio", 0.4, None),
    Row("P4", "P4/libcbor_maps", "the same",
        "libcbor, rows as maps", "ns", "ratio", 0.1, None),
    Row("P4", "P4/libcbor_arrays", "the same",
        "libcbor, rows as arrays", "ns", "ratio", 0.1, None),
    Row("P5", "P5/full_replies", "a value of 10000 rows over loopback, full replies",
        "snmpbulkwalk", "ns", "speedup", 20, None),
    Row("P5", "P5/single_rows", "the same, one row a reply",
        "snmpbulkwalk", "ns", "speedup", 3, None),
    Row("P6a", "P6a/random", "find or insert a device among {scale}, random arrival",
        "among 1000", "ns", "ratio", 3.5, 2.5),
    Row("P6a", "P6a/sorted", "the same, sorted arrival",
        "among 1000", "ns", "ratio", 2.2, 2.2),
    Row("P6a", "P6a/reverse", "the same, reverse arrival",
        "among 1000", "ns", "ratio", 2.2, 2.2),
    Row("P6b", "P6b/known", "find a known device among {scale}",
        "calloc and free", "ns", "ratio", 6.0, 6.0),
    Row("P6c", "P6c/whole_path", "whole path of a row of {scale}, random arrival",
        "of 1000", "ns", "ratio", 5.0, 4.0),
    Row("P7", "P7/full_replies", "peak heap for a row of 4 values, full replies",
        "", "bytes", "ours", 1200, 1000),
    Row("P7", "P7/one_row_a_reply", "the same, one row a reply",
        "", "bytes", "ours", 1200, 1000),
    Row("P8", "P8/full_replies", "release a row of {scale}, full replies",
        "building it", "ns", "ratio", 0.1, 0.1),
    Row("P8", "P8/one_row_a_reply", "release a row of {scale}, one row a reply",
        "building it", "ns", "ratio", 0.1, 0.1),
    Row("P9", "P9/one_row", "query over loopback, one reply of one row",
        "bare loop", "ns", "ratio", 1.05, 1.05),
    Row("P9", "P9/full_reply", "query over loopback, one full reply",
        "bare loop", "ns", "ratio", 1.05, 1.05),
    Row("P9", "P9/calls_of_reply", "system calls of a reply",
        "", "", "ours", 4, 4),
    Row("P9", "P9/calls_of_query", "system calls of a query besides",
        "", "", "ours", 8, 8),
    Row("P10", "P10/size", "size of the stripped library",
        "", "bytes", "ours", 160000, 160000),
    Row("P10", "P10/relocations", "dynamic relocations",
        "", "", "ours", 150, 150),
    Row("P10", "P10/load", "dlopen and dlclose",
        "libcoap without TLS", "ns", "ratio", 1.2, 1.2),
    Row("P11", "P11/build_and_sign", "build and sign a query of 8 attributes, 3 qualifiers",
        "HMAC of its bytes", "ns", "ratio", 4.0, None),
    Row("P13", "P13/acknowledgements", "collect and sort {scale} acknowledgements, each",
        "memcpy and qsort", "ns", "ours", 300, None),
    Row("P14", "P14/one_row", "a node of 2000 at once through one thread, one row",
        "bare connections", "ns", "ratio", 1.3, 1.3),
    Row("P14", "P14/full_reply", "the same, one full reply",
        "bare connections", "ns", "ratio", 1.3, 1.3),
    Row("P14", "P14/threads", "a node of 2000 at once through one thread, one row",
        "a thread for each", "ns", "ratio", None, None),
]

# What Google Benchmark appends to names.
SUFFIXES = ("manual_time", "real_time")


def plain_name(name):
    parts = name.split("/")
    return "/".join(part for part in parts if part not in SUFFIXES and ":" not in part)


def read_results(files):
    """Returns the counters of each benchmark by its name."""
    results = {}
    for file in files:
        with open(file, encoding="utf-8") as stream:
            benchmarks = json.load(stream)["benchmarks"]
        for entry in benchmarks:
            aggregate = entry.get("aggregate_name", "")
            if aggregate not in ("", "median"):
                continue
            name = plain_name(entry.get("run_name", entry["name"]))
            # A median follows the repetitions that it is of.
            results[name] = entry
    return results


def number(value, unit=""):
    if value is None:
        return ""
    if value >= 1000 or value == int(value):
        text = f"{value:.0f}"
    else:
        text = f"{value:.3g}" if value < 100 else f"{value:.1f}"
    return f"{text} {unit}".strip()


def cells(row, result, bits, scale):
    """Returns the cells of a row, and whether its goal is met, None where there is none."""
    goal = row.goal64 if bits == 64 else row.goal32
    floor = result.get("floor")
    ratio = result.get("ratio")
    at_least = row.figure == "speedup"
    figure = 1 / ratio if at_least else result[row.figure]
    if goal is None:
        met = None
    else:
        met = figure >= goal if at_least else figure <= goal
    unit = {"ratio": "x", "speedup": "x", "ours": row.unit, "excess": ""}[row.figure]
    bound = (">= " if at_least else "<= ") + ("+" if row.figure == "excess" else "")
    if row.figure == "excess":
        ratio_text = f"{figure:+.0f}"
    elif at_least:
        ratio_text = f"1 : {number(figure)}"
    elif ratio is None:
        ratio_text = ""
    else:
        ratio_text = f"{ratio:.2f} x" if ratio >= 0.2 else f"{ratio:.3f} x"
    return [
        row.row,
        row.measure.format(scale=scale),
        number(result["ours"], row.unit),
        f"{row.floor}: {number(floor, row.unit)}" if floor is not None else "",
        ratio_text,
        "report" if goal is None else bound + number(goal, unit),
        {None: "", True: "met", False: "NOT met"}[met],
    ], met


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bits", type=int, choices=(32, 64), default=64)
    parser.add_argument("--scale", type=int, default=100000)
    parser.add_argument("--strict", action="store_true")
    parser.add_argument("results", nargs="+")
    options = parser.parse_args()

    results = read_results(options.results)
    table = [["row", "measure", "ours", "floor or peer", "ratio", "goal", ""]]
    verdicts = []
    for row in ROWS:
        if row.benchmark not in results:
            continue
        line, met = cells(row, results[row.benchmark], options.bits, options.scale)
        table.append(line)
        verdicts.append(met)
    unknown = set(results) - {row.benchmark for row in ROWS}
    if unknown:
        raise SystemExit("bench_table: no row for " + ", ".join(sorted(unknown)))

    widths = [max(len(line[i]) for line in table) for i in range(len(table[0]))]
    right = (2, 4)
    for line in table:
        print("  ".join(
            text.rjust(width) if i in right else text.ljust(width)
            for i, (text, width) in enumerate(zip(line, widths))).rstrip())
    missed = verdicts.count(False)
    print(f"{options.bits} bits: {verdicts.count(True)} goals met, {missed} not met")
    return 1 if options.strict and missed else 0


if __name__ == "__main__":
    raise SystemExit(main())
