"""Sources, writers, expressions and messages that are read ahead."""

from __future__ import annotations

import concurrent.futures
import gc
import multiprocessing
import os
import pathlib
import subprocess
import sys
import threading
import time
from collections.abc import Callable

import pytest

import mailtree

Mbox = Callable[[int], pathlib.Path]


@pytest.mark.parametrize("threads", [1, 2, 0, 5])
def test_messages_come_in_order(mbox: Mbox, threads: int) -> None:
    path = mbox(3000)
    with mailtree.messages(path, "samples/plain.eml", threads=threads, memory=100_000) as mails:
        places = [(mail.subject, mail.place.number) for mail in mails if mail.place]
    assert places[:-1] == [(str(i), i + 1) for i in range(3000)] and places[-1][0] == "Boat for Saturday"
    found = [mail.subject for mail in mailtree.messages(path, where="date:2022 subject:9", threads=threads)]
    assert found == [str(i) for i in range(3000) if i % 7 == 2 and "9" in str(i)]


def test_parts_are_all_of_it(mbox: Mbox) -> None:
    path = mbox(100)
    parts = [[mail.subject for mail in mailtree.messages(path, part=(k, 3))] for k in range(3)]
    assert sorted(sum(parts, []), key=int) == [str(i) for i in range(100)] and all(parts)


def test_what_cannot_be_read_stops_nothing(mbox: Mbox) -> None:
    path = mbox(2)
    mails = mailtree.messages("no-such-file", path)
    with pytest.raises(mailtree.errors.UnreadableError, match="no-such-file"):
        next(mails)
    assert [mail.subject for mail in mails] == ["0", "1"]
    skipping = mailtree.messages("no-such-file", path, errors="skip")
    assert len(list(skipping)) == 2 and skipping.skipped == 1


def test_stopping_in_the_middle(mbox: Mbox) -> None:
    path = mbox(2000)
    before = threading.active_count()
    for _ in range(20):
        mails = mailtree.messages(path, memory=1000)
        next(mails)
    del mails
    gc.collect()
    assert threading.active_count() == before
    running = f"import mailtree; mails = mailtree.messages({str(path)!r}, memory=1000); next(mails)"
    assert subprocess.run([sys.executable, "-c", running], timeout=60).returncode == 0  # ended with its threads


def subject_of(mail: mailtree.Message) -> str:
    return mail.subject


def test_other_processes_and_threads(mbox: Mbox) -> None:
    path = mbox(200)
    wanted = [str(i) for i in range(200)]
    with multiprocessing.get_context("fork").Pool(2) as pool:
        assert pool.map(subject_of, mailtree.messages(path)) == wanted
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        assert list(threads.map(subject_of, mailtree.messages(path))) == wanted
    mails = mailtree.messages(path)
    with concurrent.futures.ThreadPoolExecutor(4) as threads:
        taken = threads.map(lambda _: [mail.subject for mail in mails], range(4))  # each message goes to one of them
        assert sorted(sum(taken, []), key=int) == wanted
    mails = mailtree.messages(path)
    child = os.fork()
    if child == 0:
        try:
            next(mails)
        except mailtree.errors.ClosedError:
            os._exit(0)
        os._exit(1)
    assert os.waitpid(child, 0)[1] == 0 and len(list(mails)) == 200


def test_a_child_process_can_use_keys_that_are_at_work(mbox: Mbox, keys: mailtree.Keys) -> None:
    mails = mailtree.messages(mbox(3000), keys=keys, memory=1 << 30)
    next(mails)
    for _ in range(8):
        child = os.fork()
        if child == 0:
            os._exit(mailtree.open("samples/signed.eml", keys=keys).text == "")
        assert os.waitpid(child, 0)[1] == 0  # not held up by a lock of a thread that it does not have
    assert len(list(mails)) == 2999


def test_a_quiet_pipe_holds_nobody_up(tmp_path: pathlib.Path) -> None:
    os.mkfifo(tmp_path / "fifo")
    pipe = os.open(tmp_path / "fifo", os.O_RDWR)
    mails = mailtree.messages(tmp_path / "fifo")
    begin = time.monotonic()
    del mails
    assert time.monotonic() - begin < 10
    os.close(pipe)


def test_writers_keep_what_they_are_given(tmp_path: pathlib.Path) -> None:
    mail = mailtree.open("samples/plain.eml")
    with mailtree.Writer.maildir(tmp_path / "md") as box:
        box.add(mail, flags="S")
        box.add(bytes(mail))
    found = sorted(mailtree.messages(tmp_path / "md"), key=lambda m: m.place.flags or "" if m.place else "")
    assert [m.place.flags for m in found if m.place] == [None, "S"]
    with mailtree.Writer.mbox(tmp_path / "box") as box:
        box.add(found[1], sender="anna@berg.example", date=mail.date)
    place = next(mailtree.Source(tmp_path / "box")).place
    assert (place.sender, place.date, place.path) == ("anna@berg.example", mail.date, f"{tmp_path}/box")
    with mailtree.Writer.folder(tmp_path / "files") as folder:
        folder.add(mail)
    assert mailtree.open(tmp_path / "files" / "000001.eml") == mail


def test_sources_go_to_places(mbox: Mbox) -> None:
    path = mbox(9)
    source = mailtree.Source(path)
    source.seek_number(5)
    fifth = next(source)
    assert source.kind == "mbox" and fifth.message().subject == "4" and b"Number 4" in fifth.data
    offset = fifth.place.offset
    by_place = mailtree.Source(path)
    by_place.seek_offset(offset)
    assert next(by_place).data == fifth.data
    some = mailtree.Source(path)
    some.take_bytes(0, offset)
    assert len(list(some)) == 4


def test_memory_stays_flat() -> None:
    program = """
import gc, mailtree, sys
data = open("samples/attachments.eml", "rb").read()
def resident():
    return int(open("/proc/self/statm").read().split()[1]) * 4096
def load(count):
    for _ in range(count):
        mail = mailtree.parse(data)
        mail.subject, mail.from_, mail.to, mail.date, mail.text, mail.problems, mail.security
        view = mail.attachments[0].data
        mail.subject = "changed"
    gc.collect()
load(2000)
before = resident()
load(int(sys.argv[1]))
grown = resident() - before
sys.exit(f"grown by {grown} bytes" if grown > 2_000_000 else 0)
"""
    loads = os.environ.get("MAILTREE_LOADS", "10000")
    subprocess.run([sys.executable, "-c", program, loads], check=True)
