"""Run by scripts/tool-load: how soon voltaris asks, and what very many nodes take."""
import argparse
import os
import resource
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

DEVICES = 13  # of examples/office.toml
FLOOR = 'exec 3<>"/dev/tcp/127.0.0.1/$0" && echo >&3'  # bash alone


def milliseconds(seconds):
    return f"{seconds * 1e3:.2f} ms"


def first_byte(listener, command):
    """The time from before a process is made to its first bytes."""
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    connection, _ = listener.accept()
    with connection:
        if not connection.recv(1):
            sys.exit(f"{command[0]} sent nothing")
        took = time.monotonic() - start
    process.wait()
    return took


def show_start(voltaris, runs):
    with socket.create_server(("127.0.0.1", 0)) as listener:
        port = str(listener.getsockname()[1])
        for name, command in (("voltaris", [voltaris, "collect", "-n", f"127.0.0.1:{port}"]),
                              ("bash", ["bash", "-c", FLOOR, port])):
            times = [first_byte(listener, command) for _ in range(runs)]
            print(f"start to first byte of {name}: least {milliseconds(min(times))}, median "
                  f"{milliseconds(statistics.median(times))}, most {milliseconds(max(times))}")


class Crowd:
    """Nodes, each a process of its own; they end with it."""

    def __init__(self, program, configuration, count):
        self.processes = [subprocess.Popen(
            [program, "--config", configuration, "--listen", "127.0.0.1:0", "--log-level", "fatal"],
            stdout=subprocess.PIPE, text=True) for _ in range(count)]
        self.addresses = [process.stdout.readline().split()[-1] for process in self.processes]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.terminate()
        for process in self.processes:
            process.wait()
            process.stdout.close()


def watch_descriptors(pid, found, ended):
    while not ended.wait(0.002):
        try:
            found.append(len(os.listdir(f"/proc/{pid}/fd")))
        except OSError:
            return


def collect(voltaris, targets, nodes, fanout):
    """Seconds, kilobytes and descriptors of one collection from all nodes."""
    command = [voltaris, "collect", "-d", "office", "-N", targets, "-o", "csv", "-F", str(fanout)]
    start = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
    descriptors = [0]
    ended = threading.Event()
    watcher = threading.Thread(target=watch_descriptors, args=(process.pid, descriptors, ended))
    watcher.start()
    lines = process.stdout.read().count("\n") - 1
    _, status, usage = os.wait4(process.pid, 0)
    took = time.monotonic() - start
    ended.set()
    process.returncode = os.waitstatus_to_exitcode(status)
    watcher.join()
    if process.returncode != 0 or lines != DEVICES * nodes:
        sys.exit(f"{lines} rows of {nodes} nodes, exit code {process.returncode}")
    return took, usage.ru_maxrss, max(descriptors)


def show_crowd(folder, configuration, nodes, runs):
    voltaris = os.path.join(folder, "voltaris")
    with tempfile.TemporaryDirectory() as scratch, \
            Crowd(os.path.join(folder, "voltaris-node"), configuration, nodes) as crowd:
        targets = os.path.join(scratch, "targets.toml")
        with open(targets, "w", encoding="ascii") as file:
            for address in crowd.addresses:
                file.write(f'[[target]]\nname = "{address}"\n')
        for fanout in (256, nodes):
            figures = [collect(voltaris, targets, nodes, fanout) for _ in range(runs)]
            times, kilobytes, descriptors = zip(*figures)
            print(f"{nodes} nodes, {fanout} at once: least {min(times):.2f} s, median "
                  f"{statistics.median(times):.2f} s, most {max(times):.2f} s; "
                  f"{max(kilobytes)} KB, {max(descriptors)} descriptors")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("configuration")
    parser.add_argument("--nodes", type=int, default=2000)
    parser.add_argument("--runs", type=int, default=20)
    options = parser.parse_args()
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    # A descriptor here for each node's output, and one there for its connection.
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(most, options.nodes + 100), most))
    show_start(os.path.join(options.folder, "voltaris"), options.runs)
    show_crowd(options.folder, options.configuration, options.nodes, options.runs)


if __name__ == "__main__":
    main()
