# SPDX-License-Identifier: Apache-2.0
"""token delegated: tokens of another issuer, made with the openssl command."""

import json

from support import (
    EXPIRED,
    INVALID,
    SUCCESS,
    ToolTest,
    USAGE,
    altered,
    base64url,
    check_verdict,
    claims,
    signed_token,
)


# A key on P-521 (RFC 7520, section 3.1).
RFC_P521 = {
    "kty": "EC",
    "crv": "P-521",
    "x": "AHKZLLOsCOzz5cY97ewNUajB957y-C-U88c3v13nmGZx6sYl_oJXu9A5RkTKqjqvjyekWF-7ytDyRXYgCF5cj0Kt",
    "y": "AdymlHvOiLxXkEhayXQnNCvDX4h9htZaCJN34kfmC6pV5OhQHiraVySsUdaQkAgDPrwQrJmbnX9cwlGfP-HqHZR1",
}


class Delegated(ToolTest):
    def setUp(self):
        super().setUp()
        self.trust("issuer")
        self.trust("other")

    def trust(self, name):
        """A key, and what there is to trust of it: a JWK, a set and a PEM file."""
        key = f"{name}.pem"
        self.openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", key)
        self.openssl("ec", "-in", key, "-pubout", "-out", f"{name}-public.pem")
        point = self.openssl("ec", "-in", key, "-pubout", "-outform", "DER")[-64:]
        jwk = {
            "kty": "EC",
            "crv": "P-256",
            "kid": name,
            "x": base64url(point[:32]),
            "y": base64url(point[32:]),
        }
        self.write(f"{name}.jwk", jwk)
        self.write(f"{name}.jwks", {"keys": [{"kty": "oct", "k": "eA"}, jwk]})

    def token(self, begin=-60, end=600, **others):
        return signed_token(self, "issuer.pem", claims(begin, end, **others))

    def judge(self, token, *options, status=SUCCESS, trust=("issuer.jwks",)):
        trusted = [option for name in trust for option in ("--trust", name)]
        outcome = self.tool("token", "delegated", *trusted, *options, text=token)
        self.assertEqual(outcome.status, status, outcome.err)
        self.assertEqual(outcome.err.count(b"\n"), 0 if status == SUCCESS else 1, outcome.err)
        return json.loads(outcome.out)

    def refuses(self, rule, token, *options, status=INVALID, verified=False, **judged):
        """Expects the rule on stderr and in the report, which is returned."""
        trust = [option for name in judged.get("trust", ["issuer.jwks"]) for option in ("--trust", name)]
        outcome = self.tool("token", "delegated", *trust, *options, text=token)
        self.assertEqual(outcome.status, status, outcome.err)
        report = json.loads(outcome.out)
        check_verdict(report)
        expected = {
            "verdict": "expired" if status == EXPIRED else "invalid",
            "signature_verified": verified,
            "rule": rule,
            "reason": outcome.err.decode().removeprefix("bmcoauth: ").removesuffix("\n"),
        }
        self.assertEqual({**report, **expected}, report)
        self.assertIn(f": {rule}: ", report["reason"])
        return report

    def test_accepts_a_token_by_every_form_of_key(self):
        token = self.token(scope="ravok_login ravok_clearlogs unknown")
        for name in ("issuer.jwk", "issuer.jwks", "issuer-public.pem"):
            self.assertEqual(
                self.judge(token, trust=[name]),
                {
                    "verdict": "valid",
                    "signature_verified": True,
                    "user": "admin",
                    "mask": 9,
                    "privileges": ["ravok_login", "ravok_clearlogs"],
                },
            )

    def test_order_of_the_keys_does_not_matter(self):
        token = self.token()
        names = ["issuer-public.pem", "other-public.pem", "other.jwk"]
        for trust in (names, names[::-1], [names[1], names[0], names[2]]):
            self.assertTrue(self.judge(token, trust=trust)["signature_verified"])

    def test_counts_roles(self):
        self.write("roles.json", {"operator": 0x102, "auditor": ["ravok_login", "ravok_testalerts"]})
        token = self.token(ravok_roles=["auditor", "operator", "nobody"])
        self.assertEqual(self.judge(token, "--roles", "roles.json")["mask"], 0x183)
        self.assertEqual(self.judge(token)["mask"], 0)

    def test_counts_identity_providers(self):
        token = self.token(xidp={"corp": ["VM"], "shop": ["SC"], "*": ["L"]})
        self.assertEqual(self.judge(token)["mask"], 0x01)
        self.assertEqual(self.judge(token, "--provider", "corp")["mask"], 0x41)
        both = ["--provider", "corp", "--provider", "shop"]
        self.assertEqual(self.judge(token, *both)["mask"], 0x51)

    def test_takes_no_privileges_that_the_issuer_wrote_as_the_librarys(self):
        scope = {"AUTHNZ_USER": ["root"], "USER_PRIV": ["511"], "singleUse": ["false"]}
        warning = "the token brings scope entries of its own; no privileges were computed"
        report = self.good_json(
            "token", "delegated", "--trust", "issuer.jwk", text=self.token(scope=scope), warning=warning
        )
        self.assertEqual(
            report, {"verdict": "valid", "signature_verified": True, "user": "admin", "scopes": scope}
        )

    def test_refuses_an_untrusted_key(self):
        for name in ("other.jwk", "other-public.pem"):
            self.refuses("token.signature", self.token(), trust=[name])

    def test_tells_what_became_of_every_key(self):
        # A key on another curve is not meant for ES256.
        self.write("large.jwk", RFC_P521)
        report = self.refuses("token.signature", self.token(), trust=["large.jwk", "other.jwk"])
        self.assertEqual(report["index"], 1)
        self.assertEqual(report["saw"], "1 not selected, 0 not imported, 1 not verified")
        self.refuses("token.key-not-selected", self.token(), trust=["large.jwk"])

    def test_refuses_an_altered_token(self):
        token = self.token()
        report = self.judge(altered(token, 1), status=INVALID)
        self.assertRegex(report["rule"], "^(json|token)")
        self.refuses("token.signature", altered(token, 2))

    def test_tells_an_expired_token_from_a_forged_one(self):
        report = self.refuses("token.expired", self.token(end=-30), status=EXPIRED, verified=True)
        self.assertEqual(report["subject"], "exp")

    def test_allows_the_skew(self):
        token = self.token(begin=60, end=-30)
        self.refuses("token.expired", token, status=EXPIRED, verified=True)
        self.assertEqual(self.judge(token, "--skew", "300")["verdict"], "valid")

    def test_refuses_a_token_that_is_not_valid_yet(self):
        self.refuses("token.not-yet-valid", self.token(begin=300), verified=True)

    def test_refuses_hmac(self):
        self.refuses("token.algorithm", signed_token(self, "issuer.pem", claims(), "HS256"))

    def test_refuses_a_zero_byte_in_a_text(self):
        self.refuses("argument.zero-byte", self.token(sub="admin\0.example"))

    def test_refuses_what_is_no_token(self):
        for text in ("x", "{}"):
            self.refuses("token.parts", text)
        for text in ("a.b.c", ".."):
            self.refuses("base64.malformed", text)

    def test_refuses_trust_that_is_none(self):
        judge = ["token", "delegated", "--trust"]
        for name, text in (("a", "nonsense"), ("b", ""), ("c", "{}"), ("d", '{"keys":[{"kty":"oct"}]}')):
            self.write(name, text)
            self.refused(INVALID, f"^bmcoauth: {name} holds n", *judge, name, text=self.token())
        self.refused(USAGE, "--trust", "token", "delegated", text=self.token())

    def test_refuses_roles_that_are_none(self):
        judge = ["token", "delegated", "--trust", "issuer.jwk", "--roles", "roles.json"]
        for rights in (512, -1, "ravok_login", ["ravok_fly"], [7], None, ["\x1b[2J"]):
            self.write("roles.json", {"operator": rights})
            self.refused(INVALID, "roles.json", *judge, text=self.token())
        self.write("roles.json", {"operator\0": 1})
        self.refused(INVALID, "roles.json names a role with a zero", *judge, text=self.token())

    def test_takes_a_key_with_comments(self):
        key = (self.directory / "issuer.jwk").read_text().strip()
        self.write("commented.jwk", "/* ours */" + key[:-1] + " // for tests\n}")
        self.assertTrue(self.judge(self.token(), trust=["commented.jwk"])["signature_verified"])

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "delegated", "--trust", "issuer.jwk", "@")
