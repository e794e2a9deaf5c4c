"""One incident: all that somebody needs who is woken by it."""

import datetime

from case import Case


class Incident(Case):
    def setUp(self):
        super().setUp()
        listed = self.api("incidents")["incidents"]
        self.incident = self.api("incidents/" + str(next(one["id"] for one in listed if "4 of 8" in one["title"])))
        self.address = f"#incident/{self.incident['id']}"

    def test_the_page_says_what_the_api_says(self):
        self.browser.open(self.address)
        incident, text = self.incident, self.browser.text("main.incident")
        self.assertIn(incident["title"], self.browser.text("[data-title]"))
        self.assertEqual(len(self.browser.all("[data-follow]")), len(incident["symptoms"]))
        for row, symptom in zip(self.browser.texts("[data-follow]"), incident["symptoms"]):
            self.assertIn(str(symptom["events"]), row)
        self.assertTrue(self.browser.text("[data-cause]").strip())
        for part in ("mounts", "maps", "volumes"):
            for name in incident["hits"][part]:
                self.assertIn(name, text)
        self.assertIn(f"{incident['paths']['left']} of {incident['paths']['total']}", self.browser.text("[data-paths]"))
        self.assertIn(incident["suggestion"], self.browser.text("[data-suggestion]"))
        for port in incident["initiators"] + incident["targets"]:
            self.assertIn(port["name"], text)
        self.assertEqual(len(self.browser.all("[data-change]")), len(incident["changes"]))
        self.assertEqual(sorted(self.browser.data("[data-evidence]", "evidence")),
                         sorted(str(one) for one in incident["evidence"]))
        self.browser.pictures("incident")

    def test_times_are_local_and_utc(self):
        """The browser's zone is half an hour off: 18:00 UTC is 23:30 there."""
        self.browser.open(self.address)
        opened = datetime.datetime.fromisoformat(self.incident["opened"][:19])
        local = opened + datetime.timedelta(hours=5, minutes=30)
        text = self.browser.text("main.incident")
        self.assertIn(opened.strftime("%H:%M:%S"), text)
        self.assertIn(local.strftime("%H:%M:%S"), text)
        self.assertIn("UTC", text)

    def test_it_prints_on_one_sheet(self):
        self.browser.open(self.address)
        self.assertEqual(self.browser.paper("incident"), 1)
        self.browser.look(dark=True, media="print")
        self.browser.rest()
        ink = self.browser.script("return getComputedStyle(document.body).color.match(/[0-9]+/g).map(Number)")
        self.assertLess(max(ink), 64, "dark on white, also by night")
        self.assertEqual(len([one for one in self.browser.all("nav, button") if one.is_displayed()]), 0)

    def test_its_link_can_be_sent_to_a_colleague(self):
        """By plain HTTP from another host too, where browsers give pages less: there is no clipboard."""
        site = self.site
        away = site.more_web(site.store, "--allow-host", "server1.site")
        for address in (site.web.address, f"http://server1.site:{away.port}"):
            self.browser.reset(address)
            self.browser.open(self.address)
            self.browser.script("""
                document.addEventListener('copy', () => {
                    const at = document.activeElement;
                    window.copied = at.value?.slice(at.selectionStart, at.selectionEnd);
                });
                if (navigator.clipboard) {
                    navigator.clipboard.writeText = async (text) => { window.copied = text; };
                }
            """)
            self.browser.click("[data-link]")
            self.browser.wait_text("Copied", "[data-link]")
            link = self.browser.script("return window.copied")
            self.assertEqual(link, f"{address}/{self.address}")

    def test_one_that_is_not_there_is_told(self):
        self.browser.announce("404")
        self.browser.open("#incident/4711")
        self.browser.wait_text("4711", "[role=alert]")

    def test_evidence_leads_to_the_record(self):
        self.browser.open(self.address)
        name = self.browser.data("[data-evidence]", "evidence")[0]
        self.browser.click(f"[data-evidence='{name}'] a")
        self.assertTrue(self.browser.hash().startswith("#records?"), self.browser.hash())
        self.assertIn(name, self.browser.data("[data-record]", "record"))
