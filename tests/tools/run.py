#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""run.py BMCOAUTH [CASE...]

Runs the tests of the command BMCOAUTH, and tells how each went in the Test
Anything Protocol. A case is named like test_token.Verify.test_accepts_a_token.
"""

import os
import pathlib
import shlex
import sys
import unittest

sys.dont_write_bytecode = True

import support  # noqa: E402


class Tap(unittest.TestResult):
    """Prints one line for each test, and what there is to say about it."""

    def _line(self, verdict, test, note="", detail=""):
        print(f"{verdict} {self.testsRun} - {test.id()}{note}", flush=True)
        for line in detail.splitlines():
            print("# " + line, flush=True)

    def addSuccess(self, test):
        self._line("ok", test)

    def addFailure(self, test, err):
        self.failures.append((test, err))
        self._line("not ok", test, detail=self._exc_info_to_string(err, test))

    def addError(self, test, err):
        self.addFailure(test, err)

    def addSubTest(self, test, subtest, err):
        # The parent's line speaks for all of them.
        if err is not None:
            self.failures.append((subtest, err))
            self._line("not ok", subtest, detail=self._exc_info_to_string(err, test))

    def addSkip(self, test, reason):
        self._line("ok", test, " # SKIP " + reason)


def main(tool, names):
    # Built for another machine, the command runs under an emulator that Meson names.
    emulator = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))
    support.TOOL = [*emulator, str(pathlib.Path(tool).resolve())]
    here = pathlib.Path(__file__).resolve().parent
    loader = unittest.TestLoader()
    tests = loader.loadTestsFromNames(names) if names else loader.discover(str(here), "test_*.py")
    result = Tap()
    print(f"1..{tests.countTestCases()}")
    tests.run(result)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
