"""What holds of every view: its address, the keyboard, small screens, colours, who may see it, what is no markup."""

import os

from selenium.webdriver.common.keys import Keys

from browser import NARROW
from case import Case
from played import wait_until

VIEWS = ("#now", "#timeline?since=-1h&by=initiator", "#incident/1", "#records?kind=check_condition")
EVIL = "<img src=x onerror=document.title='taken'>"


class Page(Case):
    def seen(self):
        return self.browser.script("return document.querySelector('main').className.split(' ')[0]")

    def shown(self):
        """What the view shows, without how long ago that was."""
        return [self.seen(), *(self.browser.data(f"[data-{name}]", name) for name in ("record", "lane", "port")),
                self.browser.texts("[data-title], summary")]

    def test_the_address_holds_the_view(self):
        for view in VIEWS:
            self.browser.open(view)
            shown = self.shown()
            self.assertEqual(self.seen(), view[1:].split("?")[0].split("/")[0])
            self.browser.driver.refresh()
            self.browser.rest()
            self.assertEqual(self.shown(), shown, view)
        self.browser.script("location.hash = '#now'")
        self.browser.rest()
        self.browser.script("history.back()")
        self.browser.rest()
        self.assertEqual(self.seen(), "records")
        for rubbish in ("#nowhere", "#incident/x", "#timeline?since=never", "#records?limit=-1&colour=%zz"):
            self.browser.open(rubbish, rest=False)
            self.browser.rest()
            self.assertTrue(self.seen(), rubbish)

    def test_the_keyboard_alone_is_enough(self):
        """Each stop of the tab key is seen; the first leads past the head; every view is reached."""
        for view in VIEWS:
            self.browser.open(view)
            stops = []
            for _ in range(80):
                self.browser.keys(Keys.TAB, rest=False)
                name, visible = self.browser.focused()
                if name.startswith("BODY") or name in stops[:1]:
                    break
                self.assertTrue(visible, f"{view}: the focus at {name} is not seen")
                stops.append(name)
            self.assertRegex(stops[0], "(?i)skip|to the content", "the first stop leads past the head")
            for name in ("Now", "Timeline", "Records"):
                self.assertTrue(any(name in one for one in stops), f"{view}: no way to {name}: {stops}")

    def test_it_fits_a_narrow_screen(self):
        for view in VIEWS:
            self.browser.look(NARROW)
            self.browser.open(view)
            self.assertEqual(self.browser.script("return innerWidth"), NARROW[0])
            self.assertLessEqual(self.browser.overflow(), 0, view)
            small = self.browser.script("""
                return [...document.querySelectorAll('button, nav a, input, select')].filter((one) => {
                    const box = (one.closest('.lane') ?? one).getBoundingClientRect();
                    return box.width > 0 && Math.min(box.width, box.height) < 22 && !one.closest('p, td, li, label');
                }).map((one) => one.outerHTML.slice(0, 80));
            """)
            self.assertEqual(small, [], view + ": too small for a finger")

    def test_a_page_that_is_left_holds_nothing(self):
        """A browser has six connections to a host. Each page that it keeps to go back to would hold one, as its stream."""
        for _ in range(10):
            self.browser.open()
        for _ in range(4):
            self.browser.script("open(arguments[0])", self.site.web.address + "/#records")
        tabs = self.browser.driver.window_handles
        try:
            for tab in tabs[1:]:
                self.browser.driver.switch_to.window(tab)
                self.browser.rest()
        finally:
            for tab in tabs[1:]:
                self.browser.driver.switch_to.window(tab)
                self.browser.driver.close()
            self.browser.driver.switch_to.window(tabs[0])

    def test_light_and_dark(self):
        self.browser.look(dark=True)
        self.browser.open()
        ground = "return getComputedStyle(document.querySelector('h1')).color"
        dark = self.browser.script(ground)
        self.browser.click("#theme")
        wait_until(lambda: self.browser.script(ground) != dark, "the switch makes it light")
        self.browser.driver.refresh()
        self.browser.rest()
        self.assertNotEqual(self.browser.script(ground), dark, "the choice is kept")

    def test_every_control_has_a_name(self):
        for view in VIEWS:
            self.browser.open(view)
            nameless = self.browser.script("""
                return [...document.querySelectorAll('a, button, input, select, canvas[tabindex], [role=application]')]
                    .filter((one) => one.checkVisibility() && !(one.innerText || one.getAttribute('aria-label') || one.getAttribute('aria-labelledby')
                                       || one.labels?.length || one.title || '')).map((one) => one.outerHTML.slice(0, 100));
            """)
            self.assertEqual(nameless, [], view)
            self.assertTrue(self.browser.all("[aria-live]"))
            self.assertEqual(self.browser.script("return [document.documentElement.lang, document.querySelectorAll('h1').length,"
                                                 "document.querySelectorAll('main').length]"), ["en", 1, 1], view)


class Foreign(Case):
    """No string from outside is markup, wherever it comes from."""

    def make_site(self):
        names = "".join(f'{port} "{EVIL}{at}" array="{EVIL}" controller="{EVIL}" fabric="{EVIL}" switch="{EVIL}"\n'
                        for at, port in enumerate(("10:00:00:25:b5:01:00:00", "10:00:00:25:b5:01:00:01",
                                                   "50:06:01:60:3b:20:11:0c", "50:06:01:61:3b:20:11:0c")))

        def ready(root):
            for name in ("symbolic_name",):
                with open(os.path.join(root, "sys/class/fc_host/host1", name), "w", encoding="utf-8") as file:
                    file.write(EVIL + "\n")
        site = self.own_site(names=names, ready=ready, sensor=("--window", f"host 2020-01-01T00:00 2099-01-01T00:00 {EVIL}"))
        site.note(EVIL, "--about", "array1")
        site.play('host mount "/srv/' + EVIL.replace("/", "|") + '" vg1-data xfs')
        site.play("host link-down host1 after=100ms\nlink board=0\n"
                  "check-condition board=1 port=50:06:01:61:3b:20:11:0c lun=12 command=0x28 sense=3/11/00 times=3")
        wait_until(lambda: site.web.api("incidents")["incidents"], "an incident is told")
        return site

    def test_no_string_is_markup(self):
        for view in ("#now", "#timeline?since=-1h&by=initiator", "#timeline?since=-1h&by=fabric", "#incident/1", "#records"):
            self.browser.open(view)
            self.assertEqual(self.browser.script("return document.querySelectorAll('img[src=x], main script').length"), 0, view)
            self.assertNotEqual(self.browser.script("return document.title"), "taken", view)
            self.assertIn("<img", self.browser.text(), view + " shows it as it is")
        self.browser.picture("foreign")


class Token(Case):
    """Who has no token sees the page's frame, is asked once, and no more."""

    def make_site(self):
        site = self.own_site()
        tokens = site.write("tokens", "first-token-of-this-site\n")
        os.chmod(tokens, 0o600)
        site.web = site.more_web(site.store, "--token-file", tokens)
        return site

    def test_it_asks_once(self):
        self.browser.announce("401")
        self.browser.open(rest=False)
        wait_until(lambda: self.browser.all("#ask[open] input[type=password]"), "it asks for a token")
        field = "#ask input[type=password]"
        self.browser.fill(field, "wrong")
        self.browser.wait_text("(?i)not|wrong|refused", "#ask")
        self.browser.picture("token")
        self.browser.fill(field, "first-token-of-this-site")
        wait_until(lambda: len(self.browser.all("[data-port]")) == 4, "the ports are shown")
        self.site.play("check-condition lun=3 sense=5/24/00")
        self.browser.script("location.hash = '#records'")
        self.browser.wait_text("5/24/00", "[data-record]")
        self.browser.driver.refresh()
        self.browser.rest()
        self.assertTrue(self.browser.all("[data-record]"), "it does not ask again")
        self.assertNotIn("first-token", self.browser.script("return document.documentElement.outerHTML + location.href"))
