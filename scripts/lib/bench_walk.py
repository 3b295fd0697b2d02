"""Measures the transfer of a table over loopback against snmpbulkwalk, and writes the results.

usage: bench_walk.py RESULT REPETITIONS FOLDER

FOLDER has the programs table_probe and peer_snmp_agent, which serve the same table. snmpbulkwalk
and table_probe ask for it in turn, each as a process that prints every value, and for one of a
single row, which is taken off: what is left is the time of the values, without starting a process,
deriving keys and finding out about each other. snmpbulkwalk asks for as many values at once as it
gets through fastest with; 3000 do not fit into a datagram.
"""
import contextlib
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROWS = 10000
COLUMNS = 4
REPEATERS = 1000
PASSPHRASE = "bench passphrase"
BIG_TABLE = ".1.3.6.1.4.1.32473.1"
ONE_ROW_TABLE = ".1.3.6.1.4.1.32473.2"
IN_FULL_REPLIES, IN_SINGLE_ROWS, ONE_ROW = "1", "2", "3"


@contextlib.contextmanager
def serving(command, environment):
    """Runs a server and yields the port that it prints."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                          env=environment) as server:
        try:
            yield server.stdout.readline().strip()
        finally:
            server.kill()


def seconds(command, environment, lines):
    """Returns how long a client takes, which has to print so many lines."""
    with tempfile.TemporaryFile() as output:
        start = time.perf_counter()
        subprocess.run(command, env=environment, stdout=output, check=True)
        elapsed = time.perf_counter() - start
        output.seek(0)
        printed = output.read()
    if printed.count(b"\n") != lines:
        raise SystemExit(f"bench_walk: {command[0]} did not print {lines} values")
    return elapsed


def main(result, repetitions, folder):
    probe = os.path.join(folder, "table_probe")
    walk = ["snmpbulkwalk", "-v3", "-l", "authNoPriv", "-a", "SHA", "-A", PASSPHRASE, "-u", "bench",
            "-Onq", f"-Cr{REPEATERS}"]
    with contextlib.ExitStack() as stack:
        home = stack.enter_context(tempfile.TemporaryDirectory(prefix="vtapi-bench-"))
        with open(os.path.join(home, "bench.conf"), "w", encoding="utf-8") as configuration:
            configuration.write(f'createUser bench SHA "{PASSPHRASE}"\nrouser bench auth\n')
        # Nothing of the machine's own configuration, no names to look up, nothing kept.
        environment = {**os.environ, "MIBS": "", "SNMPCONFPATH": home, "SNMP_PERSISTENT_DIR": home}
        agent = stack.enter_context(
            serving([os.path.join(folder, "peer_snmp_agent")], environment))
        node = stack.enter_context(serving([probe, "serve"], environment))
        clients = {
            "walk": ([*walk, f"127.0.0.1:{agent}", BIG_TABLE], ROWS * COLUMNS),
            # Behind the last table it tells that there is nothing more.
            "walk of one row": ([*walk, f"127.0.0.1:{agent}", ONE_ROW_TABLE], COLUMNS + 1),
            "full replies": ([probe, "ask", node, IN_FULL_REPLIES], ROWS * COLUMNS),
            "single rows": ([probe, "ask", node, IN_SINGLE_ROWS], ROWS * COLUMNS),
            "one row": ([probe, "ask", node, ONE_ROW], COLUMNS),
        }
        times = {name: [] for name in clients}
        for _ in range(repetitions):
            for name, (command, lines) in clients.items():
                times[name].append(seconds(command, environment, lines))

    median = {name: statistics.median(values) for name, values in times.items()}

    def ns_per_value(name, base):
        return (median[name] - median[base]) * 1e9 / ((ROWS - 1) * COLUMNS)

    peer = ns_per_value("walk", "walk of one row")
    benchmarks = []
    for name in ("full replies", "single rows"):
        ours = ns_per_value(name, "one row")
        benchmarks.append({"name": "P5/" + name.replace(" ", "_"),
                           "ours": ours, "floor": peer, "ratio": ours / peer})
    with open(result, "w", encoding="utf-8") as out:
        json.dump({"benchmarks": benchmarks, "seconds": times}, out, indent=2)


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]), sys.argv[3])
