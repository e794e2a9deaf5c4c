"""A browser without a screen, as a person uses it: addresses, keys, what is shown, pictures of it."""

import base64
import os
import re
import shutil
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from played import PICTURES, wait_until

WIDE = (1280, 900)
NARROW = (360, 740)

# Ends once the page is at rest, and what was done has had its effect: what an event leads to is due two frames later.
AT_REST = """
const done = arguments[arguments.length - 1];
const end = performance.now() + 15000;
function look() {
    const rest = document.documentElement && document.documentElement.dataset.rest === '1';
    if (rest || performance.now() > end) { done(rest); } else { setTimeout(look, 15); }
}
requestAnimationFrame(() => requestAnimationFrame(look));
"""

# Texts that can hardly be read: less contrast than WCAG 2.1 AA asks for.
FAINT = """
function parts(colour) { return (colour.match(/[\\d.]+/g) || []).map(Number); }
function light(rgb) {
    const [r, g, b] = rgb.map((part) => { part /= 255; return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4; });
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}
function over(top, below) {
    const alpha = top.length > 3 ? top[3] : 1;
    return [0, 1, 2].map((at) => top[at] * alpha + below[at] * (1 - alpha));
}
function ground(element) {
    const layers = [];
    for (let at = element; at; at = at.parentElement) { layers.push(parts(getComputedStyle(at).backgroundColor)); }
    return layers.reverse().reduce((below, top) => over(top, below), [255, 255, 255]);
}
const found = new Set();
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
for (let text = walker.nextNode(); text; text = walker.nextNode()) {
    const element = text.parentElement, style = getComputedStyle(element), box = element.getBoundingClientRect();
    if (!text.data.trim() || !box.width || style.visibility !== 'visible' || element.closest('[disabled], [hidden], script, style, option')) { continue; }
    if (box.right < 0 || box.bottom + scrollY < 0 || box.width < 2) { continue; }
    const below = ground(element), above = over(parts(style.color), below);
    const [bright, dark] = [light(below), light(above)].sort((a, b) => b - a);
    const size = parseFloat(style.fontSize), large = size >= 24 || (size >= 18.6 && parseInt(style.fontWeight, 10) >= 700);
    const contrast = (bright + 0.05) / (dark + 0.05);
    if (contrast < (large ? 3 : 4.5)) { found.add(`${text.data.trim().slice(0, 40)} (${contrast.toFixed(1)})`); }
}
return [...found];
"""


class Browser:
    """One for all tests of a run. It has its own folder, and speaks to this machine alone."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="zt-browser-")
        options = Options()
        for word in ("headless=new", "disable-gpu", "no-first-run", "disable-background-networking", "disable-extensions",
                     "disable-component-update", "disable-sync", "disable-dev-shm-usage", "force-color-profile=srgb",
                     "hide-scrollbars", "lang=en-GB", f"window-size={WIDE[0]},{WIDE[1]}",
                     f"user-data-dir={self.folder}",
                     "host-resolver-rules=MAP *.site 127.0.0.1"):
            options.add_argument("--" + word)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        # A zone that is neither UTC nor where most developers are, and has half an hour: local times are seen to be local.
        service = Service("/usr/bin/chromedriver", env={**os.environ, "TZ": "Asia/Kolkata"})
        self.driver = webdriver.Chrome(service=service, options=options)
        self.driver.set_script_timeout(20)
        self.address = None
        self.announced = []

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.folder, ignore_errors=True)

    # ---- How it is looked at ----

    def reset(self, address):
        """For the next test: nothing of the last one is left."""
        self.driver.get("about:blank")
        self.driver.execute_cdp_cmd("Storage.clearDataForOrigin", {"origin": address, "storageTypes": "all"})
        self.driver.execute_cdp_cmd("Network.clearBrowserCache", {})
        self.driver.get_log("browser")
        self.announced = []
        self.address = address
        self.look()

    def look(self, size=WIDE, dark=False, media=""):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == NARROW})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": media, "features": [
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})

    def open(self, view="", rest=True):
        """A view by its address, in a page that is loaded anew."""
        self.driver.get("about:blank")
        self.driver.get(self.address + "/" + view)
        if rest:
            self.rest()

    def rest(self):
        if not self.driver.execute_async_script(AT_REST):
            raise AssertionError("the page does not come to rest: " + self.text()[:500])

    # ---- What is shown ----

    def hash(self):
        return self.script("return location.hash")

    def script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        found = self.all(selector)
        if len(found) != 1:
            raise AssertionError(f"{len(found)} of {selector} in: {self.text()[:200]}")
        return found[0]

    def text(self, selector="body"):
        """As it is shown."""
        return self.script("return [...document.querySelectorAll(arguments[0])].map((one) => one.innerText).join('\\n')",
                           selector)

    def texts(self, selector):
        return self.script("return [...document.querySelectorAll(arguments[0])].map((one) => one.innerText.trim())",
                           selector)

    def data(self, selector, name):
        """The data-NAME of each."""
        return self.script("return [...document.querySelectorAll(arguments[0])].map((one) => one.dataset[arguments[1]])",
                           selector, name)

    def drawn(self, selector):
        """What stands in it, also on a canvas: to be compared."""
        return self.script("""
            const at = document.querySelector(arguments[0]);
            return [at.outerHTML, ...[at, ...at.querySelectorAll('canvas')].map((one) => one.toDataURL?.())].join(' ');
        """, selector)

    def wait_text(self, pattern, selector="body", limit=10.0):
        return wait_until(lambda: re.search(pattern, self.text(selector)), f"{selector} shows {pattern}", limit)

    def state(self):
        """How the page says that all is: ok, silent, unreadable, unreachable."""
        return self.script("return document.querySelector('#trouble [data-trouble]')?.dataset.trouble ?? 'ok'")

    def faint(self):
        return self.script(FAINT)

    def overflow(self):
        """By how many pixels the page is wider than what shows it."""
        return self.script("return document.scrollingElement.scrollWidth - innerWidth")

    # ---- What a person does ----

    def click(self, selector):
        self.one(selector).click()
        self.rest()

    def keys(self, *keys, rest=True):
        for key in keys:
            ActionChains(self.driver, duration=0).send_keys(key).perform()
        if rest:
            self.rest()

    def download(self, selector):
        """What a click has the browser save."""
        folder = tempfile.mkdtemp(dir=self.folder)
        self.driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": folder})
        self.click(selector)
        names = wait_until(lambda: [one for one in os.listdir(folder) if not one.endswith(".crdownload")], "a file is saved")
        with open(os.path.join(folder, names[0]), encoding="utf-8", newline="") as file:
            return file.read()

    def fill(self, selector, value):
        """Types into a field, or chooses, and confirms."""
        field = self.one(selector)
        if field.tag_name == "select":
            Select(field).select_by_value(value)
        else:
            field.clear()
            field.send_keys(value, Keys.ENTER)
        self.rest()

    def point(self, selector, x, y, click=False):
        """The mouse goes there: pixels from the left upper corner of what is selected."""
        at = self.script("const at = document.querySelector(arguments[0]); at.scrollIntoView({block: 'nearest'});"
                         "const box = at.getBoundingClientRect(); return [box.left, box.top]", selector)
        place = {"x": at[0] + x, "y": at[1] + y}
        self.driver.execute_cdp_cmd("Input.dispatchMouseEvent", {"type": "mouseMoved", **place})
        if click:
            for kind in ("mousePressed", "mouseReleased"):
                self.driver.execute_cdp_cmd("Input.dispatchMouseEvent",
                                            {"type": kind, "button": "left", "clickCount": 1, **place})
        self.rest()
        return place

    def wheel(self, selector, x, y, by):
        self.driver.execute_cdp_cmd("Input.dispatchMouseEvent", {
            "type": "mouseWheel", "deltaX": 0, "deltaY": by, **self.point(selector, x, y)})
        self.rest()

    def drag(self, selector, begin, end):
        """With the button held, in steps as a hand does."""
        place = self.point(selector, *begin)
        steps = [(place["x"] + (end[0] - begin[0]) * part / 8, place["y"] + (end[1] - begin[1]) * part / 8)
                 for part in range(9)]
        for kind, (x, y) in [("mousePressed", steps[0]), *(("mouseMoved", one) for one in steps),
                             ("mouseReleased", steps[-1])]:
            self.driver.execute_cdp_cmd("Input.dispatchMouseEvent", {
                "type": kind, "button": "left", "buttons": 1, "clickCount": 1, "x": x, "y": y})
        self.rest()

    def pinch(self, selector, x, y, begin, end):
        """Two fingers, so many pixels apart at the begin and at the end."""
        place = self.point(selector, x, y)

        def fingers(apart):
            return [{"x": place["x"] + side * apart / 2, "y": place["y"], "id": at} for at, side in enumerate((-1, 1))]
        self.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": True, "maxTouchPoints": 2})
        for kind, apart in [("touchStart", begin),
                            *(("touchMove", begin + (end - begin) * part / 8) for part in range(1, 9))]:
            self.driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": kind, "touchPoints": fingers(apart)})
        self.driver.execute_cdp_cmd("Input.dispatchTouchEvent", {"type": "touchEnd", "touchPoints": []})
        self.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": False})
        self.rest()

    def focused(self):
        """What has the focus, in words that a test can compare, and whether one sees that it has."""
        return self.script("""
            const at = document.activeElement, style = getComputedStyle(at);
            const seen = (style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) > 0) || style.boxShadow !== 'none';
            return [at.tagName + ' ' + (at.getAttribute('aria-label') || at.innerText || at.name || '').trim().slice(0, 60), seen];
        """)

    # ---- What is left ----

    def picture(self, name, size=WIDE, dark=False, rest=True):
        """In build/web: of the whole page, however long it is, or of what is there without a rest."""
        os.makedirs(PICTURES, exist_ok=True)
        if rest:
            self.look(size, dark)
            self.rest()
        made = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"format": "png", "captureBeyondViewport": rest})
        with open(os.path.join(PICTURES, name + ".png"), "wb") as file:
            file.write(base64.b64decode(made["data"]))

    def pictures(self, name):
        """As people see it: wide and narrow, by day and by night. The page must fit, and be read."""
        faults = []
        for size, width in ((WIDE, "wide"), (NARROW, "narrow")):
            for dark, time in ((False, "light"), (True, "dark")):
                self.picture(f"{name}-{width}-{time}", size, dark)
                faults += [f"{width} {time}: {one}" for one in self.faint()]
                if self.overflow() > 0:
                    faults.append(f"{width}: {self.overflow()} px too wide")
        self.look()
        self.rest()
        if faults:
            raise AssertionError(f"{name}: " + "; ".join(faults))

    def paper(self, name):
        """As it is printed, and on how many sheets."""
        made = self.driver.execute_cdp_cmd("Page.printToPDF", {"paperWidth": 8.27, "paperHeight": 11.69})
        document = base64.b64decode(made["data"])
        os.makedirs(PICTURES, exist_ok=True)
        with open(os.path.join(PICTURES, name + ".pdf"), "wb") as file:
            file.write(document)
        return len(re.findall(rb"/Type\s*/Page\b(?!s)", document))

    def announce(self, pattern):
        """What the console may say in this test, and must have said."""
        self.announced.append(pattern)

    def console(self):
        """What it said that no test has announced, and what was announced and not said."""
        said = [one["level"] + " " + one["message"] for one in self.driver.get_log("browser")]
        missed = ["never said: " + one for one in self.announced if not any(re.search(one, line) for line in said)]
        return missed + [line for line in said if not any(re.search(one, line) for one in self.announced)]
