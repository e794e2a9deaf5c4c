"""The first view: what is wrong, how the ports stand, which paths are left, and what cannot be seen."""

from case import LONELY, Case
from played import wait_until


class Now(Case):
    def test_the_page_says_what_the_api_says(self):
        self.browser.open()
        incidents = self.api("incidents")["incidents"]
        going_on = [one for one in incidents if one["state"] != "closed"]
        shown = self.browser.data("main.now [data-incident]", "incident")
        self.assertEqual(sorted(shown[:len(going_on)]), sorted(str(one["id"]) for one in going_on))
        for one in going_on:
            self.assertIn(one["title"], self.browser.text(f"[data-incident='{one['id']}']"))
        ports = self.api("ports")["ports"]
        self.assertEqual(self.browser.data("[data-port]", "port"), [one["port_name"] for one in ports])
        for port in ports:
            text = self.browser.text(f"[data-port='{port['port_name']}']")
            for field in ("name", "state", "speed", "fabric"):
                self.assertIn(port[field] or "", text)
        luns = self.api("paths")["luns"]
        self.assertEqual(self.browser.data("[data-lun]", "lun"), [one["map"] for one in luns])
        for lun in luns:
            text = self.browser.text(f"[data-lun='{lun['map']}']")
            for part in [f"{lun['usable']} of {lun['total']}", *lun["mounts"]]:
                self.assertIn(part, text)
        blind = self.api("ports")["blind_spots"]
        spots = "\n".join(self.browser.texts("[data-blind-spot]"))
        self.assertTrue(blind)
        for spot in blind:
            self.assertIn(spot["why"], spots)
        self.browser.pictures("now")

    def test_an_incident_comes_first_and_leads_to_all_of_it(self):
        self.browser.open()
        first = self.browser.all("[data-incident]")[0].location
        self.assertLess(first["y"], 450, "it is seen without scrolling")
        for selector in ("[data-port]", "[data-lun]"):
            self.assertLess(first["y"], self.browser.all(selector)[0].location["y"])
        name = self.browser.data("[data-incident]", "incident")[0]
        self.browser.click(f"[data-incident='{name}'] a[href='#incident/{name}']")
        self.assertEqual(self.browser.hash(), "#incident/" + name)
        self.assertEqual(len(self.browser.all("main.now")), 0)

    def test_curves_show_what_comes(self):
        self.browser.open()
        curve = "[data-curve='10:00:00:25:b5:01:00:03']"
        before = self.browser.drawn(curve)
        self.site.play(LONELY + " times=20 every=10ms")
        wait_until(lambda: self.browser.drawn(curve) != before, "the curve of a port that has events changes")

    def test_the_state_of_the_host_is_told_as_it_changes(self):
        site = self.site = self.own_site()
        self.browser.reset(site.web.address)
        self.browser.open()
        self.browser.wait_text("8 of 8", "[data-lun='mpathb']")
        site.play("host link-down host2 after=100ms\nlink board=1")
        self.browser.wait_text("6 of 8", "[data-lun='mpathb']")
        self.browser.wait_text("(?i)linkdown", "[data-port='10:00:00:25:b5:01:00:01']")
        self.browser.wait_text("server1-hba1 has been down", "[data-incident]", 20)
        site.play("host link-up host2 after=100ms\nlink board=1")
        self.browser.wait_text("8 of 8", "[data-lun='mpathb']")
        self.browser.wait_text("(?i)online", "[data-port='10:00:00:25:b5:01:00:01']")
