# SPDX-License-Identifier: Apache-2.0
"""The verbs of cert and pki."""

import base64
import json
import stat

from support import FAILURE, INVALID, USAGE, PKI_WARNING, ToolTest


class PkiMake(ToolTest):
    def make(self, *arguments):
        text = self.good("pki", "make", *arguments, warning=PKI_WARNING)
        return [name.rpartition("/")[2] for name in text.split("\n")]

    def test_writes_roots_and_a_device(self):
        self.assertEqual(
            self.make("pki"),
            [
                "FactorycertProdRoot.pem",
                "FactorycertDevRoot.pem",
                "dev-device.key",
                "dev-device.pem",
                "dev-device-chain.pem",
            ],
        )
        mode = (self.directory / "pki/dev-device.key").stat().st_mode
        self.assertEqual(stat.S_IMODE(mode), 0o600)

    def test_makes_chains_that_openssl_verifies(self):
        for count in (0, 1, 3):
            for root, option in (("Prod", []), ("Dev", ["--development-root"])):
                name = f"pki-{count}-{root}"
                self.make(name, "--intermediates", count, "--device", "a", *option)
                verified = self.openssl(
                    *("verify", "-x509_strict", "-attime", "2051222400"),
                    *("-CAfile", f"{name}/Factorycert{root}Root.pem"),
                    *("-untrusted", f"{name}/a-chain.pem", f"{name}/a.pem"),
                )
                self.assertEqual(verified.decode(), f"{name}/a.pem: OK\n")
                chain = (self.directory / name / "a-chain.pem").read_text()
                certificate = (self.directory / name / "a.pem").read_text()
                self.assertEqual(chain.count("BEGIN"), count + 2 if count else 1)
                self.assertTrue(chain.startswith(certificate) and chain.endswith(certificate))

    def test_says_in_every_name_that_it_is_for_development(self):
        self.make("pki")
        for name in ("FactorycertProdRoot", "FactorycertDevRoot", "dev-device"):
            text = self.openssl("x509", "-in", f"pki/{name}.pem", "-noout", "-subject", "-issuer")
            self.assertEqual(text.count(b"DEVELOPMENT ONLY"), 2)

    def test_writes_the_key_of_the_certificate(self):
        self.make("pki")
        public = self.openssl("pkey", "-in", "pki/dev-device.key", "-pubout")
        self.assertEqual(
            self.openssl("x509", "-in", "pki/dev-device.pem", "-noout", "-pubkey"), public
        )

    def test_replaces_nothing(self):
        self.make("pki")
        before = (self.directory / "pki/FactorycertProdRoot.pem").read_text()
        self.refused(USAGE, "exists already: name another", "pki", "make", "pki")
        self.assertEqual((self.directory / "pki/FactorycertProdRoot.pem").read_text(), before)

    def test_refuses_names_that_are_none(self):
        for name in ("", "../x", "a b", "x" * 18, "\x1b"):
            self.refused(USAGE, "--device takes", "pki", "make", "pki", "--device", name)
        twice = ["--device", "a", "--device", "b", "--device", "a"]
        self.refused(USAGE, "--device a is given twice", "pki", "make", "pki", *twice)
        self.assertFalse((self.directory / "pki").exists())

    def test_tells_when_it_cannot_write(self):
        self.write("file", "")
        self.refused(FAILURE, "cannot make the directory file: Not a dir", "pki", "make", "file")
        self.refused(FAILURE, "cannot make the directory file/x: Not a dir", "pki", "make", "file/x")
        # A directory in which nobody makes a file.
        self.refused(FAILURE, r"cannot write /proc/self/\S+: (Operation|Permission|No such)", "pki", "make", "/proc/self")


class Encode(ToolTest):
    def setUp(self):
        super().setUp()
        self.pki()

    def body(self, name):
        der = self.openssl("x509", "-in", name, "-outform", "DER")
        return base64.b64encode(der).decode()

    def test_writes_an_array_even_of_one_certificate(self):
        self.assertEqual(
            self.good_json("cert", "encode", "pki/a.pem"),
            {"alg": "ES-256", "kty": "EC", "x5c": [self.body("pki/a.pem")]},
        )

    def test_keeps_the_order_of_a_chain(self):
        values = self.good_json("cert", "encode", "pki/a-chain.pem")["x5c"]
        self.assertEqual((len(values), values[0], values[2]), (3, *[self.body("pki/a.pem")] * 2))
        self.assertNotEqual(values[1], values[0])

    def test_leaves_out_what_stands_around_the_certificates(self):
        pem = (self.directory / "pki/a.pem").read_text()
        self.write("loud.pem", ("subject=a\n" + pem + "\nend\n").replace("\n", "\r\n"))
        self.assertEqual(
            self.good("cert", "encode", "loud.pem"), self.good("cert", "encode", "pki/a.pem")
        )

    def test_refuses_what_is_no_certificate(self):
        for text in ("", "{}", '{"x5c":[]}', '{"x5c":7}', "-----END CERTIFICATE-----\n"):
            self.write("none.pem", text)
            self.refused(INVALID, "none.pem holds neither", "cert", "encode", "none.pem")
        self.refused(INVALID, "holds neither", "cert", "encode", "pki/a.key")

    def test_names_the_certificate_of_a_chain_that_is_broken(self):
        chain = (self.directory / "pki/a-chain.pem").read_text()
        end = "-----END CERTIFICATE-----\n"
        first, second, third, _ = chain.split(end)
        for name, text, reason in (
            ("cut.pem", chain[:-10], "cut.pem is cut off in certificate 3"),
            ("begun.pem", "-----BEGIN CERTIFICATE-----\nAA\n", "begun.pem is cut off in certificate 1"),
            ("bad.pem", end.join((first, second.replace("M", "*"), third, "")), "certificate 2 of 3 in bad.pem is refused: certificate.encoding"),
        ):
            self.write(name, text)
            for verb in ("encode", "check", "chain"):
                self.refused(INVALID, reason, "cert", verb, name)

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("cert", "encode", "@")


class Check(ToolTest):
    def setUp(self):
        super().setUp()
        self.pki("--device", "a", "--device", "b")

    def test_says_which_certificate_was_checked(self):
        self.assertEqual(
            self.good("cert", "check", "--name", "A", "pki/a-chain.pem"),
            "valid: the first of 3 certificates in pki/a-chain.pem, common name a",
        )

    def test_takes_a_certificate_key(self):
        key = self.good("cert", "encode", "pki/b.pem")
        self.assertIn("common name b", self.good("cert", "check", "-", text=key))

    def test_refuses_another_name(self):
        self.refused_by("certificate.name", "cert", "check", "--name", "b", "pki/a.pem", saw="a", wanted="b")

    def test_refuses_a_strangers_certificate_before_a_chain(self):
        # The name is right, and so would the chain be: they are those of two devices.
        self.refused_by("chain.ends", "cert", "check", "--name", "a", self.stranger())

    def test_refuses_a_certificate_that_cannot_be_read(self):
        text = '{"x5c":["AAAA"]}'
        self.refused_by("certificate.encoding", "cert", "check", "-", text=text)

    def test_keeps_a_hostile_name_from_the_terminal(self):
        subject = "/CN=a\x1b[2J"
        self.openssl(
            *("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1"),
            *("-nodes", "-keyout", "evil.key", "-out", "evil.pem", "-subj", subject),
        )
        self.assertIn("common name a?[2J", self.good("cert", "check", "evil.pem"))


class Chain(ToolTest):
    def setUp(self):
        super().setUp()
        self.pki("--intermediates", "2")

    def test_verifies_a_chain_to_the_production_root(self):
        self.install_roots()
        self.assertEqual(
            self.good("cert", "chain", "pki/a-chain.pem"),
            "verified: the last of 4 certificates in pki/a-chain.pem",
        )

    def test_verifies_a_certificate_that_the_root_issued(self):
        self.good("pki", "make", "flat", "--intermediates", "0", warning=PKI_WARNING)
        self.install_roots("flat")
        self.good("cert", "chain", "flat/dev-device.pem")
        self.refuses("chain.untrusted", "pki/a-chain.pem")

    def refuses(self, rule, path, text=b"", **members):
        self.refused_by(rule, "cert", "chain", path, text=text, **members)

    def test_refuses_a_strangers_certificate_before_a_chain(self):
        attack = self.stranger()
        self.install_roots()
        self.refuses("chain.ends", attack)
        key = self.good("cert", "encode", "attack.pem")
        self.refuses("chain.ends", "-", text=key)
        # A parameter that is found by "x5c" regardless of case, and whose certificates nobody reads.
        key = json.loads(key)
        key = json.dumps({**key, "X5C": key["x5c"][-1]})
        self.refuses("chain.ends", "-", text=key)

    def test_refuses_a_chain_that_does_not_end_with_the_device(self):
        end = "-----END CERTIFICATE-----\n"
        chain = (self.directory / "pki/a-chain.pem").read_text().split(end)
        self.write("tls.pem", end.join([*chain[:3], ""]))
        self.install_roots()
        self.refuses("chain.ends", "tls.pem")

    def test_refuses_a_chain_without_its_intermediates(self):
        self.install_roots()
        self.refuses("chain.untrusted", "pki/a.pem", saw=".*issuer certificate.*")

    def test_refuses_the_development_root_on_an_unmarked_device(self):
        self.good("pki", "make", "dev", "--development-root", warning=PKI_WARNING)
        self.install_roots("dev")
        self.refuses("chain.untrusted", "dev/dev-device-chain.pem")

    def test_refuses_a_chain_that_cannot_be_read(self):
        self.install_roots()
        self.refuses("certificate.encoding", "-", text='{"x5c":["AAAA"]}')

    def test_names_the_root_file_that_is_missing(self):
        for name in ("Dev", "Prod"):
            (self.directory / f"pki/Factorycert{name}Root.pem").unlink()
            self.install_roots()
            missing = f'chain.root-missing: .*Factorycert{name}Root.*, saw No such file'
            self.refused(FAILURE, missing, "cert", "chain", "pki/a.pem")


class CertificateKeyOfARegisterRequest(ToolTest):
    def test_is_found(self):
        self.pki()
        key = self.good_json("cert", "encode", "pki/a.pem")
        for document in ({"jwks": {"software_id_cert": [key]}}, {"software_id_cert": [key]}):
            text = json.dumps(document)
            self.assertIn("common name a", self.good("cert", "check", "-", text=text))
        for document in ({"jwks": {"software_id_cert": []}}, {"software_id_cert": [7]}):
            self.refused(INVALID, "holds neither", "cert", "check", "-", text=json.dumps(document))
