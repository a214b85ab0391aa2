# SPDX-License-Identifier: Apache-2.0
"""With --json: the documents of the verbs that print text without it."""

import json
import unittest

import support
from support import FAILURE, INVALID, PKI_WARNING, USAGE, ToolTest, base64url, claims, part, signed_token


class Json(ToolTest):
    def good_verdict(self, *arguments, **settings):
        document = self.good_json(*arguments, "--json", **settings)
        support.check_verdict(document)
        return document

    def test_of_verdicts_is_as_the_schema_says(self):
        self.pki()
        self.good_verdict("key", "check", "pki/a.key")
        self.good_verdict("cert", "check", "pki/a.pem")
        self.write("keys.json", {"otp1.0": ["first", "second", "third"]})
        made = self.good("handshake", "challenge", "--type", "otp1.0", "--mode", "2")
        self.write("challenge.json", made)
        challenge = ("--challenge", "challenge.json", "--keys", "keys.json")
        self.write("response.json", self.good("handshake", "respond", *challenge))
        self.good_verdict("handshake", "check", *challenge, "response.json")

    def test_of_a_chain_is_as_the_schema_says(self):
        self.pki()
        self.install_roots()
        self.good_verdict("cert", "chain", "pki/a-chain.pem")

    @unittest.skipIf(support.jsonschema is None, "jsonschema is not installed")
    def test_schema_knows_nothing_else(self):
        for document in (
            {},
            {"valid": True},
            {"verdict": True},
            {"verdict": "perhaps", "reason": "x"},
            {"verdict": "valid", "reason": "x"},
            {"verdict": "invalid"},
            {"verdict": "invalid", "reason": "x", "extra": 1},
            {"verdict": "usage", "reason": ""},
            {"verdict": "ok"},
            {"verdict": "valid", "findings": []},
        ):
            with self.subTest(document), self.assertRaises(support.jsonschema.ValidationError):
                support.check_verdict(document)

    def test_of_what_no_rule_refuses(self):
        for verb in (("token", "inspect"), ("handshake", "respond", "--challenge", "-")):
            outcome = self.tool(*verb, "--json", text="nonsense")
            document = json.loads(outcome.out)
            support.check_verdict(document)
            reason = outcome.err.decode().removeprefix("bmcoauth: ").removesuffix("\n")
            self.assertEqual((outcome.status, document), (INVALID, {"verdict": "invalid", "reason": reason}))

    def test_of_what_could_not_be_judged(self):
        for status, reason, words in (
            (FAILURE, "cannot read missing: No such file or directory", "token inspect missing"),
            (USAGE, "CODE is required (see bmcoauth error --help)", "error"),
            (USAGE, "there is no command tokne: did you mean token? (see bmcoauth --help)", "tokne issue"),
            (USAGE, "there is no option --kye: did you mean --key? (see bmcoauth token issue --help)", "token issue --kye k"),
        ):
            verdict = support.VERDICTS[status]
            found = self.refused_in_json(status, *words.split())
            self.assertEqual(found, {"verdict": verdict, "reason": reason})

    def test_of_a_problem_is_asked_for_by_an_option(self):
        self.assertEqual(json.loads(self.tool("error", "--json=true").out)["verdict"], "usage")
        # This one looks like the option, but is an argument.
        self.assertEqual(self.tool("error", "--", "--json").out, b"")

    def test_of_a_problem_is_json_whatever_the_argument(self):
        # Not UTF-8, and control characters.
        outcome = self.tool("error", b"\xff\x1b\n".decode(errors="surrogateescape"), "--json")
        self.assertEqual(outcome.status, USAGE)
        self.assertIn("no error has the code \ufffd??: ", json.loads(outcome.out)["reason"])

    def test_of_a_key(self):
        self.assertEqual(self.good_json("key", "generate", "--json", "key.pem"), {"file": "key.pem"})
        self.assertTrue(self.good_json("key", "check", "--json", "key.pem")["verdict"] == "valid")
        self.write("none.pem", "")
        self.refused_by("key.encoding", "key", "check", "none.pem")

    def test_of_a_token(self):
        header, payload = {"alg": "none", "typ": "\x1b[2J"}, {"exp": 1, "sub": "x"}
        document = self.good_json(
            *("token", "inspect", "--json"),
            text=part(header) + "." + part(payload) + ".",
            warning="nothing was verified; anybody can write such a token",
        )
        self.assertEqual(document, {"header": header, "claims": payload})

    def test_of_a_verified_token(self):
        self.key()
        payload = claims()
        token = signed_token(self, "key.pem", payload)
        verified = self.good_verdict("token", "verify", "--key", "key.pem", text=token)
        self.assertEqual(verified, {"verdict": "valid", "claims": payload})

    def test_of_a_list_of_keys(self):
        point = {"x": base64url(b"\1" * 32), "y": base64url(b"\2" * 32)}
        keys = {"keys": [{"kty": "EC", "crv": "P-256", "kid": "a", **point}, {"kty": 7}]}
        self.assertEqual(
            self.good_json("jwk", "list", "--json", text=json.dumps(keys)),
            [{"kty": "EC", "crv": "P-256", "kid": "a", "importable": False}, {"importable": False}],
        )
        self.assertEqual(self.good_json("jwk", "list", "--json", text='{"keys":[]}'), [])

    def test_of_privileges(self):
        privileges = self.good_json("privileges", "--json")
        self.assertEqual(len(privileges), 9)
        self.assertEqual(
            privileges[6],
            {"bit": 6, "mask": 64, "scope": "ravok_accessvirtualmedia", "claim": "VM"},
        )

    def test_of_certificates_and_envelopes(self):
        made = self.good_json("pki", "make", "pki", "--json", "--device", "a", warning=PKI_WARNING)
        self.assertEqual(len(made["files"]), 5)
        for name in made["files"]:
            self.assertTrue((self.directory / name).exists())
        self.assertEqual(
            self.good_json("cert", "check", "--json", "pki/a-chain.pem"),
            {"verdict": "valid", "certificates": 3, "common_name": "a"},
        )
        iv = self.good_json("ecies", "iv", "--json")["iv"]
        self.assertRegex(iv, "^[0-9A-F]{32}$")
        own = ["--key", "pki/a.key", "--peer", "pki/a.pem"]
        sealed = self.good("ecies", "seal", *own, text='"text"')
        opened = ["ecies", "open", *own, "--data-only", "--json"]
        self.assertEqual(self.good_json(*opened, text=sealed), {"text": '"text"'})
        self.install_roots()
        self.assertEqual(
            self.good_json("cert", "chain", "--json", "pki/a-chain.pem"),
            {"verdict": "valid", "certificates": 3, "chain_verified": True},
        )

    def test_of_a_handshake(self):
        keys = self.write("keys.json", self.good("handshake", "keys", "--prefix", "otp"))
        challenge = self.good("handshake", "challenge", "--type", "otp1.0", "--mode", "2")
        both = ["--challenge", self.write("challenge.json", challenge), "--keys", keys]
        response = self.good("handshake", "respond", *both)
        self.assertEqual(
            self.good_json("handshake", "check", *both, "--json", text=response),
            {"verdict": "valid", "chain_verified": False, "proofs": 1, "types": 1},
        )

    def test_of_a_member(self):
        for text, printed in (('{"a":"x\\"y"}', '"x\\"y"'), ('{"a":[1]}', "[1]")):
            self.assertEqual(self.good("json", "get", "--json", "a", text=text), printed)

    def test_changes_nothing_that_is_json_already(self):
        self.assertEqual(self.good("error", "--json", "2"), '{"error":"invalid_request"}')
