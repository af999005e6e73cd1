#!/usr/bin/python3
"""An archive as a table of facts, made by three workers of which one dies; then by one process, which must be equal.

usage: examples/dask/run.py [--messages N] [--parts N]      with mailtree on PYTHONPATH; needs dask.distributed and pandas

Scheduler and workers are processes of this machine; on a cluster they are started by its own means, and the rest
is the same. Dask runs the parts of the worker that died on another one.
"""

from __future__ import annotations

import argparse
import contextlib
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


def write_archive(path: pathlib.Path, count: int) -> None:
    chance = random.Random(7)
    with mailtree.Writer.mbox(path) as box:
        for i in range(count):
            name = chance.choice(NAMES)
            files = f"Content-Type: multipart/mixed; boundary=b{i}\n\n--b{i}\n\nPlan {i}\n--b{i}\n" \
                f"Content-Type: application/pdf; name=plan.pdf\n\n%PDF\n--b{i}--\n" if i % 10 == 0 else "\n"  # fmt: skip
            date = f"{1 + i % 28} {'Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec'.split()[i // 28 % 12]} {2000 + i // 336 % 26}"
            box.add(
                f"From: {name} <{chance.randint(1, 500)}@see.example>\nTo: a@b.example, c@d.example\nSubject: Grüße {i}\n"
                f"Message-ID: <{i}@see.example>\nDate: {date} 09:00:00 +0100\n{files}" + "Bis Samstag am Hafen.\n" * chance.randint(1, 30)
            )


@contextlib.contextmanager
def cluster(workers: int, folder: pathlib.Path) -> Iterator[tuple[str, list[subprocess.Popen[bytes]]]]:
    """A scheduler and workers on the loopback; all end with the block."""
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join([str(HERE), os.environ.get("PYTHONPATH", "")])}
    address_file = folder / "scheduler.json"

    def start(program: str, *options: str) -> subprocess.Popen[bytes]:
        command = [sys.executable, "-m", f"distributed.cli.dask_{program}", *options]
        return subprocess.Popen(command, env=environment, cwd=folder, stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    processes = [start("scheduler", "--host", "127.0.0.1", "--port", "0", "--no-dashboard", "--scheduler-file", str(address_file))]
    try:
        while not address_file.exists():
            time.sleep(0.05)
        options = ["--scheduler-file", str(address_file), "--nthreads", "1", "--no-nanny", "--no-dashboard", "--host", "127.0.0.1"]
        processes += [start("worker", *options) for _ in range(workers)]
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
