"""The demo at a terminal: it ends with the page, and goes on until Enter."""

import os
import pty
import re
import select
import signal
import subprocess
import time
import urllib.request

from case import Case
from played import SOURCES


class Demo(Case):
    def make_site(self):
        """No site but the demo's own, which is there once it has told the page's address."""
        self.terminal, other = pty.openpty()
        self.demo = subprocess.Popen(["./dev", "demo"], cwd=SOURCES, stdin=other, stdout=other, stderr=other,
                                     start_new_session=True)
        os.close(other)
        self.addCleanup(self.end_demo)
        self.said = ""
        self.read_until(r"(http://[0-9.]+:\d+)/", 300)
        return self

    @property
    def web(self):
        return self

    @property
    def address(self):
        return re.search(r"(http://[0-9.]+:\d+)/", self.said).group(1)

    def end_demo(self):
        if self.demo.poll() is None:
            os.killpg(self.demo.pid, signal.SIGTERM)
            self.demo.wait(30)
        os.close(self.terminal)

    def read_until(self, pattern, limit):
        end = time.monotonic() + limit
        while not re.search(pattern, self.said):
            left = end - time.monotonic()
            self.assertGreater(left, 0, "the demo does not say " + pattern + ": " + self.said[-2000:])
            if select.select([self.terminal], [], [], left)[0]:
                try:
                    self.said += os.read(self.terminal, 65536).decode(errors="replace")
                except OSError:  # its end has been closed
                    self.assertRegex(self.said, pattern)

    def test_its_page_is_live_until_enter(self):
        self.browser.open()
        self.assertEqual(self.browser.state(), "ok")
        self.assertTrue(self.browser.all("[data-incident]"))
        self.browser.wait_text("4 of 8", "[data-lun='mpathb']", 60)
        self.browser.picture("demo")
        self.browser.driver.get("about:blank")  # before nobody answers, which the console would say
        os.write(self.terminal, b"\n")
        self.read_until("Where to look next", 30)
        self.assertEqual(self.demo.wait(30), 0)
        with self.assertRaises(OSError):
            urllib.request.urlopen(self.address, timeout=5)
