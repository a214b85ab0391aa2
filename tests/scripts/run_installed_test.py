# SPDX-License-Identifier: Apache-2.0
"""What the runner of installed tests prints for every way in which a case can end."""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

RUNNER = pathlib.Path(__file__).resolve().parents[1] / "run-installed"

# As GoogleTest 1.12 writes it.
SOUND = """\
[----------] 2 tests from Json
[ RUN      ] Json.Reads
[       OK ] Json.Reads (0 ms)
[ RUN      ] Json.Sorts
[  SKIPPED ] Json.Sorts (0 ms)
[  PASSED  ] 1 test.
[  SKIPPED ] 1 test, listed below:
[  SKIPPED ] Json.Sorts
"""
BROKEN = """\
[ RUN      ] Names/Json.Writes/0
json_test.cpp:3: Failure
[  FAILED  ] Names/Json.Writes/0, where GetParam() = 7 (2 ms)
[  FAILED  ] 1 test, listed below:
[  FAILED  ] Names/Json.Writes/0, where GetParam() = 7

 1 FAILED TEST
"""


class Runner(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        shutil.copy(RUNNER, self.folder / "run")

    def program(self, name, text, status):
        path = self.folder / name
        path.write_text(f"#!/bin/sh\ncat <<'END'\n{text}END\nexit {status}\n", encoding="utf-8")
        path.chmod(0o755)

    def run_it(self, *programs):
        return subprocess.run(
            [self.folder / "run", *programs], capture_output=True, text=True, check=False
        )

    def test_tells_each_case_once(self):
        self.program("test-json", SOUND, 0)
        done = self.run_it()
        self.assertEqual(done.stdout, "PASS: Json.Reads\nSKIP: Json.Sorts\n")
        self.assertEqual((done.stderr, done.returncode), ("", 0))

    def test_tells_what_a_failing_case_said(self):
        self.program("test-a", BROKEN, 1)
        self.program("test-b", SOUND, 0)
        done = self.run_it()
        self.assertEqual(
            done.stdout, "FAIL: Names/Json.Writes/0\nPASS: Json.Reads\nSKIP: Json.Sorts\n"
        )
        self.assertIn("json_test.cpp:3: Failure", done.stderr)
        self.assertEqual(done.returncode, 1)

    def test_a_program_that_dies_has_failed(self):
        self.program("test-json", "[ RUN      ] Json.Reads\n", 134)
        done = self.run_it()
        self.assertEqual((done.stdout, done.returncode), ("FAIL: test-json\n", 1))

    def test_a_program_that_is_not_there_has_failed(self):
        done = self.run_it()
        self.assertEqual((done.stdout, done.returncode), ("FAIL: test-*\n", 1))

    def test_runs_the_programs_named(self):
        self.program("test-a", BROKEN, 1)
        self.program("test-b", SOUND, 0)
        done = self.run_it("test-b")
        self.assertEqual((done.stdout, done.returncode), ("PASS: Json.Reads\nSKIP: Json.Sorts\n", 0))


if __name__ == "__main__":
    sys.exit(unittest.main())
