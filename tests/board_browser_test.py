"""The board and a report in a real browser, on a plant whose server is stopped and started under the page."""

from __future__ import annotations

import contextlib
import json
import os
import signal
import socket
import subprocess
import tempfile
import unittest
import urllib.error
import urllib.parse
import urllib.request

from demo_plant import DemoPlant
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

TOOL = os.environ["KXDATA7_TOOL"]
EVIL = "<script>alert(1)</script>"

# The texts of a page that stand out from what is behind them by less than 4.5 to 1, large ones by less than 3.
FAINT_TEXTS = """
const luminance = c => { const [r, g, b] = c.map(v => (v /= 255) <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
                         return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
const parse = text => text.match(/[\\d.]+/g).map(Number);
const behind = e => { for (; e; e = e.parentElement) {
    const c = parse(getComputedStyle(e).backgroundColor);
    if (c.length < 4 || c[3] > 0.99) return c.slice(0, 3);
  } return [255, 255, 255]; };
return [...document.querySelectorAll("body *")].filter(e => !e.closest("svg") && e.getClientRects().length > 0 &&
    [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim())).map(e => {
  const style = getComputedStyle(e), size = parseFloat(style.fontSize);
  const [a, b] = [luminance(parse(style.color).slice(0, 3)), luminance(behind(e))].sort((x, y) => y - x);
  const large = size >= 24 || (size >= 18.66 && style.fontWeight >= 700);
  return (a + 0.05) / (b + 0.05) < (large ? 3 : 4.5) ? e.className + ": " + e.textContent.slice(0, 40) : "";
}).filter(text => text);
"""


def free_port() -> int:
    with contextlib.closing(socket.socket()) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class BoardTest(unittest.TestCase):
    def setUp(self) -> None:
        self.plant = DemoPlant()
        self.addCleanup(self.plant.remove)
        self.plant.query("update T_SFC_MACHINE set MACHINE_NAME = ? where MACHINE_ID = 4", EVIL)
        self.address = f"127.0.0.1:{free_port()}"
        self.start_server()
        self.addCleanup(self.stop_server)
        profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.addCleanup(profile.cleanup)
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                         "--disable-background-networking", "--disable-component-update", "--disable-sync",
                         "--disable-dev-shm-usage", f"--user-data-dir={profile.name}", "--window-size=1280,900"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.browser = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.addCleanup(self.browser.quit)

    def start_server(self, *options: str) -> None:
        self.server = subprocess.Popen(
            [TOOL, "serve", str(self.plant.file), "--listen", self.address, *options], stdout=subprocess.PIPE
        )
        assert self.server.stdout is not None
        self.assertIn(b"The board is at", self.server.stdout.readline())

    def stop_server(self) -> None:
        self.server.send_signal(signal.SIGTERM)
        self.assertEqual(self.server.wait(30), 0)
        assert self.server.stdout is not None
        self.server.stdout.close()

    def until(self, condition, seconds: float = 60) -> None:
        WebDriverWait(self.browser, seconds).until(lambda _: condition())

    # In one step: the page replaces its tiles at any moment.
    def texts(self, selector: str) -> "list[str]":
        return self.browser.execute_script(
            "return [...document.querySelectorAll(arguments[0])].map(e => e.innerText.trim())", selector
        )

    def text(self, selector: str) -> str:
        return next(iter(self.texts(selector)), "")

    def get(self, path: str, method: str = "GET") -> "tuple[int, str]":
        request = urllib.request.Request(f"http://{self.address}{path}", method=method)
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()

    def requests(self) -> "list[urllib.parse.SplitResult]":
        """What the page has asked for since it was last asked."""
        urls = []
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                urls.append(urllib.parse.urlsplit(message["params"]["request"]["url"]))
        return [url for url in urls if url.scheme not in ("data", "chrome")]  # those are the browser's own empty page

    def expect_readable_in_light_and_dark(self) -> None:
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                         {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            self.assertEqual(self.browser.execute_script(FAINT_TEXTS), [], scheme)

    def process(self, *events: str) -> None:
        for event in events:
            name, _, param = event.partition("=")
            subprocess.run([TOOL, "append", str(self.plant.file), "--machine", "1", "--event", name, "--param", param],
                           check=True, stdout=subprocess.DEVNULL)
        subprocess.run([TOOL, "process", str(self.plant.file), "--all"], check=True, stdout=subprocess.DEVNULL)

    def test_the_board_says_what_the_plant_holds(self) -> None:
        self.browser.get(f"http://{self.address}/")
        names = self.texts("article h2")
        self.assertEqual(names, ["Lathe 1", "Lathe 2", "Mill 1", EVIL])
        self.assertEqual(self.text("#m1 .word"), "Idle")

        self.process("job start=J-1001", "cycle start", "good=7", "scrap=2.17")
        hosts = {url.netloc for url in self.requests()}
        self.until(lambda: self.text("#m1 .word") == "In cycle")
        asked = self.requests()
        hosts |= {url.netloc for url in asked}
        self.assertLessEqual(len(asked), 2)  # a change shows with the second question after it at the latest
        rows = self.plant.query("select sum(GOOD_COUNT), sum(SCRAPPED_COUNT) from T_SFC_MACHINE_DATA where MACHINE_ID = 1")
        self.assertEqual(self.texts("#m1 .counts b"),
                         [str(count) for count in rows[0]])
        self.assertEqual(self.text("#m1 .first"), "J-1001 · SHAFT-20")
        self.process("user downtime start=50")
        self.until(lambda: self.text("#m1 .reason") == "Break")
        self.assertTrue(self.texts("#m1.user"))
        board = json.loads(self.get("/api/v1/board")[1])["machines"][0]
        self.assertEqual((board["state"], board["reason"], board["good"]), ("down", "Break", 7))
        self.assertIn('kxdata7_good_parts{machine="1",name="Lathe 1"} 7', self.get("/metrics")[1])

        # An event that stays at the head, with the error that its processor met.
        self.plant.query("insert into T_SFC_MDC_LOG (COMMAND_ID, MACHINE_ID, COMMAND_TIME_CODE, TIME_STAMP) "
                         "values (1, 99, 0, datetime('now', 'localtime'))")
        self.plant.query("insert into T_SFC_SETTING (SETTING_NAME, SETTING_VALUE) select 'processor_error', "
                         "max(MDC_LOG_ID) || char(9) || 'now' || char(9) || 'Either BOF or EOF <is> true' from T_SFC_MDC_LOG")
        self.until(lambda: "Either BOF or EOF <is> true" in self.text("#alert"))
        self.assertIn("The plant has no machine 99.", self.text("#alert"))
        self.expect_readable_in_light_and_dark()
        self.plant.query("delete from T_SFC_MDC_LOG")
        self.until(lambda: not self.browser.find_element(By.ID, "alert").is_displayed())

        # At twice the size, which halves the window, nothing is cut off sideways.
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": 640, "height": 450, "deviceScaleFactor": 2, "mobile": False})
        self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth - window.innerWidth"), 0)

        hosts |= {url.netloc for url in self.requests()}
        self.assertEqual(hosts, {self.address})
        self.assertEqual([e for e in self.browser.get_log("browser") if e["level"] in ("SEVERE", "WARNING")], [])

    def test_says_when_the_server_is_away(self) -> None:
        self.browser.get(f"http://{self.address}/")
        self.stop_server()
        self.until(lambda: "No answer from the server since" in self.text("#away"))
        self.assertEqual(self.text("#m1 .word"), "Idle")
        self.start_server()
        self.until(lambda: not self.browser.find_element(By.ID, "away").is_displayed())
        # Another server is there, of a department alone; the page takes its machines.
        self.stop_server()
        self.start_server("--department", "1")
        self.until(lambda: self.texts("article h2") ==
                   ["Lathe 1", "Lathe 2"])

    def test_reports_are_reached_by_the_keyboard_alone(self) -> None:
        self.process("job start=J-1001", "cycle start", "good=7")
        self.browser.get(f"http://{self.address}/")
        self.browser.find_element(By.TAG_NAME, "body").send_keys(Keys.TAB)
        self.assertEqual(self.browser.switch_to.active_element.text, "This shift")
        self.browser.switch_to.active_element.send_keys(Keys.ENTER)
        self.until(lambda: "/report" in self.browser.current_url)
        self.assertEqual(self.text(".totals dd"), "7")
        names = self.texts(".share tbody th")
        self.assertEqual(names, ["Lathe 1", "Lathe 2", "Mill 1", EVIL])
        self.expect_readable_in_light_and_dark()

    def test_what_cannot_be_served_is_said(self) -> None:
        self.assertEqual(self.get("/report?from=2026-01-12&to=2026-01-11"),
                         (400, "the range ends (2026-01-11) before it begins (2026-01-12)\n"))
        self.assertEqual(self.get("/report?range=never")[0], 400)
        self.assertEqual(self.get("/report?from=2020-01-01")[0], 200)  # a day without records
        self.assertEqual(self.get("/nowhere")[0], 404)
        self.assertEqual(self.get("/", "POST")[0], 405)
        self.assertEqual(self.get("/", "HEAD"), (200, ""))
        with contextlib.closing(socket.create_connection(self.address.split(":"))) as link:
            link.sendall(b"GET / HTTP/1.1\r\nX: " + b"x" * 9000 + b"\r\n\r\n")
            self.assertIn(b"431", link.recv(64))
        self.assertEqual(self.get("/healthz"), (200, "ok\n"))


if __name__ == "__main__":
    unittest.main()
