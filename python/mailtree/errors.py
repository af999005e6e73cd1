"""What can go wrong. Every error of this package is an Error, with a code for programs."""

from __future__ import annotations

from typing import ClassVar


class Error(Exception):
    """An operation failed, and changed nothing.

    >>> import mailtree
    >>> try:
    ...     mailtree.open("no/such/file.eml")
    ... except mailtree.Error as error:
    ...     print(error.code, error.where)
    unreadable no/such/file.eml
    """

    code: ClassVar[str] = "error"

    def __init__(self, message: str = "", where: str = "") -> None:
        super().__init__(message, where)
        self.message = message
        self.where = where  # the file, part or field concerned; may be empty

    def __str__(self) -> str:
        return f"{self.where}: {self.message}" if self.where else self.message


class UnreadableError(Error):
    """A file or folder cannot be read."""

    code = "unreadable"


class UnwritableError(Error):
    """A file cannot be written."""

    code = "unwritable"


class BadValueError(Error, ValueError):
    """A value cannot be used: not an address, not a media type, ..."""

    code = "bad_value"


class NotFoundError(Error, KeyError):
    """There is no such part, field or certificate."""

    code = "not_found"


class NoRecipientError(Error):
    """The message has nobody to go to, or no sender."""

    code = "no_recipient"


class NoKeyError(Error):
    """A certificate or private key is missing, locked, or not valid for this use."""

    code = "no_key"


class EncryptedError(Error):
    """The content is encrypted: open it with keys, or decrypt() the message first."""

    code = "encrypted"


class InClearError(Error):
    """An answer to encrypted mail would be written unencrypted."""

    code = "in_clear"


class AutomaticError(Error):
    """No program may answer this message."""

    code = "automatic"


class CryptographyError(Error):
    """Signing or encrypting failed."""

    code = "cryptography"


class NoMemoryError(Error, MemoryError):
    """Memory ran out."""

    code = "no_memory"


class TooLargeError(Error):
    """A message is longer than it may be, and was not read."""

    code = "too_large"


class ClosedError(Error, ValueError):
    """The message, source or writer is closed."""

    code = "closed"


class StaleError(Error):
    """A part of a message that was changed since: ask the message again."""

    code = "stale"
