#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A controller's client in another language: what docs/wire-formats.md describes, in Python.

Needs the module "cryptography" (package python3-cryptography) and nothing of this library. Take
from it what you need; its commands try it against a controller, or the command "bmcoauth"."""
import argparse
import base64
import hashlib
import hmac
import json
import re
import secrets
import sys
import time

from cryptography import x509
from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives import hashes, padding, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.asymmetric.utils import decode_dss_signature
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

CERTIFICATE_PROOF = "software_id_cert-1.0"
ECDSA_SHA256 = ec.ECDSA(hashes.SHA256())


class Refused(Exception):
    """Something that the controller has sent, or a peer, is not to be trusted."""


def encode(octets):
    return base64.urlsafe_b64encode(octets).rstrip(b"=").decode()


def decode(text):
    """Base64url without padding, and what is taken beside it: padding, the standard alphabet."""
    text = text.replace("\n", "").replace("-", "+").replace("_", "/")
    if not text:
        raise Refused("an empty text")
    if not text.endswith("="):
        text += "=" * (-len(text) % 4)
    try:
        return base64.b64decode(text, validate=True)
    except ValueError as error:
        raise Refused("no Base64url") from error


def written(document):
    return json.dumps(document, separators=(",", ":"), sort_keys=True)


# -- Registration ------------------------------------------------------------------------------


def certificate_key(pem):
    """The certificates of a PEM chain, in its order: device, intermediates, device."""
    form = b"-----BEGIN CERTIFICATE-----.+?-----END CERTIFICATE-----"
    chain = [x509.load_pem_x509_certificate(one) for one in re.findall(form, pem, re.DOTALL)]
    bodies = [base64.b64encode(one.public_bytes(serialization.Encoding.DER)) for one in chain]
    return {"alg": "ES-256", "kty": "EC", "x5c": [body.decode() for body in bodies]}


def first_certificate(key):
    return x509.load_der_x509_certificate(base64.b64decode(key["x5c"][0]))


def parameter(parameters, name):
    """The values of a challenge's parameter, whether it has one or several."""
    for other, value in parameters.items():
        if other.lower() == name.lower():
            return value if isinstance(value, list) else [value]
    return []


def number(parameters, name):
    text = "".join(parameter(parameters, name))
    if not (text.isascii() and text.isdigit() and 0 < int(text) < 2**63):
        raise Refused(f"{name} is no number")
    return int(text)


def one_time_password(secret, counter):
    """HOTP (RFC 4226) with 8 digits. The key is the text of the secret: nothing is decoded."""
    mac = hmac.digest(secret.encode(), counter.to_bytes(8, "big"), "sha1")
    offset = mac[-1] & 15
    return "%08d" % ((int.from_bytes(mac[offset : offset + 4], "big") & 0x7FFFFFFF) % 10**8)


def password(kind, keys, numbers):
    """What the challenge asks for: `M` chooses among the secrets of the type, `C` counts."""
    chosen = keys.get(kind)
    if not chosen:
        raise Refused(f"no secret for {kind}")
    return one_time_password(chosen[number(numbers, "M") % len(chosen)], number(numbers, "C"))


def proof_text(challenge, certificate):
    """What the certificate proof signs: the text of V as it stands, and the common name."""
    name = first_certificate(certificate).subject.get_attributes_for_oid(x509.NameOID.COMMON_NAME)
    return "".join(parameter(challenge, "V")).encode() + b":" + name[0].value.encode()[:24]


def respond(challenge, keys=None, certificate=None, key=None):
    """The handshake response to a challenge: one proof for each of its types. Answer a controller
    that you know, over TLS: whoever gets the proofs can hand them on."""
    response = {"R": []}
    numbers = challenge
    if not any(parameter(challenge, name) for name in "MCV"):
        response |= {name: str(secrets.randbelow(2**63 - 1) + 1) for name in "MC"}
        numbers = response
    for kind in parameter(challenge, "T"):
        if kind == CERTIFICATE_PROOF:
            signature = key.sign(proof_text(challenge, certificate), ECDSA_SHA256)
            response["R"].append(encode(signature))
        else:
            response["R"].append(password(kind, keys, numbers))
    return response


# -- Tokens ------------------------------------------------------------------------------------


def parts(token):
    """Header, claims, signature and what is signed."""
    texts = token.split(".")
    if len(texts) != 3:
        raise Refused("not three parts")
    try:
        header, claims = json.loads(decode(texts[0])), json.loads(decode(texts[1]))
    except ValueError as error:
        raise Refused("no JSON") from error
    return header, claims, texts[2], ".".join(texts[:2]).encode()


def seconds(text):
    """Times are strings here: decimal, hexadecimal (0x...) or octal (0...)."""
    octal = len(text) > 1 and text[0] == "0" and text[1] in "01234567"
    return int(text, 8 if octal else 0)


def verify_access_token(token, public_key, now=None):
    """The claims of a token that the controller has issued. Its signature is in DER form."""
    header, claims, signature, signed = parts(token)
    needed = [claims.get(name) for name in ("sub", "iss", "jti", "iat", "nbf", "exp")]
    if not all(isinstance(value, str) for value in [header.get("alg"), header.get("typ"), *needed]):
        raise Refused("something is missing, or no string")
    scope = claims.get("scope", {"": []})
    if not (isinstance(scope, dict) and scope and all(isinstance(v, list) for v in scope.values())):
        raise Refused("scope is no object of arrays")
    try:
        public_key.verify(decode(signature), signed, ECDSA_SHA256)
    except InvalidSignature as error:
        raise Refused("the signature is wrong") from error
    now = int(time.time()) if now is None else now
    if not seconds(claims["nbf"]) <= now < seconds(claims["exp"]):
        raise Refused("not yet valid, or not any more")
    return claims


def public_jwk(key, kid):
    """What an issuer publishes, and the controller imports once when it begins to trust it."""
    point = key.public_key().public_numbers()
    x, y = (encode(number.to_bytes(32, "big")) for number in (point.x, point.y))
    return {"alg": "ES256", "crv": "P-256", "kid": kid, "kty": "EC", "x": x, "y": y}


def delegated_token(claims, key, kid):
    """A token of an issuer that the controller trusts: a JWT as everybody makes them."""
    header = {"alg": "ES256", "kid": kid, "typ": "JWT"}
    signed = ".".join(encode(written(part).encode()) for part in (header, claims))
    r, s = decode_dss_signature(key.sign(signed.encode(), ECDSA_SHA256))
    return signed + "." + encode(r.to_bytes(32, "big") + s.to_bytes(32, "big"))


# -- Envelopes ---------------------------------------------------------------------------------


def key_material(key, peer):
    """16 bytes for AES and 16 for HMAC: the same for both sides."""
    return hashlib.sha256(key.exchange(ec.ECDH(), peer.public_key())).digest()


def decrypted(material, body, iv):
    cipher = Cipher(algorithms.AES(material[:16]), modes.CBC(iv)).decryptor()
    unpadder = padding.PKCS7(128).unpadder()
    return unpadder.update(cipher.update(body) + cipher.finalize()) + unpadder.finalize()


def data_of(plaintext):
    """What was sealed: a line feed and 16 random characters follow it, and at times a zero byte."""
    text = plaintext.removesuffix(b"\0")
    if len(text) < 17 or b"\0" in text or text[-17:-16] != b"\n":
        raise Refused("no data")
    return text[:-17]


def open_envelope(ciphertext, mac, iv, key, peer):
    """The data of an envelope that `peer`, a certificate, has sealed for `key`. A MAC or an IV that
    is missing is refused."""
    if not mac or not iv or not re.fullmatch("[0-9A-Fa-f]{32}", iv):
        raise Refused("no MAC, or no IV of 32 hexadecimal digits")
    material, body = key_material(key, peer), decode(ciphertext)
    if not hmac.compare_digest(hmac.digest(material[16:], body, "sha256"), decode(mac)):
        raise Refused("the MAC is wrong")
    return data_of(decrypted(material, body, bytes.fromhex(iv)))


# -- On the command line -----------------------------------------------------------------------


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def private_key(path):
    return serialization.load_pem_private_key(contents(path), None)


def main():
    parser = argparse.ArgumentParser(description="a client of a controller")
    verbs = parser.add_subparsers(dest="verb", required=True)
    verb = verbs.add_parser("request", help="a register request")
    verb.add_argument("--certificate", help="PEM chain: device, intermediates, device")
    verb = verbs.add_parser("authorize", help="the authorize request to a register response")
    verb.add_argument("--keys", help="key document with the secrets of one-time passwords")
    verb.add_argument("--certificate", help="PEM chain")
    verb.add_argument("--key", help="its private key")
    verb = verbs.add_parser("verify", help="the claims of the token in an authorize response")
    verb.add_argument("--public", required=True, help="the controller's public key, PEM")
    verb = verbs.add_parser("delegated", help="a token with the claims on standard input")
    verb.add_argument("--key", required=True, help="the issuer's private key")
    verb = verbs.add_parser("jwk", help="the issuer's public key as it is published")
    verb.add_argument("--key", required=True)
    verb = verbs.add_parser("open", help="the data of an envelope")
    verb.add_argument("--key", required=True)
    verb.add_argument("--peer", required=True, help="certificate of the one who sealed it")
    given = parser.parse_args()

    document = {} if given.verb in ("request", "jwk") else json.load(sys.stdin)
    chain = certificate_key(contents(given.certificate)) if vars(given).get("certificate") else None
    key = private_key(given.key) if vars(given).get("key") else None
    if given.verb == "request":
        request = {"client_name": "a client in Python", "software_id": "python-1"}
        request["redirect_uri"] = ["https://client.example/callback"]
        request["handshake_types"] = ["otp1.0"]
        if chain:
            request["handshake_types"].append(CERTIFICATE_PROOF)
            request["jwks"] = {"software_id_cert": [chain]}
        print(written(request))
    elif given.verb == "authorize":
        keys = json.loads(contents(given.keys)) if given.keys else None
        request = {name: document[name] for name in ("client_id", "client_secret")}
        request["state"] = secrets.token_urlsafe(16)
        request["handshake_response"] = respond(document["handshake_challenge"], keys, chain, key)
        print(written(request))
    elif given.verb == "verify":
        public = serialization.load_pem_public_key(contents(given.public))
        print(written(verify_access_token(document["access_token"], public)))
    elif given.verb == "delegated":
        print(delegated_token(document, key, "python-1"))
    elif given.verb == "jwk":
        print(written(public_jwk(key, "python-1")))
    else:
        peer = x509.load_pem_x509_certificate(contents(given.peer))
        names = [document[name] for name in ("ciphertext", "mac", "iv")]
        sys.stdout.buffer.write(open_envelope(*names, key, peer))


if __name__ == "__main__":
    try:
        main()
    except (Refused, OSError, ValueError, LookupError) as problem:
        sys.exit(f"client.py: {problem!r}" if isinstance(problem, LookupError) else f"client.py: {problem}")
