#!/usr/bin/env python3
"""Holds the library against voltaris_wire.py over generated messages.

Both must make the same of every message: the same status, the same values, the same log lines, the
same bytes when it is encoded again. Of a message that was not damaged, status 0 is demanded and, if
the library itself would write it so, its very bytes as the result of encoding it again.
"""

import argparse
import collections
import multiprocessing
import os
import shlex
import struct
import subprocess
import sys
import time

import generate
import voltaris_wire as wire

BATCH = 4000
SHOWN_DIFFERENCES = 20


def run_server(command, key, images):
    """Returns what the server says of each image; fewer texts when it died."""
    frames = b"".join(struct.pack(">I", len(image)) + image for image in images)
    done = subprocess.run([*command, key.hex()], input=frames, capture_output=True, check=False)
    texts, at = [], 0
    while at + 4 <= len(done.stdout):
        size = struct.unpack_from(">I", done.stdout, at)[0]
        text = done.stdout[at + 4:at + 4 + size]
        if len(text) < size:
            break
        texts.append(text.decode("latin-1"))
        at += 4 + size
    return texts, done.returncode, done.stderr.decode("latin-1")


def check_message(generated, key, text):
    """Compares one message; returns what is wrong, or None."""
    message, expected = wire.dump_message(generated.image, key)
    if generated.sound and (message.status != wire.OK or not message.created):
        return message, "the generator calls it sound, the Python side refuses it\n" + expected
    if text != expected:
        return message, first_difference(expected, text)
    if generated.exact and "pdu " + generated.image.hex() not in text.split("\n"):
        return message, "encoded again it has other bytes\n" + text
    return message, None


def first_difference(expected, text):
    ours, theirs = expected.split("\n"), text.split("\n")
    for i in range(max(len(ours), len(theirs))):
        line = ours[i] if i < len(ours) else "(nothing)"
        other = theirs[i] if i < len(theirs) else "(nothing)"
        if line != other:
            return f"python:  {line}\nlibrary: {other}"
    return "no line differs"


def check_all(batch, key, texts):
    """Returns (tally, differences) of the messages that the server answered.

    batch is a list of (index, generated message); a difference is (index, description).
    """
    tally, differences = collections.Counter(), []
    for (index, generated), text in zip(batch, texts):
        message, wrong = check_message(generated, key, text)
        tally["messages"] += 1
        tally["sound"] += generated.sound
        tally["encoded to the same bytes"] += generated.exact and not wrong
        tally["damage: " + generated.damage] += 1
        if not message.created:
            tally["status: no event"] += 1
        else:
            tally[f"status: {message.status}"] += 1
        if message.verdict is not None:
            tally["digest right" if message.verdict else "digest wrong"] += 1
        tally["elements"] += len(message.elements or ())
        if wrong:
            where = f"message {index} ({generated.damage}): {generated.image.hex()}"
            differences.append((index, where + "\n" + wrong))
    return tally, differences


def run_batch(job):
    command, seed, first, count = job
    batch = [(index, generate.message(seed, index)) for index in range(first, first + count)]
    images = [generated.image for _, generated in batch]
    texts, status, errors = run_server(command, generate.KEY, images)
    tally, differences = check_all(batch, generate.KEY, texts)
    if status != 0 or len(texts) != len(batch):
        # It writes in blocks, so that the message that killed it is among those not answered.
        differences.append(
            (first + len(texts), f"decode_server ended with {status} and answered {len(texts)} of "
             f"{len(batch)} messages from {first} on\n{errors}"))
    return tally, differences


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--count", type=int, default=3000, help="messages (default: 3000)")
    parser.add_argument("--seed", type=int, default=1, help="of the generator (default: 1)")
    parser.add_argument("--first", type=int, default=0,
                        help="index of the first message (default: 0)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1,
                        help="processes (default: one for each processor)")
    parser.add_argument("server", nargs="+",
                        help="decode_server, and before it what it is to be run by")
    return parser.parse_args()


def show_tally(tally):
    width = len(str(tally["messages"]))
    for name in sorted(tally, key=lambda name: (":" in name, name)):
        print(f"  {tally[name]:>{width}}  {name}")


def main():
    args = arguments()
    jobs = [(args.server, args.seed, first, min(BATCH, args.first + args.count - first))
            for first in range(args.first, args.first + args.count, BATCH)]
    tally, differences, shown = collections.Counter(), 0, 0
    started = told = time.monotonic()
    with multiprocessing.Pool(max(1, min(args.jobs, len(jobs)))) as pool:
        for batch_tally, batch_differences in pool.imap(run_batch, jobs):
            tally += batch_tally
            differences += len(batch_differences)
            for _, text in batch_differences[:max(0, SHOWN_DIFFERENCES - shown)]:
                print(text, flush=True)
                shown += 1
            if time.monotonic() - told > 60:
                told = time.monotonic()
                print(f"{tally['messages']} messages, {differences} differences, "
                      f"{told - started:.0f} s", flush=True)
    show_tally(tally)
    print(f"seed {args.seed}: {tally['messages']} messages, {differences} differences, "
          f"{time.monotonic() - started:.0f} s")
    if tally["messages"] == 0:
        print("no message was compared", file=sys.stderr)
    if differences:
        command = shlex.join(args.server)
        print("one message again: compare.py --seed "
              f"{args.seed} --first INDEX --count 1 -- {command}", file=sys.stderr)
    return 0 if tally["messages"] == args.count and differences == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
