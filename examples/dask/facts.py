"""A table of facts about a part of a mailbox. Scheduler and workers import this file."""

from __future__ import annotations

import pathlib

import pandas

import mailtree

COLUMNS = ["offset", "sent", "sender", "recipients", "subject", "files", "characters", "danger"]


def facts_of(mail: mailtree.Message) -> tuple[object, ...]:
    sender, date = mail.from_, mail.date
    return (
        mail.place.offset if mail.place else 0,
        date.timestamp() if date else None,
        sender.address if sender else "",
        len(mail.envelope.recipients),
        mail.subject,
        len(mail.attachments),
        len(mail.text),
        any(problem.severity == "danger" for problem in mail.problems),
    )


def table_of(path: str | pathlib.Path, part: int, parts: int, threads: int = 1) -> pandas.DataFrame:
    """The part is found by its bytes, without reading what is before it; together the parts are all."""
    mails = mailtree.messages(path, part=(part, parts), threads=threads)
    return pandas.DataFrame([facts_of(mail) for mail in mails], columns=COLUMNS)
