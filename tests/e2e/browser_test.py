"""The status page and the page of all alarms in a real browser: what people see, with keys alone, and that texts of
alarms are nothing but texts. Chromium is large: scripts/try-receivers runs this, not CTest."""

import contextlib
import os
import tempfile
import unittest
from xml.sax.saxutils import quoteattr

from browser import Browser
from export_test import alarm, definitions
from harness import System, wait_for
from status_page_test import Page, raise_many
from trap_receiver import TrapReceiver

# Texts that would do something, or hide something, where they were taken for more than texts.
HOSTILE = ["<script>window.hacked = 1</script>", "</script><script>window.hacked = 2</script>",
           "<img src=x onerror='window.hacked = 3'>", "\"><svg onload=window.hacked=4>", "javascript:window.hacked=5",
           "<style>*{display:none}</style><base href=//evil.example>", "{{7*7}} ${7*7} &lt;b&gt; %3Cscript%3E",
           "a\u2028b\u2029c \u202egnp.exe", "</textarea></title></li></ol><h1>x"]
OWN_NUMBER = 999999
SIZES = ((320, 600), (390, 844), (1024, 768), (1280, 720), (1400, 1000), (2560, 1400))
CLIPPED = ("Array.from(document.querySelectorAll('section')).filter(one => one.scrollHeight > one.clientHeight + 1)"
           ".map(one => one.innerText.slice(0, 40))")

# Texts whose contrast with what is behind them is below 4.5, as people read them.
POOR_CONTRAST = """(() => {
  const parse = text => text.match(/[\\d.]+/g).map(Number);
  const light = ([r, g, b]) => [r, g, b].map(c => c / 255).map(c => c <= .04045 ? c / 12.92 : ((c + .055) / 1.055) ** 2.4)
    .reduce((sum, c, i) => sum + c * [.2126, .7152, .0722][i], 0);
  const behind = one => {
    for (; one !== null; one = one.parentElement) {
      const color = parse(getComputedStyle(one).backgroundColor);
      if (color.length < 4 || color[3] > 0) return color;
    }
    return matchMedia("(prefers-color-scheme: dark)").matches ? [0, 0, 0] : [255, 255, 255];
  };
  const found = [];
  for (const one of document.body.querySelectorAll("*")) {
    const own = Array.from(one.childNodes).some(child => child.nodeType === 3 && child.data.trim() !== "");
    if (!own || one.closest("script, style, noscript, option") || one.getClientRects().length === 0) continue;
    const [a, b] = [light(parse(getComputedStyle(one)[one.closest("svg") ? "fill" : "color"])), light(behind(one))];
    const ratio = (Math.max(a, b) + .05) / (Math.min(a, b) + .05);
    if (ratio < 4.5) found.push(one.tagName + " " + one.className + " " + ratio.toFixed(2) + " " + one.textContent.slice(0, 40));
  }
  return found;
})()"""


class Looks(unittest.TestCase):
    """What holds for both pages."""

    def check_looks(self, browser):
        for dark in (False, True):
            for width, height in SIZES:
                browser.show(width, height, dark=dark)
                with self.subTest(width=width, dark=dark):
                    self.assertLessEqual(browser.evaluate("document.documentElement.scrollWidth"), width)
                    self.assertEqual(browser.evaluate(CLIPPED), [])
                    self.assertEqual(browser.evaluate(POOR_CONTRAST), [])
        browser.show(1400)

    def check_names(self, browser):
        """Readers for the blind have a name for all that takes a key."""
        nodes = browser.command("Accessibility.getFullAXTree")["nodes"]
        focusable = [node for node in nodes if any(one["name"] == "focusable" and one["value"]["value"]
                                                   for one in node.get("properties", ()))]
        self.assertGreater(len(focusable), 3)
        self.assertEqual([node["role"]["value"] for node in focusable
                          if not node.get("name", {}).get("value") and node["role"]["value"] != "RootWebArea"], [])

    def check_harmless(self, browser, origin):
        self.assertIsNone(browser.evaluate("window.hacked"))
        self.assertEqual((browser.complaints, browser.dialogs), ([], []))
        self.assertEqual([url for url in browser.requests if not url.startswith(origin)], [])
        self.assertEqual(browser.evaluate("document.querySelectorAll('img, svg [onload], base, iframe, textarea').length"), 0)


class StatusPage(Looks):
    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)

    def start(self, extra="", **more):
        self.system = self.stack.enter_context(Page(extra, **more))
        self.origin = "http://localhost:%d/" % self.system.web
        self.browser = self.stack.enter_context(Browser("--host-resolver-rules=MAP *.example 127.0.0.1"))

    def open(self):
        self.browser.show(1400)
        self.browser.open(self.origin)
        self.browser.wait("document.getElementById('found').textContent.includes('alarm') && "
                          "!document.getElementById('found').textContent.includes('reads')", "the list of alarms")
        self.browser.evaluate("window.same = true")  # gone after a reload

    def wait_alarms(self, count):
        self.browser.wait("document.querySelectorAll('#list > li').length === %d" % count, "%d alarms on the page" % count)

    def titles(self):
        return [text.split("\n")[1] for text in self.browser.text("#list > li")]

    def test_it_follows_changes_without_a_reload(self):
        self.start("informsink 127.0.0.1 community 9\n")
        browser, system = self.browser, self.system
        receiver = self.stack.enter_context(TrapReceiver())
        system.add_destination(1, receiver.port)
        self.open()
        self.assertEqual(browser.text("#found"), ["No alarm is active."])
        serial = system.raise_disk(7, level=6)
        self.wait_alarms(1)
        (shown,) = browser.text("#list > li")
        for text in ("critical", "Disk Failed", "serial number %d" % serial, "Enclosure CTE0, slot 7.",
                     "The disk in slot 7 of enclosure CTE0 cannot be used any more: it is not reachable.",
                     "What to do: Replace the disk in slot 7 of enclosure CTE0."):
            self.assertIn(text, shown)
        browser.wait("document.title === '1 critical \u2013 vrx-storage'")
        self.assertEqual(browser.text("h1"), ["vrx-storage"])
        browser.wait("document.getElementById('destinations').innerText.includes('2 sent')")
        browser.wait("document.getElementById('informs').innerText.includes('does not answer')")
        browser.wait("document.getElementById('notifications').innerText.includes('common trap to 1')")
        self.assertIn("inform receiver 127.0.0.1:9", browser.wait("document.getElementById('verdict').textContent"))
        browser.wait("document.querySelectorAll('#latency svg .bar').length > 0")
        self.check_looks(browser)
        self.check_names(browser)
        system.vrxctl("clear", str(serial))
        self.wait_alarms(0)
        browser.wait("document.getElementById('notifications').innerText.includes('cleared')")
        self.assertTrue(browser.evaluate("window.same"))
        self.check_harmless(browser, self.origin)

    def test_it_asks_nothing_while_nobody_sees_it(self):
        self.start()
        browser = self.browser
        self.open()
        # What the page has yet to do: a headless browser shows all its pages, so the page is told that it is hidden.
        browser.evaluate("""(() => {
            window.due = new Set();
            const later = window.setTimeout, never = window.clearTimeout;
            window.setTimeout = (what, pause) => {
                const timer = later(() => { window.due.delete(timer); what(); }, pause);
                if (what.name === "look") window.due.add(timer);  // not the end of its patience
                return timer;
            };
            window.clearTimeout = timer => { window.due.delete(timer); never(timer); };
            window.show = shown => {
                Object.defineProperty(document, "hidden", {value: !shown, configurable: true});
                document.dispatchEvent(new Event("visibilitychange"));
            };
        })()""")
        browser.wait("window.due.size === 1", "the page's next look")
        self.assertEqual(browser.evaluate("show(false), window.due.size"), 0)
        browser.wait("window.due.size === 0", "the end of a look that was under way")
        browser.evaluate("show(true)")
        browser.wait("window.due.size === 1", "the page's next look")
        self.system.raise_disk(7)
        self.wait_alarms(1)
        self.check_harmless(browser, self.origin)

    def test_it_tells_that_agent_or_backend_are_gone(self):
        self.start()
        browser, system = self.browser, self.system
        system.raise_disk(7)
        self.open()
        self.wait_alarms(1)
        system.backend.stop()
        browser.wait("document.getElementById('backend-state').textContent.startsWith('away since')")
        browser.wait("document.getElementById('unread').textContent.startsWith('The alarms cannot be read now')")
        self.wait_alarms(1)  # the last that is known
        system.backend.start()
        browser.wait("document.getElementById('backend-state').textContent.startsWith('connected since')")
        system.agent.stop()
        said = browser.wait("document.getElementById('gone').textContent")
        self.assertRegex(said, r"^The agent has not answered since \d\d:\d\d:\d\d: all figures are of \d\d:\d\d:\d\d\.$")
        self.assertEqual(browser.text("#verdict"), [""])
        system.agent.start()
        browser.wait("document.getElementById('gone').textContent === ''")
        self.assertEqual(browser.wait("document.getElementById('verdict').textContent"), "all is well")
        self.assertTrue(browser.evaluate("window.same"))

    def test_texts_that_hold_markup_are_shown_and_not_run(self):
        self.start(start=False)
        browser, system = self.browser, self.system
        own = [alarm(OWN_NUMBER + i, text, suggestion=text + " ##00.", detail=text + " ##00 ##01.", location=text + " ##01.")
               for i, text in enumerate(HOSTILE)]
        with open(system.path("conf", "alarm_definitions.xml"), encoding="utf-8") as file:
            shipped = file.read()
        system.write("conf/alarm_definitions.xml", shipped.replace("</eventDefinition>", "\n".join(own) + "</eventDefinition>", 1))
        with open(system.path("conf", "device.xml"), encoding="utf-8") as file:
            device = file.read()
        system.write("conf/device.xml", device.replace('"vrx-storage"', quoteattr(HOSTILE[1]), 1))
        system.backend.start()
        system.agent.start()
        receiver = self.stack.enter_context(TrapReceiver())
        system.add_destination(1, receiver.port)
        for i, text in enumerate(HOSTILE):
            system.vrxctl("raise", str(1 << 32 | OWN_NUMBER + i), text, HOSTILE[i - 1])
        raise_many(system, [b"\xff\xfe\xed\xa0\x80,\x01\x1b[31m", b"%s,b" % (3000 * b"long ")], number=1 << 32 | OWN_NUMBER)
        self.open()
        self.wait_alarms(len(HOSTILE) + 2)
        self.assertEqual(browser.evaluate("[document.title, document.querySelector('h1').textContent]"),
                         ["%d major \u2013 %s" % (len(HOSTILE) + 2, HOSTILE[1]), HOSTILE[1]])
        shown = "\n".join(browser.evaluate("Array.from(document.querySelectorAll('#list > li'), one => one.textContent)"))
        for text in HOSTILE:
            self.assertEqual(shown.count(text) >= 4, True, text)  # title, location, detail, advice
        self.assertIn("\ufffd", shown)
        self.assertIn(" more characters)", shown)
        browser.wait("document.getElementById('notifications').textContent.includes('onerror')")
        self.assertEqual(browser.evaluate("document.querySelectorAll('script, style, h1').length"), 2)
        self.check_harmless(browser, self.origin)
        self.check_looks(browser)

        # In the filter too.
        browser.press("/", *"<script>")
        browser.wait("document.getElementById('found').textContent.includes(' of ')")
        self.check_harmless(browser, self.origin)

        # And if the script were to take a text for markup, the policy would not let it.
        for wanted in ("document.body.innerHTML = '<b>x</b>'", "document.body.setAttribute('onclick', 'window.hacked = 6')",
                       "eval('window.hacked = 7')", "document.createElement('script').text = 'window.hacked = 8'"):
            self.assertIn(browser.evaluate("(() => { try { %s; return 'done'; } catch (error) { return error.name; } })()" % wanted),
                          ("TypeError", "EvalError"), wanted)
        browser.complaints.clear()
        browser.evaluate("(() => { const one = document.createElement('style'); one.append('body {color: red}'); "
                         "document.head.append(one); })()")
        wait_for(lambda: browser.evaluate("window.same") and browser.complaints, "what the policy refuses")
        self.assertIn("Content Security Policy", browser.complaints[0])
        self.assertIsNone(browser.evaluate("window.hacked"))

    def test_it_is_used_with_keys_alone(self):
        self.start()
        browser, system = self.browser, self.system
        for slot, level in ((3, 5), (1, 6), (2, 4)):
            system.raise_disk(slot, level, "CTE%d" % slot)
        self.open()
        self.wait_alarms(3)
        focused = "document.activeElement.textContent.trim() || document.activeElement.id"
        browser.press("Tab")
        self.assertEqual(browser.evaluate(focused), "To the alarms")
        browser.press("Enter", "Tab")
        self.assertIn("critical", browser.evaluate(focused))
        browser.press("Space")
        self.wait_alarms(1)
        self.assertEqual(browser.evaluate("document.activeElement.getAttribute('aria-pressed')"), "true")
        browser.press("Tab", "Enter")
        self.wait_alarms(2)
        browser.press("Enter")
        self.wait_alarms(1)
        browser.press("/", *"cte2")
        self.wait_alarms(0)
        self.assertEqual(browser.text("#found"), ["0 of 3 alarms"])
        browser.press("Escape")
        self.wait_alarms(1)
        browser.evaluate("document.querySelector('[aria-pressed=true]').focus()")
        browser.press("Space")
        self.wait_alarms(3)
        browser.evaluate("document.getElementById('order').focus()")
        browser.press("m")  # most severe first
        browser.wait("document.querySelector('#list > li').textContent.includes('slot 1.')")
        browser.press("ArrowDown")  # by title: all the same, so the newest first
        browser.wait("document.querySelector('#list > li').textContent.includes('slot 2.')")

    def test_ten_thousand_alarms_are_filtered_and_ordered_as_a_whole(self):
        self.start()
        browser, system = self.browser, self.system
        raise_many(system, [b"%d,CTE%d,1" % (i % 25, i // 25) for i in range(10_000)])
        system.alarms(10_000)
        self.open()
        self.wait_alarms(100)
        self.assertEqual(browser.text("#found"), ["10,000 alarms; the first 100 are shown"])
        browser.press("/", *"cte0,")
        browser.wait("document.getElementById('found').textContent.startsWith('25 of 10,000')")
        self.wait_alarms(25)
        browser.press("Escape")
        self.wait_alarms(100)
        browser.evaluate("document.getElementById('more').click()")
        self.wait_alarms(200)
        self.check_looks(browser)

    def test_under_another_name_there_is_nothing_to_see(self):
        self.start()
        self.system.raise_disk(7)
        self.browser.open("http://evil.example:%d/" % self.system.web)
        self.assertIn("ask for it as localhost", self.browser.evaluate("document.body.innerText"))
        self.assertEqual(self.browser.evaluate("fetch('/alarms.json').then(answer => answer.status)"), 403)


class Catalogue(Looks):
    """What vrxctl export catalogue writes, opened as a file."""

    @classmethod
    def setUpClass(cls):
        stack = contextlib.ExitStack()
        cls.addClassCleanup(stack.close)
        cls.folder = stack.enter_context(tempfile.TemporaryDirectory(prefix="vrx-catalogue-"))
        cls.system = System(start=False)
        stack.callback(cls.system.close)
        cls.shipped = cls.export("shipped")
        cls.browser = stack.enter_context(Browser())

    @classmethod
    def export(cls, name, *arguments):
        path = os.path.join(cls.folder, name + ".html")
        cls.system.vrxctl("export", "catalogue", "--output", path, *arguments)
        return "file://" + path

    def visible(self):
        return self.browser.evaluate("Array.from(document.querySelectorAll('article'), one => one)"
                                     ".filter(one => !one.hidden).length")

    def test_search_and_keys(self):
        browser = self.browser
        browser.open(self.shipped)
        every = self.visible()
        self.assertGreater(every, 100)
        browser.press("Tab")
        self.assertEqual(browser.evaluate("document.activeElement.textContent"), "To the alarms")
        browser.press("/", *"disk failed")
        browser.wait("document.getElementById('found').textContent.startsWith('1 of') || "
                     "Array.from(document.querySelectorAll('article')).some(one => one.hidden)")
        self.assertGreater(self.visible(), 0)
        self.assertLess(self.visible(), every)
        self.assertIn("Disk Failed", "\n".join(browser.text("article:not([hidden]) h2")))
        browser.press("Escape")
        self.assertEqual(self.visible(), every)
        self.check_names(browser)

    def test_anchors_by_number_and_by_oid(self):
        browser = self.browser
        for anchor in ("262147", "1.3.6.1.4.1.99871.2.91.10.2.1.1.0.403"):
            browser.open("about:blank")
            browser.open(self.shipped + "#" + anchor)
            browser.wait("scrollY > 0", "the jump to " + anchor)
            found = browser.evaluate("(() => { const box = document.getElementById(%r).closest('article'); "
                                     "const {top} = box.getBoundingClientRect(); "
                                     "return [box.querySelector('h2').textContent, top >= 0 && top < innerHeight]; })()" % anchor)
            self.assertEqual(found, ["Disk Failed", True])
        # A search that hides it gives way.
        browser.press("/", *"no such alarm")
        self.assertEqual(self.visible(), 0)
        browser.evaluate("location.hash = '#262148'")
        browser.wait("!document.getElementById('262148').closest('article').hidden")

    def test_looks_and_print(self):
        browser = self.browser
        browser.open(self.shipped)
        self.check_looks(browser)
        browser.show(800, dark=True, medium="print")
        self.assertEqual(browser.evaluate("getComputedStyle(document.getElementById('tools')).display"), "none")
        self.assertEqual(browser.evaluate(POOR_CONTRAST), [])
        browser.show(1400)

    def test_texts_that_hold_markup_are_shown_and_not_run(self):
        own = [alarm(OWN_NUMBER + i, text, text, text + " ##00.", text + " ##00.", text + " ##00.")
               for i, text in enumerate(HOSTILE)]
        path = os.path.join(self.folder, "hostile.xml")
        with open(path, "w", encoding="utf-8") as file:
            file.write(definitions(*own))
        page = self.export("hostile", "--definitions", path)
        browser = self.browser
        browser.complaints.clear()
        browser.requests.clear()
        browser.open(page)
        self.assertEqual(self.visible(), len(HOSTILE))
        shown = browser.evaluate("document.querySelector('main').textContent")
        for text in HOSTILE:
            self.assertGreaterEqual(shown.count(text), 4, text)
        self.check_harmless(browser, "file://")


if __name__ == "__main__":
    unittest.main()
