# SPDX-License-Identifier: Apache-2.0
"""The verbs of jwk, and privileges."""

import json

from support import ToolTest

# RFC 7517, appendix A.1: an EC and an RSA key.
EC = {
    "kty": "EC",
    "crv": "P-256",
    "x": "MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",
    "y": "4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM",
    "use": "enc",
    "kid": "1",
}
RSA = {
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


class Import(ToolTest):
    def test_adds_a_key_that_openssl_reads(self):
        for key in (EC, RSA):
            imported = self.good_json("jwk", "import", text=json.dumps(key))
            pem = imported.pop("kest_decoded_key")
            self.assertEqual(imported, key)
            self.write("key.pem", pem + "\n")
            text = self.openssl("pkey", "-pubin", "-in", "key.pem", "-noout", "-text")
            self.assertIn(b"prime256v1" if key is EC else b"Public-Key: (2048 bit)", text)

    def test_refuses_a_key_that_is_none(self):
        for key, rule in (
            ({**EC, "kty": "oct"}, "jwk.kind"),
            ({**EC, "y": EC["x"]}, "jwk.point"),
            ({**RSA, "n": None}, "jwk.number"),
            ({}, "jwk.kind"),
        ):
            self.refused_by(rule, "jwk", "import", text=json.dumps(key))

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("jwk", "import", "@")


class List(ToolTest):
    def test_lists_a_set(self):
        keys = {"keys": [EC, RSA, {"kty": "oct", "k": "eA"}, 7, {**EC, "x": "AA", "kid": "\x1b[2J"}]}
        self.assertEqual(
            self.good("jwk", "list", text=json.dumps(keys)).split("\n"),
            [
                "kty  kid          alg    crv    can be imported",
                "EC   1            -      P-256  yes",
                "RSA  2011-04-29   RS256  -      yes",
                "oct  -            -      -      no",
                'EC   "\\u001b[2J"  -      P-256  no',
            ],
        )

    def test_lists_a_single_key(self):
        self.assertEqual(
            self.good("jwk", "list", text=json.dumps(EC)),
            "kty  kid  alg  crv    can be imported\nEC   1    -    P-256  yes",
        )

    def test_lists_an_empty_set(self):
        self.assertEqual(self.good("jwk", "list", text='{"keys":[]}'), "kty  kid  alg  crv  can be imported")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("jwk", "list", "@")


class Privileges(ToolTest):
    def test_lists_nine_privileges(self):
        lines = [line.split() for line in self.good("privileges").split("\n")[1:]]
        self.assertEqual(len(lines), 9)
        self.assertEqual(lines[0], ["0", "0x001", "ravok_login", "L"])
        self.assertEqual(lines[8], ["8", "0x100", "ravok_executediagnosticcommands", "DC"])
