"""From and to messages of the standard library, and pickles."""

from __future__ import annotations

import email
import email.message
import email.policy
from typing import Optional, cast

from . import _mailtree
from .errors import BadValueError
from .values import Place


def to_email(message: _mailtree.Message) -> email.message.EmailMessage:
    """The same message, all of it, as an EmailMessage; that reads damaged headers in its own way."""
    data = message.as_bytes(bcc=True)
    return cast(email.message.EmailMessage, email.message_from_bytes(data, policy=email.policy.default))


def from_email(message: email.message.Message) -> _mailtree.Message:
    """Reads a message of the standard library; BadValueError when that cannot write it."""
    if not isinstance(message, email.message.Message):
        raise TypeError(f"a message of the standard library is wanted, not {type(message).__name__}")
    policy = message.policy.clone(linesep="\r\n")
    try:
        data = message.as_bytes(policy=policy)
    except Exception as error:  # what it raises is not documented
        raise BadValueError(f"the standard library cannot write the message: {error}") from error
    return _mailtree.parse(data)


def restore(data: bytes, place: Optional[Place]) -> _mailtree.Message:
    """What a pickled message is made of; pickles name functions of Python only."""
    return _mailtree._restore(data, place)
