"""What does not work is one clear state on the page, and is over by itself."""

import contextlib
import os
import shutil
import signal
import sqlite3

from case import Case
from played import wait_until


class State(Case):
    def make_site(self):
        site = self.own_site()
        site.play("check-condition lun=3 sense=5/24/00 times=3")
        wait_until(lambda: site.web.api("records")["records"], "a record is stored")
        return site

    def becomes(self, state, words):
        wait_until(lambda: self.browser.state() == state, f"the page is {state}: {words}", 30)
        self.browser.wait_text(words, "#trouble")
        if state != "unreachable":
            self.assertEqual(self.site.web.health()["status"], state)

    def test_vrx_sn_is_gone_and_comes_again(self):
        self.browser.open()
        self.assertEqual(self.browser.state(), "ok")
        self.site.sensor.end(signal.SIGKILL)
        self.becomes("silent", "(?i)vrx-sn")
        self.browser.pictures("silent")
        self.assertTrue(self.browser.all("[data-port]"), "what is known stays")
        self.site.start_sensor()
        wait_until(lambda: self.browser.state() == "ok", "all is well again", 30)

    def test_the_agent_is_gone_and_comes_again(self):
        self.browser.open()
        self.site.agent.end(signal.SIGKILL)
        self.browser.wait_text("(?i)agent", "#trouble", 20)
        self.site.start_agent()
        wait_until(lambda: self.browser.state() == "ok" and not self.browser.text("#trouble").strip(), "it is back", 30)

    def test_the_history_is_gone_damaged_or_of_another_version(self):
        """Each time the page says what it is, and finds the history again when it is there."""
        self.browser.announce("503")
        kept = os.path.join(self.site.folder, "kept.db")
        with contextlib.closing(sqlite3.connect(self.site.store)) as store:
            store.execute(f"VACUUM INTO '{kept}'")
        other = os.path.join(self.site.folder, "other", "history.db")
        os.mkdir(os.path.dirname(other))
        self.site.web = self.site.more_web(other)
        self.browser.reset(self.site.web.address)
        self.browser.announce("503")
        self.browser.open(rest=False)

        def bring():
            shutil.copy(kept, other + ".new")
            os.replace(other + ".new", other)
            wait_until(lambda: self.browser.state() == "ok", "the history is read again", 30)
            wait_until(lambda: self.browser.all("[data-port]"), "and shown")

        def damaged():
            with open(other + ".new", "wb") as file:
                file.write(b"no history at all" * 4096)
            os.replace(other + ".new", other)

        def another_version():
            shutil.copy(kept, other + ".new")
            with contextlib.closing(sqlite3.connect(other + ".new")) as store:
                store.execute("PRAGMA user_version = 99")
            os.replace(other + ".new", other)

        self.becomes("unreadable", "(?i)history|store")
        self.browser.pictures("unreadable")
        bring()
        for make, words in ((lambda: os.unlink(other), "(?i)no such|not there|is gone|does not exist|not.*found|missing"), (damaged, "(?i)not a|damaged|malformed"),
                            (another_version, "(?i)version|form|newer")):
            make()
            self.becomes("unreadable", words)
            bring()
