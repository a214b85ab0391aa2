# SPDX-License-Identifier: Apache-2.0
"""The verbs that turn keys and tokens into other forms."""

import base64
import json
import os
import stat

from support import FAILURE, INVALID, USAGE, ToolTest, altered, base64url, claims, part, signed_token

# RFC 7638, section 3.1.
RFC_KEY = {
    "kty": "RSA",
    "n": "0vx7agoebGcQSuuPiLJXZptN9nndrQmbXEps2aiAFbWhM78LhWx4cbbfAAtVT86zwu1RK7aPFFxuhDR1"
    "L6tSoc_BJECPebWKRXjBZCiFV4n3oknjhMstn64tZ_2W-5JsGY4Hc5n9yBXArwl93lqt7_RN5w6Cf0h4"
    "QyQ5v-65YGjQR0_FDW2QvzqY368QQMicAtaSqzs8KJZgnYb9c7d0zgdAZHzu6qMQvRL5hajrn1n91CbO"
    "pbISD08qNLyrdkt-bFTWhAI4vMQFh6WeZu0fM4lFd2NcRwr3XPksINHaQ-G_xBniIqbw0Ls1jF44-csF"
    "Cur-kEgU8awapJzKnqDKgw",
    "e": "AQAB",
    "alg": "RS256",
    "kid": "2011-04-29",
}
RFC_THUMBPRINT = "NzbLsXh8uDCcd-6MNwXF4W_7noWXFZAfHkxZsRGC9Xs"

# RFC 7515, appendix A.3: a private P-256 key.
RFC_EC = {
    "kty": "EC",
    "crv": "P-256",
    "x": "f83OJ3D2xF1Bg8vub9tLe1gHMzV76e8Tus9uPHvRVEU",
    "y": "x_FEzRu9m36HLN_tue659LNpXW6pCyStikYjKIWI5a0",
    "d": "jpsQnnGQmL-YBIffH1136cspYG6-0iY7X1fCE9-E9LI",
}
CURVES = {"P-256": "prime256v1", "P-384": "secp384r1", "P-521": "secp521r1"}


class KeyConvert(ToolTest):
    def make(self, curve):
        """Key files of every form, made by openssl: private and public."""
        if curve == "RSA":
            # Small: whoever reads it tests both primes, which takes an emulator seconds.
            self.openssl("genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024", "-out", "key.pem")
            self.openssl("rsa", "-in", "key.pem", "-outform", "DER", "-out", "key.der", "-traditional")
        else:
            self.openssl("genpkey", "-algorithm", "EC", "-pkeyopt", f"ec_paramgen_curve:{curve}", "-out", "key.pem")
            self.openssl("ec", "-in", "key.pem", "-outform", "DER", "-out", "key.der")
        self.openssl("pkey", "-in", "key.pem", "-pubout", "-out", "public.pem")
        self.openssl("pkey", "-in", "key.pem", "-pubout", "-outform", "DER", "-out", "public.der")

    def test_goes_between_all_forms_as_openssl_does(self):
        for curve in (*CURVES, "RSA"):
            self.make(curve)
            for name in ("key", "public"):
                self.good("key", "convert", "--to", "jwk", "--out", f"{name}.jwk", f"{name}.pem", "--force")
                for source in ("pem", "der", "jwk"):
                    for form in ("pem", "der", "jwk"):
                        with self.subTest(f"{curve} {name} {source} {form}"):
                            outcome = self.tool("key", "convert", "--to", form, f"{name}.{source}")
                            self.assertEqual((outcome.status, outcome.err), (0, b""))
                            expected = (self.directory / f"{name}.{form}").read_bytes()
                            self.assertEqual(outcome.out, expected)
                    public = self.tool("key", "convert", "--public", "--to", "der", f"{name}.{source}")
                    self.assertEqual(public.out, (self.directory / "public.der").read_bytes())

    def assert_reads(self, files, form, expected):
        """Each file holds the same key: that of the file expected, in the given form."""
        wanted = (self.directory / expected).read_bytes()
        for name in files:
            with self.subTest(name):
                outcome = self.tool("key", "convert", "--to", form, name)
                self.assertEqual((outcome.status, outcome.err), (0, b""))
                self.assertEqual(outcome.out, wanted)

    def made(self, name, label, *arguments):
        """A file made by openssl that holds a PEM block with the label, or DER bytes."""
        self.openssl(*arguments, "-out", name)
        content = (self.directory / name).read_bytes()
        self.assertIn(f"-----BEGIN {label}-----".encode() if label else b"0", content)
        return name

    def test_reads_every_private_form_of_ec_keys(self):
        self.make("P-256")
        self.openssl("ecparam", "-name", "prime256v1", "-out", "parameters.pem")
        sec1 = self.made("sec1.pem", "EC PRIVATE KEY", "ec", "-in", "key.pem")
        parameters = (self.directory / "parameters.pem").read_text()
        files = (
            self.made("pkcs8.pem", "PRIVATE KEY", "pkcs8", "-topk8", "-nocrypt", "-in", "key.pem"),
            self.made("pkcs8.der", "", *"pkcs8 -topk8 -nocrypt -in key.pem -outform DER".split()),
            sec1,
            self.made("sec1.der", "", *"ec -in key.pem -outform DER".split()),
            # As ecparam -genkey writes it.
            self.write("both.pem", parameters + (self.directory / sec1).read_text()),
            self.write("crlf.pem", (self.directory / sec1).read_text().replace("\n", "\r\n")),
        )
        self.assert_reads(files, "pem", "key.pem")

    def test_reads_every_private_form_of_rsa_keys(self):
        self.make("RSA")
        files = (
            self.made("pkcs8.pem", "PRIVATE KEY", "pkcs8", "-topk8", "-nocrypt", "-in", "key.pem"),
            self.made("pkcs8.der", "", *"pkcs8 -topk8 -nocrypt -in key.pem -outform DER".split()),
            self.made("pkcs1.pem", "RSA PRIVATE KEY", "rsa", "-traditional", "-in", "key.pem"),
            self.made("pkcs1.der", "", *"rsa -traditional -in key.pem -outform DER".split()),
        )
        self.assert_reads(files, "pem", "key.pem")

    def test_reads_every_public_form_of_rsa_keys(self):
        self.make("RSA")
        files = (
            "public.pem",
            "public.der",
            self.made("pkcs1.pem", "RSA PUBLIC KEY", "rsa", "-in", "key.pem", "-RSAPublicKey_out"),
            self.made("pkcs1.der", "", *"rsa -in key.pem -RSAPublicKey_out -outform DER".split()),
        )
        self.assert_reads(files, "der", "public.der")
        pkcs1 = (self.directory / "pkcs1.der").read_bytes()
        convert = ["key", "convert", "--to", "pem"]
        for name, content in (
            ("cut.der", pkcs1[:-1]),
            ("long.der", pkcs1 + b"\0"),
            ("cut.pem", self.pem("RSA PUBLIC KEY", pkcs1[:-1])),
            ("broken.pem", (self.directory / "pkcs1.pem").read_text().replace("M", "*")),
        ):
            self.write(name, content)
            self.refused(INVALID, f"{name} holds no unencrypted key", *convert, name)

    @staticmethod
    def pem(label, der):
        return f"-----BEGIN {label}-----\n{base64.encodebytes(der).decode()}-----END {label}-----\n"

    def test_reads_the_key_of_a_certificate(self):
        self.pki()
        self.openssl("x509", "-in", "pki/a.pem", "-noout", "-pubkey", "-out", "public.pem")
        self.openssl("x509", "-in", "pki/a.pem", "-outform", "DER", "-out", "a.der")
        self.assert_reads(("pki/a.pem", "a.der"), "pem", "public.pem")

    def test_writes_the_numbers_of_an_rfc(self):
        self.write("key.jwk", RFC_EC)
        self.good("key", "convert", "--to", "pem", "--out", "key.pem", "key.jwk")
        self.assertTrue(self.good("key", "check", "key.pem").startswith("valid: P-"))
        self.assertEqual(self.good_json("key", "convert", "--to", "jwk", "key.pem"), RFC_EC)
        public = {name: RFC_EC[name] for name in ("kty", "crv", "x", "y")}
        self.assertEqual(
            self.good_json("key", "convert", "--to", "jwk", "--public", "--kid", "b", "key.pem"),
            {**public, "kid": "b"},
        )

    def test_writes_a_private_file_that_nobody_else_reads(self):
        self.key()
        for form in ("pem", "der", "jwk"):
            self.good("key", "convert", "--to", form, "--out", "out", "--force", "key.pem")
            mode = stat.S_IMODE((self.directory / "out").stat().st_mode)
            self.assertEqual(mode, 0o600)
            os.chmod(self.directory / "out", 0o644)

    def test_replaces_a_file_only_by_force(self):
        self.key()
        self.write("out", "precious")
        convert = ["key", "convert", "--to", "pem", "key.pem", "--out"]
        self.refused(USAGE, "--force", *convert, "out")
        self.assertEqual((self.directory / "out").read_text(), "precious")
        self.good(*convert, "out", "--force")
        self.refused(FAILURE, "cannot write missing/out: No such", *convert, "missing/out")
        device = [*convert, "/dev/full", "--public", "--force"]
        self.refused(FAILURE, "cannot write /dev/full: it is not a regular file", *device)

    def test_writes_a_public_key_that_the_umask_lets_others_read(self):
        self.key()
        for mask, mode in ((0o022, 0o644), (0o077, 0o600)):
            self.addCleanup(os.umask, os.umask(mask))
            self.good(*"key convert --public --to pem --force --out out key.pem".split())
            self.assertEqual(stat.S_IMODE((self.directory / "out").stat().st_mode), mode)

    def test_has_a_document_for_every_form(self):
        self.make("P-256")
        convert = ["key", "convert", "--json", "--public", "key.pem", "--to"]
        der = self.good_json(*convert, "der")
        self.assertEqual(base64.b64decode(der["der"]), (self.directory / "public.der").read_bytes())
        pem = self.good_json(*convert, "pem")
        self.assertEqual(pem, {"pem": (self.directory / "public.pem").read_text(), "private": False})
        self.assertEqual(self.good_json(*convert, "jwk")["kty"], "EC")
        self.assertEqual(
            self.good_json(*convert, "pem", "--out", "out"), {"file": "out", "private": False}
        )

    def test_refuses_what_is_no_key(self):
        self.make("P-256")
        self.openssl("ec", "-in", "key.pem", "-aes128", "-passout", "pass:x", "-out", "locked.pem")
        self.openssl("genpkey", "-algorithm", "ED25519", "-out", "ed.pem")
        self.openssl("ecparam", "-name", "secp256k1", "-genkey", "-noout", "-out", "k1.pem")
        self.write("cut.der", (self.directory / "key.der").read_bytes()[:-1])
        self.write("long.der", (self.directory / "key.der").read_bytes() + b"\0")
        self.write("empty", "")
        self.write("zero.der", b"\0" * 100)
        convert = ["key", "convert", "--to", "pem"]
        for name in ("locked.pem", "cut.der", "long.der", "empty", "zero.der"):
            self.refused(INVALID, f"{name} holds no unencrypted key", *convert, name)
        for name in ("ed.pem", "k1.pem"):
            self.refused(INVALID, f"{name} holds neither an RSA key nor one on", *convert, name)
        other = {"x": "11qYAYKxCrfVS_7TyWQHOg", "d": RFC_EC["y"]}
        for change in (
            *({"kty": "oct"}, {"kty": 7}, {"crv": "P-384"}, {"crv": "secp256k1"}, {"x": None}),
            *({"y": RFC_EC["x"]}, {"x": other["x"]}, {"d": other["d"]}, {"d": 7}, {"d": "*"}),
        ):
            with self.subTest(change):
                self.write("key.jwk", {**RFC_EC, **change})
                self.refused(INVALID, "key.jwk holds", *convert, "key.jwk")
        self.refused(FAILURE, "No such file", *convert, "missing")
        self.refused(USAGE, "--to", "key", "convert", "key.pem")
        self.refused(USAGE, "--to", "key", "convert", "--to", "xml", "key.pem")
        self.refused(USAGE, "--kid needs", *convert, "--kid", "k", "key.pem")


class KeyThumbprint(ToolTest):
    def test_is_that_of_the_rfc(self):
        self.write("key.jwk", RFC_KEY)
        self.assertEqual(self.good("key", "thumbprint", "key.jwk"), RFC_THUMBPRINT)
        self.assertEqual(
            self.good_json("key", "thumbprint", "--json", "key.jwk"), {"thumbprint": RFC_THUMBPRINT}
        )

    def test_is_the_same_in_every_form(self):
        self.key()
        thumbprint = self.good("key", "thumbprint", "key.pem")
        self.assertRegex(thumbprint, r"^[\w-]{43}$")
        for form in ("pem", "der", "jwk"):
            for options in ([], ["--public"]):
                self.good("key", "convert", "--to", form, "--out", "out", "--force", *options, "key.pem")
                self.assertEqual(self.good("key", "thumbprint", "out"), thumbprint)

    def test_refuses_what_is_no_key(self):
        self.write("key.jwk", {**RFC_KEY, "n": "*"})
        self.refused(INVALID, "holds no unencrypted key", "key", "thumbprint", "key.jwk")


class TokenConvert(ToolTest):
    ALGORITHMS = {"ES256": ("prime256v1", 32), "ES384": ("secp384r1", 48), "ES512": ("secp521r1", 66)}

    def token(self, algorithm):
        self.openssl(
            *("ecparam", "-name", self.ALGORITHMS[algorithm][0]),
            *("-genkey", "-noout", "-out", f"{algorithm}.pem"),
        )
        return signed_token(self, f"{algorithm}.pem", claims(), algorithm)

    def convert(self, form, text):
        return self.good("token", "convert", "--to", form, text=text)

    def test_goes_there_and_back(self):
        for algorithm, (_, width) in self.ALGORITHMS.items():
            token = self.token(algorithm)
            raw = self.convert("raw", token)
            self.assertEqual(raw.rpartition(".")[0], token.rpartition(".")[0])
            signature = base64.urlsafe_b64decode(raw.rpartition(".")[2] + "==")
            self.assertEqual(len(signature), 2 * width)
            self.assertEqual(self.convert("der", raw), token)

    def test_pads_and_unpads_the_integers(self):
        header = part({"typ": "JWT", "alg": "ES256"}) + "." + part({}) + "."
        for raw, der in (
            (b"\0" * 31 + b"\1" + b"\0" * 31 + b"\2", bytes.fromhex("3006020101020102")),
            (
                b"\x80" + b"\0" * 31 + b"\0" + b"\x7f" + b"\0" * 30,
                bytes.fromhex("30440221 0080" + "00" * 31 + "021f 7f" + "00" * 30),
            ),
            (b"\0" * 64, bytes.fromhex("3006020100020100")),
        ):
            self.assertEqual(self.convert("der", header + base64url(raw)), header + base64url(der))
            self.assertEqual(self.convert("raw", header + base64url(der)), header + base64url(raw))

    def test_the_library_takes_the_token_only_as_der(self):
        self.key()
        token = signed_token(self, "key.pem", claims())
        raw = self.convert("raw", token)
        self.good("token", "verify", "--key", "key.pem", text=token)
        self.refused(INVALID, "see bmcoauth token convert", "token", "verify", "--key", "key.pem", text=raw)
        self.good("token", "verify", "--key", "key.pem", text=self.convert("der", raw))

    def test_takes_a_response_document(self):
        token = self.token("ES256")
        response = json.dumps({"access_token": token})
        document = self.good_json("token", "convert", "--json", "--to", "raw", text=response)
        self.assertEqual(document, {"access_token": self.convert("raw", token)})

    def test_refuses_what_has_no_two_forms(self):
        def refused(pattern, form, text):
            self.refused(INVALID, pattern, "token", "convert", "--to", form, text=text)

        token = self.token("ES256")
        raw = self.convert("raw", token)
        refused("is in raw form already", "raw", raw)
        refused("bytes: in raw form the token's alg has 64", "der", token)
        refused("bytes: in raw form the token's alg has 64", "der", raw[:-4])
        refused("is not a DER sequence", "raw", altered(token, 2)[: -20])
        for algorithm in ("RS256", "HS256", "none", "es256", 7):
            text = part({"alg": algorithm}) + "." + part({}) + ".AAAA"
            refused("only signatures of ES256", "raw", text)
        long = part({"alg": "ES256"}) + "." + part({}) + "." + base64url(b"\x30\x27\x02\x22" + b"\1" * 34 + b"\2\1\1")
        refused("is too long", "raw", long)
        refused("two dots", "raw", "x")
        refused("not Base64url", "raw", part({"alg": "ES256"}) + "." + part({}) + ".*")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "convert", "--to", "raw", "@")
