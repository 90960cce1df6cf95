"""A page of dmclient report in a browser."""

import json
import os
import tempfile
import unittest
from urllib.parse import quote

import sample_record
from handset import Handset

try:
    from selenium import webdriver
    from selenium.common.exceptions import StaleElementReferenceException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None

CHROMIUM, CHROMEDRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
GUARD = 30  # seconds that nothing takes, unless it hangs
POLL = 0.03  # seconds between two looks


def start_browser(width=1400, height=900):
    if webdriver is None or not os.path.exists(CHROMIUM) or not os.path.exists(CHROMEDRIVER):
        raise unittest.SkipTest("needs the packages chromium, chromium-driver and python3-selenium")
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for word in ("--headless=new", "--disable-dev-shm-usage", "--disable-gpu", "--disable-extensions",
                 "--disable-background-networking", "--disable-component-update", "--hide-scrollbars", f"--window-size={width},{height}",
                 *(["--no-sandbox"] if os.geteuid() == 0 else [])):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(options=options, service=Service(CHROMEDRIVER))


def setUpModule():
    """For the modules of tests: one browser for all of one."""
    PageTest.browser = start_browser()
    unittest.addModuleCleanup(PageTest.browser.quit)


class PageTest(unittest.TestCase):
    """Tests on pages. Nothing that they do may be an error on the console, or
    a request for anything but the page itself."""

    maxDiff = None
    browser = None

    @classmethod
    def setUpClass(cls):
        cls.handset = Handset(profiles=None)
        cls.addClassCleanup(cls.handset.close)
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        cls.browser.execute_cdp_cmd("Browser.setDownloadBehavior",
                                    {"behavior": "allow", "downloadPath": cls.folder})

    def tearDown(self):
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [])
        requests = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        addresses = {event["params"]["request"]["url"].split("#")[0] for event in requests
                     if event["method"] == "Network.requestWillBeSent"}
        self.assertEqual({url for url in addresses if not url.startswith(("file:", "data:,", "blob:"))}, set())

    # ---- Opening -----------------------------------------------------------------------------

    def report(self, *records):
        """Writes the page of records, each a list of events or the text of a file."""
        files = []
        for number, record in enumerate(records):
            files.append(os.path.join(self.folder, f"record{number}.jsonl"))
            with open(files[-1], "w", encoding="utf-8") as file:
                file.write(record if isinstance(record, str) else sample_record.text(record))
        page = os.path.join(self.folder, "page.html")
        self.handset.succeed("dmclient", "report", *files, "-o", page)
        return page

    def open(self, *records, at=""):
        self.open_page(self.report(*(records or (sample_record.session(),))), at)

    def open_page(self, page, at=""):
        self.browser.get("about:blank")
        self.browser.get("file://" + quote(page) + ("#" + at if at else ""))
        self.wait_for(lambda: self.script("return document.documentElement.dataset.ready"))

    def wait_for(self, condition):
        WebDriverWait(self.browser, GUARD, poll_frequency=POLL).until(lambda _: condition())

    # ---- Looking -----------------------------------------------------------------------------

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        """What a person sees of the element, spaces as one."""
        shown = self.script("const one = document.querySelector(arguments[0]);"
                            "return one && (one.checkVisibility() ? one.innerText : '')", selector)
        self.assertIsNotNone(shown, f"there is no {selector}")
        return " ".join(shown.split())

    def texts(self, selector):
        return self.script("return [...document.querySelectorAll(arguments[0])].map((one) => one.innerText.replace(/\\s+/g, ' ').trim())",
                           selector)

    def click(self, selector, words=None):
        """Clicks the element, or the first of those that has these words in it."""
        found = self.script("return [...document.querySelectorAll(arguments[0])].find((one) => arguments[1] === null ||"
                            " one.innerText.replace(/\\s+/g, ' ').includes(arguments[1]))", selector, words)
        self.assertTrue(found, f"nothing of {selector} says {words}: {self.texts(selector)}")
        found.click()

    def keys(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def focused(self):
        return self.script("return document.activeElement.id || document.activeElement.className")

    def chosen(self, list_selector):
        return self.text(f"{list_selector} .row[aria-selected=true]")
