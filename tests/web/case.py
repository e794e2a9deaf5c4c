"""What the browser's tests have in common: one browser, and one site on which an outage was played."""

import unittest

from browser import Browser
from played import Site, wait_until

# A fabric goes: first errors on a link that nobody reads, then half of all paths. Elsewhere a disk has bad blocks.
# It goes on as long as the site stands.
OUTAGE = """
host fpin host1 link-integrity port=array1-A0 detecting=20:04:00:05:33:6c:a1:01 event=invalid_crc count=40 threshold=10000 ports=array1-A0
fcp-read-check-error board=0 port=50:06:01:60:3b:20:11:0c lun=12 command=0x28 residual=2048 times=6 every=10ms
host link-down host1 after=200ms
host link-down host3 after=200ms
link board=0
link board=2
check-condition board=1 port=50:06:01:61:3b:20:11:0c lun=12 command=0x28 sense=3/11/00 times=3 every=10ms
host queue-depth host2/array1-A1 16
queue-depth-change board=1 port=50:06:01:61:3b:20:11:0c lun=12 old=32 new=16
ls-rjt board=3 from=50:06:01:69:3b:20:22:0c command=0x03 reason=0x09 explanation=0x29 times=2 every=10ms
"""
# An event that is no part of it: sense data that nothing else has.
LONELY = "check-condition board=3 port=50:06:01:61:3b:20:22:0c lun=3 command=0x2a sense=5/24/00"

shared = {}


def outage():
    """The site that most tests look at, with the outage played; made once."""
    if "site" not in shared:
        site = shared["site"] = Site()
        site.note("exchanged the transceiver of array1-A0", "--about", "array1-A0")
        site.play(OUTAGE)

        def is_told():
            told = site.web.api("incidents")["incidents"]
            luns = site.web.api("paths")["luns"]
            return (len(told) == 2 and any("4 of 8" in one["title"] for one in told) and
                    all(one["usable"] == 4 for one in luns))
        wait_until(is_told, "the outage is told", 60)
    return shared["site"]


def the_browser():
    if "browser" not in shared:
        shared["browser"] = Browser()
    return shared["browser"]


def end():
    for name in ("browser", "site"):
        if name in shared:
            one = shared.pop(name)
            (one.close if name == "browser" else one.end)()


class Case(unittest.TestCase):
    """A test fails when the console says what it has not announced."""

    maxDiff = 4000

    def setUp(self):
        self.browser = the_browser()
        self.site = self.make_site()
        self.browser.reset(self.site.web.address)

    def make_site(self):
        return outage()

    def own_site(self, **how):
        site = Site(**how)
        self.addCleanup(site.end)
        return site

    def tearDown(self):
        self.assertEqual(self.browser.console(), [], "what the console said")
        foreign = self.browser.script("return performance.getEntriesByType('resource').map((one) => one.name)"
                                      ".filter((name) => !name.startsWith(location.origin))")
        self.assertEqual(foreign, [], "asked for elsewhere")

    def api(self, path, **parameters):
        return self.site.web.api(path, **parameters)
