# SPDX-License-Identifier: Apache-2.0
"""The manual pages are those of the exported functions and tables, and each tells what it must."""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

parser = argparse.ArgumentParser()
parser.add_argument("man3")
parser.add_argument("--list", nargs="+", type=pathlib.Path, required=True)
parser.add_argument("--header", nargs="+", type=pathlib.Path, required=True)
GIVEN = parser.parse_args()


def exported():
    """The names of the lists, and whether they are functions of C++."""
    symbols = (line for path in GIVEN.list for line in path.read_text(encoding="utf-8").split("\n"))
    return {re.split(r"[(\[]", symbol)[0]: "(" in symbol for symbol in symbols if symbol}


class ManualPages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(directory.cleanup)
        place = pathlib.Path(directory.name) / "man3"
        subprocess.run(
            [sys.executable, GIVEN.man3, "--version", "7.8.9", place, *GIVEN.header], check=True
        )
        cls.pages = {path.name: path.read_text(encoding="utf-8") for path in place.iterdir()}

    def test_there_is_one_for_each_symbol_and_no_other(self):
        self.assertEqual(sorted(self.pages), sorted(f"{name}.3" for name in exported()))

    def test_each_declares_and_describes_its_function(self):
        for name, typed in exported().items():
            with self.subTest(name=name):
                page = self.pages[f"{name}.3"]
                self.assertTrue(page.startswith(f'.TH {name} 3 "" "bmcoauth 7.8.9" "bmcoauth"\n'))
                self.assertRegex(page, rf"\n\.SH NAME\n{name} \\- \w.{{5,}}\n")
                self.assertRegex(page, rf'\n\.B "\w.*\b{name}(\(.*\)|\[10\]);"\n')
                self.assertRegex(page, rf"\n\.SH DESCRIPTION\n\.PP\n(o2_ff_malloc, .*)?{name}\b.{{10}}")
                self.assertIn("\n.SH \"WHAT HOLDS EVERYWHERE\"\n", page)
                if typed:
                    self.assertIn("\nC++ only. ", page)

    def test_it_names_the_package_to_link(self):
        for name, package in (("validateJWT", "bmcoauth"), ("bmcoauth_testing_reset", "bmcoauth\\-testing")):
            self.assertIn(f'.BR "pkg\\-config \\-\\-cflags \\-\\-libs {package}" .\n', self.pages[f"{name}.3"])

    def test_it_says_what_a_comment_says(self):
        page = self.pages["generateServerHandshakeChallenge.3"]
        self.assertIn('.B "int generateServerHandshakeChallenge(char** types, unsigned int mode, '
                      'HandshakePayload** challenge);"', page)
        self.assertIn("\\fBmode\\fP says which proofs are wanted:", page)
        self.assertIn('\n.nf\n  1  the certificate proof: "T"', page)
        self.assertIn("typedef struct HandshakePayload\n{\n    char* name;\n", page)
        self.assertIn("\nThe registration handshake: with a challenge, a server asks a client", page)
        self.assertIn(".BR generateKeyTool (3),", page)

    def test_it_tells_a_table_row_by_row(self):
        self.assertIn('\n.TP\nBMCOAUTH_CHAIN_VERIFIED (1)\nthe chain verifies\n.TP\n', self.pages["chainVerify.3"])
        self.assertIn("\n.PP\n\\fImember of \\fBother\\fP\\fP: same name in \\fB*text\\fP, result\n"
                      ".TP\nnot an object\nanything, or missing\n.br\nreplaced or added", self.pages["merge_doc.3"])

    def test_no_line_is_a_request_by_accident(self):
        known = re.compile(r"[.](TH|SH|PP|IP|TP|br|B|BR|nf|fi|nh|hy|ad)\b")
        for name, page in self.pages.items():
            for line in page.split("\n"):
                with self.subTest(name=name, line=line):
                    self.assertTrue(line[:1] not in {".", "'"} or known.match(line))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
