# SPDX-License-Identifier: Apache-2.0
"""A client of a controller without this library, as docs/wire-formats.md describes it.

Needs Python 3.9 and its module "cryptography" (package python3-cryptography). `Client` registers,
proves itself and refreshes its tokens; a function of yours carries the documents. The parts can be
used alone: handshake, tokens, envelopes.

Raises `Refused` for whatever a peer sends that is malformed or must not be trusted."""
from __future__ import annotations

import base64
import hashlib
import hmac
import json
import os
import re
import secrets
import time
from contextlib import contextmanager
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Iterator, List, Optional, Tuple, Union

from cryptography import x509
from cryptography.exceptions import InvalidSignature, UnsupportedAlgorithm
from cryptography.hazmat.primitives import hashes, padding, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

Json = Dict[str, Any]
PrivateKey = ec.EllipticCurvePrivateKey

CERTIFICATE_PROOF = "software_id_cert-1.0"
ECDSA_SHA256 = ec.ECDSA(hashes.SHA256())
MALFORMED = (ValueError, LookupError, TypeError, RecursionError, UnsupportedAlgorithm, x509.InvalidVersion)
TOKEN_ANSWER = ("access_token", "expires_in", "refresh_token", "state", "token_type")


class Refused(Exception):
    """A document, token, proof or envelope is malformed or must not be trusted."""


class Failed(Exception):
    """The controller has answered with an error document, whose `error` this is."""


@contextmanager
def refusing(what: str) -> Iterator[None]:
    """Refuses what the modules below cannot read."""
    try:
        yield
    except MALFORMED as error:
        raise Refused(what) from error


# -- Documents ---------------------------------------------------------------------------------

def encode(octets: bytes) -> str:
    return base64.urlsafe_b64encode(octets).rstrip(b"=").decode()


@refusing("not Base64url")
def decode(text: str) -> bytes:
    """Base64url without padding. Also accepts padding, line feeds and the standard alphabet."""
    text = text.replace("\n", "").replace("-", "+").replace("_", "/")
    if not text:
        raise Refused("an empty text")
    missing = "" if text.endswith("=") else "=" * (-len(text) % 4)
    return base64.b64decode(text + missing, validate=True)


def written(document: Json) -> str:
    return json.dumps(document, separators=(",", ":"), sort_keys=True)


def read(text: Union[str, bytes]) -> Json:
    with refusing("not JSON"):
        document = json.loads(text)
    if not isinstance(document, dict):
        raise Refused("not a JSON object")
    return document


def string(document: Json, name: str) -> str:
    value = document.get(name)
    if not isinstance(value, str):
        raise Refused(f"{name} is missing or not a string")
    return value


def is_texts(value: Any) -> bool:
    return isinstance(value, list) and all(isinstance(one, str) for one in value)


def parameter(parameters: Any, name: str) -> List[str]:
    """The values of a parameter, whether it has one or several; none if it is absent."""
    if not isinstance(parameters, dict):
        raise Refused(f"no parameters, among them {name}")
    for other, value in parameters.items():
        if other.lower() == name.lower():
            values = value if isinstance(value, list) else [value]
            if not is_texts(values):
                raise Refused(f"{name} is not a string or a list of strings")
            return values
    return []


def first(parameters: Json, name: str) -> str:
    return (parameter(parameters, name) or [""])[0]


# -- Certificates ------------------------------------------------------------------------------

@dataclass(frozen=True)
class Identity:
    """What the client proves with its certificate: the certificate key, and the private key."""

    certificate: Json
    key: PrivateKey


def certificate_key(pem: bytes) -> Json:
    """The certificates of a PEM chain, in its order: device, intermediates, device."""
    form = b"-----BEGIN CERTIFICATE-----.+?-----END CERTIFICATE-----"
    with refusing("not a certificate in PEM form"):
        chain = [x509.load_pem_x509_certificate(one) for one in re.findall(form, pem, re.DOTALL)]
    bodies = [base64.b64encode(one.public_bytes(serialization.Encoding.DER)) for one in chain]
    return {"alg": "ES-256", "kty": "EC", "x5c": [body.decode() for body in bodies]}


@refusing("not a certificate key")
def first_certificate(key: Json) -> x509.Certificate:
    certificate = x509.load_der_x509_certificate(base64.b64decode(key["x5c"][0]))
    _ = certificate.subject  # which is parsed only now
    return certificate


def key_of(certificate: x509.Certificate) -> ec.EllipticCurvePublicKey:
    with refusing("the certificate's key cannot be read"):
        key = certificate.public_key()
    if not isinstance(key, ec.EllipticCurvePublicKey) or not isinstance(key.curve, ec.SECP256R1):
        raise Refused("the certificate's key is not on P-256")
    return key


# -- Handshake ---------------------------------------------------------------------------------

def number(parameters: Json, name: str) -> int:
    text = first(parameters, name)
    if not re.fullmatch("[0-9]{1,19}", text) or not 0 < int(text) < 2**63:
        raise Refused(f"{name} is not a number from 1 to 2^63 - 1")
    return int(text)


def one_time_password(secret: str, counter: int) -> str:
    """HOTP (RFC 4226) with 8 digits. The key is the text of the secret: nothing is decoded."""
    mac = hmac.digest(secret.encode(), counter.to_bytes(8, "big"), "sha1")
    offset = mac[-1] & 15
    return "%08d" % ((int.from_bytes(mac[offset : offset + 4], "big") & 0x7FFFFFFF) % 10**8)


def password(kind: str, keys: Json, numbers: Json) -> str:
    """`M` selects one of the secrets of this type, `C` is the counter."""
    chosen = keys.get(kind)
    if not chosen:
        raise Refused(f"no secret for {kind}")
    return one_time_password(chosen[number(numbers, "M") % len(chosen)], number(numbers, "C"))


def numbers_of(challenge: Json, response: Json) -> Json:
    """Where `M` and `C` are. Whoever answers a challenge without these and `V` draws them."""
    return challenge if any(parameter(challenge, name) for name in "MCV") else response


def proof_text(challenge: Json, certificate: Json) -> bytes:
    """What the certificate proof signs: the text of V, not decoded, and the common name."""
    name = first_certificate(certificate).subject.get_attributes_for_oid(x509.NameOID.COMMON_NAME)
    if not name or not first(challenge, "V").isascii():
        raise Refused("no common name in the certificate, or no V in the challenge")
    return first(challenge, "V").encode() + b":" + str(name[0].value).encode()[:24]


def respond(challenge: Json, keys: Json, identity: Optional[Identity] = None) -> Json:
    """The response to a challenge: one proof for each of its types. Answer only a controller that
    you know, over TLS: whoever gets the proofs can hand them on."""
    drawn = {name: str(secrets.randbelow(2**63 - 1) + 1) for name in "MC"}
    numbers = numbers_of(challenge, drawn)
    proofs = []
    for kind in parameter(challenge, "T"):
        if kind != CERTIFICATE_PROOF:
            proofs.append(password(kind, keys, numbers))
        elif identity:
            text = proof_text(challenge, identity.certificate)
            proofs.append(encode(identity.key.sign(text, ECDSA_SHA256)))
        else:
            raise Refused("the challenge asks for a certificate proof")
    if not proofs:
        raise Refused("the challenge asks for nothing")
    return {"R": proofs, **(drawn if numbers is drawn else {})}


def check_answer(challenge: Json, response: Json, keys: Json) -> None:
    """The controller's answer to the client's own challenge, which asks for passwords alone. An
    eavesdropper can repeat a password: only TLS says which controller answers now."""
    numbers = numbers_of(challenge, response)
    wanted = [password(kind, keys, numbers) for kind in parameter(challenge, "T")]
    if not wanted or parameter(response, "R") != wanted:
        raise Refused("the controller has not proved itself")


# -- Registration and tokens -------------------------------------------------------------------

@dataclass
class Client:
    """One registration with one controller. `send` takes "register" or "authorize" and the text of
    the request, and returns the text of the answer, also if that is an error document."""

    send: Callable[[str, str], str]
    keys: Json = field(default_factory=dict)  # the key document
    identity: Optional[Identity] = None
    registered: Json = field(default_factory=dict)  # the register response; it holds a secret
    refresh_token: str = ""  # each answer brings a new one

    def ask(self, what: str, request: Json) -> Json:
        answer = read(self.send(what, written(request)))
        if "error" in answer:
            raise Failed(string(answer, "error"))
        return answer

    def register(self, request: Json) -> None:
        """Registers with a request of `register_request`."""
        answer = self.ask("register", request)
        if not set(parameter(answer.get("handshake_challenge"), "T")) <= set(request["handshake_types"]):
            raise Refused("the challenge asks for what was not offered")
        if "handshake_challenge" in request:
            response = answer.get("handshake_response", {})
            check_answer(request["handshake_challenge"], response, self.keys)
        self.registered, self.refresh_token = answer, ""

    def authorize(self) -> Json:
        """Tokens for the answer to the challenge, which is good for one answer: then register anew."""
        challenge = self.registered.pop("handshake_challenge", {})
        return self.tokens({"handshake_response": respond(challenge, self.keys, self.identity)})

    def refresh(self) -> Json:
        """New tokens for the refresh token, which is good once."""
        return self.tokens({"refresh_token": self.refresh_token})

    def tokens(self, grant: Json) -> Json:
        request = {name: string(self.registered, name) for name in ("client_id", "client_secret")}
        request = {**request, **grant, "state": secrets.token_urlsafe(16)}
        answer = self.ask("authorize", request)
        tokens = {name: string(answer, name) for name in TOKEN_ANSWER}
        if tokens["state"] != request["state"] or tokens["token_type"].lower() != "bearer":
            raise Refused("not the answer to this request, or not a bearer token")
        self.refresh_token = tokens["refresh_token"]
        return tokens


def register_request(
    name: str, software: str, redirect_uri: str, types: List[str], identity: Optional[Identity] = None
) -> Json:
    """`types` are what the client can prove. For a challenge to the controller, add the member
    "handshake_challenge": {"T": [type]}."""
    names = {"client_name": name, "software_id": software, "redirect_uri": [redirect_uri]}
    keys = {"jwks": {"software_id_cert": [identity.certificate]}} if identity else {}
    return {**names, "handshake_types": types, **keys}


# -- Access tokens -----------------------------------------------------------------------------

def parts(token: str) -> Tuple[Json, Json, str, bytes]:
    """Header, claims, signature, and what is signed."""
    texts = token.split(".")
    if len(texts) != 3:
        raise Refused("not three parts")
    return read(decode(texts[0])), read(decode(texts[1])), texts[2], ".".join(texts[:2]).encode()


@refusing("not a time")
def seconds(text: str) -> int:
    """Times are decimal strings. Also accepts hexadecimal (0x...) and octal (0...)."""
    return int(text, 8 if re.match("0[0-7]", text) else 0)


def has_signed(jwk: Json, header: Json, signature: bytes, text: bytes) -> bool:
    """Whether this key is on P-256, is the one that the token names, if both have a "kid", and has
    signed. The signature is in DER form."""
    kid = header.get("kid")
    if (jwk.get("kty"), jwk.get("crv")) != ("EC", "P-256") or kid not in (None, jwk.get("kid", kid)):
        return False
    x, y = (int.from_bytes(decode(string(jwk, name)), "big") for name in "xy")
    try:
        ec.EllipticCurvePublicNumbers(x, y, ec.SECP256R1()).public_key().verify(signature, text, ECDSA_SHA256)
    except (InvalidSignature, ValueError):  # a point that is not on the curve
        return False
    return True


def verify_access_token(token: str, jwks: Json, now: Optional[int] = None) -> Json:
    """The claims of a token that the controller has issued. `jwks` is its public key, a JSON Web
    Key, or a set of them. Whether "iss" and the audience are the expected ones is for the caller."""
    header, claims, signature, signed = parts(token)
    for name in ["alg", "typ"] + ["kid"] * ("kid" in header):
        string(header, name)
    for name in ("sub", "iss", "jti", "iat", "nbf", "exp"):
        string(claims, name)
    scope = claims.get("scope", {"": []})
    if not isinstance(scope, dict) or not scope or not all(map(is_texts, scope.values())):
        raise Refused("scope is not an object of arrays of strings")
    keys = jwks.get("keys", [jwks])
    if not isinstance(keys, list) or not all(isinstance(key, dict) for key in keys):
        raise Refused("not a set of keys")
    if not any(has_signed(key, header, decode(signature), signed) for key in keys):
        raise Refused("no known key has signed it")
    now = int(time.time()) if now is None else now
    if not seconds(claims["nbf"]) <= now < seconds(claims["exp"]):
        raise Refused("not yet valid, or expired")
    return claims


# -- Envelopes ---------------------------------------------------------------------------------

def key_material(key: PrivateKey, peer: x509.Certificate) -> bytes:
    """16 bytes for AES and 16 for HMAC: the same for both sides."""
    return hashlib.sha256(key.exchange(ec.ECDH(), key_of(peer))).digest()


@refusing("not a ciphertext")
def decrypted(material: bytes, body: bytes, iv: bytes) -> bytes:
    cipher = Cipher(algorithms.AES(material[:16]), modes.CBC(iv)).decryptor()
    unpadder = padding.PKCS7(128).unpadder()
    return unpadder.update(cipher.update(body) + cipher.finalize()) + unpadder.finalize()


def data_of(plaintext: bytes) -> bytes:
    """What was sealed: a line feed and 16 random characters follow it, and sometimes a zero byte."""
    text = plaintext.removesuffix(b"\0")
    if b"\0" in text or text[-17:-16] != b"\n":
        raise Refused("not data, a line feed and 16 characters")
    return text[:-17]


def seal(data: bytes, key: PrivateKey, peer: x509.Certificate) -> Json:
    """An envelope for the holder of `peer`, whose chain and name the caller has verified."""
    if not 0 < len(data) <= 73710 or b"\0" in data:
        raise Refused("an envelope takes 1 to 73,710 bytes, none of them zero")
    material, iv, padder = key_material(key, peer), os.urandom(16), padding.PKCS7(128).padder()
    cipher = Cipher(algorithms.AES(material[:16]), modes.CBC(iv)).encryptor()
    plaintext = data + b"\n" + base64.b64encode(os.urandom(12))
    body = cipher.update(padder.update(plaintext) + padder.finalize()) + cipher.finalize()
    texts = (base64.b64encode(one).decode() for one in (body, hmac.digest(material[16:], body, "sha256")))
    return {"iv": iv.hex().upper(), **dict(zip(("ciphertext", "mac"), texts))}


def open_envelope(envelope: Json, key: PrivateKey, peer: x509.Certificate) -> bytes:
    """The data of what `peer` has sealed for `key`: an envelope, or a handshake response with one."""
    within = parameter(envelope, "encrypted_sslcert")
    names = ("encrypted_sslcert", "HMAC", "iv") if within else ("ciphertext", "mac", "iv")
    ciphertext, mac, iv = (first(envelope, name) for name in names)
    if not re.fullmatch("[0-9A-Fa-f]{32}", iv) or len(ciphertext) > 98304:
        raise Refused("no IV of 32 hexadecimal digits, or a ciphertext that is too long")
    material, body = key_material(key, peer), decode(ciphertext)
    if not hmac.compare_digest(hmac.digest(material[16:], body, "sha256"), decode(mac)):
        raise Refused("the MAC is wrong")
    return data_of(decrypted(material, body, bytes.fromhex(iv)))
