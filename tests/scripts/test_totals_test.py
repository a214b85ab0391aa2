# SPDX-License-Identifier: Apache-2.0
"""What ./dev test counts, for every way in which a test can end."""

import io
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

from test_totals import Totals  # noqa: E402

PROGRAM = {"name": "common", "protocol": "gtest", "workdir": None}
SCRIPT = {"name": "abi", "protocol": "exitcode", "workdir": None}
LINES = {"name": "tools", "protocol": "tap", "workdir": None}
NESTED = {"name": "oauth2/jwt", "protocol": "gtest", "workdir": None}

# As GoogleTest 1.12 writes it.
REPORT = """<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="5" failures="1" disabled="1" errors="0" time="0.1" name="AllTests">
  <testsuite name="Json" tests="5" failures="1" disabled="1" skipped="1" errors="0">
    <testcase name="Reads" status="run" result="completed" classname="Json" />
    <testcase name="Writes" status="run" result="completed" classname="Json" />
    <testcase name="Merges" status="run" result="completed" classname="Json">
      <failure message="Value of: 1" type=""><![CDATA[Value of: 1]]></failure>
    </testcase>
    <testcase name="Sorts" status="run" result="skipped" classname="Json">
      <skipped message="not here"><![CDATA[not here]]></skipped>
    </testcase>
    <testcase name="DISABLED_Dreams" status="notrun" result="suppressed" classname="Json" />
  </testsuite>
</testsuites>
"""
SOUND = """<testsuites><testsuite name="Json">
<testcase name="Reads" status="run" result="completed" classname="Json" />
</testsuite></testsuites>
"""


class TotalsTest(unittest.TestCase):
    def setUp(self):
        self._directory = tempfile.TemporaryDirectory()
        self.addCleanup(self._directory.cleanup)
        self.build = pathlib.Path(self._directory.name)
        self.totals = Totals()

    def add(self, test, result, report=None):
        if report is not None:
            file = self.build / (test["name"] + ".xml")
            file.parent.mkdir(exist_ok=True)
            file.write_text(report, encoding="utf-8")
        self.log({"name": test["name"], "result": result})

    def log(self, entry):
        self.totals.add(self.build, [PROGRAM, SCRIPT, LINES, NESTED], entry)

    def finish(self, status=0):
        out = io.StringIO()
        code = self.totals.finish(status, out)
        return code, out.getvalue().splitlines()

    def test_counts_every_case_of_a_report(self):
        self.add(PROGRAM, "FAIL", REPORT)
        code, lines = self.finish(1)
        self.assertEqual(code, 1)
        self.assertEqual(lines[-1], "2 passed, 1 failed, 2 skipped")
        self.assertIn("failed: common: Json.Merges", lines)
        self.assertIn("skipped: common: Json.Sorts", lines)
        self.assertIn("skipped: common: Json.DISABLED_Dreams", lines)

    def test_adds_programs_and_scripts(self):
        self.add(PROGRAM, "OK", SOUND)
        self.add(NESTED, "OK", SOUND)
        self.add(SCRIPT, "OK")
        self.assertEqual(self.finish(), (0, ["3 passed, 0 failed"]))

    def test_counts_every_line_of_a_test_that_speaks_tap(self):
        text = "1..3\nok 1 - Key.makes\nnot ok 2 - Key.checks\n# why\nok 3 - Key.runs # SKIP not here\n"
        self.log({"name": "tools", "result": "FAIL", "stdout": text})
        code, lines = self.finish(1)
        self.assertEqual((code, lines[-1]), (1, "1 passed, 1 failed, 1 skipped"))
        self.assertIn("failed: tools: Key.checks", lines)
        self.assertIn("skipped: tools: Key.runs (not here)", lines)

    def test_test_that_breaks_off_is_one_failure_more(self):
        for text in ("1..2\nok 1 - Key.makes\n", "ok 1 - Key.makes\n"):
            for result in ("ERROR", "OK"):
                self.totals = Totals()
                self.log({"name": "tools", "result": result, "stdout": text})
                self.assertEqual(self.finish(1)[1][-1], "1 passed, 1 failed")

    def test_test_without_a_single_line_is_one_failure(self):
        for text in ("", "1..0\n"):
            self.totals = Totals()
            self.log({"name": "tools", "result": "OK", "stdout": text})
            self.assertEqual(self.finish()[1][-1], "0 passed, 1 failed")

    def test_failed_script_is_one_failure(self):
        self.add(SCRIPT, "FAIL")
        self.assertEqual(self.finish(1), (1, ["failed: abi: FAIL", "0 passed, 1 failed"]))

    def test_skipped_script_is_told(self):
        self.add(PROGRAM, "OK", SOUND)
        self.add(SCRIPT, "SKIP")
        self.assertEqual(self.finish(), (0, ["skipped: abi", "1 passed, 0 failed, 1 skipped"]))

    def test_program_without_report_is_one_failure(self):
        # Also when it ends with success: a test that calls exit(0) ends all others.
        for result in ("FAIL", "TIMEOUT", "OK"):
            with self.subTest(result):
                self.totals = Totals()
                self.add(PROGRAM, result)
                code, lines = self.finish()
                self.assertEqual((code, lines[-1]), (1, "0 passed, 1 failed"))

    def test_damaged_or_empty_report_is_one_failure(self):
        for report in (REPORT[: len(REPORT) // 2], "", "<testsuites></testsuites>"):
            with self.subTest(report):
                self.totals = Totals()
                self.add(PROGRAM, "FAIL", report)
                code, lines = self.finish(1)
                self.assertEqual((code, lines[-1]), (1, "0 passed, 1 failed"))

    def test_program_that_fails_after_its_tests_is_one_failure_more(self):
        # So ends a program in which valgrind or a sanitizer finds a leak.
        self.add(PROGRAM, "FAIL", SOUND)
        code, lines = self.finish(1)
        self.assertEqual((code, lines[-1]), (1, "1 passed, 1 failed"))

    def test_expected_test_that_did_not_run_is_one_failure(self):
        for test in (PROGRAM, SCRIPT):
            self.totals.expect(test)
        self.add(SCRIPT, "OK")
        lines = ["failed: common: did not run", "1 passed, 1 failed"]
        self.assertEqual(self.finish(), (1, lines))

    def test_test_in_a_suite_is_known_by_its_name(self):
        self.totals.expect(SCRIPT)
        entry = {"name": "bmcoauth:scripts / abi", "result": "OK"}
        self.totals.add(self.build, [PROGRAM, SCRIPT], entry)
        self.assertEqual(self.finish(), (0, ["1 passed, 0 failed"]))

    def test_no_test_at_all_is_a_failure(self):
        self.assertEqual(self.finish()[0], 1)

    def test_failure_of_the_runner_is_a_failure(self):
        self.add(SCRIPT, "OK")
        code, lines = self.finish(1)
        self.assertEqual((code, lines[-1]), (1, "1 passed, 1 failed"))


if __name__ == "__main__":
    unittest.main()
