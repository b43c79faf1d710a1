#!/usr/bin/python3
"""The web console in headless Chromium, as an operator uses it.

Makes a demo folder with the built `clockcomm demo`, adds an administrator, starts
`clockcomm serve --host` on a free port with a simulated Zon terminal calling in on a pty, and
walks the console's screens, saving a screenshot of each under BUILD/screenshots/. Each step is
named; the steps in PENDING need endpoints this build does not serve yet and are skipped with
their reason (`--all` runs them anyway). The server, the simulator and the browser are stopped
at the end, also on failure.
"""
import argparse
import os
import queue
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import traceback

from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException, TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as ec
from selenium.webdriver.support.ui import Select, WebDriverWait

ADMIN, PASSWORD = "admin", "a long passphrase"
CLOCK = "DEMODATA"  # the demo company's clock; the simulated terminal calls in as it
WAIT = 15  # seconds any one thing may take to appear

# Steps that need another part of the API; switch each on by removing it here.
PENDING = {
}


class Site:
    """The program folder, the server and the simulated terminal; stop() ends whatever runs."""

    def __init__(self, build):
        self.build = build
        self.dir = tempfile.mkdtemp(prefix="clockcomm-browser-")
        self.home = os.path.join(self.dir, "demo")
        self.processes = []

    def run(self, *args, stdin=None):
        done = subprocess.run([os.path.join(self.build, "clockcomm"), "--home", self.home, *args],
                              input=stdin, capture_output=True, text=True, timeout=120)
        if done.returncode != 0:
            raise RuntimeError(f"clockcomm {' '.join(args)}: {done.stderr}{done.stdout}")
        return done.stdout

    def start(self, *command):
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   text=True)
        # Read on a thread of its own, so that a chatty process never blocks on a full pipe.
        process.lines = queue.Queue()
        threading.Thread(target=lambda: [process.lines.put(l) for l in process.stdout] and None,
                         daemon=True).start()
        self.processes.append(process)
        return process

    @staticmethod
    def wait_line(process, pattern, seconds=60):
        deadline = time.monotonic() + seconds
        while True:
            try:
                line = process.lines.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                raise RuntimeError(f"{process.args[0]} printed no {pattern!r}") from None
            found = re.search(pattern, line)
            if found:
                return found

    def serve(self):
        self.run("demo")
        self.run("user", "add", ADMIN, "--role", "administrator", stdin=PASSWORD + "\n")
        # The terminal calls every few seconds: its punches on the first call, none after.
        sim = self.start(os.path.join(self.build, "clockcomm-sim"), "zon", "--pty", "--call-in",
                         "--interval", "3", "--clock-name", CLOCK,
                         "--punches", "4")
        pty = self.wait_line(sim, r" ready on (\S+)").group(1)
        server = self.start(os.path.join(self.build, "clockcomm"), "--home", self.home, "serve",
                            "--listen", "127.0.0.1:0", "--host", "--port", pty)
        return self.wait_line(server, r"(http://127\.0\.0\.1:\d+/)").group(1)

    def stop(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        shutil.rmtree(self.dir, ignore_errors=True)


class Console:
    """The browser on the console, with the waits and checks the steps share."""

    def __init__(self, url, shots):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--window-size=1400,900", "--lang=en-US"):
            options.add_argument(flag)
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.url, self.shots, self.count = url, shots, 0

    def wait(self, condition, what, seconds=WAIT):
        try:
            # A page redraws its tables: an element found a moment ago may be gone; look again.
            return WebDriverWait(self.driver, seconds,
                                 ignored_exceptions=(StaleElementReferenceException,)).until(condition)
        except TimeoutException:
            raise AssertionError(f"not seen within {seconds} s: {what}") from None

    def find(self, css):
        return self.wait(ec.visibility_of_element_located((By.CSS_SELECTOR, css)), css)

    def text_in(self, css, pattern):
        regex = re.compile(pattern)
        return self.wait(lambda d: any(regex.search(e.text)
                                       for e in d.find_elements(By.CSS_SELECTOR, css)),
                         f"{css} with text /{pattern}/")

    def go(self, page):
        self.driver.find_element(By.CSS_SELECTOR, f'#nav a[data-page="{page}"]').click()
        self.wait(lambda d: d.current_url.endswith("#/" + page), f"#/{page}")

    def shown(self, heading, ready):
        """The page with this heading has its data (ready: CSS) or the API's refusal shown."""
        self.text_in("h1", "^" + re.escape(heading) + "$")
        self.wait(lambda d: d.find_elements(By.CSS_SELECTOR, ready) or any(
            e.is_displayed() and e.text for e in d.find_elements(By.CSS_SELECTOR, ".message.error")),
                  f"{ready} or an error message on {heading}")

    def fill(self, css, text):
        field = self.find(css)
        field.clear()
        field.send_keys(text)

    def shot(self, name):
        self.count += 1
        self.driver.save_screenshot(os.path.join(self.shots, f"{self.count:02d}-{name}.png"))

    def quit(self):
        self.driver.quit()


def login_refused(c):
    c.driver.get(c.url)
    c.find("#login-form")
    c.shot("login")
    c.fill("#login-name", ADMIN)
    c.fill("#login-password", "not the password")
    c.find("#login-submit").click()
    c.text_in("#login-error", r"^Wrong name or password\.$")
    assert c.driver.find_element(By.ID, "top").is_displayed() is False, "the menu shows unlogged"


def login(c):
    c.fill("#login-name", ADMIN)
    c.fill("#login-password", PASSWORD)
    c.find("#login-submit").click()
    c.text_in("#who", f"^{ADMIN} \\(administrator\\)$")


def terminals(c):
    c.shown("Terminals", "#terminals-table")
    c.text_in("#terminals-table td a", "^" + CLOCK + "$")
    c.text_in("#terminals-summary", r"^\d+ terminals, \d+ offline")
    # Sorting by name the other way round puts the names in descending order.
    heading = c.find('#terminals-table th[data-key="name"]')
    heading.click()
    c.wait(lambda d: d.find_element(By.CSS_SELECTOR, '#terminals-table th[data-key="name"]')
           .get_attribute("data-sorted") == "down", "names sorted down")
    names = [e.text for e in c.driver.find_elements(By.CSS_SELECTOR, "#terminals-table td a")]
    assert names == sorted(names, key=str.lower, reverse=True), names
    c.shot("terminals")


def terminal_page(c):
    c.driver.find_element(By.LINK_TEXT, CLOCK).click()
    c.shown(CLOCK, "#terminal-calls")
    c.shot("terminal")


def screens(c):
    for page, heading, ready in (("lines", "Lines", "#lines-table"),
                                 ("poll-list", "Poll list", "#poll-table"),
                                 ("events", "Event log", "#events-table"),
                                 ("punches", "Companies & punches", "#companies-table"),
                                 ("settings", "Settings", "#settings-save")):
        c.go(page)
        c.shown(heading, ready)
        c.shot(page)


def live_call(c):
    c.go("lines")
    c.find("#lines-table")
    # The calls so far come in the backlog; the next one must appear without a reload.
    c.text_in("#screen", "Connected")
    before = c.find("#screen").text.count("Connected")
    c.wait(lambda d: d.find_element(By.ID, "screen").text.count("Connected") > before,
           "a call made while the page is open, on the live screen")
    c.text_in("#screen", "Transfer for clock " + CLOCK + " complete")
    c.shot("lines-live")


def call_punches(c):
    c.go("punches")
    c.find("#companies-table")
    c.wait(lambda d: d.find_elements(By.XPATH, "//select[@id='punches-company']/option[text()='Demo Company']"),
           "Demo Company among the companies to choose")
    Select(c.find("#punches-company")).select_by_visible_text("Demo Company")
    c.find("#punches-show").click()
    c.text_in("#punches-page", r"\(\d+ punches\)")
    c.find("#punches-table tbody td.num")
    assert "format=csv" in c.find("#punches-csv").get_attribute("href")
    c.shot("punches")
    c.find("#employees-show").click()
    c.text_in("#employees-table tbody tr", r"12\s+Ada Lovelace\s+7\s+J1\s+yes")
    c.shot("employees")


def poll_list_edit(c):
    c.go("poll-list")
    c.find("#poll-form")
    c.fill("#poll-name", "Browser Gate")
    c.fill("#poll-address", "555-0199")
    c.fill("#poll-call-time", "06:30")
    c.find("#poll-save").click()
    c.text_in("#poll-table tr", r"Browser Gate.*555-0199.*06:30")
    row = [r for r in c.driver.find_elements(By.CSS_SELECTOR, "#poll-table tbody tr")
           if "Browser Gate" in r.text][0]
    row.find_element(By.XPATH, ".//button[text()='Edit']").click()
    c.fill("#poll-call-time", "07:15")
    c.find("#poll-save").click()
    c.text_in("#poll-table tr", r"Browser Gate.*07:15")
    c.shot("poll-list-edited")
    row = [r for r in c.driver.find_elements(By.CSS_SELECTOR, "#poll-table tbody tr")
           if "Browser Gate" in r.text][0]
    row.find_element(By.XPATH, ".//button[text()='Remove']").click()
    c.wait(ec.alert_is_present(), "the removal's question").accept()
    c.text_in("#poll-error", "^Removed Browser Gate")


def setting_refused(c):
    c.go("settings")
    field = c.find("#settings-form")
    label = [e for e in field.find_elements(By.CSS_SELECTOR, ".setting label")
             if re.search("terminal count", e.text, re.I)][0]
    c.fill("#" + label.get_attribute("for"), "200")
    c.find("#settings-save").click()
    c.text_in(".refusal", "Please enter a value between 1 and 96 for Terminal Count")
    c.shot("settings-refused")


def rule_file_refused(c):
    c.go("settings")
    c.wait(lambda d: d.find_elements(By.CSS_SELECTOR, '#rule-files [data-name="PunchTypeRules.txt"]'),
           "the rule files")
    c.driver.find_element(By.CSS_SELECTOR, '#rule-files [data-name="PunchTypeRules.txt"]').click()
    text = c.find("#rule-text")
    c.wait(lambda d: text.is_enabled(), "the rule file's text")
    text.clear()
    text.send_keys("1 = I\nthis is not a rule\n")
    c.find("#rule-save").click()
    c.text_in("#rules-error", r"^PunchTypeRules\.txt line 2: .*\(line 2 reads \"this is not a rule\"\)")
    c.shot("rule-file-refused")


def purge_log(c):
    c.go("events")
    c.find("#events-table")
    c.find("#events-purge").click()
    alert = c.wait(ec.alert_is_present(), "the purge's question")
    assert re.match(r"^Purge From .* to .*\. Are you sure\?$", alert.text), alert.text
    alert.accept()
    c.text_in("#events-error", r"^Purged [1-9]\d* events\.$")
    c.shot("events-purged")


def logout(c):
    c.find("#logout").click()
    c.find("#login-form")
    c.driver.get(c.url + "#/terminals")  # no session: back to the login page
    c.find("#login-form")


STEPS = [login_refused, login, terminals, terminal_page, screens, live_call, call_punches,
         poll_list_edit, setting_refused, rule_file_refused, purge_log, logout]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True, help="the build folder (clockcomm, clockcomm-sim)")
    parser.add_argument("--all", action="store_true", help="run the pending steps too")
    args = parser.parse_args()
    shots = os.path.join(args.build, "screenshots")
    shutil.rmtree(shots, ignore_errors=True)
    os.makedirs(shots)

    site = Site(args.build)
    console = None
    failed = []
    try:
        url = site.serve()
        console = Console(url, shots)
        for step in STEPS:
            name = step.__name__
            if name in PENDING and not args.all:
                print(f"SKIP {name}: {PENDING[name]}")
                continue
            started = time.monotonic()
            try:
                step(console)
                print(f"ok   {name} ({time.monotonic() - started:.1f} s)")
            except Exception:  # noqa: BLE001 - every failure is reported and fails the run
                failed.append(name)
                print(f"FAIL {name}\n{traceback.format_exc()}")
                console.shot("failed-" + name)
                if name.startswith("login"):
                    break  # nothing else can be seen without a session
    finally:
        if console:
            console.quit()
        site.stop()
    print(f"screenshots in {shots}")
    if failed:
        print("failed: " + ", ".join(failed))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
