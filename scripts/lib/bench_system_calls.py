"""Counts the system calls of a query and of a reply with strace, and writes them as results.

usage: bench_system_calls.py RESULT PROGRAM...

PROGRAM is exchange_probe, with what it is run by in front. Runs that differ in the number of
queries or of replies alone are compared, so that starting and ending the client do not count.
"""
import json
import subprocess
import sys
import tempfile

QUERIES = 200
REPLIES = 21


def count_calls(program, port, queries, replies):
    """Returns how many system calls a client makes, and fails when one of its queries does."""
    with tempfile.NamedTemporaryFile("r", encoding="utf-8") as summary:
        subprocess.run(
            ["strace", "-f", "-c", "-U", "calls,name", "-o", summary.name,
             *program, "ask", str(port), str(queries), str(replies)],
            check=True)
        lines = [line.split() for line in summary]
    # Each word size has a table of its own: a 32-bit client is started by 64-bit programs.
    return sum(int(words[0]) for words in lines if words[1:] == ["total"])


def main(result, program):
    with subprocess.Popen([*program, "serve"], stdout=subprocess.PIPE, text=True) as server:
        try:
            port = int(server.stdout.readline())
            base = count_calls(program, port, QUERIES, 1)
            more_queries = count_calls(program, port, 2 * QUERIES, 1)
            more_replies = count_calls(program, port, QUERIES, REPLIES)
        finally:
            server.kill()
    a_reply = (more_replies - base) / (QUERIES * (REPLIES - 1))
    a_query = (more_queries - base) / QUERIES - a_reply
    if a_reply < 1 or a_query < 1:
        raise SystemExit("bench_system_calls: strace did not see the exchanges")
    with open(result, "w", encoding="utf-8") as out:
        json.dump({"benchmarks": [
            {"name": "P9/calls_of_reply", "ours": a_reply},
            {"name": "P9/calls_of_query", "ours": a_query},
        ]}, out, indent=2)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
