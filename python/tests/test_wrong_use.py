"""What a program may do wrong raises an error, and bad input raises errors of this package only."""

from __future__ import annotations

import concurrent.futures
import datetime
import os
import pathlib
import pickle
import random
from collections.abc import Callable
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import mailtree
from mailtree import errors


def sample() -> mailtree.Message:
    return mailtree.open("samples/attachments.eml")


WRONG: list[tuple[type[BaseException], Callable[[mailtree.Message], Any]]] = [
    (errors.BadValueError, lambda mail: setattr(mail, "from_", "not an address")),
    (errors.BadValueError, lambda mail: setattr(mail, "subject", "half \ud800")),
    (errors.BadValueError, lambda mail: setattr(mail, "date", datetime.datetime(2026, 1, 1))),
    (TypeError, lambda mail: setattr(mail, "date", "today")),
    (TypeError, lambda mail: setattr(mail, "to", 5)),
    (TypeError, lambda mail: setattr(mail, "references", "one@see.example")),
    (errors.NotFoundError, lambda mail: mail["X-None"]),
    (KeyError, lambda mail: mail["X-None"]),
    (errors.BadValueError, lambda mail: mail.add_header("X", "a\r\nBcc: b@c")),
    (errors.BadValueError, lambda mail: mail.set_charset("utf-16")),
    (errors.BadValueError, lambda mail: mail.attachments[0].message()),
    (errors.BadValueError, lambda mail: mail.remove(sample().attachments[0])),
    (errors.BadValueError, lambda mail: mail.remove(mail.root)),
    (errors.UnreadableError, lambda mail: mail.attach_file("no/such/file")),
    (errors.UnwritableError, lambda mail: mail.save("no/such/folder/file.eml")),
    (errors.NoRecipientError, lambda mail: mailtree.Message().check()),
    (errors.NoKeyError, lambda mail: mail.sign(mailtree.Keys())),
    (errors.NoKeyError, lambda mail: mailtree.Keys().add_data(b"nothing")),
    (errors.BadValueError, lambda mail: mailtree.open("nul\0byte")),
    (errors.BadValueError, lambda mail: mailtree.messages("samples", where="size:")),
    (errors.BadValueError, lambda mail: mailtree.messages("samples", part=(3, 3))),
    (TypeError, lambda mail: mailtree.messages(5)),  # type: ignore[arg-type]
    (TypeError, lambda mail: mailtree.messages("samples", threads=-1)),
    (TypeError, lambda mail: mailtree.Part()),
    (TypeError, lambda mail: pickle.dumps(mail.attachments[0], 0)),
    (TypeError, lambda mail: setattr(mail, "calendar", 5)),
    (TypeError, lambda mail: mailtree.Message.from_email(None)),  # type: ignore[arg-type]
    (errors.BadValueError, lambda mail: mailtree.Source("samples").take_bytes(0, 1)),
]


@pytest.mark.parametrize("kind, use", WRONG)
def test_wrong_use_raises(kind: type[BaseException], use: Callable[[mailtree.Message], Any]) -> None:
    mail = sample()
    part = mail.attachments[0]
    with pytest.raises(kind):
        use(mail)
    assert mail == sample() and part.size == 584  # nothing has changed


def test_parts_of_a_changed_message() -> None:
    mail = sample()
    root, file = mail.root, mail.attachments[0]
    data = file.data
    before = bytes(data)
    mail.remove(file)
    uses: list[Callable[[], Any]] = [
        lambda: root.id, lambda: file.data, lambda: mail.remove(file), lambda: root.parts, lambda: file.save_in("."),
    ]  # fmt: skip
    for use in uses:
        with pytest.raises(errors.StaleError):
            use()
    assert "changed" in repr(file) and data == before
    mail.text = "new" * 1000
    mail.close()
    del mail, root, file
    assert data == before and data.readonly


def test_views_keep_what_they_show() -> None:
    mail = mailtree.compose(from_="a@b.example", to="c@d.example", text="one\ntwo\n")
    view = mail.parts[-1].data
    before = bytes(view)
    bytes(mail), mail.reply(from_="c@d.example"), mail.forward(from_="c@d.example")
    for change in (b"\n" * 100, b"z" * 100_000):
        mail.text = change.decode()
        mail.attach("a.bin", change)
    assert view == before


def test_closed_things_raise() -> None:
    mail, source = sample(), mailtree.Source("samples")
    part, mails = mail.root, mailtree.messages("samples")
    close: list[Callable[[], None]] = [mail.close, mail.close, source.close, mails.close]
    for each in close:
        each()
    uses: list[Callable[[], Any]] = [
        lambda: mail.subject, lambda: setattr(mail, "subject", "x"), lambda: mail.parts, lambda: bytes(mail),
        lambda: part.text, lambda: mail.__enter__(), lambda: next(source), lambda: next(mails),
        lambda: mailtree.Message().attach_message(mail), lambda: mailtree.conversations([mail]),
    ]  # fmt: skip
    for use in uses:
        with pytest.raises(errors.ClosedError):
            use()
    assert mail.closed and source.closed and mails.closed and mail == mail


def test_threads_share_a_message(keys: mailtree.Keys) -> None:
    mail, other = sample(), sample()

    def work(seed: int) -> None:
        chance = random.Random(seed)
        uses: list[Callable[[], Any]] = [
            lambda: [bytes(p.data) for p in mail.attachments], lambda: setattr(mail, "subject", str(seed)),
            lambda: mail.attach("a.txt", b"x" * seed), lambda: mail.remove(mail.attachments[-1]),
            lambda: mail.attach_message(other), lambda: other.attach_message(mail) if len(bytes(mail)) < 20000 else None,
            lambda: mail == other, lambda: mail.verify(keys), lambda: mail.text, lambda: bytes(mail),
            lambda: mail.remove(*mail.attachments[3:]), lambda: other.remove(*other.attachments[3:]),
        ]  # fmt: skip
        for _ in range(40):
            try:
                chance.choice(uses)()
            except (errors.StaleError, errors.BadValueError, IndexError):
                pass  # another one was faster

    with concurrent.futures.ThreadPoolExecutor(8) as threads:
        list(threads.map(work, range(8)))
    assert mailtree.parse(bytes(mail)).subject == mail.subject


SAMPLES = sorted(pathlib.Path(__file__).parents[2].glob("samples/*.eml"))


@settings(max_examples=200)
@given(st.binary(max_size=400), st.sampled_from([path.read_bytes() for path in SAMPLES]))
def test_any_bytes_are_a_message(noise: bytes, known: bytes) -> None:
    at = len(noise) * 97 % len(known)
    for data in (noise, known[:at] + noise + known[at:]):
        mail = mailtree.parse(data)
        for part in mail.parts:
            part.text, part.content, part.headers, repr(part)
        mail.from_, mail.to, mail.date, mail.text, mail.html, mail.problems, mail.security, mail.report, repr(mail)
        standard = mail.to_email()
        try:
            mailtree.Message.from_email(standard)
        except errors.BadValueError as error:
            assert "standard library cannot" in str(error)


@settings(max_examples=200)
@given(st.text(max_size=60))
def test_any_text_is_a_value_or_an_error(text: str) -> None:
    uses: list[Callable[[], Any]] = [
        lambda: mailtree.Address.parse(text), lambda: mailtree.Address.parse_list(text), lambda: mailtree.Expression(text),
        lambda: mailtree.compose(from_=text, to=text, subject=text), lambda: mailtree.open(os.path.join("no", text)),
        lambda: mailtree.Message().__setitem__(text, text), lambda: mailtree.Message().attach(text, text, type=text),
    ]  # fmt: skip
    for use in uses:
        try:
            use()
        except mailtree.Error as error:
            assert str(error) and error.code
