#!/usr/bin/python3
# An archive of mail as a table, and a picture of it. The cells (# %%) run one by one in editors with notebooks.
#
# usage: examples/archive.py PICTURE.png MAILBOX...      needs pandas and matplotlib

# %% The messages: read on all cores, in bounded memory.
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import pandas

import mailtree

picture, *mailboxes = sys.argv[1:]
mails = mailtree.messages(*mailboxes, errors="skip")
rows = [(mail.date, mail.from_.address if mail.from_ else "", len(mail.attachments), len(mail.text)) for mail in mails]
table = pandas.DataFrame(rows, columns=["date", "sender", "files", "characters"])
table["date"] = pandas.to_datetime(table["date"], utc=True, errors="coerce")  # none for a year that pandas cannot hold
print(f"{len(table):,} messages, {mails.skipped} could not be read")

# %% Mail per month.
months = table.dropna(subset="date").set_index("date").resample("M").size()
print(months.tail())

# %% The largest senders.
senders = table.groupby("sender").size().nlargest(10).sort_values()
print(senders.iloc[::-1])

# %% A picture of both.
figure, (above, below) = plt.subplots(2, 1, figsize=(10, 8), constrained_layout=True)
above.bar(months.index.to_numpy(), months.to_numpy(), width=25, color="#3b6ea5")
above.set_title("Mail per month")
above.set_ylabel("messages")
below.barh(senders.index, senders.to_numpy(), color="#c27b3b")
below.set_title("The largest senders")
below.set_xlabel("messages")
for axes in (above, below):
    axes.spines[["top", "right"]].set_visible(False)
figure.savefig(picture, dpi=110)
