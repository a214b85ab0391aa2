# SPDX-License-Identifier: Apache-2.0
"""What the tool makes of its own verbs and options: manual pages and a completion."""

import os
import re
import shutil
import subprocess
import unittest

from support import FAILURE, USAGE, ToolTest

COMPLETE = """
source "./$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_bmcoauth
printf '%s\\n' "${COMPREPLY[@]}"
"""


class Verbs(ToolTest):
    def options(self, verb):
        """Those of the verb and those that every verb has."""
        helps = self.help(*verb) + self.help().partition("Options of every verb:")[2]
        return re.findall(r"^  (--[\w-]+)", helps, re.MULTILINE)


class Help(Verbs):
    def test_says_nothing_of_hidden_verbs(self):
        for name in ("manual", "completion"):
            self.assertNotIn(name, self.help())


class Manual(Verbs):
    def names(self):
        return ["bmcoauth", *("-".join(("bmcoauth", *verb)) for verb in self.verbs())]

    def pages(self):
        names = self.names()
        self.good("manual", ".", *names)
        return {name: (self.directory / f"{name}.1").read_text() for name in names}

    def test_has_a_page_for_every_verb_with_all_its_options(self):
        pages = self.pages()
        for verb in self.verbs():
            page = pages["-".join(("bmcoauth", *verb))].replace("\\-", "-")
            for option in self.options(verb):
                self.assertIn(f"\\fB{option}\\fR", page)
            self.assertIn(".SH EXAMPLE\n.nf\nbmcoauth " + " ".join(verb), page)
            self.assertIn(f"\\fB{'-'.join(('bmcoauth', *verb))}\\fR(1)", pages["bmcoauth"].replace("\\-", "-"))

    def test_tells_the_options_of_the_tool_itself(self):
        page = self.pages()["bmcoauth"].replace("\\-", "-")
        for option in ("--help", "--help-all", "--version"):
            self.assertIn(f"\\fB{option}\\fR", page)

    def test_pages_are_sound(self):
        self.pages()
        for name in self.names():
            run = subprocess.run(
                ["groff", "-man", "-ww", "-z", "-Tutf8", f"{name}.1"],
                cwd=self.directory,
                capture_output=True,
                check=False,
            )
            self.assertEqual((run.returncode, run.stdout, run.stderr), (0, b"", b""), name)

    def test_is_complete_or_not_made(self):
        names = self.names()
        self.refused_in_text(USAGE, "page bmcoauth-error is not asked for", "manual", ".", *(n for n in names if n != "bmcoauth-error"))
        self.refused_in_text(USAGE, "the list has pages of unknown verbs", "manual", ".", *names, "bmcoauth-fly")
        self.refused_in_text(FAILURE, "cannot write missing/bmcoauth-.*: No such file", "manual", "missing", *names)


class Completion(Verbs):
    def setUp(self):
        super().setUp()
        self.write("script", self.good("completion", "bash") + "\n")

    def complete(self, *words):
        run = subprocess.run(
            ["bash", "--norc", "-uc", COMPLETE, "bash", "script", "bmcoauth", *words],
            cwd=self.directory,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return run.stdout.split()

    def test_knows_every_verb_and_option(self):
        groups = {verb[:-1] for verb in self.verbs()}
        for group in groups:
            known = self.complete(*group, "")
            self.assertEqual(len(known), len(set(known)))
            for verb in self.verbs():
                if verb[:-1] == group:
                    self.assertIn(verb[-1], known)
        for verb in self.verbs():
            self.assertEqual(sorted(self.complete(*verb, "--")), sorted(self.options(verb)))

    def test_narrows_down(self):
        self.assertEqual(self.complete("tok"), ["token"])
        self.assertEqual(self.complete("token", "ver"), ["verify"])
        self.assertEqual(self.complete("token", "verify", "--k"), ["--key"])
        self.assertEqual(self.complete("nonsense", "--"), [])
        self.assertEqual(self.complete("token", "nonsense", ""), [])

    def test_offers_options_where_a_command_stands_too(self):
        self.assertEqual(self.complete("--"), ["--help", "--help-all", "--version"])
        self.assertEqual(self.complete("token", "-"), ["--help", "--help-all"])
        self.assertEqual(self.complete("pki", ""), ["make"])

    def test_offers_files_and_words_where_they_belong(self):
        self.write("some file", "")
        offered = self.complete("token", "verify", "--key", "some")
        self.assertEqual(" ".join(offered), "some file")
        self.assertIn("script", self.complete("token", "verify", ""))
        self.assertIn("script", self.complete("token", "verify", "--key", "k.pem", ""))
        self.assertEqual(self.complete("key", "convert", "--to", ""), ["pem", "der", "jwk"])
        self.assertEqual(self.complete("key", "convert", "--to", "d"), ["der"])

    def test_offers_the_words_that_the_tool_knows(self):
        self.assertEqual(len(self.complete("error", "")), 14)
        self.assertEqual(self.complete("error", "invalid_sc"), ["invalid_scope"])
        self.assertEqual(self.complete("doctor", "--color", "a"), ["auto", "always"])
        self.assertEqual(self.complete("handshake", "challenge", "--mode", ""), ["1", "2", "3"])
        self.assertEqual(self.complete("token", "issue", "--subject", ""), [])

    def test_knows_no_other_shell(self):
        self.refused_in_text(USAGE, "SHELL", "completion", "csh")


FISH = 'source script.fish; complete -C "$argv"'

# In place of what zsh shows them with, which needs a terminal.
ZSH = """
_describe() { for one in "${(@P)2}"; do print -r -- "commands $one"; done }
_arguments() { for one in "$@"; do print -r -- "options $one"; done }
words=("$@")
CURRENT=$#
set --
source ./_bmcoauth
"""


class OtherShells(Verbs):
    def fish(self, line):
        run = subprocess.run(
            ["fish", "--no-config", "-c", FISH, line],
            cwd=self.directory,
            env={**os.environ, "HOME": str(self.directory)},
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return [offered.partition("\t")[0] for offered in run.stdout.splitlines()]

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish_completes_verbs_options_and_values(self):
        self.write("script.fish", self.good("completion", "fish") + "\n")
        self.write("some.pem", "")
        self.assertIn("token", self.fish("bmcoauth "))
        self.assertEqual(self.fish("bmcoauth tok"), ["token"])
        self.assertEqual(self.fish("bmcoauth token ver"), ["verify"])
        self.assertEqual(self.fish("bmcoauth token verify --ke"), ["--key"])
        self.assertEqual(self.fish("bmcoauth token verify --key some.p"), ["some.pem"])
        self.assertEqual(self.fish("bmcoauth token verify some.p"), ["some.pem"])
        self.assertEqual(self.fish("bmcoauth key convert --to d"), ["der"])
        self.assertEqual(self.fish("bmcoauth error invalid_sc"), ["invalid_scope"])
        for verb in self.verbs():
            offered = self.fish("bmcoauth " + " ".join(verb) + " --")
            self.assertEqual(sorted(set(offered)), sorted(self.options(verb)), verb)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh_reads_its_script(self):
        script = self.good("completion", "zsh") + "\n"
        self.assertTrue(script.startswith("#compdef bmcoauth\n"))
        self.write("_bmcoauth", script)
        self.assertEqual(self.zsh("token"), {"commands": ["issue", "inspect", "verify", "convert", "delegated"], "options": []})
        for verb in self.verbs():
            offered = self.zsh(*verb)
            self.assertEqual(offered["commands"], [])
            options = sorted(re.match(r"\*?(--[\w-]+)\[", option)[1] for option in offered["options"] if "--" in option[:3])
            self.assertEqual(options, sorted(self.options(verb)), verb)
        self.assertIn(":CODE:(", " ".join(self.zsh("error")["options"]))
        self.assertTrue(any(o.endswith(":pem|der|jwk:(pem der jwk)") for o in self.zsh("key", "convert")["options"]))

    def zsh(self, *words):
        """What the script hands to the functions of zsh that show it."""
        run = subprocess.run(
            ["zsh", "-f", "-c", ZSH, "zsh", "bmcoauth", *words, ""],
            cwd=self.directory,
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        found = {"commands": [], "options": []}
        for line in run.stdout.splitlines():
            kind, _, text = line.partition(" ")
            found[kind].append(text.partition(":")[0] if kind == "commands" else text)
        return found
