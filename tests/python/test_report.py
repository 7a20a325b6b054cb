#!/usr/bin/env python3
"""`python3 -m kra2.report` on the bundled example, rendered by headless Chromium.

    test_report.py KRA2 SOURCE_DIR

Runs the example with the kra2 executable, writes its report, and checks that the page as
Chromium renders it holds the summary numbers (counted here from the result file) and that
its screenshot is not blank. Skipped (77) without chromium or matplotlib.
"""
import os
import shutil
import subprocess
import sys
import tempfile

CHROMIUM = shutil.which("chromium") or "/usr/bin/chromium"
SKIPPED = 77


def skip(reason):
    print(f"skip: {reason}")
    sys.exit(SKIPPED)


def chromium(*args):
    sandbox = ["--no-sandbox"] if os.geteuid() == 0 else []  # root cannot use the sandbox
    command = [CHROMIUM, "--headless", "--disable-gpu", "--hide-scrollbars", *sandbox, *args]
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=120)


def expected_summary(result_path):
    """The summary numbers, counted from the result file without kra2's code."""
    lines = [line.rstrip("\n").split("\t") for line in open(result_path)]
    valid = [f for f in lines if f[3] != "NaN"]
    texts = [f"<td>instances</td><td>{len(lines)}</td>", f"<td>failed</td><td>{len(lines) - len(valid)}</td>",
             "<td>window</td><td>0 s to 1.2e-08 s</td>"]
    for column, field in (("peak", 3), ("avg", 4), ("rms", 5)):
        top = max(valid, key=lambda f: float(f[field]))
        texts.append(f"<td>worst {column}</td><td>{float(top[field]):.6g} ({top[0]})</td>")
    return texts


def check_em_and_grid(work, data, failures):
    """--em and --pg: a hand-made violations report and PG data of three demo resistors."""
    report = os.path.join(work, "em.html")
    subprocess.run([sys.executable, "-m", "kra2.report", "demo_result.txt", "--em",
                    os.path.join(data, "em_report.txt"), "--pg", os.path.join(data, "pg_data.txt"),
                    "-o", report], cwd=work, check=True, stdout=subprocess.DEVNULL)
    page = open(report).read()
    for text in ("<td>FAIL</td><td>1</td></tr><tr><td>PASS</td><td>1</td></tr><tr><td>NO_GEOMETRY"
                 "</td><td>1</td>", "<td>1</td><td>rh1_1</td><td>M1</td><td>FAIL</td><td>2</td>",
                 "<td>2</td><td>rv1_1</td><td>M2</td><td>PASS</td><td>0.2</td>"):
        if text not in page:
            failures.append(f"the EM section lacks {text}")
    if "rfeed_a</td><td>-" in page or page.count("data:image/png;base64,") != 2:
        failures.append("the EM ranking holds an instance without ratio, or the grid map is missing")


def main():
    kra2_exe, source = sys.argv[1], os.path.abspath(sys.argv[2])
    if not os.path.exists(CHROMIUM):
        skip("chromium is not installed (the Debian package chromium)")
    try:
        import matplotlib.image
        import numpy as np
    except ImportError:
        skip("this interpreter has no matplotlib or numpy")
    failures = []
    with tempfile.TemporaryDirectory() as work:
        shutil.copytree(os.path.join(source, "examples"), work, dirs_exist_ok=True)
        subprocess.run([kra2_exe, "-cmd", "demo.cmd", "-log", "demo.log"], cwd=work, check=True,
                       stdout=subprocess.DEVNULL)
        report = os.path.join(work, "report.html")
        subprocess.run([sys.executable, "-m", "kra2.report", "demo_result.txt", "--results",
                        "demo.raw", "--window", "0", "12e-9", "-o", report], cwd=work, check=True)
        page = chromium("--dump-dom", "file://" + report).stdout
        for text in expected_summary(os.path.join(work, "demo_result.txt")):
            if text not in page:
                failures.append(f"the rendered page lacks {text}")
        if page.count("data:image/png;base64,") != 2:
            failures.append("the page should hold two inline images (histograms, waveforms)")
        check_em_and_grid(work, os.path.join(source, "tests/data/python"), failures)
        png = os.path.join(work, "report.png")
        chromium("--window-size=1200,2400", f"--screenshot={png}", "file://" + report)
        pixels = matplotlib.image.imread(png)[:, :, :3]
        inked = np.mean(np.any(pixels < 0.9, axis=2))
        colours = len(np.unique((pixels * 255).astype(np.uint8).reshape(-1, 3), axis=0))
        print(f"screenshot {pixels.shape[1]}x{pixels.shape[0]}: {inked:.1%} inked, {colours} colours")
        if inked < 0.02 or colours < 50:
            failures.append("the screenshot is (nearly) blank")
    for failure in failures:
        print("FAIL:", failure)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
