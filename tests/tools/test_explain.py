# SPDX-License-Identifier: Apache-2.0
"""The verbs that explain: what they print, and that their verdict is that of the verb that judges."""

import json

from support import (
    EXPIRED,
    INVALID,
    SUCCESS,
    USAGE,
    ToolTest,
    altered,
    base64url,
    claims,
    signed_token,
)


class Explain(ToolTest):
    def explain(self, *arguments, text=b"", judge=None):
        """The explanation of a verb. By its status it is the verdict of the verb that judges,
        nothing goes to standard error, and its lines say the same as its document."""
        outcome = self.tool(*arguments, "--json", text=text)
        document = json.loads(outcome.out)
        lines = self.tool(*arguments, text=text)
        judged = self.tool(*(judge or [arguments[0], self.JUDGE, *arguments[2:]]), text=text)
        self.assertEqual(outcome.err, b"")
        self.assertEqual((outcome.status, lines.status), (judged.status, judged.status), document)
        if document["verdict"] == "accepted":
            self.assertEqual((outcome.status, lines.out), (SUCCESS, b"accepted: every rule is kept\n"))
            self.assertEqual(document, {"verdict": "accepted"})
            return document
        self.assertEqual(document["verdict"], {INVALID: "refused", EXPIRED: "expired"}[outcome.status])
        first, saw, wanted = lines.out.decode().split("\n")[:3]
        self.assertEqual(first, f"{document['verdict']}: {document['rule']}")
        self.assertTrue(saw.startswith("  saw     "))
        self.assertEqual(wanted, "  wanted  " + document["wanted"])
        return document


class OwnToken(Explain):
    JUDGE = "verify"

    def setUp(self):
        super().setUp()
        self.key()

    def token(self, token):
        return self.explain("token", "explain", "--key", "key.pem", text=token)

    def test_gives_the_verdict_of_verify(self):
        token = signed_token(self, "key.pem", claims())
        self.assertEqual(self.token(token)["verdict"], "accepted")
        for text, rule in (
            (altered(token, 1), "payload|signature|sub|iss|jti|iat|nbf|exp"),
            (altered(token, 2), "signature"),
            ("x.y", "dots"),
            ("{}", "dots"),
            ("a.b.c", "header"),
            (signed_token(self, "key.pem", claims(exp=4000000000)), "exp"),
            (signed_token(self, "key.pem", claims(sub="admin\0.example")), "payload"),
            (signed_token(self, "key.pem", claims(300, 600)), "nbf"),
            (signed_token(self, "key.pem", claims(scope="read")), "scope"),
        ):
            with self.subTest(rule):
                document = self.token(text)
                self.assertEqual(document["verdict"], "refused")
                self.assertRegex(document["rule"], f"^({rule})$")

    def test_says_how_long_ago_a_token_expired(self):
        document = self.token(signed_token(self, "key.pem", claims(-600, -41)))
        self.assertEqual((document["verdict"], document["rule"]), ("expired", "exp"))
        self.assertRegex(document["saw"], r"^expired 4\d s ago by this clock \(exp \d+, ")

    def test_keeps_a_stranger_from_the_terminal(self):
        hostile = claims(sub=["\x1b[2J", "x" * 5000])
        outcome = self.tool(
            *("token", "explain", "--key", "key.pem"), text=signed_token(self, "key.pem", hostile)
        )
        self.assertEqual(outcome.status, INVALID)
        self.assertNotIn(b"\x1b", outcome.out)
        self.assertLess(len(outcome.out), 500)

    def test_needs_one_sort_of_key(self):
        self.refused(USAGE, "either --key FILE", "token", "explain", text="a.b.c")
        both = ["--key", "key.pem", "--trust", "key.pem"]
        self.refused(USAGE, "either --key FILE", "token", "explain", *both, text="a.b.c")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "explain", "--key", "key.pem", "@")


class DelegatedToken(Explain):
    JUDGE = "delegated"

    def setUp(self):
        super().setUp()
        for name in ("issuer", "other"):
            self.openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", f"{name}.pem")
            self.openssl("ec", "-in", f"{name}.pem", "-pubout", "-out", f"{name}-public.pem")
            point = self.openssl("ec", "-in", f"{name}.pem", "-pubout", "-outform", "DER")[-64:]
            coordinates = {"x": base64url(point[:32]), "y": base64url(point[32:])}
            self.write(f"{name}.jwk", {"kty": "EC", "crv": "P-256", "kid": name, **coordinates})
            self.write(f"{name}-384.jwk", {"kty": "EC", "crv": "P-384", **coordinates})

    def token(self, *trust, end=600, options=()):
        trusted = [option for name in trust for option in ("--trust", name)]
        token = signed_token(self, "issuer.pem", claims(end=end))
        return self.explain("token", "explain", *trusted, *options, text=token)

    def test_gives_the_verdict_of_delegated(self):
        for trust in (["issuer.jwk"], ["issuer-public.pem"], ["other.jwk", "issuer-public.pem"]):
            self.assertEqual(self.token(*trust)["verdict"], "accepted")
        self.assertEqual(self.token("other.jwk")["rule"], "signature")
        self.assertEqual(self.token("other-public.pem")["rule"], "signature")
        self.assertEqual(self.token("issuer.jwk", end=-30)["verdict"], "expired")
        skew = ["--skew", "300"]
        self.assertEqual(self.token("issuer.jwk", end=-30, options=skew)["verdict"], "accepted")

    def test_counts_the_keys_that_do_not_verify(self):
        document = self.token("other.jwk", "other-public.pem", "other.jwk")
        self.assertEqual(
            document["saw"], "a signature that does not verify with any of the 3 keys"
        )

    def test_tells_a_key_that_was_not_imported(self):
        token = signed_token(self, "issuer.pem", claims())
        arguments = ["token", "explain", "--trust", "issuer.jwk", "--as-given", "--json"]
        outcome = self.tool(*arguments, text=token)
        document = json.loads(outcome.out)
        self.assertEqual((outcome.status, document["rule"]), (INVALID, "key import"))
        self.assertIn("this JWK has no decoded key", document["saw"])
        self.write("imported.jwk", self.good("jwk", "import", "issuer.jwk"))
        self.good("token", "explain", "--trust", "imported.jwk", "--as-given", text=token)

    def test_tells_a_key_that_cannot_be_imported(self):
        outcome = self.tool(
            *("token", "explain", "--trust", "issuer-384.jwk", "--as-given"),
            text=signed_token(self, "issuer.pem", claims()),
        )
        self.assertIn(b"refused: key selection", outcome.out)


class Handshake(Explain):
    JUDGE = "check"

    def test_gives_the_verdict_of_check(self):
        self.pki("--device", "a", "--device", "b")
        self.write("keys.json", self.good("handshake", "keys", "--prefix", "otp", "--tokens", "3"))
        self.write("others.json", self.good("handshake", "keys", "--prefix", "otp", "--tokens", "3"))
        self.write(
            "challenge.json",
            self.good("handshake", "challenge", "--type", "otp1.0", "--type", "software_id_cert-1.0"),
        )
        challenge = ["--challenge", "challenge.json"]
        response = self.good_json(
            *("handshake", "respond", *challenge, "--keys", "keys.json"),
            *("--certificate", "pki/a.pem", "--key", "pki/a.key"),
        )
        for keys, certificate, proofs, rule in (
            (["--keys", "keys.json"], ["--certificate", "pki/a.pem"], response["R"], None),
            (["--keys", "keys.json"], ["--certificate", "pki/a.pem"], response["R"][:1], "R"),
            (["--keys", "keys.json"], ["--certificate", "pki/b.pem"], response["R"], "certificate proof"),
            (["--keys", "keys.json"], [], response["R"], "certificate"),
            ([], ["--certificate", "pki/a.pem"], response["R"], "keys"),
            (
                *(["--keys", "others.json"], ["--certificate", "pki/a.pem"], response["R"]),
                "one-time password of otp1.0",
            ),
        ):
            with self.subTest(rule):
                explain = ["handshake", "explain", *challenge, *keys, *certificate]
                document = self.explain(*explain, text=json.dumps({"R": proofs}))
                self.assertEqual(document.get("rule"), rule)
                self.assertNotIn(response["R"][0], document.get("wanted", ""))

    def test_gives_the_verdict_of_respond(self):
        self.pki("--device", "a")
        self.write("keys.json", {"otp": ["one", "two"], "odd": [7], "mixed": ["one", 2]})
        all_of_it = ["--keys", "keys.json", "--certificate", "pki/a.pem", "--key", "pki/a.key"]
        proof = "software_id_cert-1.0"
        for challenge, given, rule in (
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, all_of_it, None),
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, all_of_it[:4], "key"),
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, all_of_it[:2], "certificate"),
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, all_of_it[2:], "keys"),
            ({"T": ["otp", proof], "M": "0", "C": "1", "V": "t"}, all_of_it, "M"),
            ({"T": ["otp", proof], "M": "1", "V": "t"}, all_of_it, "M and C"),
            ({"T": ["otp", proof], "V": "t"}, all_of_it, "one-time password of otp"),
            ({"T": ["otp", proof], "M": "1", "C": "1"}, all_of_it, "V"),
            ({"T": "pot", "M": "1", "C": "1"}, all_of_it, "one-time password of pot"),
            ({"T": "odd"}, all_of_it, "one-time password of odd"),
            ({"T": proof, "V": "t"}, all_of_it[2:], None),
            ({"T": "otp"}, all_of_it[:2], None),
        ):
            with self.subTest(rule):
                self.write("challenge.json", {"handshake_challenge": challenge})
                arguments = ["--challenge", "challenge.json", *given]
                document = self.explain(
                    *("handshake", "explain", "--respond", *arguments),
                    judge=["handshake", "respond", *arguments],
                )
                self.assertEqual(document.get("rule"), rule)
        explain = ["handshake", "explain", "--challenge", "challenge.json", "--keys", "keys.json"]
        self.write("challenge.json", {"T": "mixed"})
        self.refused(INVALID, "leaves it to chance", *explain, "--respond")
        self.refused(USAGE, "--respond takes no response", *explain, "--respond", "-")
        self.refused(USAGE, "--key needs --respond", *explain, "--key", "pki/a.key")


class Certificate(Explain):
    def certificate(self, *arguments):
        judge = ["cert", "chain", arguments[-1]]
        return self.explain("cert", "explain", *arguments, judge=judge)

    def test_gives_the_verdict_of_chain(self):
        self.pki("--intermediates", "2")
        self.good("pki", "make", "dev", "--development-root", warning=self.WARNING)
        self.install_roots()
        self.assertEqual(self.certificate("pki/a-chain.pem")["verdict"], "accepted")
        self.assertEqual(self.certificate("--name", "a", "pki/a-chain.pem")["verdict"], "accepted")
        self.assertEqual(self.certificate("pki/a.pem")["rule"], "chain")
        self.assertEqual(self.certificate("dev/dev-device-chain.pem")["rule"], "chain")
        self.assertEqual(self.certificate(self.stranger())["rule"], "first certificate")

    WARNING = "these certificates are for development only; their authorities' keys were not kept"

    def test_names_the_name(self):
        self.pki()
        judge = ["cert", "check", "--name", "b", "pki/a.pem"]
        document = self.explain("cert", "explain", "--name", "b", "pki/a.pem", judge=judge)
        self.assertEqual(document["rule"], "common name")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("cert", "explain", "@")


class Envelope(Explain):
    JUDGE = "open"

    def test_gives_the_verdict_of_open(self):
        self.pki("--device", "a", "--device", "b")
        sealed = self.good_json(
            "ecies", "seal", "--key", "pki/a.key", "--peer", "pki/b.pem", text="text"
        )
        explain = ["ecies", "explain", "--key", "pki/b.key", "--peer"]
        for peer, change, rule in (
            ("a", {}, None),
            ("b", {}, "mac"),
            ("a", {"iv": "00"}, "iv"),
            ("a", {"mac": "AAAA"}, "mac"),
            ("a", {"ciphertext": "*"}, "ciphertext"),
            ("a", {"ciphertext": "AAAA" + sealed["ciphertext"][4:]}, "mac"),
        ):
            with self.subTest(rule):
                text = json.dumps({**sealed, **change})
                self.assertEqual(self.explain(*explain, f"pki/{peer}.pem", text=text).get("rule"), rule)
