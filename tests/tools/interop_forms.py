# SPDX-License-Identifier: Apache-2.0
"""Keys and tokens that the command converts, as jwcrypto sees them.

jwcrypto is an independent implementation of JSON Object Signing and Encryption.
The first argument is the command.
"""

import json
import os
import pathlib
import shlex
import sys
import time
import unittest

sys.dont_write_bytecode = True

import support  # noqa: E402
from support import ToolTest  # noqa: E402

from jwcrypto.jwk import JWK  # noqa: E402
from jwcrypto.jws import JWS  # noqa: E402

support.TOOL = [
    *shlex.split(os.environ.get("MESON_EXE_WRAPPER", "")),
    str(pathlib.Path(sys.argv.pop(1)).resolve()),
]

ALGORITHMS = {"ES256": "P-256", "ES384": "P-384", "ES512": "P-521"}
REQUEST = {"client_id": "c", "client_secret": "s", "state": "x", "refresh_token": "r"}


def jws(token):
    signed = JWS()
    signed.deserialize(token)
    return signed


class Tokens(ToolTest):
    def test_a_token_of_ours_verifies_in_raw_form(self):
        self.key()
        response = self.good("token", "issue", "--key", "key.pem", text=json.dumps(REQUEST))
        raw = self.good("token", "convert", "--to", "raw", text=response)
        public = JWK.from_json(self.good("key", "convert", "--to", "jwk", "--public", "key.pem"))
        signed = jws(raw)
        signed.verify(public)
        self.assertEqual(json.loads(signed.payload)["iss"], "EC")

    def test_a_foreign_token_goes_to_der_and_back(self):
        now = int(time.time())
        times = {"iat": str(now), "nbf": str(now - 60), "exp": str(now + 600)}
        for algorithm, curve in ALGORITHMS.items():
            with self.subTest(algorithm):
                key = JWK.generate(kty="EC", crv=curve)
                self.write("key.jwk", key.export_private(as_dict=True))
                signed = JWS(json.dumps({"sub": "s", "iss": "i", "jti": "j", **times}))
                header = json.dumps({"alg": algorithm, "typ": "JWT"})
                signed.add_signature(key, None, header)
                raw = signed.serialize(compact=True)
                der = self.good("token", "convert", "--to", "der", text=raw)
                self.assertEqual(self.good("token", "convert", "--to", "raw", text=der), raw)
                self.good("key", "convert", "--to", "pem", "--force", "--out", "key.pem", "key.jwk")
                if algorithm == "ES256":
                    self.good("token", "verify", "--key", "key.pem", text=der)
                for token in (raw, der):
                    # The delegated path takes both forms.
                    judged = self.good_json(
                        "token", "delegated", "--trust", "key.jwk", text=token
                    )
                    self.assertEqual(judged["verdict"], "valid")


class Keys(ToolTest):
    def test_both_read_what_the_other_wrote(self):
        for options in ({"kty": "RSA", "size": 2048}, *({"kty": "EC", "crv": c} for c in ALGORITHMS.values())):
            with self.subTest(options):
                key = JWK.generate(**options)
                self.write("key.jwk", key.export_private(as_dict=True))
                self.write("key.pem", key.export_to_pem(private_key=True, password=None))
                for name in ("key.jwk", "key.pem"):
                    self.assertEqual(self.good("key", "thumbprint", name), key.thumbprint())
                    private = self.good_json("key", "convert", "--to", "jwk", name)
                    self.assertEqual(private, key.export_private(as_dict=True))
                    public = self.good_json("key", "convert", "--to", "jwk", "--public", name)
                    self.assertEqual(public, key.export_public(as_dict=True))
                    pem = self.good("key", "convert", "--to", "pem", name) + "\n"
                    read = JWK.from_pem(pem.encode())
                    self.assertEqual(read.thumbprint(), key.thumbprint())
                    self.assertTrue(read.has_private)


if __name__ == "__main__":
    unittest.main()
