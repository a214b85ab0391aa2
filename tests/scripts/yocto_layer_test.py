# SPDX-License-Identifier: Apache-2.0
"""Whether the Yocto layer still fits the tree that it builds: what can be told without bitbake."""

import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAYER = ROOT / "packaging/yocto/meta-bmcoauth"
RECIPES = sorted((LAYER / "recipes-support/bmcoauth").glob("bmcoauth_*.bb"))


class Layer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.recipe = RECIPES[0].read_text(encoding="utf-8")

    def introspect(self, what, path):
        meson = sys.argv[1]
        made = subprocess.run(
            [meson, "introspect", what, ROOT / path], capture_output=True, text=True, check=True
        )
        return json.loads(made.stdout)

    def test_the_recipe_is_that_of_this_version(self):
        version = self.introspect("--projectinfo", "meson.build")["version"]
        self.assertEqual([recipe.name for recipe in RECIPES], [f"bmcoauth_{version}.bb"])

    def test_the_options_are_those_of_the_build(self):
        known = {
            option["name"]: option.get("choices") or ["enabled", "disabled", "auto"]
            for option in self.introspect("--buildoptions", "meson.build")
            if option["section"] == "user"
        }
        given = re.findall(r"-D(\w+)=([\w-]+)", self.recipe)
        self.assertGreaterEqual(len(given), 10)
        for name, value in given:
            self.assertIn(name, known)
            self.assertIn(value, known[name], name)

    def test_the_license_is_the_one_that_the_recipe_has_seen(self):
        seen = re.search(r"file://LICENSE;md5=(\w+)", self.recipe).group(1)
        found = hashlib.md5((ROOT / "LICENSE").read_bytes(), usedforsecurity=False).hexdigest()
        self.assertEqual(seen, found)

    def test_the_sources_are_this_tree(self):
        way = re.search(r"\$\{THISDIR\}/([./]+)'", self.recipe).group(1)
        self.assertEqual(pathlib.Path(os.path.abspath(RECIPES[0].parent / way)), ROOT)

    def test_the_runner_calls_what_is_installed(self):
        runner = (RECIPES[0].parent / "bmcoauth/run-ptest").read_text(encoding="utf-8")
        self.assertIn("\nexec /usr/libexec/bmcoauth/tests/run\n", runner)
        build = (ROOT / "tests/meson.build").read_text(encoding="utf-8")
        self.assertIn("get_option('libexecdir') / 'bmcoauth' / 'tests'", build)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
