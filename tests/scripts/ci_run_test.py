#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""ci_run_test.py CI_RUN: what .ci/run makes of its checks, with a stand-in for ./dev."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

RUN = pathlib.Path(sys.argv.pop())

# What counts cases ends with a line of totals. The outcome of a verb comes from the environment.
DEV = """#!/bin/sh
echo "$1" >>called
if [ "$1" = "${FAILS:-}" ]; then echo 'broken here'; exit 1; fi
if [ "$1" = "${SKIPS:-}" ]; then exit 77; fi
echo '2 passed, 0 failed'
"""


class Run(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.tree = pathlib.Path(directory.name)
        (self.tree / ".ci").mkdir()
        shutil.copy(RUN, self.tree / ".ci" / "run")
        (self.tree / "dev").write_text(DEV, encoding="utf-8")
        (self.tree / "dev").chmod(0o755)

    def run_checks(self, *arguments, **environment):
        """@p environment may say how many seconds have passed: bash goes on from there."""
        run = subprocess.run(
            [self.tree / ".ci" / "run", *arguments],
            env={**os.environ, "SECONDS": "0", **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
        )
        called = self.tree / "called"
        self.called = called.read_text(encoding="utf-8").split() if called.exists() else []
        return run.returncode, run.stdout.splitlines()

    def test_runs_every_check_and_adds_up(self):
        status, lines = self.run_checks()
        # Nine verbs count two cases each, and ten are one check each.
        self.assertEqual((status, lines[-1]), (0, "28 passed, 0 failed"))
        self.assertEqual(len(self.called), 19)
        self.assertEqual(self.called[0], "test")

    def test_starts_none_after_fifty_minutes_and_names_those_left_out(self):
        status, lines = self.run_checks(SECONDS="3000")
        self.assertEqual(self.called, [])
        self.assertEqual((status, lines[-1]), (0, "0 passed, 0 failed"))
        self.assertEqual(lines[-2], "19 checks left out for time")
        rows = [line for line in lines if line.endswith("left out for time")]
        self.assertEqual(rows[0].split(), "test - left out for time".split())
        self.assertEqual(len(rows), 20)

    def test_runs_every_check_for_all_however_long_it_takes(self):
        status, lines = self.run_checks("--all", SECONDS="3000")
        self.assertEqual((status, lines[-1]), (0, "28 passed, 0 failed"))
        self.assertEqual(len(self.called), 19)

    def test_runs_the_other_platforms_for_matrix_however_long_they_take(self):
        status, lines = self.run_checks("--matrix", SECONDS="3000")
        self.assertEqual((status, lines[-1]), (0, "13 passed, 0 failed"))
        self.assertEqual(self.called, ["clang"] + 2 * ["cross"] + 4 * ["on"])

    def test_a_run_says_of_when_and_of_what_it_is(self):
        _, lines = self.run_checks()
        self.assertRegex(lines[-2], "^on 20[0-9][0-9]-[01][0-9]-[0-3][0-9], commit unknown$")

    def test_a_check_that_fails_fails_the_run_and_is_told_again(self):
        status, lines = self.run_checks(FAILS="lint")
        self.assertEqual((status, lines[-1]), (1, "27 passed, 1 failed"))
        self.assertIn("#### FAILED: ./dev lint", lines)
        self.assertEqual(len(self.called), 19)

    def test_cases_that_end_without_totals_are_one_failure(self):
        status, lines = self.run_checks(FAILS="valgrind")
        self.assertEqual((status, lines[-1]), (1, "26 passed, 1 failed"))

    def test_a_check_that_cannot_be_made_is_skipped(self):
        status, lines = self.run_checks(SKIPS="debian")
        self.assertEqual((status, lines[-1]), (0, "27 passed, 0 failed, 1 skipped"))

    def test_refuses_an_argument_that_it_does_not_know(self):
        status, lines = self.run_checks("--everything")
        self.assertEqual((status, lines), (2, ["usage: .ci/run [--all | --matrix]"]))
        self.assertEqual(self.called, [])


if __name__ == "__main__":
    unittest.main()
