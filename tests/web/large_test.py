"""Ten million records: a month is as quick as a minute."""

import os
import subprocess
import time

from case import Case
from played import PICTURES, built

RECORDS = int(os.environ.get("ZT_WEB_RECORDS", "10000000"))
# From the begin of the navigation to the first lanes that are drawn, and until nothing is due any more.
PAINTED = """
const painted = performance.getEntriesByName('zt-first-paint')[0];
return painted ? painted.startTime : null;
"""


class Large(Case):
    def make_site(self):
        os.makedirs(PICTURES, exist_ok=True)
        self.store = os.path.join(PICTURES, "large.db")
        made = os.path.exists(self.store) and time.time() - os.path.getmtime(self.store) < 7 * 86400
        if not made:
            for name in (self.store, self.store + "-wal", self.store + "-shm"):
                if os.path.exists(name):
                    os.unlink(name)
            begin = time.monotonic()
            subprocess.run([built("bench/zt-bench-store"), self.store, str(RECORDS)], check=True)
            print(f"{RECORDS} records made in {time.monotonic() - begin:.0f} s", end=" ", flush=True)
        site = self.own_site()
        site.web = site.more_web(self.store)
        return site

    def test_the_first_paint_comes_within_a_second(self):
        for span in ("30d", "1d", "1h"):
            for by in ("initiator", "kind"):
                took = []
                for _ in range(3):
                    self.browser.open(f"#timeline?since=-{span}&by={by}")
                    took.append(self.browser.script(PAINTED))
                self.assertNotIn(None, took, "nothing was painted")
                print(f"{span} {by} {min(took):.0f} ms", end=" ", flush=True)
                # The best of three: the machine may be busy elsewhere.
                self.assertLess(min(took), 1000, (span, by))
        self.browser.open("#timeline?since=-30d&by=initiator")
        self.browser.picture("large")
