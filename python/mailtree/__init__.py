"""Mail as people think of it: who wrote what to whom, with which files.

>>> import mailtree
>>> mail = mailtree.open("samples/attachments.eml")
>>> mail.from_.address, mail.date.isoformat()
('carmen.ortiz@atlas.example', '2026-04-20T16:45:09-04:00')
"""

from . import errors, values
from ._mailtree import (
    Entry,
    Expression,
    Keys,
    Message,
    Messages,
    Part,
    Source,
    Writer,
    __version__,
    compose,
    conversations,
    messages,
    open,
    parse,
)
from .errors import Error
from .values import Address, Calendar, CertificateInfo, Envelope, Place, Problem, Report, Security, ThreadRow

__all__ = [
    "Address",
    "Calendar",
    "CertificateInfo",
    "Entry",
    "Envelope",
    "Error",
    "Expression",
    "Keys",
    "Message",
    "Messages",
    "Part",
    "Place",
    "Problem",
    "Report",
    "Security",
    "Source",
    "ThreadRow",
    "Writer",
    "__version__",
    "compose",
    "conversations",
    "errors",
    "messages",
    "open",
    "parse",
    "values",
]
