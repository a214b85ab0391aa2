# SPDX-License-Identifier: Apache-2.0
"""guide_test.py [--double LIBRARIES] DOCUMENT PROGRAM...: does what a page of the manual shows.

In the page's order, but the files first, in an empty directory and with the programs on the path:

- each command of a block ```console must print the lines below it. In a line, "..." stands for
  text that differs each time; alone in a line, for any number of lines.
- a block behind <!-- file: NAME --> is put into that file.
- a block behind <!-- taken by: COMMAND --> is given to the command, which must end with status 0.

A page that uses bmcoauth-sandbox is skipped where the system allows no such thing. With --double
it is never skipped: LIBRARIES, preloaded, take the place of the sandbox.
"""

import argparse
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

SKIPPED = 77
SANDBOX = "bmcoauth-sandbox"
NOT_STARTED = 125  # by which it says that it could not run a command
STAND_IN = """#!/bin/sh
while :; do
    case $1 in
        --roots) export SANDBOX_ROOTS="$PWD/$2"; shift 2 ;;
        --marker) export SANDBOX_MARKER=yes; shift ;;
        *) break ;;
    esac
done
LD_PRELOAD='{}' exec "$@"
"""
BLOCK = re.compile(r"(?:<!-- (file|taken by): (.*?) -->\n)?^```(\w+)\n(.*?)^```$", re.M | re.S)


def commands(block):
    """Each command of a block and the lines that it prints."""
    command, printed = None, []
    lines = iter(block.split("\n")[:-1])
    for line in lines:
        if not line.startswith("$ "):
            printed.append(line)
            continue
        if command is not None:
            yield command, printed
        command, printed = line[2:], []
        while command.endswith("\\"):
            command += "\n" + next(lines)
    if command is not None:
        yield command, printed


def pattern(lines):
    """What the lines stand for."""
    parts = []
    for line in lines:
        if line == "...":
            parts.append(r"(?:.*\n)*?")
        else:
            parts.append(r"[^\n]*".join(re.escape(piece) for piece in line.split("...")) + r"\n")
    return re.compile("".join(parts))


class Page:
    def __init__(self, path, directory, programs, double):
        self.path = path
        self.directory = directory
        self.text = path.read_text(encoding="utf-8")
        self.done = 0
        path_of_programs = directory / ".programs"
        path_of_programs.mkdir()
        # Built for another machine, they run under an emulator that Meson names.
        wrapper = os.environ.get("MESON_EXE_WRAPPER", "")
        for program in programs:
            script = path_of_programs / pathlib.Path(program).name
            emulator = "" if pathlib.Path(program).read_bytes().startswith(b"#!") else wrapper
            script.write_text(f'#!/bin/sh\nexec {emulator} {shlex.quote(os.path.abspath(program))} "$@"\n')
            script.chmod(0o755)
        if double:
            (path_of_programs / SANDBOX).write_text(STAND_IN.format(double), encoding="utf-8")
        self.environment = {**os.environ, "PATH": f"{path_of_programs}:{os.environ['PATH']}"}

    def run(self, command, text=""):
        return subprocess.run(
            ["bash", "-c", command], cwd=self.directory, env=self.environment, text=True,
            input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60, check=False)

    def problems(self):
        blocks = BLOCK.findall(self.text)
        for purpose, argument, _, block in blocks:
            if purpose == "file":
                (self.directory / argument).write_text(block, encoding="utf-8")
        for purpose, argument, language, block in blocks:
            if purpose == "taken by":
                self.done += 1
                outcome = self.run(argument, block)
                if outcome.returncode != 0:
                    yield f"{argument}\nends with status {outcome.returncode}: {outcome.stdout}"
            elif language == "console":
                for command, lines in commands(block):
                    self.done += 1
                    outcome = self.run(command)
                    if not pattern(lines).fullmatch(outcome.stdout):
                        shown = "\n".join(lines)
                        yield f"$ {command}\nprints\n{outcome.stdout}\ninstead of\n{shown}\n"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--double")
    parser.add_argument("document", type=pathlib.Path)
    parser.add_argument("programs", nargs="+")
    given = parser.parse_args()
    with tempfile.TemporaryDirectory() as directory:
        page = Page(given.document, pathlib.Path(directory), given.programs, given.double)
        if not given.double and SANDBOX in page.text and page.run(f"{SANDBOX} true").returncode == NOT_STARTED:
            print("this system allows no mount namespace")
            return SKIPPED
        problems = list(page.problems())
    for problem in problems:
        print(problem)
    print(f"{page.done} commands, {len(problems)} problems")
    return 1 if problems or page.done == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
