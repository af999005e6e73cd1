"""Writes a line of JSON for each message of an mbox, by Python's own packages; usage: bench-mailbox.py MBOX"""
import email.policy
import email.utils
import json
import mailbox
import sys

box = mailbox.mbox(sys.argv[1], factory=lambda file: email.message_from_binary_file(file, policy=email.policy.default))
for message in box:
    body = message.get_body(("plain", "html"))
    print(json.dumps({
        "messageId": message["Message-ID"],
        "from": email.utils.getaddresses([message["From"] or ""]),
        "to": email.utils.getaddresses([message["To"] or ""]),
        "subject": message["Subject"],
        "sentAt": message["Date"].datetime.isoformat() if message["Date"] else None,
        "text": body.get_content() if body else "",
        "attachments": [part.get_filename() for part in message.iter_attachments()],
    }))
