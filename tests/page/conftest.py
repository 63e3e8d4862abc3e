"""Fixtures for the browser tests: a server for this repository's files, one headless Chromium, and pages with a fake
receiver behind chrome.webview."""

import functools
import http.server
import os
import pathlib
import shutil
import tempfile
import threading

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
FAKE_HOST = (REPOSITORY / "tests/page/fake_host.js").read_text(encoding="utf-8")

# Far more than anything takes, even on a busy machine.
LIMIT_SECONDS = 120

FLAGS = [
    "--headless=new", "--no-sandbox", "--window-size=1000,800", "--no-first-run", "--no-default-browser-check",
    "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions",
    "--disable-gpu", "--mute-audio", "--disable-breakpad", "--password-store=basic",
    "--autoplay-policy=no-user-gesture-required",
    "--disable-features=Translate,MediaRouter,OptimizationHints,LocalNetworkAccessChecks",
]


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {".mjs": "text/javascript", ".js": "text/javascript", ".css": "text/css", ".html": "text/html"}

    def log_message(self, *_):
        pass

    def end_headers(self):
        self.send_header("Cache-Control", "no-store")
        super().end_headers()


@pytest.fixture(scope="session")
def server():
    """The address under which the repository's files are found."""
    handler = functools.partial(QuietHandler, directory=REPOSITORY)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as listener:
        thread = threading.Thread(target=listener.serve_forever)
        thread.start()
        yield f"http://127.0.0.1:{listener.server_port}"
        listener.shutdown()
        thread.join()


@pytest.fixture(scope="session")
def browser_folder():
    """Takes everything that the browser leaves. Its path is short: Chromium puts a socket into it."""
    with tempfile.TemporaryDirectory(prefix="vistel-page-", dir="/tmp", ignore_cleanup_errors=True) as folder:
        yield folder


@pytest.fixture(scope="session")
def driver(browser_folder):
    """One browser for the whole run."""
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for flag in FLAGS:
        options.add_argument(flag)
    options.add_argument(f"--user-data-dir={browser_folder}/profile")
    if not os.access("/dev/shm", os.W_OK):
        options.add_argument("--disable-dev-shm-usage")
    environment = {**os.environ, "HOME": browser_folder, "TMPDIR": browser_folder}
    browser = webdriver.Chrome(service=Service(shutil.which("chromedriver"), env=environment), options=options)
    browser.set_script_timeout(LIMIT_SECONDS)
    browser.set_page_load_timeout(LIMIT_SECONDS)
    yield browser
    browser.quit()


class Page:
    """One document with the fake receiver in it. Scripts see that as `host` and the arguments as `args`."""

    def __init__(self, driver, server):
        self.driver = driver
        self.server = server
        self._scripts = []

    def inject(self, source):
        """Makes a script run in each new document before the page's own."""
        added = self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": source})
        self._scripts.append(added["identifier"])

    def open(self, path):
        self.driver.get(f"{self.server}/{path}")

    def open_file(self, path):
        self.driver.get((REPOSITORY / path).as_uri())

    def open_string(self, path):
        """As a host does that hands the browser a text instead of an address."""
        self.driver.get("about:blank")
        html = (REPOSITORY / path).read_text(encoding="utf-8")
        self.do("document.open(); document.write(args[0]); document.close();", html)

    def resize(self, width, height):
        """Gives the document a size of its own, smaller than any window may be."""
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def do(self, body, *args):
        return self.driver.execute_script(f"const args = arguments; {body}", *args)

    def get(self, expression, *args):
        return self.do(f"return {expression};", *args)

    def run(self, body, *args):
        """The value that the body of an asynchronous function comes to."""
        answer = self.driver.execute_async_script(
            "const args = [...arguments]; const done = args.pop();"
            f"(async () => {{ {body} }})()"
            ".then((value) => done({ value }), (error) => done({ error: String(error?.stack ?? error) }));", *args)
        assert "error" not in answer, answer["error"]
        return answer.get("value")

    def wait_for(self, expression, *args):
        """Waits until the expression is true, or what JavaScript takes for it, and returns it."""
        return WebDriverWait(self.driver, LIMIT_SECONDS, poll_frequency=0.05).until(
            lambda _: self.get(expression, *args), f"{expression} has not become true")

    def wait_for_text(self, text):
        """Waits until the page has posted the text."""
        self.wait_for("host.posted.includes(args[0])", text)

    def post_json(self, message):
        self.do("host.postJson(args[0]);", message)

    def post_media_result(self, action, success, path, error):
        self.do("host.postMediaResult(...args);", action, success, path, error)

    def give_slots(self, size=8294400):
        self.do("host.postBuffer(0, args[0]); host.postBuffer(1, args[0]);", size)

    def close(self):
        errors = self.get("window.host?.errors ?? []")
        for script in self._scripts:
            self.driver.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", {"identifier": script})
        self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        assert errors == []


@pytest.fixture
def bare_page(driver, server):
    """A page in a browser that no receiver hosts."""
    page = Page(driver, server)
    yield page
    page.close()


@pytest.fixture
def page(bare_page):
    bare_page.inject(FAKE_HOST)
    return bare_page
