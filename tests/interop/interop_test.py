# SPDX-License-Identifier: Apache-2.0
"""Tokens and keys between the library and jwcrypto, in both directions.

jwcrypto is an independent implementation of JSON Object Signing and Encryption.
The first argument is the program that speaks for the library.
"""

import base64
import json
import os
import shlex
import subprocess
import sys
import time
import unittest

from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric.utils import decode_dss_signature
from jwcrypto.jwk import JWK
from jwcrypto.jws import JWS, InvalidJWSSignature

# Built for another machine, the program runs under an emulator that Meson names.
PEER = [*shlex.split(os.environ.get("MESON_EXE_WRAPPER", "")), sys.argv.pop(1)]

KEYS = {
    "RSA": JWK.generate(kty="RSA", size=2048, kid="rsa"),
    "P-256": JWK.generate(kty="EC", crv="P-256", kid="p256"),
    "P-384": JWK.generate(kty="EC", crv="P-384", kid="p384"),
    "P-521": JWK.generate(kty="EC", crv="P-521", kid="p521"),
}
OTHERS = {
    "RSA": JWK.generate(kty="RSA", size=2048, kid="rsa"),
    "P-256": JWK.generate(kty="EC", crv="P-256", kid="p256"),
    "P-384": JWK.generate(kty="EC", crv="P-384", kid="p384"),
    "P-521": JWK.generate(kty="EC", crv="P-521", kid="p521"),
}
ALGORITHMS = {
    "RS256": "RSA",
    "RS384": "RSA",
    "RS512": "RSA",
    "PS256": "RSA",
    "PS384": "RSA",
    "PS512": "RSA",
    "ES256": "P-256",
    "ES384": "P-384",
    "ES512": "P-521",
}


def ask(*arguments):
    """What the library answers."""
    done = subprocess.run([*PEER, *arguments], check=True, stdout=subprocess.PIPE, timeout=60)
    return json.loads(done.stdout)


def pem(key):
    return key.export_to_pem().decode()


def published(key, **members):
    """The JWK as others see it, with other members where they are given; None takes one out."""
    document = {**json.loads(key.export_public()), **members}
    return json.dumps({name: value for name, value in document.items() if value is not None})


def token(algorithm, key, header=None, **claims):
    """A token that jwcrypto signs, valid for an hour unless the claims say otherwise."""
    now = int(time.time())
    signed = JWS(
        json.dumps(
            {
                "sub": "Zoë",
                "scope": "ravok_login ravok_clearlogs",
                "nbf": now - 60,
                "exp": now + 3600,
            }
            | claims
        )
    )
    protected = {"alg": algorithm, "typ": "JWT"} | (header or {})
    signed.add_signature(key, protected=json.dumps(protected))
    return signed.serialize(compact=True)


class TheirTokens(unittest.TestCase):
    """The library judges what jwcrypto signs."""

    def test_each_algorithm_with_each_form_of_key(self):
        for algorithm, kind in ALGORITHMS.items():
            key, other = KEYS[kind], OTHERS[kind]
            signed = token(algorithm, key)
            by_id = token(algorithm, key, {"kid": key.key_id})
            for form, text, key_text, other_text in (
                ("PEM", signed, pem(key), pem(other)),
                ("JWK by type", signed, published(key), published(other)),
                ("JWK by id", by_id, published(key, alg="x"), published(other, alg="x")),
                (
                    "JWK by algorithm",
                    signed,
                    published(key, alg=algorithm),
                    published(other, alg=algorithm),
                ),
            ):
                with self.subTest(algorithm=algorithm, form=form):
                    self.assertEqual(
                        ask("check", text, key_text),
                        {
                            "verdict": 1,
                            "verified": 1,
                            "AUTHNZ_USER": "Zoë",
                            "USER_PRIV": "9",
                            "singleUse": "false",
                        },
                    )
                    refused = ask("check", text, other_text)
                    self.assertEqual((refused["verdict"], refused["verified"]), (0, 0))
                    both = ask("check", text, other_text, key_text)
                    self.assertEqual((both["verdict"], both["verified"]), (1, 1))

    def test_rsa_keys_as_pkcs1(self):
        key = KEYS["RSA"]
        text = (
            key.get_op_key("verify")
            .public_bytes(serialization.Encoding.PEM, serialization.PublicFormat.PKCS1)
            .decode()
        )
        self.assertIn("BEGIN RSA PUBLIC KEY", text)
        self.assertEqual(ask("check", token("RS256", key), text)["verdict"], 1)
        self.assertEqual(ask("check", token("PS512", key), text)["verdict"], 1)

    def test_changed_tokens(self):
        for algorithm, kind in ALGORITHMS.items():
            with self.subTest(algorithm=algorithm):
                key = KEYS[kind]
                parts = token(algorithm, key).split(".")
                others = token(algorithm, key, {"kid": "x"}, sub="root").split(".")
                for i in range(3):
                    changed = parts[:i] + others[i : i + 1] + parts[i + 1 :]
                    answer = ask("check", ".".join(changed), pem(key))
                    self.assertEqual((answer["verdict"], answer["verified"]), (0, 0))
                self.assertEqual(ask("check", ".".join(parts), pem(key))["verdict"], 1)

    def test_period_of_validity(self):
        now = int(time.time())
        key = KEYS["P-256"]
        for claims, verdict in (
            ({"exp": now - 60}, 2),
            ({"exp": str(now + 60)}, 1),
            ({"exp": str(now - 60)}, 2),
            ({"nbf": now + 600}, 0),
            ({"nbf": None}, 1),
            ({"exp": None}, 0),
        ):
            with self.subTest(claims=claims):
                answer = ask("check", token("ES256", key, **claims), pem(key))
                self.assertEqual((answer["verdict"], answer["verified"]), (verdict, 1))

    def test_mac_with_a_public_key(self):
        for kind in ("RSA", "P-256"):
            with self.subTest(kind=kind):
                key = KEYS[kind]
                secret = base64.urlsafe_b64encode(pem(key).encode()).decode().rstrip("=")
                forged = token("HS256", JWK(kty="oct", k=secret), {"kid": key.key_id})
                answer = ask("check", forged, pem(key), published(key))
                self.assertEqual((answer["verdict"], answer["verified"]), (0, 0))

    def test_secrets_are_no_keys(self):
        key = KEYS["P-256"]
        signed = token("ES256", key, {"kid": "k"})
        private = key.export_to_pem(private_key=True, password=None).decode()
        self.assertEqual(ask("check", signed, private)["verdict"], 0)
        secret = JWK(kty="oct", k="AAAA", kid="k").export()
        self.assertEqual(ask("check", signed, secret)["verdict"], 0)


def base64url(data):
    return base64.urlsafe_b64encode(data).decode().rstrip("=")


class OurTokens(unittest.TestCase):
    """jwcrypto judges what the library issues, once the signature is in the form it knows."""

    def issue(self, algorithm="ES256", subject="Zoë"):
        answer = ask("issue", algorithm, subject)
        self.assertEqual(answer["verdict"], 1)
        point = base64.b64decode(answer["point"])
        self.assertEqual((len(point), point[0]), (65, 4))
        key = JWK(kty="EC", crv="P-256", x=base64url(point[1:33]), y=base64url(point[33:]))
        header, payload, signature = answer["token"].split(".")
        self.assertNotIn("=", signature)
        der = base64.urlsafe_b64decode(signature + "=" * (-len(signature) % 4))
        r, s = decode_dss_signature(der)
        raw = base64url(r.to_bytes(32, "big") + s.to_bytes(32, "big"))
        return answer["token"], f"{header}.{payload}.{raw}", key

    def test_jwcrypto_accepts_them(self):
        for subject in ("Zoë", "", 'quoted "subject"', "\\"):
            with self.subTest(subject=subject):
                _, standard, key = self.issue(subject=subject)
                parsed = JWS()
                parsed.deserialize(standard, key)
                self.assertEqual(
                    parsed.jose_header, {"alg": "ES256", "kid": "service", "typ": "JWT"}
                )
                claims = json.loads(parsed.payload)
                self.assertEqual(claims["sub"], subject)
                self.assertEqual(
                    (claims["jti"], claims["iss"], claims["exp"]), ("id", "issuer", "4102444800")
                )
                self.assertEqual(claims["iat"], claims["nbf"])
                self.assertLess(abs(int(claims["iat"]) - time.time()), 60)

    def test_jwcrypto_refuses_them_under_another_key(self):
        _, standard, _ = self.issue()
        with self.assertRaises(InvalidJWSSignature):
            JWS().deserialize(standard, KEYS["P-256"])

    def test_the_delegated_check_takes_both_forms(self):
        ours, standard, key = self.issue()
        for text in (ours, standard):
            for key_text in (pem(key), published(key)):
                answer = ask("check", text, key_text)
                self.assertEqual((answer["verdict"], answer["verified"]), (1, 1))
                self.assertEqual(answer["AUTHNZ_USER"], "Zoë")
            self.assertEqual(ask("check", text, pem(KEYS["P-256"]))["verdict"], 0)


if __name__ == "__main__":
    unittest.main()
