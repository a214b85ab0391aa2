# SPDX-License-Identifier: Apache-2.0
"""The verb doctor."""

import json
import os
import struct
import unittest.mock

from support import FAILURE, INVALID, ToolTest, check_verdict

LEVELS = {"ok": 0, "doubtful": 6, "bad": 3}


class Doctor(ToolTest):
    def findings(self, *options):
        """What each subject came to; the status must be that of the worst."""
        outcome = self.tool("doctor", *options, "--json")
        self.assertEqual(outcome.err, b"")
        document = json.loads(outcome.out)
        check_verdict(document)
        levels = {finding["level"] for finding in document["findings"]}
        worst = next(level for level in ("bad", "doubtful", "ok") if level in levels)
        self.assertEqual((document["verdict"], outcome.status), (worst, LEVELS[worst]))
        return {f["subject"]: (f["level"], f["text"]) for f in document["findings"]}

    def zone(self, name, offset):
        """A time zone that has been so far from UTC since 2000, and not before."""
        transition = 946684800
        header = struct.pack(">4s1s15x6l", b"TZif", b"\0", 0, 0, 0, 1, 2, 8)
        body = struct.pack(">lB", transition, 1)
        body += struct.pack(">lBB", 0, 0, 0) + struct.pack(">lBB", offset, 0, 4)
        (self.directory / name).write_bytes(header + body + b"OLD\0NEW\0")
        return str(self.directory / name)

    def under_zone(self, zone):
        changed = unittest.mock.patch.dict(os.environ, {"TZ": zone})
        changed.start()
        self.addCleanup(changed.stop)

    def test_has_a_line_for_everything(self):
        outcome = self.tool("doctor")
        subjects = [line[10:28].rstrip() for line in outcome.out.decode().splitlines()]
        self.assertEqual(subjects.pop(0), "subject")
        self.assertEqual(
            subjects,
            [
                *("clock", "library clock", "time zone", "production root", "development root"),
                *("marker file", "random device", "journal"),
                *("bmcoauth", "OpenSSL", "jsoncpp", "liboath", "libsystemd", "libstrutil"),
            ],
        )
        self.assertEqual(subjects, list(self.findings()))

    def test_compares_the_clocks(self):
        self.under_zone("UTC0")
        self.assertEqual(self.findings()["library clock"], ("ok", "the same"))
        # By a zone that was always so, both ends of the difference move.
        self.under_zone("EST5")
        self.assertEqual(self.findings()["library clock"][0], "ok")
        for offset in (3600, -7200):
            self.under_zone(":" + self.zone(f"zone{offset}", offset))
            level, text = self.findings()["library clock"]
            self.assertEqual(level, "bad")
            self.assertTrue(text.startswith(f"{-offset} s from the clock"), text)

    def test_takes_no_zone_but_utc(self):
        self.under_zone("UTC0")
        self.assertEqual(self.findings()["time zone"], ("ok", "UTC, UTC+0000 by TZ=UTC0"))
        # In the winter of London the offset is that of UTC, and the times are an hour off. Without
        # a file for a zone its name is taken for one with the offset of UTC.
        for zone, shown in (
            ("EST5", "EST, UTC-0500 by TZ=EST5"),
            ("GMT0", "GMT, UTC+0000 by TZ=GMT0"),
            ("UTC-1", "UTC, UTC+0100 by TZ=UTC-1"),
            ("Missing/Zone", "Missing, UTC+0000 by TZ=Missing/Zone"),
        ):
            self.under_zone(zone)
            level, text = self.findings()["time zone"]
            self.assertEqual(level, "bad")
            self.assertEqual(text, shown + ": the zone must be UTC")

    def test_looks_at_key_files(self):
        def finding(name):
            return self.findings("--key", name)["key file"]

        self.key()
        self.assertEqual(finding("key.pem"), ("ok", "key.pem, a sound P-256 key"))
        os.chmod(self.directory / "key.pem", 0o644)
        self.assertEqual(
            finding("key.pem"), ("doubtful", "key.pem; its mode 0644 lets others read it")
        )
        os.chmod(self.directory / "key.pem", 0o620)
        self.assertEqual(finding("key.pem")[0], "doubtful")
        self.openssl("ecparam", "-name", "secp384r1", "-genkey", "-noout", "-out", "384.pem")
        self.assertEqual(finding("384.pem"), ("bad", "384.pem is refused: key.curve: the key is on another curve (wanted P-256)"))
        self.write("nonsense.pem", "nonsense")
        self.assertEqual(finding("nonsense.pem")[0], "bad")
        self.assertEqual(finding("."), ("bad", finding(".")[1]))
        self.assertEqual(finding("missing"), ("bad", "missing: No such file or directory"))

    def test_looks_at_every_key_file(self):
        self.key()
        outcome = self.tool("doctor", "--key", "key.pem", "--key", "missing")
        self.assertEqual(outcome.out.count(b"key file"), 2)
        self.assertEqual(outcome.status, INVALID)

    def test_accepts_the_roots_of_a_factory(self):
        self.pki()
        self.install_roots()
        findings = self.findings()
        for subject in ("production root", "development root"):
            level, text = findings[subject]
            self.assertEqual(level, "ok", text)
            self.assertIn("valid from 2020-01-01 00:00:00Z to 2049-12-31 23:59:59Z", text)

    def test_tells_a_root_that_ends_before_2035(self):
        self.pki()
        self.openssl(
            *("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1"),
            *("-nodes", "-keyout", "short.key", "-out", "pki/FactorycertProdRoot.pem"),
            *("-subj", "/CN=short", "-days", "2"),
        )
        self.install_roots()
        level, text = self.findings()["production root"]
        self.assertEqual(level, "bad")
        self.assertIn("CN = short", text)
        self.assertIn("not on 1 January 2035", text)

    def test_tells_a_root_that_others_may_write(self):
        self.pki()
        os.chmod(self.directory / "pki/FactorycertDevRoot.pem", 0o666)
        self.install_roots()
        level, text = self.findings()["development root"]
        self.assertEqual(level, "bad")
        self.assertTrue(text.endswith("; its mode 0666 lets others write it"), text)

    def test_tells_a_root_that_is_missing(self):
        self.pki()
        (self.directory / "pki/FactorycertDevRoot.pem").unlink()
        self.install_roots()
        findings = self.findings()
        self.assertEqual(findings["production root"][0], "ok")
        level, text = findings["development root"]
        self.assertEqual(level, "bad")
        self.assertIn("FactorycertDevRoot.pem: No such file or directory", text)

    def image(self):
        """The folder image with the files of a sound device."""
        self.pki()
        etc = self.directory / "image/etc"
        (etc / "default").mkdir(parents=True)
        os.rename(self.directory / "pki", etc / "default/certs")
        zones = self.directory / "image/usr/share/zoneinfo"
        zones.mkdir(parents=True)
        (zones / "UTC").write_bytes(b"TZif2\n\nUTC0\n")
        (zones / "Berlin").write_bytes(b"TZif2\n\nCET-1CEST,M3.5.0,M10.5.0/3\n")
        # As on a device, where such a link does not lead out of the image.
        (etc / "localtime").symlink_to("/usr/share/zoneinfo/UTC")
        return etc

    def test_looks_at_an_image(self):
        etc = self.image()
        findings = self.findings("--root", "image")
        self.assertEqual(list(findings), ["time zone", "production root", "development root", "marker file"])
        self.assertEqual({level for level, _ in findings.values()}, {"ok"}, findings)
        (etc / "localtime").unlink()
        self.assertEqual(self.findings("--root", "image")["time zone"][0], "ok")
        (etc / "localtime").symlink_to("../../../usr/share/zoneinfo/Berlin")
        level, text = self.findings("--root", "image")["time zone"]
        self.assertEqual(level, "bad")
        self.assertTrue(text.startswith("CET-1CEST"), text)

    def test_tells_what_is_wrong_in_an_image(self):
        etc = self.image()
        os.chmod(etc / "default/certs/FactorycertProdRoot.pem", 0o666)
        (etc / "default/certs/FactorycertDevRoot.pem").unlink()
        (etc / "vorn_fw").touch()
        findings = self.findings("--root", "image", "--key", "/etc/default/certs/a.key", "--key", "/missing")
        levels = [findings[name][0] for name in ("production root", "development root", "marker file")]
        self.assertEqual(levels, ["bad", "bad", "doubtful"])
        self.assertEqual(findings["key file"], ("bad", "image/missing: No such file or directory"))

    def test_looks_at_folders_only(self):
        self.refused(FAILURE, "--root takes a folder, not missing", "doctor", "--root", "missing")

    def test_ends_where_links_go_round(self):
        etc = self.image()
        (etc / "localtime").unlink()
        (etc / "localtime").symlink_to("localtime")
        self.assertEqual(self.findings("--root", "image")["time zone"][0], "ok")

    def test_tells_what_is_loaded(self):
        findings = self.findings()
        self.assertRegex(findings["OpenSSL"][1], r"^3\.\S+, built with 3\.\S+, /.*libcrypto\.so\.3")
        self.assertRegex(findings["bmcoauth"][1], r"^built with \d+\.\d+\.\d+, /.*/libbmcoauth\.so")
        for name in ("jsoncpp", "liboath"):
            self.assertRegex(findings[name][1], rf"^built with \d\S+, /.*/lib(jsoncpp|oath)\.so")
        self.assertRegex(
            findings["libsystemd"][1],
            r"^built with \S+ \d\S*( and \S+ \d\S*)?, /.*libsystemd\.so\.0",
        )
