"""Reading, making, changing and answering messages."""

from __future__ import annotations

import copy
import datetime
import email
import email.policy
import io
import pathlib
import pickle

import pytest

import mailtree
from mailtree import Address

BERLIN = datetime.timezone(datetime.timedelta(hours=2))


def test_fields_are_values_of_python() -> None:
    mail = mailtree.open(pathlib.Path("samples/newsletter.eml"))
    assert mail.from_ == ("Grünkohl & Freunde", "brief@gruenkohl.example")
    assert mail.to == [Address("Jörg Müller", "joerg@mueller.example")]
    assert mail.date == datetime.datetime(2026, 4, 16, 6, tzinfo=datetime.timezone.utc)
    assert mail["subject"] == mail.subject and "🥖" in mail.subject
    assert "List-Unsubscribe" in mail and mail.get("X-None") is None and mail.get_all("x-none") == []
    assert ("Message-ID", "<kw16.8841@gruenkohl.example>") in mail.headers
    assert "Sauerteig" not in mail.text and "Möhren" in mail.text and "<" in mail.html
    assert [part.type for part in mail.root.parts] == ["text/plain", "multipart/related"]
    assert mailtree.open(b"samples/plain.eml").date == datetime.datetime(2026, 4, 14, 9, 12, 31, tzinfo=BERLIN)


def test_what_is_set_is_written() -> None:
    mail = mailtree.Message()
    mail.from_ = "Jörg <joerg@see.example>"
    mail.to = ["anna@berg.example", Address("Al", "al@see.example")]
    mail.cc, mail.bcc = Address("", "cc@see.example"), "hidden@see.example"
    mail.reply_to = ("answers@see.example",)
    mail.subject = "Grüße"
    mail.date = datetime.datetime(2026, 11, 22, 12, tzinfo=BERLIN)
    mail.references = ["a@b", "c@d"]
    mail["X-Colour"] = "blau"
    mail.add_header("X-Colour", "grün")
    mail.text, mail.html = "Hallo 🥖\n", "<p>Hallo <img src='cid:logo.png'></p>"
    mail.add_inline("logo.png", b"\x89PNG")
    mail.attach("Übersicht.csv", "Tag;Ort\n")
    mail.attach("data.bin", bytearray(b"\0\1"), type="application/x-data")
    mail.calendar = mailtree.Calendar("REQUEST", "BEGIN:VCALENDAR\r\nEND:VCALENDAR\r\n")
    again = mailtree.parse(mail.as_bytes(bcc=True))
    for name in ("from_", "to", "cc", "bcc", "reply_to", "subject", "date", "references", "text", "envelope"):
        assert getattr(again, name) == getattr(mail, name), name
    assert again.get_all("x-colour") == ["blau", "grün"]
    types = [(part.name, part.type) for part in again.attachments]
    assert types[:2] == [("Übersicht.csv", "text/csv"), ("data.bin", "application/x-data")]
    assert [p.name for p in again.inline_items] == ["logo.png"] and again.calendar
    assert b"hidden" not in bytes(mail)
    del mail["X-Colour"]
    mail.sender = mail.cc = None
    assert "X-Colour" not in mail and mail.cc == []


def test_answers() -> None:
    mail = mailtree.open("samples/attachments.eml")
    reply = mail.reply(from_=Address("Jo", "rene@atlas.example"), all=True, text="Yes.", cc="x@see.example")
    assert [a.address for a in reply.to] == ["carmen.ortiz@atlas.example", "board@atlas.example"]
    assert {a.address for a in reply.cc} == {"archive@atlas.example", "x@see.example"}
    assert reply.text.startswith("Yes.\n") and reply.in_reply_to == mail.message_id and "\n> " in reply.text
    forward = mail.forward(from_="jo@see.example", to="al@see.example", as_attachment=True)
    assert forward.messages[0] == mail
    resent = mail.resend(from_="jo@see.example", to=["al@see.example"])
    assert resent.envelope == mailtree.Envelope("jo@see.example", ["al@see.example"])
    with pytest.raises(mailtree.errors.BadValueError):
        mail.reply(from_="jo@see.example", quote="loud")  # type: ignore[arg-type]


def test_copies_are_equal_and_separate() -> None:
    mail = mailtree.open("samples/attachments.eml")
    for other in (copy.copy(mail), copy.deepcopy(mail), pickle.loads(pickle.dumps(mail))):
        assert other == mail and other is not mail
        other.subject = "another"
        assert other != mail
    found = next(mailtree.messages("samples/plain.eml"))
    assert pickle.loads(pickle.dumps(found)).place == found.place
    values = [mail.from_, mail.envelope, found.place, mailtree.Expression("is:report"), mail.security]
    assert pickle.loads(pickle.dumps(values)) == values == copy.deepcopy(values)
    assert mail.__eq__(1) is NotImplemented


def test_the_standard_library_reads_the_same() -> None:
    mail = mailtree.open("samples/attachments.eml")
    message = mail.to_email()
    assert message["subject"] == mail.subject
    assert [p.get_filename() for p in message.iter_attachments()] == [p.name for p in mail.attachments]
    back = mailtree.Message.from_email(message)
    assert (back.text, back.date, [p.content for p in back.attachments]) == (
        mail.text, mail.date, [p.content for p in mail.attachments])  # fmt: skip
    old = email.message_from_string("Subject: old\n\ntext", policy=email.policy.compat32)
    assert mailtree.Message.from_email(old).subject == "old"


def test_files_are_saved_and_read(tmp_path: pathlib.Path) -> None:
    mail = mailtree.open("samples/attachments.eml")
    saved = [part.save_in(tmp_path) for part in mail.attachments[:1] * 2]
    assert [p.name for p in saved] == ["offer 2026.pdf", "offer 2026 (2).pdf"]
    assert saved[0].read_bytes() == mail.attachments[0].content == bytes(mail.attachments[0].data)
    mail.save(tmp_path / "Grüße.eml")
    assert mailtree.open(str(tmp_path / "Grüße.eml")) == mail
    file = io.BytesIO()
    mail.write(file)
    assert file.getvalue() == bytes(mail)
    mail.attach_file(saved[0])
    mail.attach_message(mail)
    assert [p.is_message for p in mail.attachments[-2:]] == [False, True]
    assert mail.replace_words({"Offer": "Angebot"}) >= 1 and mail.subject.startswith("Angebot")


def test_reports_and_problems_are_values() -> None:
    report = mailtree.open("samples/delivery-report.eml").report
    assert report and report.kind == "delivery_status" and report.recipients[0].action == "failed"
    problems = mailtree.open("samples/broken.eml").problems
    assert problems and all(p.kind and p.severity in ("note", "warning", "danger") for p in problems)


def test_representations_are_worth_reading() -> None:
    mail = mailtree.open("samples/newsletter.eml")
    assert repr(mail) == ("<mailtree.Message 'Die Woche im Hofladen: Möhren, Äpfel und Brot 🥖' from "
                          "brief@gruenkohl.example, Thu, 16 Apr 2026 06:00:00 +0000>")  # fmt: skip
    assert repr(mail.root) == "<mailtree.Part 1 multipart/alternative>"
    assert repr(mailtree.Source("samples")) == "<mailtree.Source 'samples', folder>"
    mail.close()
    assert repr(mail) == "<mailtree.Message, closed>"


def test_signed_and_encrypted_mail(keys: mailtree.Keys, tmp_path: pathlib.Path) -> None:
    mail = mailtree.compose(from_="alice@example.com", to="bob@example.com", subject="Boat", text="Shall we?")
    mail.sign(keys)
    assert mail.verify(keys).is_valid
    mail.encrypt(keys)
    closed = mailtree.parse(bytes(mail))
    assert closed.security.is_encrypted and not closed.security.all_decrypted and closed.text != mail.text
    with pytest.raises(mailtree.errors.EncryptedError):
        closed.text = "changed"
    opened = mailtree.parse(bytes(mail), keys=keys)
    signer = opened.security.layers[1].signers[0]
    assert opened.text == mail.text and signer.is_valid and signer.certificate
    assert signer.certificate.addresses == ["alice@example.com"]
    answer = opened.reply(from_="bob@example.com")
    with pytest.raises(mailtree.errors.InClearError) as caught:
        bytes(answer)
    assert caught.value.code == "in_clear"
    with mailtree.Writer.folder(tmp_path) as box, pytest.raises(mailtree.errors.InClearError):
        box.add(answer)
    wanted = mailtree.Expression("body:shall")
    assert wanted.matches(opened, keys) and not wanted.matches(opened)
    closed.decrypt(keys)
    assert closed.text == mail.text and not closed.security.is_encrypted
    assert mailtree.compose(to="nobody@see.example").recipients_without_certificate(keys) == ["nobody@see.example"]
