# SPDX-License-Identifier: Apache-2.0
"""Whether the Yocto layer still fits the tree that it builds: what can be told without bitbake."""

import fnmatch
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
SERIES = {
    "scarthgap": {"WORKDIR": "/build", "PV": "1.0"},
    "wrynose": {"WORKDIR": "/build", "UNPACKDIR": "/build/sources", "PV": "1.0"},
}
# What the packages of every recipe take, in bitbake's order, before those that a recipe adds.
DEVELOPMENT = "${includedir} ${libdir}/*.so ${libdir}/pkgconfig ${libdir}/cmake"
MANUAL = "${mandir}"


class Values(dict):
    """What a recipe asks for values in its expressions."""

    getVar = dict.get


def expanded(text, values):
    """A value of a recipe, with its expressions and variables."""
    text = re.sub(r"\$\{@(.*?)\}", lambda found: eval(found[1], {"d": Values(values)}), text)
    return re.sub(r"\$\{(\w+)\}", lambda found: values[found[1]], text)


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
            if option["section"] in {"user", "core"}
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

    def test_the_layer_names_the_series_that_it_is_for(self):
        layer = (LAYER / "conf/layer.conf").read_text(encoding="utf-8")
        named = re.search(r'^LAYERSERIES_COMPAT_bmcoauth = "(.*)"$', layer, re.MULTILINE)
        self.assertEqual(named.group(1).split(), list(SERIES))
        self.assertIn(f"of the series {' or '.join(SERIES)}.", (LAYER / "README.md").read_text(encoding="utf-8"))

    def test_liboath_is_built_where_each_series_unpacks_it(self):
        (recipe,) = (LAYER / "recipes-support/liboath").glob("*.bb")
        sources = re.search(r'^S = "(.*)"$', recipe.read_text(encoding="utf-8"), re.MULTILINE).group(1)
        found = {series: expanded(sources, values) for series, values in SERIES.items()}
        self.assertEqual(
            found,
            {
                "scarthgap": "/build/oath-toolkit-1.0/liboath",
                "wrynose": "/build/sources/oath-toolkit-1.0/liboath",
            },
        )

    def test_no_recipe_names_the_folder_that_only_one_series_unpacks_into(self):
        for recipe in LAYER.glob("recipes-*/*/*.bb"):
            self.assertNotIn("${WORKDIR}", recipe.read_text(encoding="utf-8"), recipe)

    def test_the_features_that_are_on_by_default_exist(self):
        features = re.findall(r"^PACKAGECONFIG\[([\w-]+)\] = ", self.recipe, re.MULTILINE)
        default = re.search(r'^PACKAGECONFIG \?\?= "(.*)"$', self.recipe, re.MULTILINE).group(1)
        self.assertEqual(features, ["phosphor-logging", "system-strutil", "tools", "ptest"])
        self.assertEqual(
            re.sub(r"\$\{@bb.utils.contains\('PTEST_ENABLED', '1', '(\w+)', '', d\)\}", r"\1", default).split(),
            ["tools", "ptest"],
        )
        described = re.findall(r"^\| `([\w-]+)` \| o", (LAYER / "README.md").read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual(sorted(described), sorted(features))

    def package_of(self, path):
        """The package that takes an installed file: the first one whose list has it."""
        lists = {"bmcoauth-dev": DEVELOPMENT, "bmcoauth-doc": MANUAL}
        for package, how, files in re.findall(r'^FILES:(\S+) (\+?=) "(.*)"$', self.recipe, re.MULTILINE):
            package = package.replace("${PN}", "bmcoauth")
            lists[package] = f"{lists.get(package, '')} {files}" if how == "+=" else files
        lists["bmcoauth"] = "${libdir}/lib*${SOLIBS}"
        for package, files in lists.items():
            for pattern in files.replace("${SOLIBS}", ".so.*").replace("${", "{").split():
                if fnmatch.fnmatch(path, pattern) or path.startswith(pattern + "/"):
                    return package
        return None

    def test_every_installed_file_is_in_a_package(self):
        packages = {}
        directory = next(
            option["value"]
            for option in self.introspect("--buildoptions", sys.argv[2])
            if option["name"] == "libdir"
        )
        for files in self.introspect("--install-plan", sys.argv[2]).values():
            for file in files.values():
                path = file["destination"].replace("{libdir_shared}", "{libdir}")
                path = re.sub(f"^{re.escape(directory)}/", "{libdir}/", path)
                packages.setdefault(self.package_of(path), []).append(path)
        self.assertNotIn(None, packages)
        self.assertEqual(packages["bmcoauth"], ["{libdir}/libbmcoauth.so.1.0.0"])
        if "libstrutil" in packages:
            self.assertEqual(packages["libstrutil"], ["{libdir}/libstrutil.so.1.0.0"])
        if "bmcoauth-tools" in packages:
            self.assertEqual(
                sorted(packages["bmcoauth-tools"]),
                [
                    "{bindir}/bmcoauth",
                    "{bindir}/bmcoauth-sandbox",
                    "{datadir}/bash-completion/completions/bmcoauth",
                    "{datadir}/fish/vendor_completions.d/bmcoauth.fish",
                    "{datadir}/zsh/site-functions/_bmcoauth",
                ],
            )


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
