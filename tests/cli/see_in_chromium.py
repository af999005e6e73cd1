"""Opens a page in headless Chromium and prints what it shows, as JSON: title, text, natural sizes of the images.

Scripts do not run in web archives, so the page is looked at through the debugging pipe.
Usage: see_in_chromium.py CHROMIUM PAGE
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

LOOK = """JSON.stringify({ready: document.readyState === 'complete',
  title: document.title, text: document.body.innerText,
  images: [...document.images].map(image => [image.naturalWidth, image.naturalHeight])})"""


class Browser:
    """A Chromium whose messages are JSON texts ended by NUL: it reads them from descriptor 3, writes them to 4."""

    def __init__(self, program, profile):
        from_us, self.to = os.pipe()
        self.answers, to_us = os.pipe()
        for descriptor in (from_us, to_us):
            os.set_inheritable(descriptor, True)
        line = f'exec "$0" "$@" 3<&{from_us} 4>&{to_us}'
        options = ["--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--remote-debugging-pipe",
                   f"--user-data-dir={profile}", "about:blank"]
        self.process = subprocess.Popen(["bash", "-c", line, program, *options], pass_fds=(from_us, to_us),
                                        stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        os.close(from_us)
        os.close(to_us)
        self.pending = b""
        self.count = 0

    def ask(self, method, session=None, **params):
        self.count += 1
        message = {"id": self.count, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.read()
            if answer.get("id") == self.count:
                return answer["result"]

    def read(self):
        while b"\0" not in self.pending:
            more = os.read(self.answers, 65536)
            if not more:
                sys.exit("Chromium went away")
            self.pending += more
        message, self.pending = self.pending.split(b"\0", 1)
        return json.loads(message)


def see(browser, url):
    target = browser.ask("Target.createTarget", url="about:blank")["targetId"]
    session = browser.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
    browser.ask("Page.navigate", session, url=url)
    for _ in range(100):
        seen = browser.ask("Runtime.evaluate", session, expression="location.href + '\\n' + " + LOOK)
        where, _, page = seen.get("result", {}).get("value", "\n").partition("\n")
        if where != "about:blank" and page and json.loads(page)["ready"]:
            return json.loads(page)
        time.sleep(0.1)
    sys.exit("the page did not load")


with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
    browser = Browser(sys.argv[1], profile)
    try:
        print(json.dumps(see(browser, pathlib.Path(sys.argv[2]).resolve().as_uri())))
    finally:
        browser.process.terminate()
        browser.process.wait(10)
