# SPDX-License-Identifier: Apache-2.0
"""Adds up single test cases over all tests of a build.

The totals that meson test prints count programs, one for the 244 cases of tests/jwt.
Its JUnit file counts cases, but as of Meson 1.0 it has no failure for a program that
fails after its last case (a leak under valgrind), and one passed case for a program
that ends before its report is written.
"""

import re
import xml.etree.ElementTree as ElementTree


def report_file(build, test):
    """Where meson test has the GoogleTest program of @p test write its report."""
    return build / (test["workdir"] or ".") / (test["name"] + ".xml")


class Totals:
    """The cases that passed, failed and were skipped, and what to say about them.

    A GoogleTest program counts by the cases of its report, a test that speaks
    TAP by its lines; any other test is one case. A program that leaves no
    usable report, that fails although each of its cases passed, or that was
    expected and did not run, is one failure: none of these may look like fewer
    tests.
    """

    def __init__(self):
        self.passed = 0
        self.skipped = 0
        self.failures = []
        self.skips = []
        self._expected = {}

    @property
    def failed(self):
        return len(self.failures)

    def expect(self, test):
        self._expected[test["name"]] = test

    def add(self, build, tests, entry):
        """Counts one line of meson's log, @p entry; @p tests tells what kind of test it is."""
        # A test that belongs to a suite is logged as "suite / name".
        test = next(
            (t for t in tests if entry["name"] == t["name"] or entry["name"].endswith(" / " + t["name"])),
            None,
        )
        if test is None:
            self.failures.append(f"{entry['name']}: not a test of this build")
            return
        name = test["name"]
        self._expected.pop(name, None)
        if test["protocol"] == "gtest":
            self._add_program(name, report_file(build, test), entry["result"])
        elif test["protocol"] == "tap":
            self._add_lines(name, entry.get("stdout", ""), entry["result"])
        elif entry["result"] in ("OK", "EXPECTEDFAIL"):
            self.passed += 1
        elif entry["result"] == "SKIP":
            self._skip(name)
        else:
            self.failures.append(f"{name}: {entry['result']}")

    def _skip(self, name):
        self.skipped += 1
        self.skips.append(name)

    def _add_program(self, name, report, result):
        try:
            cases = list(ElementTree.parse(report).iter("testcase"))
        except FileNotFoundError:
            self.failures.append(f"{name}: {result}, and no report: it ended before its last test")
            return
        except ElementTree.ParseError as error:
            self.failures.append(f"{name}: {result}, and no usable report: {error}")
            return
        if not cases:
            self.failures.append(f"{name}: {result}, and no test in its report")
            return
        failed_before = self.failed
        for case in cases:
            title = f"{name}: {case.get('classname')}.{case.get('name')}"
            if case.find("failure") is not None or case.find("error") is not None:
                self.failures.append(title)
            elif case.get("status") == "notrun" or case.get("result") == "skipped":
                self._skip(title)
            else:
                self.passed += 1
        if result != "OK" and self.failed == failed_before:
            self.failures.append(f"{name}: {result}, although no case failed")

    def _add_lines(self, name, text, result):
        """Counts the cases of a test that tells them in the Test Anything Protocol."""
        failed_before = self.failed
        plan = re.search(r"^1\.\.(\d+)", text, re.MULTILINE)
        lines = re.findall(r"^(not )?ok\b(?: \d+)?(?: - )?(.*)$", text, re.MULTILINE)
        for failed, title in lines:
            title, _, note = title.partition(" # ")
            if failed:
                self.failures.append(f"{name}: {title}")
            elif note.upper().startswith("SKIP"):
                self._skip(f"{name}: {title} ({note[4:].strip()})")
            else:
                self.passed += 1
        if self.failed > failed_before:
            return
        if plan is None or int(plan[1]) == 0 or int(plan[1]) != len(lines):
            planned = plan[1] if plan else "an unknown number"
            self.failures.append(f"{name}: {result}, after {len(lines)} cases of {planned}")
        elif result not in ("OK", "SKIP"):
            self.failures.append(f"{name}: {result}, although no case failed")

    def finish(self, status, out):
        """Prints the result and gives the exit status; @p status is that of meson test."""
        for name in self._expected:
            self.failures.append(f"{name}: did not run")
        if self.passed + self.failed + self.skipped == 0:
            self.failures.append("no test was run")
        if status != 0 and not self.failures:
            self.failures.append(f"meson test ended with status {status}")
        for title in self.skips:
            print(f"skipped: {title}", file=out)
        for title in self.failures:
            print(f"failed: {title}", file=out)
        skipped = f", {self.skipped} skipped" if self.skipped else ""
        print(f"{self.passed} passed, {self.failed} failed{skipped}", file=out)
        return 1 if self.failures else 0
