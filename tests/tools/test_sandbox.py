# SPDX-License-Identifier: Apache-2.0
"""The script bmcoauth-sandbox."""

import os
import pathlib
import subprocess

from support import FAILURE, ToolTest

SANDBOX = pathlib.Path(__file__).resolve().parents[2] / "tools" / "bmcoauth-sandbox"
ROOTS = "/etc/default/certs"
MARKER = "/etc/vorn_fw"
NOT_STARTED = 125


class Sandbox(ToolTest):
    def run_in(self, *arguments):
        return subprocess.run(
            [SANDBOX, *arguments],
            capture_output=True,
            cwd=self.directory,
            text=True,
            timeout=60,
            check=False,
        )

    def allowed(self):
        if self.run_in("true").returncode == NOT_STARTED:
            self.skipTest("this system allows no mount namespace")

    def printed(self, *arguments):
        outcome = self.run_in(*arguments)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""), outcome)
        return outcome.stdout

    def test_puts_roots_and_marker_in_place(self):
        self.allowed()
        self.pki()
        names = ["FactorycertDevRoot.pem", "FactorycertProdRoot.pem"]
        for name in names:
            wanted = (self.directory / "pki" / name).read_text(encoding="ascii")
            self.assertEqual(self.printed("--roots", "pki", "cat", f"{ROOTS}/{name}"), wanted)
        self.assertEqual(self.printed("--roots", "pki", "ls", "-A", ROOTS).split(), names)
        self.assertEqual(self.printed("ls", "-A", ROOTS), "")
        self.assertEqual(self.printed("--marker", "cat", MARKER), "")
        self.assertEqual(self.run_in("test", "-e", MARKER).returncode, 1)

    def test_makes_chains_verify(self):
        self.allowed()
        self.pki()
        self.prefix = [SANDBOX, "--roots", "pki"]
        self.good("cert", "chain", "pki/a-chain.pem")
        self.prefix = [SANDBOX]
        self.assertEqual(self.tool("cert", "chain", "pki/a-chain.pem").status, FAILURE)

    def test_leaves_the_machine_alone(self):
        self.allowed()

        def machine():
            places = [pathlib.Path(ROOTS), pathlib.Path(MARKER)]
            found = [path for place in places for path in (place, *place.glob("*")) if path.exists()]
            return [(path, path.stat().st_mtime_ns) for path in found]

        before = machine()
        self.printed("--marker", "sh", "-c", f": > {ROOTS}/new; : > /etc/new; rm {MARKER}")
        self.assertEqual(machine(), before)
        self.assertFalse(os.path.exists("/etc/new"))

    def test_shows_the_rest_of_etc(self):
        self.allowed()
        own = self.printed("ls", "-A", "/etc").split()
        missing = set(os.listdir("/etc")) - set(own) - {"vorn_fw"}
        self.assertEqual(missing, set())
        passwd = pathlib.Path("/etc/passwd").read_text(encoding="utf-8")
        self.assertEqual(self.printed("cat", "/etc/passwd"), passwd)

    def test_works_inside_itself(self):
        self.allowed()
        self.pki()
        again = [SANDBOX, "--roots", ROOTS, "--marker", "ls", "-A", ROOTS]
        self.assertEqual(len(self.printed("--roots", "pki", *again).split()), 2)

    def test_runs_the_command_as_it_is(self):
        self.allowed()
        arguments = ["a  b", "*", "$HOME", "--roots", ""]
        self.assertEqual(
            self.printed("--", "printf", "%s|", *arguments), "a  b|*|$HOME|--roots||"
        )
        self.assertEqual(self.printed("pwd").rstrip("\n"), os.path.realpath(self.directory))
        self.assertEqual(self.run_in("sh", "-c", "exit 7").returncode, 7)
        self.assertEqual(self.run_in("no-such-command").returncode, 127)

    def test_says_what_is_wrong(self):
        self.write("FactorycertProdRoot.pem", "")
        for arguments, wanted in (
            ([], "a command is missing (see --help)"),
            (["--roots"], "a directory is missing behind --roots (see --help)"),
            (["--root", "x", "true"], "there is no option --root (see --help)"),
            (
                ["--roots", ".", "true"],
                "cannot read ./FactorycertDevRoot.pem: bmcoauth pki make makes it",
            ),
        ):
            outcome = self.run_in(*arguments)
            self.assertEqual(outcome.returncode, NOT_STARTED)
            self.assertEqual(outcome.stderr, f"bmcoauth-sandbox: {wanted}\n")

    def test_tells_how_it_is_used(self):
        outcome = self.run_in("--help")
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        page = SANDBOX.with_suffix(".1").read_text(encoding="ascii").replace("\\", "")
        for option in ("--roots", "--marker", "--help"):
            self.assertIn(option, outcome.stdout)
            self.assertIn(option, page)
