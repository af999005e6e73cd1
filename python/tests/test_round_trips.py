"""What is written here is read the same here and by the standard library, and the other way round."""

from __future__ import annotations

import datetime
import email.headerregistry
import email.message
from typing import Any

from hypothesis import given, settings
from hypothesis import strategies as st

import mailtree
from mailtree import Address

# Texts of people: characters that are assigned and can be seen; single blanks inside.
WORDS = st.lists(
    st.text(st.characters(whitelist_categories=("L", "N", "P", "S"), max_codepoint=0x1FAFF), min_size=1, max_size=12),
    min_size=1,
    max_size=6,
).map(" ".join)
LINES = st.lists(st.one_of(st.just(""), WORDS), max_size=8).map(lambda lines: "".join(line + "\n" for line in lines).strip("\n"))
LOCAL = st.text("abcdefghijklmnopqrstuvwxyz0123456789-_+", min_size=1, max_size=20)
DATES = st.datetimes(
    datetime.datetime(1980, 1, 1),
    datetime.datetime(2200, 1, 1),
    timezones=st.integers(-12 * 60, 14 * 60).map(lambda m: datetime.timezone(datetime.timedelta(minutes=m))),
)


def without_blanks(text: str) -> str:
    """The standard library puts a blank between two encoded words, and leaves one out where it writes two."""
    return text.replace(" ", "")


@settings(max_examples=60)
@given(WORDS, LINES, WORDS, LOCAL, DATES, st.binary(max_size=300))
def test_messages_survive_both(subject: str, text: str, name: str, local: str, date: datetime.datetime, data: bytes) -> None:
    sender = Address(name, local + "@berg.example")
    mail = mailtree.compose(from_=sender, to=[sender, "jo@see.example"], subject=subject, text=text)
    mail.date = date
    mail.attach("Übersicht.bin", data)
    again = mailtree.parse(mail.as_bytes())
    assert again.subject == subject and again.from_ == sender and again.to[0] == sender
    assert again.date == date.replace(microsecond=0)
    assert again.text.rstrip("\n") == text.rstrip("\n")
    assert again.attachments[0].content == data and again.attachments[0].name == "Übersicht.bin"

    standard: Any = again.to_email()
    assert standard["subject"] == subject and standard["from"].addresses[0].addr_spec == sender.address
    assert without_blanks(standard["from"].addresses[0].display_name) == without_blanks(name)
    assert standard["date"].datetime == again.date
    body = standard.get_body(("plain",))
    assert (body.get_content().rstrip("\r\n") if body else "") == text.replace("\n", "\r\n").rstrip("\r\n")


@settings(max_examples=60)
@given(WORDS, LINES, WORDS)
def test_messages_of_the_standard_library_are_read(subject: str, text: str, name: str) -> None:
    message = email.message.EmailMessage()
    message["Subject"] = subject
    message["From"] = email.headerregistry.Address(name, "anna", "berg.example")
    message.set_content(text + "\n")
    message.add_attachment(b"\0data", maintype="application", subtype="pdf", filename="Übersicht.pdf")
    mail = mailtree.Message.from_email(message)
    assert without_blanks(mail.subject) == without_blanks(subject)
    assert mail.from_ and without_blanks(mail.from_.name) == without_blanks(name)
    assert mail.text.rstrip("\n") == text.rstrip("\n")
    assert [(p.name, p.content) for p in mail.attachments] == [("Übersicht.pdf", b"\0data")]
