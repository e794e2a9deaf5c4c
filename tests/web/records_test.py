"""The list of records: what each says in words, found by what one knows, and taken away as a file."""

import csv
import io
import json

from case import LONELY, Case
from played import wait_until


class Records(Case):
    def shown(self):
        return [int(one) for one in self.browser.data("[data-record]", "record")]

    def asked(self, **parameters):
        return [one["id"] for one in self.api("records", limit=1000, **parameters)["records"]]

    def test_the_page_says_what_the_api_says(self):
        self.browser.open("#records")
        self.assertEqual(self.shown(), self.asked())
        for record in self.api("records", limit=1000)["records"]:
            row = self.browser.text(f"[data-record='{record['id']}']")
            for name in ("initiator", "target"):
                self.assertIn(record["names"][name] or "", row)
            self.assertIn(str(record["occurrences"]), row)
        for words in ("medium error", "unrecovered read error", r"READ\(10\)", "unable to perform", "PLOGI"):
            self.browser.wait_text(words, "main.records")
        self.browser.pictures("records")

    def test_the_bytes_are_one_click_away(self):
        self.browser.open("#records?kind=check_condition")
        record = self.api("records", kind="check_condition", limit=1)["records"][0]
        row = f"[data-record='{record['id']}']"
        self.browser.click(row + " button.opens")
        for words in ("illegal request|medium error", record["initiator"]["port_name"], "UTC"):
            self.browser.wait_text(words, row)
        self.browser.click(row + " .details button")
        lines = self.browser.text(row + " [data-raw]").splitlines()  # each with its offset before it
        self.assertEqual("".join("".join(line.split()[1:]) for line in lines), record["data"])

    def test_it_is_filtered_by_the_form_and_by_the_address(self):
        self.browser.open("#records?kind=check_condition")
        self.assertEqual(self.shown(), self.asked(kind="check_condition"))
        for name, value in (("initiator", "10:00:00:25:b5:01:00:01"), ("fabric", "right"), ("target", "50:06:01:61:3b:20:11:0c")):
            self.browser.open("#records")
            self.browser.click(f"form[data-filter] [data-pick={name}] summary")
            self.browser.click(f"form[data-filter] input[name={name}][value='{value}']")
            self.assertEqual(self.shown(), self.asked(**{name: value}), name)
            self.assertTrue(0 < len(self.shown()) < len(self.asked()), name)
            self.assertIn(name + "=", self.browser.hash())
        self.browser.announce("400")
        self.browser.open("#records?initiator=rubbish")
        self.assertTrue(self.browser.text("[role=alert]").strip())

    def test_more_of_them_come_when_asked_for(self):
        site = self.site = self.own_site(sensor=("--fold", "0"))
        site.play("storm queue-full boards=4 lun=3 rate=2000 times=450")
        wait_until(lambda: len(self.asked()) >= 450, "the storm is stored")
        self.browser.reset(site.web.address)
        self.browser.open("#records")
        begin = len(self.shown())
        self.assertLess(begin, 450)
        self.browser.click("[data-more]")
        self.assertEqual(self.shown(), self.asked()[:len(self.shown())])
        self.assertGreater(len(self.shown()), begin)

    def test_they_are_taken_away_as_files(self):
        self.browser.open("#records?kind=check_condition")
        asked = self.asked(kind="check_condition")
        lines = self.browser.download("button[data-export=ndjson]").splitlines()
        self.assertEqual([json.loads(one)["id"] for one in lines], asked)
        rows = list(csv.DictReader(io.StringIO(self.browser.download("button[data-export=csv]"))))
        self.assertEqual([int(one["id"]) for one in rows], asked)

    def test_a_new_one_comes_by_itself(self):
        self.browser.open("#records?kind=check_condition")
        before = self.shown()
        self.site.play(LONELY.replace("5/24/00", "5/20/00"))  # a row that no other test has made
        self.browser.wait_text("5/20/00", "main.records")
        self.browser.rest()
        self.assertEqual(self.shown(), self.asked(kind="check_condition"))
        self.assertEqual(len(self.shown()), len(before) + 1)
