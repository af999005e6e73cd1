#!/usr/bin/python3
"""The module beside Python's standard library, on the same mail, in one run.

usage: bench/python_module.py [--mbox-bytes N] [--rounds N]      with the module on PYTHONPATH

Prints lines "GROUP/SET/WHAT VALUE UNIT: ...", as scripts/bench-table reads them.
"""

from __future__ import annotations

import argparse
import email
import email.message
import email.policy
import mailbox
import pathlib
import random
import statistics
import sys
import tempfile
import time
from collections.abc import Callable
from email.headerregistry import Address
from typing import Any

import mailtree

WORDS = "Wir sehen uns am Samstag um neun im Hafen bei der Fähre bring bitte warme Jacken Öl und den Plan mit".split()


def short_mail(chance: random.Random) -> bytes:
    """1-6 kB: what a mailing list or a colleague sends."""
    text = "\n".join(" ".join(chance.choices(WORDS, k=12)) for _ in range(chance.randint(5, 70)))
    received = "".join(
        f"Received: from mx{i}.see.example (mx{i}.see.example [192.0.2.{i}])\n"
        f"\tby mail.berg.example with ESMTPS id {chance.random()}\n"
        f"\tfor <jo@see.example>; Tue, 14 Apr 2026 09:12:4{i} +0200\n"
        for i in range(4)
    )
    return (
        f"{received}Date: Tue, {chance.randint(1, 28)} Apr 2026 09:{chance.randint(10, 59)}:31 +0200\n"
        f"From: =?utf-8?q?J=C3=B6rg_M=C3=BCller?= <joerg{chance.randint(1, 99)}@mueller.example>\n"
        f"To: Jo Berg <jo@see.example>, =?utf-8?q?Ren=C3=A9?= <rene@see.example>\n"
        f"Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?= {chance.randint(1, 999)}\nMessage-ID: <{chance.random()}@see.example>\n"
        f"MIME-Version: 1.0\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\n{text}\n"
    ).encode()


def ours(mail: mailtree.Message) -> int:
    facts = (mail.subject, mail.from_, mail.to, mail.date, mail.text)
    return len(facts[4])


def theirs(message: Any) -> int:
    body = message.get_body(("plain", "html"))
    text = body.get_content() if body else ""
    facts = (message["subject"], message["from"].addresses, message["to"].addresses, message["date"].datetime, text)
    return len(facts[4])


def compare(name: str, rounds: int, our: Callable[[], int], their: Callable[[], int], amount: str) -> None:
    """Alternating, so that noise affects both."""
    seconds: tuple[list[float], list[float]] = ([], [])
    for _ in range(rounds):
        results = []
        for times, run in zip(seconds, (our, their)):
            begin = time.perf_counter()
            results.append(run())
            times.append(time.perf_counter() - begin)
        assert abs(results[0] - results[1]) <= 0.02 * max(results), (name, results)
    one, other = statistics.median(seconds[0]), statistics.median(seconds[1])
    print(f"python/{name}/standard_library {other / one:.1f} times as fast: {one:.3f} s, not {other:.2f} s, for {amount}")
    sys.stdout.flush()


def bench_loading(rounds: int) -> None:
    chance = random.Random(1)
    mails = [short_mail(chance) for _ in range(400)]
    compare(
        "load",
        rounds,
        lambda: sum(ours(mailtree.parse(mail)) for mail in mails),
        lambda: sum(theirs(email.message_from_bytes(mail, policy=email.policy.default)) for mail in mails),
        f"{len(mails)} short mails",
    )


def bench_mailbox(folder: pathlib.Path, size: int) -> None:
    chance = random.Random(2)
    mails = [b"From jo@see.example Tue Apr 14 09:12:44 2026\n" + short_mail(chance) + b"\n" for _ in range(2000)]
    path, count = folder / "large.mbox", 0
    with open(path, "wb") as file:
        while file.tell() < size:
            file.write(mails[count % len(mails)])
            count += 1

    def iterate_standard() -> int:
        def read(file: Any) -> Any:
            return email.message_from_binary_file(file, policy=email.policy.default)

        return sum(theirs(message) for message in mailbox.mbox(path, factory=read, create=False))

    def iterate() -> int:
        return sum(ours(mail) for mail in mailtree.messages(path))

    compare("mailbox", 1, iterate, iterate_standard, f"{count:,} messages in an mbox of {size / 1e6:.0f} MB")


def bench_composing(rounds: int) -> None:
    chance = random.Random(3)
    images = [chance.randbytes(300_000) for _ in range(2)]
    files = [chance.randbytes(1_100_000) for _ in range(4)]
    text = "\n".join(" ".join(chance.choices(WORDS, k=12)) for _ in range(400))
    html = f"<p>{text}</p><img src='cid:0@see.example'><img src='cid:1@see.example'>"

    def compose_ours() -> int:
        mail = mailtree.compose(from_="Jörg <joerg@see.example>", to="jo@see.example", subject="Grüße", text=text, html=html)
        for i, image in enumerate(images):
            mail.add_inline(f"{i}.png", image, content_id=f"{i}@see.example")
        for i, data in enumerate(files):
            mail.attach(f"Übersicht {i}.pdf", data)
        return len(mail.as_bytes())

    def compose_standard() -> int:
        message = email.message.EmailMessage(policy=email.policy.SMTP)
        message["From"] = Address("Jörg", addr_spec="joerg@see.example")
        message["To"], message["Subject"] = "jo@see.example", "Grüße"
        message.set_content(text)
        message.add_alternative(html, subtype="html")
        related: Any = message.get_payload(1)
        for i, image in enumerate(images):
            related.add_related(image, "image", "png", cid=f"<{i}@see.example>")
        for i, data in enumerate(files):
            message.add_attachment(data, maintype="application", subtype="pdf", filename=f"Übersicht {i}.pdf")
        return len(message.as_bytes())

    compare("compose", rounds, compose_ours, compose_standard, "a message of 5 MB of files")


def main() -> None:
    options = argparse.ArgumentParser()
    options.add_argument("--mbox-bytes", type=int, default=100_000_000)
    options.add_argument("--rounds", type=int, default=5)
    given = options.parse_args()
    bench_loading(given.rounds)
    bench_composing(given.rounds)
    with tempfile.TemporaryDirectory() as folder:
        bench_mailbox(pathlib.Path(folder), given.mbox_bytes)


if __name__ == "__main__":
    main()
