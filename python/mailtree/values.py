"""Values: addresses, dates, verdicts, problems. They can be compared, copied, pickled and printed."""

from __future__ import annotations

from dataclasses import dataclass
from datetime import datetime
from typing import Literal, NamedTuple, Optional

from . import _mailtree


class Address(NamedTuple):
    """A display name and an address. One of the two may be empty.

    >>> from mailtree import Address
    >>> name, address = Address.parse("Anna <anna@berg.example>")
    >>> name, address
    ('Anna', 'anna@berg.example')
    >>> str(Address("Berg, Anna", "anna@berg.example"))
    '"Berg, Anna" <anna@berg.example>'
    >>> [a.address for a in Address.parse_list("Team: jo@see.example, Al <al@see.example>;")]
    ['jo@see.example', 'al@see.example']
    """

    name: str = ""
    address: str = ""

    @staticmethod
    def parse(text: str) -> Address:
        """Reads one address; BadValueError for none or more than one."""
        return _mailtree._parse_address(text)

    @staticmethod
    def parse_list(text: str) -> list[Address]:
        """Reads a list: groups are flattened, entries without an address dropped."""
        return _mailtree._parse_addresses(text)

    def __str__(self) -> str:
        return _mailtree._address_text(self)


@dataclass(frozen=True)
class Calendar:
    """An invitation or another calendar object (RFC 5545, 6047)."""

    method: str  # "REQUEST", "REPLY", ...; empty when none is given
    text: str


@dataclass(frozen=True)
class Envelope:
    """Who a message goes to, and where it is returned when it cannot be delivered."""

    sender: str
    recipients: list[str]


@dataclass(frozen=True)
class Place:
    """Where a message was found."""

    path: str
    entry: str  # in an archive: the name there
    number: int  # from 1 in its source; 0 after a start in the middle of an mbox
    offset: int  # in an mbox: where its separator line begins
    length: int  # in an mbox: from there to the next separator or the end; else the bytes that were read
    folder: str  # below the folder that was opened
    flags: Optional[str]  # Maildir: its letters, "RS"
    sender: str  # of an mbox's separator line
    date: Optional[datetime]
    name: str  # "box.mbox#12", or the path of a message that is a file


@dataclass(frozen=True)
class Problem:
    """Something about a message that a careful reader wants to know."""

    kind: Literal["repaired", "damaged_text", "limit", "ambiguous", "not_opened", "malformed", "deceptive"]
    part: str
    text: str
    severity: Literal["note", "warning", "danger"]
    offset: Optional[int]  # where in the message as it was read


@dataclass(frozen=True)
class CertificateInfo:
    """What is known about a certificate (RFC 5280)."""

    subject: str
    issuer: str
    serial_number: str
    addresses: list[str]
    valid_from: Optional[datetime]
    valid_until: Optional[datetime]
    key_algorithm: str
    key_bits: int
    fingerprint: str
    has_private_key: bool


@dataclass(frozen=True)
class Signer:
    """One signer of a layer. Answers are True, False, or None: not checked, neither good nor bad."""

    certificate: Optional[CertificateInfo]
    digest: str
    algorithm: str
    signing_time: Optional[datetime]
    digest_matched: Optional[bool]
    signature_verified: Optional[bool]
    chain_trusted: Optional[bool]
    chain_trusted_then: Optional[bool]
    revoked: Optional[bool]
    key_usage_fit: Optional[bool]
    address_matches: Optional[bool]
    is_faultless: bool
    weaknesses: list[str]
    problem: str
    chain_problem: str

    @property
    def is_valid(self) -> bool:
        return bool(self.digest_matched and self.signature_verified)


@dataclass(frozen=True)
class SecurityLayer:
    """One signed, encrypted or compressed layer."""

    kind: Literal[
        "detached_signature", "opaque_signature", "enveloped", "auth_enveloped", "compressed", "certificates_only", "unknown"
    ]
    part: str
    is_opened: bool
    signers: list[Signer]
    cipher: str
    key_transport: str
    is_cipher_weak: bool
    recipient: Optional[CertificateInfo]
    certificates: list[CertificateInfo]
    uncovered: list[str]
    problem: str

    @property
    def is_signed(self) -> bool:
        return self.kind in ("detached_signature", "opaque_signature")

    @property
    def is_encrypted(self) -> bool:
        return self.kind in ("enveloped", "auth_enveloped")

    @property
    def covers_all(self) -> bool:
        return self.part == "1" and not self.uncovered


@dataclass(frozen=True)
class FieldDifference:
    """A header field that differs between the message and its signed or encrypted content."""

    part: str
    name: str
    outside: str
    inside: str
    is_displayed: bool


@dataclass(frozen=True)
class Security:
    """The verdict on a message: whether it really is from its From address, whole and unchanged."""

    is_valid: bool
    verdict: str
    layers: list[SecurityLayer]
    differences: list[FieldDifference]
    from_: str
    from_problem: str
    was_trust_given: bool
    is_signed: bool
    is_encrypted: bool
    all_signatures_valid: Optional[bool]
    all_decrypted: bool


@dataclass(frozen=True)
class ReportRecipient:
    """What a report says about one recipient. Each text is empty when absent."""

    address: str
    original: str
    action: str
    status: str
    diagnostic: str
    fields: list[tuple[str, str]]


@dataclass(frozen=True)
class Report:
    """A delivery status (RFC 3464), a disposition notification (RFC 8098) or a feedback report (RFC 5965)."""

    kind: Literal["delivery_status", "disposition_notification", "feedback"]
    fields: list[tuple[str, str]]
    recipients: list[ReportRecipient]
    original: str
    message_id: str
    subject: str
    text: str


class ThreadRow(NamedTuple):
    """A message of a list, as it is placed among conversations."""

    message: int  # its index in the list
    thread: int  # from 1
    depth: int  # 0 for the first of a conversation
