"""What the tests share. They run in the folder of the repository, so that examples can name samples/."""

from __future__ import annotations

import pathlib
from collections.abc import Callable

import pytest
from hypothesis import settings

import mailtree

settings.register_profile("here", database=None, deadline=None, derandomize=True)
settings.load_profile("here")

ROOT = pathlib.Path(__file__).resolve().parents[2]
IDENTITIES = ROOT / "tests" / "data" / "secure"


@pytest.fixture(autouse=True)
def in_root(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(ROOT)


@pytest.fixture
def keys() -> mailtree.Keys:
    """Those of alice and bob, and the root that both are trusted by."""
    ring = mailtree.Keys()
    ring.add_file(IDENTITIES / "alice.p12", "secret")
    for name in ("bob.pem", "bob.key"):
        ring.add_file(IDENTITIES / name)
    ring.add_trust(IDENTITIES / "root.pem")
    return ring


@pytest.fixture
def mbox(tmp_path: pathlib.Path) -> Callable[[int], pathlib.Path]:
    """Writes a mailbox of so many messages, numbered in their subjects."""

    def write(count: int) -> pathlib.Path:
        path = tmp_path / f"{count}.mbox"
        with mailtree.Writer.mbox(path) as box:
            for i in range(count):
                year = 2020 + i % 7
                box.add(f"From: anna@berg.example\nSubject: {i}\nDate: 1 Mar {year} 10:00 +0100\n\nNumber {i}\n")
        return path

    return write
