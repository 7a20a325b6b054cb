#!/usr/bin/env python3
"""Installs the build into a temporary prefix and runs the installed programs from there.

The installed kra2 must print its banner and run the bundled example out of
share/doc/kra2/examples exactly as the kra2 of the build tree runs it.
"""
import os
import shutil
import subprocess
import sys
import tempfile

EXPECTED = ["bin/kra2", "bin/kra2db", "share/man/man1/kra2.1.gz", "share/doc/kra2/README.md",
            "share/doc/kra2/copyright", "share/doc/kra2/changelog.gz",
            "share/doc/kra2/examples/demo.cmd", "share/doc/kra2/examples/demo.net",
            "share/doc/kra2/examples/demo.raw", "share/doc/kra2/examples/demo.cir"]


def run_example(kra2, examples, work):
    shutil.copytree(examples, work)
    subprocess.run([kra2, "-cmd", "demo.cmd", "-log", "demo.log"], cwd=work, check=True,
                   stdout=subprocess.DEVNULL)
    with open(os.path.join(work, "demo_result.txt"), "rb") as handle:
        return handle.read()


def check_python_package(build_dir, prefix, source_dir):
    """When the Python module is built, the installed package imports and reads the example."""
    if not os.path.isdir(os.path.join(build_dir, "python", "kra2")):
        return
    site = os.path.join(prefix, "lib", "python3", "dist-packages")
    script = "import kra2, sys; print(kra2.open(sys.argv[1])['tran'].signals[1])"
    demo = os.path.join(source_dir, "examples", "demo.raw")
    out = subprocess.run([sys.executable, "-c", script, demo], check=True, text=True,
                         capture_output=True, env=dict(os.environ, PYTHONPATH=site)).stdout
    if out.strip() != "n1_1":
        sys.exit(f"the installed Python package read {out!r}")


def main():
    build_dir, source_dir = sys.argv[1], sys.argv[2]
    with tempfile.TemporaryDirectory(prefix="kra2-install-") as tmp:
        prefix = os.path.join(tmp, "prefix")
        subprocess.run(["cmake", "--install", build_dir, "--prefix", prefix], check=True,
                       stdout=subprocess.DEVNULL)
        missing = [p for p in EXPECTED if not os.path.isfile(os.path.join(prefix, p))]
        if missing:
            sys.exit(f"not installed: {missing}")
        kra2 = os.path.join(prefix, "bin", "kra2")
        banner = subprocess.run([kra2, "-v"], check=True, capture_output=True, text=True).stdout
        if "Name        : kra2 - " not in banner:
            sys.exit(f"unexpected banner:\n{banner}")
        installed = run_example(kra2, os.path.join(prefix, "share/doc/kra2/examples"),
                                os.path.join(tmp, "installed"))
        built = run_example(os.path.join(build_dir, "kra2"),
                            os.path.join(source_dir, "examples"), os.path.join(tmp, "built"))
        check_python_package(build_dir, prefix, source_dir)
        with open(os.path.join(source_dir, "examples", "demo.net")) as handle:
            instances = sum(1 for line in handle if line.strip())
        if installed != built or installed.count(b"\n") != instances:
            sys.exit("the installed example's results differ from the build tree's")
    print("installed layout and example ok")


if __name__ == "__main__":
    main()
