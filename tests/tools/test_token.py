# SPDX-License-Identifier: Apache-2.0
"""The verbs of token that concern tokens of the controller's own."""

import base64
import json
import re

from support import (
    EXPIRED,
    FAILURE,
    INVALID,
    SUCCESS,
    USAGE,
    ToolTest,
    altered,
    base64url,
    claims,
    part,
    signed_token,
)

REQUEST = {"client_id": "c", "client_secret": "s", "state": "xyz", "refresh_token": "r"}


def decoded(text):
    return json.loads(base64.urlsafe_b64decode(text + "=" * (-len(text) % 4)))


class Issue(ToolTest):
    def setUp(self):
        super().setUp()
        self.key()

    def issue(self, *options, request=None):
        text = json.dumps(request or REQUEST)
        return self.good_json("token", "issue", "--key", "key.pem", *options, text=text)

    def test_answers_an_authorize_request(self):
        response = self.issue("--lifetime", "600")
        self.assertEqual(
            sorted(response), ["access_token", "expires_in", "refresh_token", "state", "token_type"]
        )
        self.assertEqual(response["state"], "xyz")
        self.assertEqual(response["expires_in"], "600")
        self.assertEqual(response["token_type"], "bearer")
        self.assertEqual(len(base64.b64decode(response["refresh_token"])), 16)

    def test_writes_the_claims_that_are_asked_for(self):
        options = ["--subject", "admin", "--issuer", "bmc", "--lifetime", "600"]
        options += ["--scope", "files=read,write", "--scope", "log=read"]
        header, payload, _ = self.issue(*options)["access_token"].split(".")
        self.assertEqual(decoded(header), {"alg": "ES256", "typ": "JWT"})
        payload = decoded(payload)
        self.assertEqual((payload["sub"], payload["iss"]), ("admin", "bmc"))
        self.assertEqual(payload["scope"], {"files": ["read", "write"], "log": ["read"]})
        self.assertEqual(int(payload["exp"]) - int(payload["iat"]), 600)

    def test_has_claims_of_its_own(self):
        payload = decoded(self.issue()["access_token"].split(".")[1])
        self.assertEqual((payload["sub"], payload["iss"]), ("EC OAuth Token", "EC"))
        self.assertEqual(int(payload["exp"]) - int(payload["iat"]), 3600)
        self.assertNotIn("scope", payload)

    def test_signs_so_that_openssl_verifies(self):
        token = self.issue()["access_token"]
        text, _, signature = token.rpartition(".")
        self.write("signature", base64.urlsafe_b64decode(signature + "=" * (-len(signature) % 4)))
        self.openssl("pkey", "-in", "key.pem", "-pubout", "-out", "public.pem")
        verify = ["dgst", "-sha256", "-verify", "public.pem", "-signature", "signature"]
        self.assertEqual(self.openssl(*verify, text=text.encode()), b"Verified OK\n")

    def test_takes_a_handshake_response_for_a_refresh_token(self):
        request = {**REQUEST, "handshake_response": {"R": ["12345678"]}}
        del request["refresh_token"]
        self.assertEqual(self.issue(request=request)["state"], "xyz")

    def test_two_tokens_differ(self):
        self.assertNotEqual(self.issue()["access_token"], self.issue()["access_token"])

    def test_needs_a_key(self):
        request = self.write("request.json", REQUEST)
        self.refused(USAGE, "--key is required", "token", "issue", request)

    def test_refuses_other_keys(self):
        request = self.write("request.json", REQUEST)
        self.openssl("ecparam", "-name", "secp384r1", "-genkey", "-noout", "-out", "384.pem")
        self.write("nonsense.pem", "nonsense")
        issue = ["token", "issue", request, "--key"]
        for name in ("384.pem", "nonsense.pem"):
            self.refused(INVALID, name + " does not hold an unencrypted P-256", *issue, name)
        self.refused(FAILURE, "cannot read missing: No such file", *issue, "missing")
        self.refused(FAILURE, "cannot read .: Is a directory", *issue, ".")

    def test_refuses_an_incomplete_request(self):
        for name in REQUEST:
            request = {**REQUEST}
            del request[name]
            self.refused(
                INVALID,
                "is not an authorize request",
                *("token", "issue", "--key", "key.pem"),
                text=json.dumps(request),
            )

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "issue", "--key", "key.pem", "@")

    def test_refuses_a_malformed_scope(self):
        for scope in ("files", "=read", "files=", ""):
            self.refused(
                USAGE, "NAME=VALUE", "token", "issue", "--key", "key.pem", "--scope", scope
            )

    def test_refuses_a_lifetime_that_is_none(self):
        for lifetime in ("0", "-1", "soon", "4294967296"):
            self.refused(
                USAGE, "--lifetime", "token", "issue", "--key", "key.pem", "--lifetime", lifetime
            )


class Inspect(ToolTest):
    WARNING = "nothing was verified; anybody can write such a token"

    def inspect(self, header, payload):
        token = part(header) + "." + part(payload) + ".c2ln"
        return self.good("token", "inspect", text=token, warning=self.WARNING)

    def test_shows_header_claims_and_times(self):
        text = self.inspect(
            {"alg": "none", "typ": "JWT"},
            {"aud": ["a", "b"], "exp": "86400", "iat": 0, "nbf": "soon", "sub": "root"},
        )
        self.assertEqual(
            re.sub(r"\d+ years ago", "N years ago", text),
            "header\n"
            "  alg  none\n"
            "  typ  JWT\n"
            "claims\n"
            '  aud  ["a","b"]\n'
            "  exp  86400  (1970-01-02 00:00:00 UTC, N years ago)\n"
            "  iat  0  (1970-01-01 00:00:00 UTC, N years ago)\n"
            "  nbf  soon  (no time)\n"
            "  sub  root",
        )

    def test_shows_a_time_beyond_the_calendar(self):
        for seconds in (2**64 - 1, 2**63 - 1, str(2**64 - 1)):
            self.assertIn("(beyond the calendar)", self.inspect({}, {"exp": seconds}))
        self.assertIn("(no time)", self.inspect({}, {"exp": str(2**64)}))

    def test_takes_a_response_document(self):
        token = part({"alg": "none"}) + "." + part({"sub": "x"}) + "."
        response = json.dumps({"access_token": token})
        text = self.good("token", "inspect", text=response, warning=self.WARNING)
        self.assertIn("  sub  x", text)

    def test_keeps_a_stranger_from_the_terminal(self):
        hostile = {"\x1b[2Jname\n": "\x1b]0;pwned\x07", "list": ["\x1b[1m"], "o": {"\x9b": "\x7f"}}
        text = self.inspect(hostile, {"exp": "\x1b[2J", **hostile})
        for character in text:
            self.assertTrue(character == "\n" or " " <= character <= "~", repr(text))
        self.assertIn('\\u001b[2Jname\\n', text)

    def test_shows_no_comments(self):
        # A comment is the one place of a document where control characters are not escaped.
        payload = base64url(b'{"a":/*\x1b[2J*/["x",//\x1b[2J\n"y"]/*\x1b*/,/*\x1b*/"b":{/*\x1b*/"c":1}}')
        token = part({}) + "." + payload + "."
        text = self.good("token", "inspect", text=token, warning=self.WARNING)
        self.assertEqual(text, 'header\nclaims\n  a  ["x","y"]\n  b  {"c":1}')

    def test_refuses_what_is_no_token(self):
        good = part({})
        self.refused(INVALID, "two dots", "token", "inspect", text=good + "." + good)
        self.refused(INVALID, "header.*Base64url", "token", "inspect", text="*." + good + ".")
        self.refused(INVALID, "payload.*Base64url", "token", "inspect", text=good + ".*.")
        self.refused(INVALID, "payload.*JSON", "token", "inspect", text=good + "." + good[:2] + ".")
        self.refused(INVALID, "header.*JSON", "token", "inspect", text=part([]) + "." + good + ".")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "inspect", "@")


class Verify(ToolTest):
    def setUp(self):
        super().setUp()
        self.key()

    def verify(self, token, status=SUCCESS, pattern=None):
        arguments = ["token", "verify", "--key", "key.pem"]
        if status == SUCCESS:
            return self.good_json(*arguments, text=token)
        self.refused(status, pattern, *arguments, text=token)
        return None

    def test_accepts_what_issue_made(self):
        issue = ["token", "issue", "--key", "key.pem", "--subject", "root", "--scope", "a=b"]
        response = self.good(*issue, text=json.dumps(REQUEST))
        for text in (response, json.loads(response)["access_token"]):
            payload = self.verify(text)
            self.assertEqual((payload["sub"], payload["scope"]), ("root", {"a": ["b"]}))

    def test_accepts_a_token_that_openssl_signed(self):
        payload = claims()
        self.assertEqual(self.verify(signed_token(self, "key.pem", payload)), payload)

    def test_prints_the_claims_in_one_line(self):
        token = signed_token(self, "key.pem", claims())
        self.assertNotIn("\n", self.good("token", "verify", "--key", "key.pem", text=token + "\n"))

    def refuses(self, rule, token, **members):
        self.refused_by(rule, "token", "verify", "--key", "key.pem", text=token, **members)

    def test_refuses_an_altered_token(self):
        token = signed_token(self, "key.pem", claims())
        self.verify(token)
        self.verify(altered(token, 1), INVALID, ": (json|token)")
        self.refuses("token.signature", altered(token, 2))

    def test_refuses_the_token_of_another_key(self):
        self.key("other.pem")
        self.refuses("token.signature", signed_token(self, "other.pem", claims()))

    def test_refuses_an_expired_token_with_a_status_of_its_own(self):
        payload = claims(-600, -1)
        token = signed_token(self, "key.pem", payload)
        seen = {"subject": "exp", "saw": payload["exp"], "wanted": r"above \d+"}
        self.refuses("token.expired", token, status=EXPIRED, **seen)

    def test_refuses_a_token_that_is_not_valid_yet(self):
        payload = claims(300, 600)
        token = signed_token(self, "key.pem", payload)
        self.refuses("token.not-yet-valid", token, subject="nbf", saw=payload["nbf"])

    def test_names_the_member_that_is_none(self):
        for payload, subject in (
            ({"sub": "s"}, "jti"),
            (claims(exp=4000000000), "exp"),
            (claims(sub=None), "sub"),
        ):
            self.refuses("token.member", signed_token(self, "key.pem", payload), subject=subject)
        self.refuses("token.scope", signed_token(self, "key.pem", claims(scope="read")))

    def test_keeps_a_stranger_from_the_terminal(self):
        payload = claims(exp="\x1b[2J" + "5" * 5000)
        outcome = self.tool("token", "verify", "--key", "key.pem", text=signed_token(self, "key.pem", payload))
        self.assertEqual(outcome.status, EXPIRED)
        self.assertNotIn(b"\x1b", outcome.err)
        self.assertLess(len(outcome.err), 500)

    def test_refuses_what_is_no_token(self):
        for text in ("x", "{}", "a.b"):
            self.refuses("token.parts", text)
        for text in ("..", "." * 100000):
            self.refuses("base64.malformed", text, subject="header")
        self.refuses("json.syntax", base64url(b"nonsense") + ".b.c", subject="header")

    def test_needs_a_key(self):
        self.refused(USAGE, "--key is required", "token", "verify", text="a.b.c")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("token", "verify", "--key", "key.pem", "@")
