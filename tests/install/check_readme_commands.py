#!/usr/bin/env python3
"""The README's command reference names every command of the interpreter's table, and no
other: the table is read from `kra2 --help`, which prints it entry by entry."""
import re
import subprocess
import sys


def table_commands(kra2):
    text = subprocess.run([kra2, "--help"], check=True, capture_output=True, text=True).stdout
    lines = text.split("\nCommands", 1)[1].splitlines()
    return [re.match(r"  (\S+)", line).group(1) for line, after in zip(lines, lines[1:])
            if re.match(r"  \S", line) and after.startswith("      ")]


def readme_commands(readme):
    with open(readme, encoding="utf-8") as handle:
        text = handle.read()
    section = text.split("\n## Command reference\n", 1)[1].split("\n## ", 1)[0]
    return re.findall(r"^\| `([A-Za-z]+)` \|", section, re.MULTILINE)


def main():
    table = table_commands(sys.argv[1])
    documented = readme_commands(sys.argv[2])
    problems = []
    if len(table) < 30:
        problems.append(f"only {len(table)} commands in the help text")
    problems += [f"not in the README: {word}" for word in table if word not in documented]
    problems += [f"not a command: {word}" for word in documented if word not in table]
    problems += [f"twice in the README: {word}" for word in set(documented)
                 if documented.count(word) > 1]
    if problems:
        sys.exit("\n".join(problems))
    print(f"{len(table)} commands documented")


if __name__ == "__main__":
    sys.exit(main())
