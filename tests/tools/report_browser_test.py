#!/usr/bin/python3
"""fbc report in a real browser: headless Chromium loads the page of the demo chart with a click
on a known block (the page replays a '#click=X,Y' hash on load), and the test reads the page
back: no script error, the block's mode shown, its trace loaded. Keeps a screenshot.

usage: report_browser_test.py FBC ARTIFACT_DIR
Exit 77 (skipped) when no Chromium is installed.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

# Block x=320 y=240 of the demo chart codes as b85499a548950000: prefix 101110, Edge5 (mode 8).
CLICK = (325, 240)
MODE = "8"
CODE = "b85499a548950000"


def main():
    fbc, artifacts = sys.argv[1], sys.argv[2]
    browser = shutil.which("chromium") or shutil.which("chromium-browser")
    if not browser:
        print("SKIPPED: no chromium on this machine (.ci/run installs it)")
        return 77
    os.makedirs(artifacts, exist_ok=True)
    with tempfile.TemporaryDirectory() as tmp:
        subprocess.run([fbc, "demo", "--out", tmp], check=True, stdout=subprocess.DEVNULL)
        page = os.path.join(tmp, "report.html")
        subprocess.run([fbc, "report", os.path.join(tmp, "chart.png"), "--out", page], check=True)
        url = "file://%s#click=%d,%d" % (page, CLICK[0], CLICK[1])
        common = [browser, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                  "--user-data-dir=" + os.path.join(tmp, "profile"), "--virtual-time-budget=30000"]
        start = time.monotonic()
        dom = subprocess.run(common + ["--dump-dom", url], check=True, capture_output=True,
                             text=True, timeout=300).stdout
        shot = os.path.join(artifacts, "fbc_report_screenshot.png")
        subprocess.run(common + ["--window-size=1500,2400", "--screenshot=" + shot, url], check=True,
                       capture_output=True, timeout=300)
        print("chromium: %.1f s for the page and the screenshot" % (time.monotonic() - start))
        shutil.copy(page, os.path.join(artifacts, "fbc_report_chart.html"))

    failures = []
    errors = re.search(r'<div id="errors">(.*?)</div>', dom, re.S)
    if errors is None or errors.group(1).strip():
        failures.append("script errors: %r" % (errors.group(1) if errors else "no error box"))
    if 'data-ready="1"' not in dom:
        failures.append("the page never finished loading its traces")
    mode = re.search(r'<b id="trace-mode" data-mode="(\d*)"', dom)
    if mode is None or mode.group(1) != MODE:
        failures.append("block x=320 y=240 shows mode %r, expected %s" % (mode and mode.group(1), MODE))
    trace = re.search(r'<pre id="trace">(.*?)</pre>', dom, re.S)
    if trace is None or CODE not in trace.group(1) or '"x": 320' not in trace.group(1):
        failures.append("the trace shown is not block x=320 y=240's")
    with open(shot, "rb") as f:
        if f.read(8) != b"\x89PNG\r\n\x1a\n":
            failures.append("no screenshot written")
    for f in failures:
        print("FAIL:", f)
    print("screenshot:", shot)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
