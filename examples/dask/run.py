#!/usr/bin/python3
"""An archive as a table of facts, made by three workers of which one dies; then by one process, which must be equal.

usage: examples/dask/run.py [--messages N] [--parts N]      with mailtree on PYTHONPATH; needs dask.distributed and pandas

Scheduler and workers are processes of this machine; on a cluster they are started by its own means, and the rest
is the same. Dask runs the parts of the worker that died on another one.
"""

from __future__ import annotations

import argparse
import contextlib
import datetime
import email.utils
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator

import pandas
from distributed import Client, as_completed

import mailtree

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
from facts import table_of  # noqa: E402

NAMES = ["anna", "jörg", "carmen", "rené", "jo"]
FILE = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\n{}--b\nContent-Type: application/pdf; name=plan.pdf\n\n%PDF\n--b--\n"


def write_archive(path: pathlib.Path, count: int) -> None:
    """A few write much, and there is more mail from year to year; every tenth message has a file."""
    chance = random.Random(7)
    begin = datetime.datetime(2010, 1, 1, tzinfo=datetime.timezone.utc)
    with mailtree.Writer.mbox(path) as box:
        for i in range(count):
            sender = min(int(chance.paretovariate(0.6)), 500)
            date = begin + datetime.timedelta(days=16 * 365 * chance.random() ** 0.6)
            text = "Bis Samstag am Hafen.\n" * chance.randint(1, 30)
            box.add(
                f"From: {chance.choice(NAMES)} <{sender}@see.example>\nTo: a@b.example, c@d.example\nSubject: Grüße {i}\n"
                f"Message-ID: <{i}@see.example>\nDate: {email.utils.format_datetime(date)}\n"
                + (FILE.format(text) if i % 10 == 0 else "\n" + text)
            )


@contextlib.contextmanager
def cluster(workers: int, folder: pathlib.Path) -> Iterator[tuple[str, list[subprocess.Popen[bytes]]]]:
    """A scheduler and workers on the loopback; all end with the block."""
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join([str(HERE), os.environ.get("PYTHONPATH", "")])}
    address_file = folder / "scheduler.json"

    def start(program: str, *options: str) -> subprocess.Popen[bytes]:
        command = [sys.executable, "-m", f"distributed.cli.dask_{program}", *options]
        return subprocess.Popen(command, env=environment, cwd=folder, stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    shared = ["--scheduler-file", str(address_file), "--host", "127.0.0.1", "--no-dashboard"]
    processes = [start("scheduler", "--port", "0", *shared)]
    try:
        while not address_file.exists():
            time.sleep(0.05)
        processes += [start("worker", "--nthreads", "1", "--no-nanny", *shared) for _ in range(workers)]
        yield str(address_file), processes[1:]
    finally:
        for process in processes:
            process.terminate()
        for process in processes:
            process.wait()


def distributed_table(path: pathlib.Path, parts: int, folder: pathlib.Path) -> pandas.DataFrame:
    with cluster(3, folder) as (address, workers), Client(scheduler_file=address) as client:
        client.wait_for_workers(3)
        tasks = client.map(table_of, [path] * parts, range(parts), [parts] * parts)
        for done, _ in enumerate(as_completed(tasks), 1):
            if done == parts // 4:
                workers[0].send_signal(signal.SIGKILL)
                print(f"one of three workers was killed after {done} of {parts} parts", flush=True)
                break
        tables = client.gather(tasks)
    return pandas.concat(tables, ignore_index=True)


def main() -> None:
    options = argparse.ArgumentParser()
    options.add_argument("--messages", type=int, default=200_000)
    options.add_argument("--parts", type=int, default=48)
    given = options.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        path = folder / "archive.mbox"
        write_archive(path, given.messages)
        print(f"{given.messages:,} messages, {path.stat().st_size / 1e6:.0f} MB", flush=True)
        begin = time.perf_counter()
        together = distributed_table(path, given.parts, folder)
        middle = time.perf_counter()
        alone = table_of(path, 0, 1, threads=0)
        end = time.perf_counter()
    print(f"three workers: {middle - begin:.1f} s with their start; one process: {end - middle:.1f} s")
    pandas.testing.assert_frame_equal(together, alone)
    assert len(alone) == given.messages
    print(f"the tables are equal: {len(alone):,} rows, {alone.files.sum():,} files, {alone.sender.nunique()} senders")


if __name__ == "__main__":
    main()
