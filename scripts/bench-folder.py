#!/usr/bin/env python3
"""The work of `mailtree show --json FOLDER`, done by Python's email package: one line of JSON per message."""
import json
import os
import sys
from email import message_from_bytes
from email.policy import default


def addresses_of(message, field):
    header = message[field]
    return [{"name": a.display_name, "address": a.addr_spec} for a in header.addresses] if header else []


def part_of(part, number):
    facts = {"id": number, "content_type": part.get_content_type(), "filename": part.get_filename()}
    if not part.is_multipart():
        facts["size"] = len(part.get_content())
    return facts


def facts_of(path):
    with open(path, "rb") as file:
        message = message_from_bytes(file.read(), policy=default)
    date = message["date"]
    return {
        "file": path,
        "subject": message["subject"],
        "from": addresses_of(message, "from"),
        "to": addresses_of(message, "to"),
        "date": date.datetime.isoformat() if date else None,
        "parts": [part_of(part, number) for number, part in enumerate(message.walk())],
        "attachments": [part.get_filename() for part in message.iter_attachments()] if message.is_multipart() else [],
    }


folder = sys.argv[1]
for name in sorted(os.listdir(folder)):
    print(json.dumps(facts_of(os.path.join(folder, name))))
