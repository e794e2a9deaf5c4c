"""What does not work is one clear state on the page, and is over by itself."""

import contextlib
import os
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

    def becomes(self, words):
        """The page says what /healthz says, and both say why."""
        wait_until(lambda: self.browser.state() != "ok", f"the page says that something is wrong: {words}", 30)
        self.browser.wait_text(words, "#trouble", 30)
        self.assertRegex(self.site.web.health()["reason"], words)
        wait_until(lambda: self.browser.state() == self.site.web.health()["status"], "both say the same")

    def test_vrx_sn_is_gone_and_comes_again(self):
        self.browser.announce("503")
        self.browser.open()
        self.assertEqual(self.browser.state(), "ok")
        self.site.sensor.end(signal.SIGKILL)
        self.becomes("vrx-sn does not run")
        self.browser.pictures("silent")
        self.assertTrue(self.browser.all("[data-port]"), "what is known stays")
        self.site.start_sensor()
        wait_until(lambda: self.browser.state() == "ok", "all is well again", 30)

    def test_the_agent_is_gone_and_comes_again(self):
        self.browser.announce("503")
        self.browser.open()
        self.site.agent.end(signal.SIGKILL)
        self.browser.wait_text("(?i)agent", "#trouble", 20)
        self.site.start_agent()
        wait_until(lambda: self.browser.state() == "ok" and not self.browser.text("#trouble").strip(), "it is back", 30)

    def is_well_again(self):
        self.site.start_sensor()
        wait_until(lambda: self.browser.state() == "ok", "all is well again", 30)
        wait_until(lambda: len(self.browser.all("[data-port]")) == 4, "and shown")

    def test_the_history_is_gone_or_damaged(self):
        """Each time the page says what it is, and is as before when vrx-sn has seen to it."""
        self.browser.announce("503")
        self.browser.open()

        def gone():
            for end in ("", "-wal", "-shm"):
                if os.path.exists(self.site.store + end):
                    os.rename(self.site.store + end, self.site.store + ".away" + end)

        def damaged():
            with open(self.site.store, "r+b") as file:
                file.write(b"no history at all" * 256)

        for spoil, words in ((gone, "there is no history"), (damaged, "damaged")):
            self.assertEqual(self.site.sensor.end(), 0)
            spoil()
            self.becomes(words)
            self.is_well_again()

    def test_the_history_is_of_another_version(self):
        self.browser.announce("503")
        self.assertEqual(self.site.sensor.end(), 0)
        before = self.version(99)
        self.site.web = self.site.more_web(self.site.store)
        self.browser.reset(self.site.web.address)
        self.browser.announce("503")
        self.browser.open()
        self.becomes("newer version")
        self.browser.pictures("unreadable")
        self.version(before)
        self.is_well_again()

    def version(self, number):
        """Writes it into the store, and gives back the one before."""
        with contextlib.closing(sqlite3.connect(self.site.store)) as store:
            before = store.execute("PRAGMA user_version").fetchone()[0]
            store.execute(f"PRAGMA user_version = {number}")
        return before
