"""Real messages, of a folder that MAILTREE_CORPUS names, give the facts on which other parsers agree."""

from __future__ import annotations

import json
import os
import pathlib
import re
from typing import Any

import pytest

import mailtree

CORPUS = os.environ.get("MAILTREE_CORPUS", "")
EXPECTED = pathlib.Path(CORPUS, "expected")


def facts_of(mail: mailtree.Message) -> dict[str, Any]:
    def lowered(address: mailtree.Address) -> str:
        local, at, domain = address.address.rpartition("@")
        return local + at + domain.lower()

    return {
        "subject": re.sub(r"\s+", " ", mail.subject).strip() or None,
        "from": lowered(mail.from_) or None if mail.from_ else None,
        "to": [lowered(each) for each in mail.to if each.address],
        "date": int(mail.date.timestamp()) if mail.date else None,
    }


@pytest.mark.skipif(not (CORPUS and EXPECTED.is_dir()), reason="there is no MAILTREE_CORPUS/expected")
def test_facts_of_real_messages() -> None:
    different = []
    for path in sorted(EXPECTED.glob("*.json")):
        expected = json.loads(path.read_text(encoding="utf-8"))
        facts = facts_of(mailtree.open(pathlib.Path(CORPUS, "messages", expected["file"])))
        contested = expected.get("contested", {})
        different += [(path.name, key) for key, fact in facts.items()
                      if key not in contested and expected["facts"].get(key, fact) != fact]  # fmt: skip
    assert len(different) <= 3, different  # dates that others do not read
