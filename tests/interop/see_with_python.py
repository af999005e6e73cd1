"""Prints, as one JSON object, what Python's email package sees in every message of a folder."""
import email
import email.policy
import json
import pathlib
import sys

EXACT = email.policy.default.clone(refold_source="none", linesep="\n")


def leaves(part):
    """The leaves of a message; an attached message is one."""
    if part.get_content_maintype() != "multipart":
        return [part]
    return [leaf for child in part.iter_parts() for leaf in leaves(child)]


def seen_file(part):
    return {
        "name": part.get_filename(),
        "title": part["Content-Type"].params.get("name"),
        "type": part.get_content_type(),
        "charset": part.get_content_charset(),
        "id": part["Content-ID"],
        "hex": part.get_payload(decode=True).hex(),
    }


def seen_message(part):
    return part.get_payload(0).as_bytes(policy=EXACT).decode("utf-8", "surrogateescape").replace("\r\n", "\n")


def seen(message):
    text, html = message.get_body(("plain",)), message.get_body(("html",))
    parts = [part for part in leaves(message) if part not in (text, html)]
    body = text if text is not None else html
    return {
        "subject": message["Subject"],
        "from": message["From"].addresses[0].display_name,
        "to": message["To"].addresses[0].display_name,
        "text": text.get_content() if text is not None else None,
        "html": html.get_content() if html is not None else None,
        "charset": body.get_content_charset() if body is not None else None,
        "files": [seen_file(part) for part in parts if part.get_content_type() != "message/rfc822"],
        "messages": [seen_message(part) for part in parts if part.get_content_type() == "message/rfc822"],
        "defects": [repr(defect) for part in message.walk() for defect in part.defects],
    }


def load(path):
    return email.message_from_bytes(path.read_bytes(), policy=email.policy.default)


json.dump({path.stem: seen(load(path)) for path in pathlib.Path(sys.argv[1]).glob("*.eml")}, sys.stdout)
