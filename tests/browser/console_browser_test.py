#!/usr/bin/python3
"""vellmark-console in a real browser: Debian's chromium, headless, driven by python3-selenium,
against a real vellmarkd seeded from examples/seed.json.

Run by ctest (tests/ConsoleTests.cmake); exits 77 (skipped) with the reason when chromium,
its driver or selenium is not installed. Screenshots go to --screenshots.
"""
import argparse
import json
import os
import queue
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SKIP = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
# Every wait for the page or a program: generous, for the sanitizer builds.
BOUND = 60

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.common.exceptions import StaleElementReferenceException
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import Select, WebDriverWait
except ImportError as error:  # pragma: no cover - depends on the machine
    webdriver = None
    IMPORT_ERROR = str(error)

ARGS = None


def lines_of(stream, into):
    for line in iter(stream.readline, ""):
        into.put(line)
    stream.close()


class Program:
    """A program of the build, its standard output and error read by threads of their own."""

    def __init__(self, words):
        self.words = words
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        stdin=subprocess.DEVNULL, text=True)
        self.out, self.err = queue.Queue(), queue.Queue()
        self.seen = {"out": "", "err": ""}
        for stream, into in ((self.process.stdout, self.out), (self.process.stderr, self.err)):
            threading.Thread(target=lines_of, args=(stream, into), daemon=True).start()

    def wait_for(self, which, text):
        """The stream's text once it holds `text`; fails after BOUND seconds."""
        lines = self.out if which == "out" else self.err
        deadline = time.monotonic() + BOUND
        while text not in self.seen[which]:
            try:
                self.seen[which] += lines.get(timeout=max(0.1, deadline - time.monotonic()))
            except queue.Empty:
                pass
            if time.monotonic() > deadline:
                raise AssertionError(f"{self.words[0]} did not write {text!r}: {self.seen}")
        return self.seen[which]

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=BOUND)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


def leaves(value, path=""):
    if isinstance(value, dict):
        for key, inner in value.items():
            yield from leaves(inner, f"{path}.{key}")
    elif isinstance(value, list):
        for i, inner in enumerate(value):
            yield from leaves(inner, f"{path}[{i}]")
    else:
        yield path, value


class ConsoleInABrowser(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vellmark-browser-")
        cls.programs = []
        cls.service = cls.start([ARGS.vellmarkd, "--db", cls.folder + "/vellmark.db", "--runtime-dir",
                                 cls.folder, "--seed", ARGS.seed, "--log-level", "1"])
        cls.service.wait_for("err", "vellmarkd: serving")
        cls.console = cls.start([ARGS.console, "--runtime-dir", cls.folder, "--port", "0"])
        cls.url = cls.console.wait_for("out", "\n").strip()
        cls.base = cls.url.split("/?")[0]
        cls.secrets = cls.secret_values()
        options = webdriver.ChromeOptions()
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--window-size=1440,900"):
            options.add_argument(flag)
        cls.profile = tempfile.mkdtemp(prefix="vellmark-chromium-")
        options.add_argument("--user-data-dir=" + cls.profile)
        options.binary_location = CHROMIUM
        cls.browser = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
        cls.browser.set_script_timeout(BOUND)
        os.makedirs(ARGS.screenshots, exist_ok=True)

    @classmethod
    def tearDownClass(cls):
        if getattr(cls, "browser", None):
            cls.browser.quit()
        for program in reversed(cls.programs):
            program.stop()
        shutil.rmtree(cls.folder, ignore_errors=True)
        if getattr(cls, "profile", None):
            shutil.rmtree(cls.profile, ignore_errors=True)

    @classmethod
    def start(cls, words):
        program = Program(words)
        cls.programs.append(program)
        return program

    @classmethod
    def ctl(cls, *words, code=0):
        done = subprocess.run([ARGS.vellmarkctl, "--runtime-dir", cls.folder, *words],
                              capture_output=True, text=True, timeout=BOUND)
        if done.returncode != code:
            raise AssertionError(f"vellmarkctl {' '.join(words)} ended {done.returncode}: {done.stderr}")
        return done

    @classmethod
    def secret_values(cls):
        """What the service's sensitivity table hides: the leaves the redacted export masks."""
        clear = json.loads(cls.ctl("admin", "export").stdout)
        masked = dict(leaves(json.loads(cls.ctl("admin", "export", "--redact").stdout)))
        secrets = {value for path, value in leaves(clear)
                   if isinstance(value, str) and value and masked.get(path) != value}
        assert len(secrets) > 5, secrets
        return secrets

    # What the page shows, through the DOM.
    def wait(self, condition, what):
        # The diagram and the lists are drawn anew as the stream brings news: an element
        # found a moment ago may be gone, and is looked for again.
        return WebDriverWait(self.browser, BOUND, poll_frequency=0.2,
                             ignored_exceptions=[StaleElementReferenceException]).until(
            lambda browser: condition(browser), message=what)

    def script(self, code, *arguments):
        return self.browser.execute_script(code, *arguments)

    def click_frame(self, selector):
        """Clicks the diagram's frame found by `selector` (in one step: the diagram is redrawn
        as frames come); returns its data-message, or None when there is none."""
        return self.script(
            "const frame = document.querySelector(arguments[0]);"
            "if (!frame) return null;"
            "frame.dispatchEvent(new MouseEvent('click', {bubbles: true}));"
            "return frame.dataset.message;", selector)

    def css(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def tab(self, view):
        self.browser.find_element(By.CSS_SELECTOR, f'.tabs button[data-view="{view}"]').click()
        self.wait(lambda b: "active" in b.find_element(By.ID, "view-" + view).get_attribute("class"), view)

    def resource(self, name, text):
        self.browser.find_element(By.CSS_SELECTOR, f'#resource-list button[data-resource="{name}"]').click()
        self.wait(lambda b: b.find_element(By.ID, "resource-title").text == name and
                  text in b.find_element(By.ID, "store-view").text, f"{name} showing {text!r}")

    def shot(self, name):
        path = os.path.join(ARGS.screenshots, name)
        self.browser.save_screenshot(path)
        print(f"screenshot: {path}")

    def assert_no_secret_in_dom(self, where):
        dom = self.browser.execute_script(
            "return document.documentElement.outerHTML + [...document.querySelectorAll('input, textarea, select')]"
            ".map((e) => e.value).join('\\n')")
        shown = [secret for secret in self.secrets if secret in dom]
        self.assertEqual(shown, [], f"{where}: the page's DOM holds seeded secrets in clear")

    def test_1_without_the_token_the_page_is_refused(self):
        self.browser.get(self.base + "/")
        self.wait(lambda b: "403 Forbidden" in b.page_source, "a refusal")
        self.assertIn("needs the token", self.browser.find_element(By.TAG_NAME, "body").text)
        self.assertEqual(self.css("#view-traffic"), [])
        self.shot("console-refused.png")

    def test_2_the_page_loads_with_the_token_and_shows_the_seeded_sources(self):
        self.browser.get(self.url)
        self.wait(lambda b: b.current_url == self.base + "/", "the token gone from the address")
        self.wait(lambda b: b.find_element(By.ID, "link-status").text == "vellmarkd connected", "connected")
        self.tab("store")
        self.resource("sources", "Harbor Podcasts")
        self.assertIn("Aurora Radio", self.browser.find_element(By.ID, "store-view").text)
        self.assert_no_secret_in_dom("the sources")
        self.shot("console-store.png")

    def test_3_an_edited_preset_is_stored_and_a_subscriber_gets_its_lane_and_acknowledgements(self):
        subscriber = self.start([ARGS.vellmarkctl, "--runtime-dir", self.folder, "--timeout", "0", "subscribe",
                                 "presets"])
        subscriber.wait_for("err", "subscribed to presets")
        self.tab("store")
        self.resource("presets", "Harbor Morning Brief")
        self.browser.find_element(By.ID, "store-edit").click()
        editor = self.browser.find_element(By.ID, "store-json")
        self.wait(lambda b: editor.is_displayed(), "the editor")
        self.browser.execute_script(
            "const editor = arguments[0];"
            "const presets = JSON.parse(editor.value);"
            "presets.presets[0].value.actions[0].metadata.name = 'Aurora Jazz, edited in the console';"
            "editor.value = JSON.stringify(presets, null, 2);"
            "editor.dispatchEvent(new Event('input'));", editor)
        self.browser.find_element(By.ID, "store-save").click()
        self.wait(lambda b: "Saved presets" in b.find_element(By.ID, "store-message").text, "saved")
        self.assertIn("Aurora Jazz, edited in the console", self.ctl("get", "presets").stdout)
        # The masks the page showed stood for the stored identifiers: they are kept.
        self.assertIn("acct-aurora-55102938", self.ctl("get", "presets", "--show-secrets").stdout)
        subscriber.wait_for("out", "edited in the console")

        self.tab("traffic")
        # The lane of a client still connected whose title names vellmarkctl, with an update
        # drawn to it and its acknowledgement drawn back.
        self.wait(lambda b: self.script(
            "return [...document.querySelectorAll('#diagram-head g.lane')].some((lane) =>"
            "  lane.textContent.includes('vellmarkctl') && !lane.querySelector('.gone') &&"
            "  document.querySelector(`#diagram .frame.ack[data-session=\"${lane.dataset.session}\"]`) &&"
            "  document.querySelector(`#diagram .frame.notification[data-session=\"${lane.dataset.session}\"]"
            "[data-message=\"VELLMARK_MESSAGE_PRESETS_UPDATE\"]`));"), "the subscriber's lane, update and ack")
        self.assert_no_secret_in_dom("the traffic")

    def test_4_a_fail_next_set_in_the_page_marks_the_next_requests_error_in_the_diagram(self):
        self.tab("faults")
        Select(self.browser.find_element(By.ID, "fail-message")).select_by_value("15")
        form = self.browser.find_element(By.ID, "form-fail")
        form.find_element(By.CSS_SELECTOR, 'button[type="submit"]').click()
        self.wait(lambda b: form.find_element(By.CSS_SELECTOR, "pre.answer").text == "vellmarkd: ok",
                  "the service's answer")
        self.shot("console-faults.png")
        refused = self.ctl("gva", "create", "person-3c8e91f0", "provider-acct-7", "device-9", code=1)
        self.assertIn("cloud down", refused.stderr)
        self.ctl("get", "sources")
        self.tab("traffic")
        message = self.wait(lambda b: self.click_frame('#diagram .frame.error[data-error*="cloud down"]'),
                            "the error in the diagram")
        self.assertEqual(message, "VELLMARK_MESSAGE_GVA_CREATE_ERROR")
        self.wait(lambda b: "cloud down" in b.find_element(By.ID, "frame-detail").text, "the frame's detail")
        self.assert_no_secret_in_dom("an error frame")
        self.shot("console-traffic.png")

    def test_5_the_clients_are_listed_with_what_they_acknowledge(self):
        self.tab("clients")
        self.wait(lambda b: self.script(
            "return [...document.querySelectorAll('#clients-table tbody tr')].some((row) =>"
            "  row.textContent.includes('vellmarkctl') && row.textContent.includes('PRESETS_UPDATE'));"),
            "the subscriber's row with its subscription")
        self.shot("console-clients.png")

    def test_6_no_view_of_any_resource_shows_a_secret(self):
        self.tab("store")
        for button in self.css("#resource-list button"):
            name = button.get_attribute("data-resource")
            button.click()
            self.wait(lambda b: b.find_element(By.ID, "resource-title").text == name and
                      b.find_element(By.ID, "store-view").text, name)
            self.browser.find_element(By.ID, "store-edit").click()
            self.assert_no_secret_in_dom(name + " in the editor")
            self.browser.find_element(By.ID, "store-cancel").click()
        self.resource("service-accounts", "Aurora Radio")
        self.shot("console-service-accounts.png")
        self.tab("traffic")
        clicked = self.script(
            "const frames = [...document.querySelectorAll('#diagram .frame')];"
            "const shown = [];"
            "for (const frame of frames) {"
            "  frame.dispatchEvent(new MouseEvent('click', {bubbles: true}));"
            "  shown.push(document.getElementById('frame-detail').innerHTML);"
            "}"
            "return shown;")
        self.assertGreater(len(clicked), 5)
        for detail in clicked:
            self.assertEqual([secret for secret in self.secrets if secret in detail], [])
        self.assert_no_secret_in_dom("every resource and frame")


def main():
    global ARGS
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("--vellmarkd", "--vellmarkctl", "--console", "--seed", "--screenshots"):
        parser.add_argument(option, required=True)
    ARGS, rest = parser.parse_known_args()
    missing = [path for path in (CHROMIUM, CHROMEDRIVER) if not os.access(path, os.X_OK)]
    if webdriver is None:
        print(f"skipped: python3-selenium is not installed ({IMPORT_ERROR})")
        return SKIP
    if missing:
        print(f"skipped: {', '.join(missing)} not installed (Debian's chromium and chromium-driver)")
        return SKIP
    program = unittest.main(argv=[sys.argv[0], "-v", *rest], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
