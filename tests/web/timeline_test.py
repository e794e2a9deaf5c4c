"""Lanes on one axis of time: what is drawn is what is counted, and one gets from there to the records."""

import signal

from selenium.webdriver.common.keys import Keys

from case import Case
from played import wait_until

LANES = "canvas[data-lanes]"
AXES = ("initiator", "target", "kind", "fabric", "host")


class Timeline(Case):
    def drawn(self):
        """What the canvas says of itself: since, until, bin, lanes, bands, marks, holes; and by what the lanes are."""
        return self.browser.script("return {...document.querySelector(arguments[0]).dataset, "
                                   "by: document.querySelector('[data-axis]').value}", LANES)

    def readout(self):
        return self.browser.script("return {...document.querySelector('[data-readout]').dataset}")

    def ask(self, **parameters):
        drawn = self.drawn()
        return self.api("timeline", **{"since": drawn["since"], "until": drawn["until"], "by": drawn["by"], **parameters})

    def test_lanes_are_those_of_the_api_by_each_axis(self):
        for axis in AXES:
            self.browser.open("#timeline?since=-1h&by=" + axis)
            lanes = self.ask()["lanes"]
            self.assertTrue(lanes, axis)
            self.assertEqual([one for one in self.browser.data("[data-row] [data-lane]", "lane") if one],
                             [one["name"] for one in lanes if one["name"]], axis)
            labels = self.browser.texts(".lane")
            self.assertEqual(len(labels), len(lanes), axis)
            for label, lane in zip(labels, lanes):
                self.assertIn(lane["label"] or "", label)
                self.assertIn(str(sum(lane["counts"])), label)

    def test_every_bin_says_what_the_api_counts(self):
        """By the keyboard alone: from the lanes to a bin, and to its records."""
        self.browser.open("#timeline?since=-10min&by=kind")
        self.browser.script("document.querySelector(arguments[0]).focus()", LANES)
        counted = {}
        self.browser.keys(Keys.HOME)
        lanes = self.ask()["lanes"]
        for lane in lanes[:3]:
            self.browser.keys(Keys.END)
            for _ in range(40):
                said = self.readout()
                self.assertEqual(said["lane"], lane["name"])
                if int(said["count"]):
                    counted.setdefault(said["lane"], []).append(said)
                self.browser.keys(Keys.ARROW_LEFT)
            self.browser.keys(Keys.ARROW_DOWN)
        self.assertTrue(counted)
        for name, bins in counted.items():
            for said in bins:
                asked = self.api("timeline", since=said["first"], until=said["last"], by="kind")
                self.assertEqual(sum(sum(one["counts"]) for one in asked["lanes"] if one["name"] == name),
                                 int(said["count"]), said)

    def test_a_bin_opens_into_its_records(self):
        self.browser.open("#timeline?since=-10min&by=kind")
        self.browser.script("document.querySelector(arguments[0]).focus()", LANES)
        self.browser.keys(Keys.END)
        for _ in range(60):
            said = self.readout()
            if int(said["count"]):
                break
            self.browser.keys(Keys.ARROW_LEFT)
        self.assertTrue(int(said["count"]), "a bin with events is reached by the keyboard")
        self.browser.keys(Keys.ENTER)
        self.assertTrue(self.browser.hash().startswith("#records?"), self.browser.hash())
        shown = self.browser.data("[data-record]", "record")
        asked = self.api("records", since=said["first"], until=said["last"], kind=said["lane"], limit=1000)["records"]
        self.assertTrue(asked)
        self.assertEqual(shown, [str(one["id"]) for one in asked])
        self.browser.script("history.back()")
        self.browser.rest()
        self.assertEqual(self.drawn()["by"], "kind")

    def span(self):
        return self.browser.script("const at = document.querySelector(arguments[0]).dataset;"
                                   "return [Date.parse(at.since) / 1000, Date.parse(at.until) / 1000]", LANES)

    def test_zoom_and_pan_by_mouse_keys_and_touch(self):
        self.browser.open("#timeline?since=-6h&until=-1h&by=initiator")
        width = self.browser.one(LANES).size["width"]

        def moves(act, what, check):
            before = self.span()
            act()
            after = wait_until(lambda: self.span() if self.span() != before else None, what)
            self.assertTrue(check(before, after), (what, before, after))

        def closer(before, after):
            return after[1] - after[0] < before[1] - before[0]

        def wider(before, after):
            return after[1] - after[0] > before[1] - before[0]

        def earlier(before, after):
            return after[0] < before[0] and abs((after[1] - after[0]) - (before[1] - before[0])) < 0.1 * (before[1] - before[0])

        def later(before, after):
            return earlier(after, before)
        browser, middle = self.browser, (width / 2, 20)
        moves(lambda: browser.wheel(LANES, *middle, -240), "the wheel zooms in", closer)
        moves(lambda: browser.wheel(LANES, *middle, 240), "the wheel zooms out", wider)
        moves(lambda: browser.drag(LANES, (width / 3, 20), (2 * width / 3, 20)), "a drag goes back", earlier)
        browser.script("document.querySelector(arguments[0]).focus()", LANES)
        moves(lambda: browser.keys("+"), "+ zooms in", closer)
        moves(lambda: browser.keys("-"), "- zooms out", wider)
        moves(lambda: browser.keys(Keys.PAGE_UP), "page up goes back", earlier)
        moves(lambda: browser.keys(Keys.PAGE_DOWN), "page down goes on", later)
        moves(lambda: browser.pinch(LANES, *middle, 60, 240), "two fingers zoom in", closer)
        self.assertIn("since=", browser.hash())
        kept = self.span()
        browser.driver.refresh()
        browser.rest()
        self.assertEqual(self.span(), kept, "the address holds what was zoomed to")

    def test_a_lane_opens_into_its_remote_ports(self):
        self.browser.open("#timeline?since=-1h&by=initiator")
        name = self.ask()["lanes"][0]["name"]
        self.browser.click(f"button[data-lane='{name}']")
        self.assertIn("open=", self.browser.hash())
        remotes = [one["name"] for one in self.ask(by="target", initiator=name)["lanes"] if one["name"]]
        self.assertTrue(remotes)
        shown = self.browser.data("[data-row] [data-lane]", "lane")
        self.assertEqual([one for one in shown if one in remotes], remotes)

    def test_incidents_changes_and_curves_stand_beside_the_lanes(self):
        self.browser.open("#timeline?since=-30min&by=fabric")
        incidents = [str(one["id"]) for one in self.api("incidents")["incidents"]]
        self.assertEqual(sorted(self.browser.data("[data-band]", "band")), sorted(incidents))
        self.assertGreater(int(self.drawn()["marks"]), 0)
        wait_until(lambda: self.api("measures", since="-1h")["measures"], "a minute was measured", 90)
        self.browser.open("#timeline?since=-30min&by=initiator")
        self.assertTrue(self.browser.all("[data-curves] canvas"))
        self.browser.pictures("timeline")
        self.browser.open("#timeline?since=-30d&by=target")
        self.browser.picture("timeline-month")

    def test_a_hole_is_shown_and_told(self):
        site = self.site = self.own_site()
        site.play("check-condition lun=3 sense=5/24/00 times=3")
        wait_until(lambda: site.web.api("records")["records"], "a record is stored")
        site.agent.end(signal.SIGKILL)
        wait_until(lambda: not site.web.health()["agent_up"], "the agent is gone")
        site.start_agent()
        wait_until(lambda: site.web.health()["agent_up"], "the agent is back")
        holes = wait_until(lambda: site.web.api("timeline", since="-10min")["holes"], "the hole is in the history")
        self.browser.reset(site.web.address)
        self.browser.open("#timeline?since=-10min&by=kind")
        self.assertEqual(int(self.drawn()["holes"]), len(holes))
        self.browser.wait_text("the agent did not run")
        self.browser.picture("timeline-hole")
