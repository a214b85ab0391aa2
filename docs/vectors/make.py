#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""make.py [--check]: writes the test vectors in this directory, or tells whether they are what it
would write.

Nothing here calls the library: signatures, codes, envelopes and keys come from Python and its
module cryptography, so that the files say what the formats are and not what the library does. Every
key is drawn from a text below, so that the same run gives the same files; none of them
protects anything.
"""

import base64
import datetime
import hashlib
import hmac
import json
import pathlib
import sys

from cryptography import x509
from cryptography.hazmat.primitives import hashes, padding, serialization
from cryptography.hazmat.primitives.asymmetric import ec, rsa
from cryptography.hazmat.primitives.asymmetric import padding as rsa_padding
from cryptography.hazmat.primitives.asymmetric.utils import decode_dss_signature, encode_dss_signature
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.x509.oid import NameOID

HERE = pathlib.Path(__file__).resolve().parent
NOW = 1767225600  # 1 January 2026, 00:00:00 UTC

# -------------------------------------------------------------------- texts --


def b64(data):
    return base64.b64encode(data).decode()


def b64url(data):
    return base64.urlsafe_b64encode(data).decode().rstrip("=")


def compact(document):
    """The form of every text that the library writes."""
    return json.dumps(document, sort_keys=True, separators=(",", ":"))


# --------------------------------------------------------------------- keys --


def stream(label, length):
    """Bytes that look random and are always the same for a label."""
    blocks = (
        hashlib.sha256(f"bmcoauth test vector: {label} {i}".encode()).digest()
        for i in range(length // 32 + 1)
    )
    return b"".join(blocks)[:length]


ORDERS = {
    "P-256": 0xFFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551,
    "P-384": int("FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFC7634D81F4372DDF"
                 "581A0DB248B0A77AECEC196ACCC52973", 16),
    "P-521": int("01FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFA"
                 "51868783BF2F966B7FCC0148F709A5D03BB5C9B8899C47AEBB6FB71E91386409", 16),
}
CURVES = {"P-256": ec.SECP256R1(), "P-384": ec.SECP384R1(), "P-521": ec.SECP521R1()}
HASHES = {"256": (hashlib.sha256, hashes.SHA256()), "384": (hashlib.sha384, hashes.SHA384()),
          "512": (hashlib.sha512, hashes.SHA512())}


class EcKey:
    def __init__(self, label, curve="P-256"):
        self.curve = curve
        self.order = ORDERS[curve]
        self.size = (self.order.bit_length() + 7) // 8
        self.scalar = int.from_bytes(stream(label, self.size + 8), "big") % (self.order - 1) + 1
        self.private = ec.derive_private_key(self.scalar, CURVES[curve])
        self.public = self.private.public_key()

    @property
    def der(self):
        return self.private.private_bytes(
            serialization.Encoding.DER, serialization.PrivateFormat.TraditionalOpenSSL,
            serialization.NoEncryption())

    @property
    def pem(self):
        return self.public.public_bytes(
            serialization.Encoding.PEM, serialization.PublicFormat.SubjectPublicKeyInfo).decode()

    def jwk(self, **members):
        numbers = self.public.public_numbers()
        document = {"kty": "EC", "crv": self.curve, "x": b64url(numbers.x.to_bytes(self.size, "big")),
                    "y": b64url(numbers.y.to_bytes(self.size, "big")), **members}
        return {name: value for name, value in document.items() if value is not None}

    def sign(self, data, bits="256"):
        """ECDSA with the nonce of RFC 6979, so that the signature is always the same; DER."""
        make, algorithm = HASHES[bits]
        digest = make(data).digest()

        def to_int(octets):
            excess = len(octets) * 8 - self.order.bit_length()
            return int.from_bytes(octets, "big") >> max(excess, 0)

        z = to_int(digest) % self.order
        seed = self.scalar.to_bytes(self.size, "big") + z.to_bytes(self.size, "big")
        v, k = b"\x01" * len(digest), b"\x00" * len(digest)
        for i in (b"\x00", b"\x01"):
            k = hmac.digest(k, v + i + seed, make)
            v = hmac.digest(k, v, make)
        while True:
            octets = b""
            while len(octets) < self.size:
                v = hmac.digest(k, v, make)
                octets += v
            nonce = to_int(octets[: self.size])
            if 0 < nonce < self.order:
                point = ec.derive_private_key(nonce, CURVES[self.curve]).public_key().public_numbers()
                r = point.x % self.order
                s = pow(nonce, -1, self.order) * (z + r * self.scalar) % self.order
                if r and s:
                    break
            k = hmac.digest(k, v + b"\x00", make)
            v = hmac.digest(k, v, make)
        signature = encode_dss_signature(r, s)
        self.public.verify(signature, data, ec.ECDSA(algorithm))
        return signature

    def sign_raw(self, data, bits="256"):
        """The two integers side by side (RFC 7518, section 3.4)."""
        r, s = decode_dss_signature(self.sign(data, bits))
        return r.to_bytes(self.size, "big") + s.to_bytes(self.size, "big")


def prime(label):
    """The first prime at or behind 1,024 bits drawn for the label."""
    n = int.from_bytes(stream(label, 128), "big") | 3 << 1022 | 1
    small = [p for p in range(3, 2000, 2) if all(p % q for q in range(3, int(p**0.5) + 1, 2))]
    while any(n % p == 0 for p in small) or any(
            not probable(n, base) for base in (2, 3, 5, 7, 11, 13, 17, 19)):
        n += 2
    return n


def probable(n, base):
    """Miller and Rabin's test."""
    odd, twos = n - 1, 0
    while odd % 2 == 0:
        odd, twos = odd // 2, twos + 1
    x = pow(base, odd, n)
    if x in (1, n - 1):
        return True
    return any((x := x * x % n) == n - 1 for _ in range(twos - 1))


class RsaKey:
    def __init__(self, label):
        p, q, e = prime(label + " p"), prime(label + " q"), 65537
        d = pow(e, -1, (p - 1) * (q - 1))
        self.n, self.d = p * q, d
        self.private = rsa.RSAPrivateNumbers(
            p, q, d, d % (p - 1), d % (q - 1), rsa.rsa_crt_iqmp(p, q),
            rsa.RSAPublicNumbers(e, self.n)).private_key()
        self.public = self.private.public_key()

    pem = EcKey.pem

    @property
    def pkcs1(self):
        return self.public.public_bytes(
            serialization.Encoding.PEM, serialization.PublicFormat.PKCS1).decode()

    def jwk(self, **members):
        return {"kty": "RSA", "n": b64url(self.n.to_bytes(256, "big")), "e": "AQAB", **members}

    def sign(self, data, bits="256"):
        return self.private.sign(data, rsa_padding.PKCS1v15(), HASHES[bits][1])

    def sign_pss(self, data, bits="256"):
        """RSASSA-PSS (RFC 8017, section 9.1.1) with a salt that is always the same."""
        make, algorithm = HASHES[bits]
        size = make().digest_size
        salt = stream("salt", size)
        digest = make(bytes(8) + make(data).digest() + salt).digest()
        block = bytes(256 - 2 * size - 2) + b"\x01" + salt
        mask = b"".join(make(digest + i.to_bytes(4, "big")).digest() for i in range(8))[: len(block)]
        masked = bytearray(a ^ b for a, b in zip(block, mask))
        masked[0] &= 0x7F
        encoded = bytes(masked) + digest + b"\xbc"
        signature = pow(int.from_bytes(encoded, "big"), self.d, self.n).to_bytes(256, "big")
        self.public.verify(
            signature, data, rsa_padding.PSS(rsa_padding.MGF1(algorithm), size), algorithm)
        return signature


# ------------------------------------------------------------- certificates --


def certificate(label, subject, key, issuer, issuer_key, authority=False, until=2049):
    """A certificate in DER; its signature is always the same, too."""

    def name(text):
        return x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, text)] if text else [])

    draft = (
        x509.CertificateBuilder()
        .subject_name(name(subject))
        .issuer_name(name(issuer))
        .public_key(key.public)
        .serial_number(int.from_bytes(stream(f"serial {label}", 15), "big") | 1)
        .not_valid_before(datetime.datetime(2020, 1, 1))
        .not_valid_after(datetime.datetime(until, 12, 31))
        .add_extension(x509.BasicConstraints(ca=authority, path_length=None), critical=True)
        .sign(issuer_key.private, hashes.SHA256())
    )
    body = draft.tbs_certificate_bytes
    signature = b"\x00" + issuer_key.sign(body)
    ecdsa_with_sha256 = bytes.fromhex("300a06082a8648ce3d040302")
    der = tlv(0x30, body + ecdsa_with_sha256 + tlv(0x03, signature))
    assert x509.load_der_x509_certificate(der).tbs_certificate_bytes == body
    return der


def tlv(tag, content):
    length = len(content)
    if length < 128:
        return bytes([tag, length]) + content
    octets = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(octets)]) + octets + content


def pem_of(der):
    return x509.load_der_x509_certificate(der).public_bytes(serialization.Encoding.PEM).decode()


class Factory:
    """A made-up public-key infrastructure, as a maker of controllers has it."""

    def __init__(self):
        self.root_key, self.other_key = EcKey("production root"), EcKey("development root")
        self.middle_key = EcKey("intermediate")
        self.device_key, self.client_key = EcKey("device"), EcKey("client")
        self.root = certificate("1", "TEST production root", self.root_key,
                                "TEST production root", self.root_key, True)
        self.other = certificate("2", "TEST development root", self.other_key,
                                 "TEST development root", self.other_key, True)
        self.middle = certificate("3", "TEST intermediate", self.middle_key,
                                  "TEST production root", self.root_key, True)
        self.device = certificate("4", "test-device", self.device_key,
                                  "TEST intermediate", self.middle_key)
        self.direct = certificate("5", "test-client", self.client_key,
                                  "TEST production root", self.root_key)
        self.marked = certificate("6", "test-lab", self.client_key,
                                  "TEST development root", self.other_key)
        self.short = certificate("7", "test-short", self.client_key,
                                 "TEST production root", self.root_key, until=2030)
        self.stranger = certificate("8", "test-client", self.client_key,
                                    "TEST production root", EcKey("stranger"))
        self.nameless = certificate("9", "", self.client_key, "TEST production root", self.root_key)
        self.long = certificate("10", "a-device-name-of-24-byte", self.client_key,
                                "TEST production root", self.root_key)
        self.longer = certificate("11", "a-device-name-of-more-than-24-bytes", self.device_key,
                                  "TEST production root", self.root_key)


FACTORY = Factory()

# --------------------------------------------------------------- the files ---


def base64url():
    def good(name, data, text, **more):
        return {"name": name, "valid": True, "text": text, "bytes": data.hex(), **more}

    def bad(name, text):
        return {"name": name, "valid": False, "text": text}

    tests = [good(f"RFC 4648: {data.decode()}", data, b64url(data))
             for data in (b"f", b"fo", b"foo", b"foob", b"fooba", b"foobar")]
    tests += [
        good("both letters that differ from standard Base64", b"\xfb\xff\xbf", "-_-_"),
        good("the standard alphabet is taken, too", b"\xfb\xff\xbf", "+/+/"),
        good("all byte values", bytes(range(256)), b64url(bytes(range(256)))),
        good("complete padding", b"f", "Zg=="),
        good("a line feed", b"foobar", "Zm9v\nYmFy\n"),
        good("bits behind the last byte are ignored", b"f", "Zh",
             why="NOTE: Zg is the only text that an encoder writes for this byte"),
        bad("empty", ""),
        bad("padding that does not complete the text", "Zg="),
        bad("one letter more than whole groups", "Zm9vY"),
        bad("a character of no alphabet", "Zm!v"),
    ]
    return {"about": "Base64url (RFC 4648, section 5) as base64URIdecode reads it. "
                     "\"bytes\" are hexadecimal.", "tests": tests}


def claims(**others):
    """Times are strings; None takes a claim out."""
    document = {"sub": "admin", "iss": "controller", "jti": "MDEyMzQ1Njc4OWFiY2RlZg==",
                "iat": str(NOW - 60), "nbf": str(NOW - 60), "exp": str(NOW + 600), **others}
    return {name: value for name, value in document.items() if value is not None}


def signing_input(header, payload):
    return f"{b64url(compact(header).encode())}.{b64url(compact(payload).encode())}"


def tokens():
    key, other = EcKey("signing"), EcKey("another signing key")

    def token(header=None, payload=None, signer=key, raw=False):
        text = signing_input(header or {"alg": "ES256", "typ": "JWT"}, payload or claims())
        sign = signer.sign_raw if raw else signer.sign
        return f"{text}.{b64url(sign(text.encode()))}"

    def altered(text, part):
        parts = text.split(".")
        middle = len(parts[part]) // 2
        letter = "B" if parts[part][middle] == "A" else "A"
        parts[part] = parts[part][:middle] + letter + parts[part][middle + 1 :]
        return ".".join(parts)

    def test(name, text, result, records, why=None, **more):
        row = {"name": name, "valid": result == 1, "token": text, "result": result,
               "records": records, **more}
        return {**row, "why": why} if why else row

    good = token()
    scopes = {"files": ["read", "write"], "privileges": ["login"]}
    empty_value = {"privileges": []}
    critical = {"alg": "ES256", "crit": ["limit"], "limit": "1", "typ": "JWT"}
    tests = [
        test("plain", good, 1, "both", claims=claims()),
        test("with a key identifier", token({"alg": "ES256", "kid": "k1", "typ": "JWT"}), 1, "both",
             claims=claims()),
        test("with scopes", token(payload=claims(scope=scopes)), 1, "both", claims=claims(),
             scopes=scopes),
        test("a scope entry without values", token(payload=claims(scope=empty_value)), 1, "both",
             claims=claims(), scopes=empty_value),
        test("members that are not known", token(payload=claims(aud=["x"], extra={"a": [1, None]})),
             1, "both", claims=claims()),
        test("first second of validity", token(payload=claims(nbf=str(NOW))), 1, "both",
             claims=claims(nbf=str(NOW))),
        test("last second of validity", token(payload=claims(exp=str(NOW + 1))), 1, "both",
             claims=claims(exp=str(NOW + 1))),
        test("times in hexadecimal", token(payload=claims(exp=hex(NOW + 600))), 1, "both",
             claims=claims(exp=hex(NOW + 600))),
        test("issued in the future", token(payload=claims(iat=str(NOW + 9999))), 1, "both",
             "\"iat\" is carried and never compared", claims=claims(iat=str(NOW + 9999))),
        test("\"alg\" is not consulted", token({"alg": "none", "typ": "JWT"}), 1, "both",
             "NOTE: the signature is ECDSA on P-256 over SHA-256 whatever \"alg\" says", claims=claims()),
        test("\"crit\" is not consulted", token(critical), 1, "both",
             "NOTE: an extension that the header declares critical (RFC 7515, section 4.1.11) is "
             "ignored", claims=claims()),
        test("padding behind the signature", good + "=" * (-len(good.split(".")[2]) % 4), 1, "both",
             "NOTE: another text of the same token: compare and revoke tokens by \"jti\"",
             claims=claims()),
        test("not yet valid", token(payload=claims(nbf=str(NOW + 1))), 0, "header",
             "\"nbf\" is one second away"),
        test("expires now", token(payload=claims(exp=str(NOW))), 2, "header",
             "a token is valid up to, not including, \"exp\""),
        test("expired", token(payload=claims(exp=str(NOW - 1))), 2, "header"),
        test("expired and forged", token(payload=claims(exp=str(NOW - 1)), signer=other), 2, "header",
             "the signature of an expired token is not looked at: 2 says nothing about its origin"),
        test("signed with another key", token(signer=other), 0, "both",
             "both records are there all the same"),
        test("one letter of the payload altered", altered(good, 1), 0, None,
             "what is left of the payload decides how far reading comes"),
        test("one letter of the signature altered", altered(good, 2), 0, "both"),
        test("signature as two integers side by side", token(raw=True), 0, "both",
             "this is the form of RFC 7518; these tokens carry the DER structure"),
        test("no signature", good.rpartition(".")[0] + ".", 0, "both"),
        test("a further dot", good + ".AAAA", 0, "both"),
        test("two parts", good.rpartition(".")[0], 0, "none"),
        test("empty", "", 0, "none"),
        test("header without \"typ\"", token({"alg": "ES256"}), 0, "none"),
        test("header without \"alg\"", token({"typ": "JWT"}), 0, "none"),
        test("numeric times", token(payload=claims(iat=NOW - 60, nbf=NOW - 60, exp=NOW + 600)), 0,
             "header", "times of these tokens are strings"),
        test("scope as a text", token(payload=claims(scope="read write")), 0, "header",
             "\"scope\" is an object of arrays"),
        test("empty scope", token(payload=claims(scope={})), 0, "header"),
        test("null as the scope", token(payload={**claims(), "scope": None}), 0, "header"),
        test("a number among the scopes", token(payload=claims(scope={"files": ["read", 1]})), 0, "header"),
        test("a key identifier that is a number", token({"alg": "ES256", "kid": 1, "typ": "JWT"}), 0, "none"),
    ]
    for missing in ("sub", "iss", "jti", "iat", "nbf", "exp"):
        tests.append(test(f"without \"{missing}\"", token(payload=claims(**{missing: None})), 0,
                          "header"))
    return {
        "about": "Access tokens that a controller issues for itself, as validateJWT judges them at "
                 "the time \"now\" with \"key\". \"result\" is its result; \"records\" says which of "
                 "header and payload it stores: both, header, none, or null where that is not said.",
        "now": NOW,
        "key": {"der": key.der.hex(), "jwk": key.jwk()},
        "tests": tests,
    }


def delegated():
    p256, p384, p521 = EcKey("issuer"), EcKey("issuer 384", "P-384"), EcKey("issuer 521", "P-521")
    rsa_key, other = RsaKey("issuer rsa"), EcKey("another issuer")

    def completed(key, **members):
        return compact({**key.jwk(**members), "kest_decoded_key": key.pem.rstrip("\n")})

    def body(**others):
        document = {"sub": "alice", "iss": "corp", "nbf": NOW - 60, "exp": NOW + 600, **others}
        return {name: value for name, value in document.items() if value is not None}

    def token(alg="ES256", key=p256, payload=None, der=False, **header):
        text = signing_input({"alg": alg, "typ": "JWT", **header}, payload or body())
        sign = key.sign_pss if alg[0] == "P" else key.sign if der or key is rsa_key else key.sign_raw
        return f"{text}.{b64url(sign(text.encode(), alg[2:]))}"

    def test(name, text, keys, result=1, verified=1, why=None, mask=0, scopes="mask", **more):
        row = {"name": name, "valid": result == 1, "token": text, "keys": keys, "skew": 0,
               "roles": {}, "providers": [], "result": result, "verified": verified, **more}
        if result == 1:
            row["scopes"] = scopes if scopes != "mask" else {
                "AUTHNZ_USER": more.get("user", "alice"), "USER_PRIV": str(mask),
                "singleUse": "false"}
        row.pop("user", None)
        return {**row, "why": why} if why else row

    good = token()
    public = [p256.pem]
    hs_text = signing_input({"alg": "HS256", "typ": "JWT"}, body())
    hs256 = f"{hs_text}.{b64url(hmac.digest(p256.pem.encode(), hs_text.encode(), hashlib.sha256))}"
    none = signing_input({"alg": "none", "typ": "JWT"}, body()) + ".AA"
    hostile = 'x"],"USER_PRIV":["511"]} '
    rights = body(scope="ravok_login ravok_testalerts unknown", ravok_roles=["operator", "nobody"],
                  xidp={"corp": ["VM"], "elsewhere": ["CU"], "*": ["DC", "dc"]})
    tests = [
        test("ES256, key in PEM", good, public),
        test("ES256, key as completed JWK", good, [completed(p256)]),
        test("ES256, key as published JWK", good, [compact(p256.jwk())], 0, 0,
             "a JWK verifies by its member \"kest_decoded_key\" alone: import it first"),
        test("ES256, signature in DER", token(der=True), public,
             why="both forms are taken; RFC 7518 wants the two integers side by side"),
        test("ES384", token("ES384", p384), [p384.pem]),
        test("ES512", token("ES512", p521), [p521.pem]),
        test("RS256", token("RS256", rsa_key), [rsa_key.pem]),
        test("RS256, key as completed JWK", token("RS256", rsa_key), [completed(rsa_key)]),
        test("RS256, key in PKCS#1", token("RS256", rsa_key), [rsa_key.pkcs1]),
        test("RS512", token("RS512", rsa_key), [rsa_key.pem]),
        test("PS256", token("PS256", rsa_key), [rsa_key.pem]),
        test("PS384, key as completed JWK", token("PS384", rsa_key), [completed(rsa_key)]),
        test("chosen by \"kid\"", token(kid="k2"),
             [completed(p256, kid="k2", kty="other", crv=None)]),
        test("chosen by \"alg\"", good, [completed(p256, alg="ES256", kty="other", crv=None)]),
        test("a curve that does not fit \"alg\"", good, [completed(p256, crv="P-384")], 0, 0,
             "ES256 chooses P-256 keys"),
        test("no curve", good, [completed(p256, crv=None)], why="a JWK without \"crv\" fits any"),
        test("a curve that is not known", good, [completed(p256, crv="secp256r1")],
             why="it fits any \"alg\" of the family"),
        test("HS256 with the public key as secret", hs256, public, 0, 0, "never accepted"),
        test("none", none, public, 0, 0, "never accepted"),
        test("\"crit\" is not consulted", token(crit=["limit"], limit=1), public,
             why="NOTE: an extension that the header declares critical (RFC 7515, section 4.1.11) "
                 "is ignored"),
        test("another key", good, [other.pem], 0, 0),
        test("altered payload", ".".join([good.split(".")[0], token(payload=body(sub="root")).split(".")[1],
                                          good.split(".")[2]]), public, 0, 0),
        test("the second of two keys", good, [other.pem, p256.pem]),
        test("the first of two keys in PEM", good, [p256.pem, other.pem], 0, 0,
             "the order counts: the success of a PEM key is lost if the next key tried fails"),
        test("a PEM key before a JWK that is not tried", good,
             [p256.pem, completed(p384)], why="the success stands: the JWK does not fit ES256"),
        test("a JWK before a PEM key", good, [completed(p256), other.pem],
             why="a JWK that verifies ends the search"),
        test("expired", token(payload=body(exp=NOW)), public, 2, 1),
        test("expired and forged", token(payload=body(exp=NOW), key=other), public, 0, 0),
        test("times as texts", token(payload=body(nbf=str(NOW - 60), exp=str(NOW + 600))), public),
        test("within the skew", token(payload=body(exp=NOW - 299)), public, skew=300),
        test("beyond the skew", token(payload=body(exp=NOW - 300)), public, 2, 1, skew=300),
        test("not yet valid", token(payload=body(nbf=NOW + 1)), public, 0, 1),
        test("not yet valid, within the skew", token(payload=body(nbf=NOW + 300)), public, skew=300),
        test("without \"nbf\"", token(payload=body(nbf=None)), public),
        test("without \"exp\"", token(payload=body(exp=None)), public, 0, 1),
        test("without a subject", token(payload=body(sub=None)), public, user=""),
        test("rights of the scope", token(payload=body(scope="ravok_login ravok_testalerts")), public,
             mask=0x081),
        test("rights of all three sources", token(payload=rights), public, mask=0x1C3,
             roles={"operator": 0x002, "other": 0x004}, providers=["corp"],
             why="ravok_login 0x001, ravok_testalerts 0x080, operator 0x002, corp VM 0x040, "
                 "* DC 0x100"),
        test("a provider that is not accepted", token(payload=rights), public, mask=0x181,
             why="no role table, and corp is not among the providers"),
        test("scope as an object", token(payload=body(scope={"files": ["read"]})), public,
             scopes={"files": "read"}, why="its entries stay, and no rights are computed"),
        test("a subject that looks like rights", token(payload=body(sub=hostile)), public,
             user=hostile, why="it is a text and grants nothing"),
    ]
    return {
        "about": "Tokens of another issuer, as validateJWT_Delegated judges them at the time \"now\". "
                 "\"keys\" are passed as they stand. \"verified\" is the flag; \"scopes\" what a "
                 "valid token's payload holds afterwards, one value for each entry.",
        "now": NOW,
        "tests": tests,
    }


def jwk():
    p256, p384, p521 = (EcKey(f"jwk {curve}", curve) for curve in CURVES)
    rsa_key = RsaKey("issuer rsa")

    def good(name, document, key):
        written = compact({**document, "kest_decoded_key": key.pem.rstrip("\n")})
        return {"name": name, "valid": True, "jwk": compact(document), "pem": key.pem,
                "written": written}

    def bad(name, document, why=None):
        row = {"name": name, "valid": False, "jwk": document if isinstance(document, str)
               else compact(document)}
        return {**row, "why": why} if why else row

    off = p256.jwk(y=p256.jwk()["x"])
    tests = [
        good("P-256", p256.jwk(), p256),
        good("P-256 with other members", p256.jwk(kid="k", use="sig", key_ops=["verify"]), p256),
        good("P-384", p384.jwk(), p384),
        good("P-521", p521.jwk(), p521),
        good("lower case", p384.jwk(kty="ec", crv="p-384"), p384),
        good("no curve means P-256", p256.jwk(crv=None), p256),
        good("RSA", rsa_key.jwk(), rsa_key),
        good("RSA in lower case", rsa_key.jwk(kty="rsa"), rsa_key),
        bad("a point off the curve", off),
        bad("a point of another curve", p384.jwk(crv="P-256")),
        bad("a symmetric key", {"kty": "oct", "k": "AAAA"}),
        bad("no type", p256.jwk(kty=None)),
        bad("no y", p256.jwk(y=None)),
        bad("x is no Base64url", p256.jwk(x="!")),
        bad("no modulus", {"kty": "RSA", "e": "AQAB"}),
        bad("an array", "[]"),
        bad("cut short", compact(p256.jwk())[:-1]),
    ]
    return {"about": "JSON Web Keys as appendPublicKey imports them: \"pem\" is the key, \"written\" "
                     "the document afterwards. What is refused stays as it was.", "tests": tests}


def hotp_steps(secret, counter):
    """RFC 4226, section 5.3, with 8 digits: each step on the way to the password."""
    moving = counter.to_bytes(8, "big")
    digest = hmac.digest(secret.encode(), moving, hashlib.sha1)
    offset = digest[-1] & 15
    number = int.from_bytes(digest[offset : offset + 4], "big") & 0x7FFFFFFF
    return {"secret": secret, "counter": moving.hex(), "hmac_sha1": digest.hex(), "offset": offset,
            "number": number, "password": f"{number % 10**8:08d}"}


def hotp(secret, counter):
    return hotp_steps(secret, counter)["password"]


def one_time_passwords():
    rfc, second, third = "12345678901234567890", "q-2RmM1sU5k", "Zm9vYmFy"
    assert hotp(rfc, 1) == "94287082"  # RFC 4226, appendix D
    keys = {"otp1.0": [rfc, second, third], "otp2.0": [second]}

    def steps(challenge, response):
        """Of each password, in the order of the types."""
        given = {name.upper(): value for name, value in {**response, **challenge}.items()}
        types = [given["T"]] if isinstance(given["T"], str) else given["T"]
        m, c = int(given["M"]), int(given["C"])
        return [hotp_steps(keys[kind][m % len(keys[kind])], c) for kind in types]

    def test(name, challenge, response, valid=True, why=None, document=keys):
        row = {"name": name, "valid": valid, "keys": compact(document),
               "challenge": challenge, "response": response}
        if valid:
            row["intermediate"] = steps(challenge, response)
        return {**row, "why": why} if why else row

    def ask(m="3", c="1", **others):
        return {"T": "otp1.0", "M": m, "C": c, **others}

    big = 9223372036854775807
    tests = [
        test("RFC 4226, count 1", ask(), {"R": hotp(rfc, 1)}),
        test("RFC 4226, count 9", ask(c="9"), {"R": "45520489"}),
        test("M selects by its remainder", ask("7", "42"), {"R": hotp(second, 42)}),
        test("large numbers", ask(str(big), str(big)), {"R": hotp([rfc, second, third][big % 3], big)}),
        test("the secret is used as it stands", {"T": "otp2.0", "M": "1", "C": "5"},
             {"R": hotp(second, 5)}, why="its characters are the key; nothing is decoded"),
        test("two types", {"T": ["otp1.0", "otp2.0"], "M": "3", "C": "8"},
             {"R": [hotp(rfc, 8), hotp(second, 8)]}),
        test("names in another case", {"t": "otp1.0", "m": "3", "c": "1"}, {"r": hotp(rfc, 1)}),
        test("the client's own numbers", {"T": "otp1.0"}, {"M": "3", "C": "77", "R": hotp(rfc, 77)},
             why="a challenge without M, C and V lets the client draw M and C"),
        test("one digit wrong", ask(), {"R": "94287083"}, False),
        test("the next counter", ask(), {"R": hotp(rfc, 2)}, False, "only C itself counts"),
        test("another secret", ask("4"), {"R": hotp(rfc, 1)}, False),
        test("six digits", ask(), {"R": "287082"}, False, "eight are asked for"),
        test("nine digits", ask(), {"R": "094287082"}, False),
        test("the second of two wrong", {"T": ["otp1.0", "otp2.0"], "M": "3", "C": "8"},
             {"R": [hotp(rfc, 8), "00000000"]}, False),
        test("no answer", ask(), {"X": "94287082"}, False),
        test("M in the challenge, C in the answer", {"T": "otp1.0", "M": "3"},
             {"C": "1", "R": hotp(rfc, 1)}, False, "both come from the same side"),
        test("no numbers anywhere", {"T": "otp1.0"}, {"R": hotp(rfc, 1)}, False),
        test("C is 0", ask(c="0"), {"R": hotp(rfc, 0)}, False, "0 stands for a failed draw"),
        test("M is no number", ask("3a"), {"R": hotp(rfc, 1)}, False),
        test("a type without secrets", {"T": "otp3.0", "M": "3", "C": "1"}, {"R": hotp(rfc, 1)}, False),
        test("no secret in the list", ask(), {"R": hotp(rfc, 1)}, False, document={"otp1.0": []}),
    ]
    return {
        "about": "Answers to a challenge for one-time passwords (HOTP, RFC 4226, 8 digits), as "
                 "validateHandshakeResponse judges them with the key document \"keys\". "
                 "\"intermediate\" leads to each password: the secret that M selects, the counter "
                 "as 8 bytes and the HMAC-SHA-1 in hexadecimal, the offset into it, and the 31-bit "
                 "number there, whose last 8 decimal digits are the password.",
        "tests": tests,
    }


def certificate_proofs():
    key, other = FACTORY.device_key, EcKey("not the device")
    keys = {"otp1.0": ["12345678901234567890"]}
    kind, name = "software_id_cert-1.0", "test-device"
    # The first token whose proof looks different in the two alphabets.
    v = next(token for i in range(99) if set("-_") & set(
        b64url(key.sign(f"{(token := b64(stream(f'V {i}', 16)))}:{name}".encode()))))
    one, both = {"T": kind, "V": v}, {"T": ["otp1.0", kind], "M": "1", "C": "1", "V": v}

    def proof(text=f"{v}:{name}", signer=key):
        return b64url(signer.sign(text.encode()))

    def test(name, challenge, answer, valid=True, why=None, **more):
        row = {"name": name, "valid": valid, "challenge": challenge, "response": {"R": answer}, **more}
        return {**row, "why": why} if why else row

    device, long = ({"kty": "EC", "alg": "ES-256", "x5c": [b64(der)]} for der in (FACTORY.device, FACTORY.longer))
    right, wrong, password = proof(), proof(signer=other), "94287082"
    standard = right.replace("-", "+").replace("_", "/")
    tests = [
        test("certificate alone", one, right),
        test("the signature in standard Base64", one, standard),
        test("both proofs", both, [password, right]),
        test("another key's signature", one, wrong, False),
        test("another token signed", one, proof(f"AAAAAAAAAAAAAAAAAAAAAA==:{name}"), False),
        test("another name signed", one, proof(f"{v}:Test-Device"), False),
        test("no colon", one, proof(v + name), False),
        test("the two integers side by side", one,
             b64url(key.sign_raw(f"{v}:{name}".encode())), False, "the signature is in DER"),
        test("both proofs, wrong password", both, ["94287083", right], False,
             "a wrong password ends the check at once"),
        test("both proofs, wrong signature", both, [password, wrong], False),
        test("both proofs, the second missing", both, [password], True,
             "NOTE: missing proofs at the end are not asked for; count the values of \"R\""),
        test("certificate first, wrong signature",
             {**both, "T": [kind, "otp1.0"]}, [wrong, password], True,
             "NOTE: the last proof decides; let the certificate stand last"),
        test("a common name of 35 bytes", one, proof(f"{v}:a-device-name-of-more-th"), True,
             "24 bytes of it are signed", certificate=long),
        test("all of a common name of 35 bytes", one, proof(f"{v}:a-device-name-of-more-than-24-bytes"),
             False, certificate=long),
    ]
    return {
        "about": "Answers to a challenge for the certificate proof: the signature (ECDSA on P-256, "
                 "SHA-256, DER, Base64url) over the value of \"V\", \":\" and the common name of the "
                 "first certificate. As validateHandshakeResponse judges them with \"keys\" and the "
                 "certificate key \"certificate\", a test's own if it has one; \"key\" is the client's own, "
                 "that of all these certificates.",
        "keys": compact(keys),
        "key": {"der": key.der.hex(), "jwk": key.jwk()},
        "certificate": device,
        "tests": tests,
    }


def certificates():
    f = FACTORY
    device, direct, middle = b64(f.device), b64(f.direct), b64(f.middle)
    garbage = b64(b"this is no certificate")

    def chain(name, x5c, result, why=None, marked=False):
        row = {"name": name, "valid": result == 1, "x5c": x5c, "marked": marked, "result": result}
        return {**row, "why": why} if why else row

    def named(name, der, common_name, valid, why=None):
        row = {"name": name, "valid": valid, "pem": pem_of(der), "common_name": common_name}
        return {**row, "why": why} if why else row

    chains = [
        chain("issued by the root", [direct], 1),
        chain("by way of an intermediate", [device, middle, device], 1,
              "the first value is not verified, the last one is; those between are intermediates"),
        chain("the last of two", [garbage, direct], 1, "the first value takes no part"),
        chain("the first of two", [direct, b64(f.stranger)], 0,
              "the last value is verified, and this one is a stranger's"),
        chain("in the order of TLS", [device, middle], 1,
              "NOTE: what is verified here is the intermediate, not the device"),
        chain("no intermediate", [device], 0),
        chain("a stranger under the root's name", [b64(f.stranger)], 0),
        chain("ends before 2035", [b64(f.short)], 0, "validity is judged as of 1 January 2035"),
        chain("development root", [b64(f.marked)], 0),
        chain("development root on a marked device", [b64(f.marked)], 1,
              "NOTE: such a device is one under development", marked=True),
        chain("no certificate", [garbage], -1),
    ]
    names = [
        named("its name", f.device, "test-device", True),
        named("in another case", f.device, "TEST-Device", True),
        named("any name", f.device, None, True),
        named("another name", f.device, "test-device2", False),
        named("the name's beginning", f.device, "test", False),
        named("a name of 24 bytes", f.long, "a-device-name-of-24-byte", False,
              "only 17 bytes are compared"),
        named("its first 17 bytes", f.long, "a-device-name-of-", True,
              "NOTE: names that agree in 17 bytes are one"),
        named("no name, none expected", f.nameless, None, True),
        named("no name, one expected", f.nameless, "x", False),
    ]
    encoded = [
        {"name": "one certificate", "valid": True, "pem": pem_of(f.device), "x5c": [device]},
        {"name": "a chain", "valid": True, "pem": pem_of(f.device) + pem_of(f.middle),
         "x5c": [device, middle]},
        {"name": "four certificates", "valid": True, "pem": pem_of(f.device) * 4, "x5c": [device] * 4},
        {"name": "a broken one behind a good one", "valid": False,
         "pem": pem_of(f.device) + pem_of(f.device).replace("MII", "MIJ", 1)},
    ]
    return {
        "about": "Certificate keys: \"chains\" as chainVerify judges them with the two factory roots "
                 "(\"marked\": on a device with the marker), \"names\" as validateX509 compares them, "
                 "\"encoded\" as encode_x509_jwk makes \"x5c\" of a PEM chain.",
        "production_root": pem_of(f.root),
        "development_root": pem_of(f.other),
        "chains": chains,
        "names": names,
        "encoded": encoded,
    }


def ecies():
    ours, theirs = FACTORY.client_key, FACTORY.device_key
    iv = stream("iv", 16)

    def seal(text, sender=ours, receiver=theirs, iv=iv):
        shared = sender.private.exchange(ec.ECDH(), receiver.public)
        material = hashlib.sha256(shared).digest()
        padder = padding.PKCS7(128).padder()
        padded = padder.update(text) + padder.finalize()
        cipher = Cipher(algorithms.AES(material[:16]), modes.CBC(iv)).encryptor()
        body = cipher.update(padded) + cipher.finalize()
        return body, hmac.digest(material[16:], body, hashlib.sha256)

    shared = ours.private.exchange(ec.ECDH(), theirs.public)

    def row(name, body, mac, valid=True, why=None, encode=b64, end=b"", **more):
        fields = {"name": name, "valid": valid, "ciphertext": encode(body),
                  "mac": encode(mac) if mac is not None else None, "iv": iv.hex().upper(),
                  "marked": False, **more}
        if valid:
            fields["data"] = fields["plaintext"][:-17]
            fields["intermediate"] = {
                "shared_secret": shared.hex(),
                "key_material": hashlib.sha256(shared).hexdigest(),
                # What the receiver has behind the padding: a zero byte at the end included.
                "plaintext": (fields["plaintext"].encode() + end).hex(),
                "ciphertext": body.hex(),
                "mac": mac.hex() if mac is not None else None,
            }
        return {**fields, "why": why} if why else fields

    text = b"-----the data-----\nMDEyMzQ1Njc4OWFi"
    body, mac = seal(text)
    flipped = body[:20] + bytes([body[20] ^ 1]) + body[21:]
    first = bytes([iv[0] ^ 1]) + iv[1:]
    changed_text = bytes([text[0] ^ 1]) + text[1:]
    zeros = bytes(16)
    bare, bare_mac = seal(text, iv=zeros)
    plain = text.decode()
    tests = [
        row("sealed for us", body, mac, plaintext=plain),
        row("in Base64url", body, mac, encode=b64url, plaintext=plain),
        row("small letters in the IV", body, mac, plaintext=plain, iv=iv.hex()),
        row("data that ends with a line feed", *seal(b"line\n\nMDEyMzQ1Njc4OWFi"),
            plaintext="line\n\nMDEyMzQ1Njc4OWFi"),
        row("a zero byte at the end", *seal(b"line\n\nMDEyMzQ1Njc4OWFi\0"),
            plaintext="line\n\nMDEyMzQ1Njc4OWFi", end=b"\0",
            why="one is not counted; the library writes it behind data that ends with a line feed"),
        row("no line feed behind that of the data", *seal(b"line\nMDEyMzQ1Njc4OWFi\0"),
            plaintext="line\nMDEyMzQ1Njc4OWFi", end=b"\0",
            why="NOTE: ecies_encrypt adds none to such data; the receiver takes the data's own off"),
        row("a line feed and nothing else", *seal(b"\nMDEyMzQ1Njc4OWFi\0"),
            plaintext="\nMDEyMzQ1Njc4OWFi", end=b"\0", why="NOTE: so ecies_encrypt seals a line feed"),
        row("an altered ciphertext", flipped, mac, False),
        row("an altered MAC", body, bytes([mac[0] ^ 1]) + mac[1:], False),
        row("a MAC cut short", body, mac[:16], False),
        row("for another receiver", *seal(text, receiver=EcKey("somebody")), False),
        row("from another sender", *seal(text, sender=EcKey("somebody")), False),
        row("an altered IV", body, mac, plaintext=changed_text.decode(), iv=first.hex().upper(),
            why="NOTE: the MAC does not cover the IV; who alters it alters the first 16 bytes"),
        row("an IV of 31 digits", body, mac, False, iv=iv.hex()[:-1]),
        row("no MAC", body, None, False),
        row("no IV", bare, bare_mac, False, iv=None),
        row("no MAC on a marked device", body, None, plaintext=plain, marked=True,
            why="NOTE: nothing protects the text there"),
        row("no IV on a marked device", bare, bare_mac, plaintext=plain, marked=True, iv=None,
            why="NOTE: it stands for 16 zero bytes, and nobody chose them"),
        row("a zero byte inside", *seal(b"a\0b\nMDEyMzQ1Njc4OWFi"), False,
            "refused where the length is asked for"),
        row("an alien alphabet", body, mac, False, ciphertext="!" + b64(body)[1:]),
    ]
    return {
        "about": "Envelopes (ECDH on P-256, SHA-256, AES-128-CBC, HMAC-SHA256), as ecies_decrypt opens "
                 "them with the receiver's key and the sender's certificate; \"marked\": on a device "
                 "with the marker. The plaintext is data, line feed and 16 random characters; "
                 "\"data\" is the first of them. \"intermediate\", in hexadecimal: the x coordinate "
                 "that ECDH gives; its SHA-256, 16 bytes for AES and 16 for HMAC; the plaintext "
                 "without padding; ciphertext and MAC.",
        "receiver": {"der": theirs.der.hex(), "x5c": b64(FACTORY.device)},
        "sender": {"der": ours.der.hex(), "x5c": b64(FACTORY.direct)},
        "tests": tests,
    }


def registration():
    device = {"kty": "EC", "alg": "ES-256", "x5c": [b64(FACTORY.device)]}
    base = {"redirect_uri": ["https://client.example/callback"], "client_name": "demo client",
            "software_id": "demo-1"}

    def good(name, document, written=None, why=None):
        row = {"name": name, "valid": True, "document": compact(document),
               "written": compact(written if written is not None else document)}
        return {**row, "why": why} if why else row

    def bad(name, document, why=None):
        row = {"name": name, "valid": False, "document": document if isinstance(document, str)
               else compact(document)}
        return {**row, "why": why} if why else row

    types = ["otp1.0", "otp2.0", "software_id_cert-1.0"]
    requests = [
        good("what is needed", base),
        good("everything", {**base, "handshake_types": types,
                            "handshake_challenge": {"T": ["otp1.0", "otp1.0"]},
                            "jwks": {"dfs": [{"kty": "DFS", "dfs": "AP8="}],
                                     "software_id_cert": [device]}}),
        good("members that are not read", {**base, "scope": "x", "redirect_uris": ["y"]}, base),
        good("a list of keys that is none", {**base, "jwks": {"dfs": "x"}}, base),
        good("null where nothing is needed", {**base, "handshake_types": None}, base),
        bad("no redirect URI", {**base, "redirect_uri": []}),
        bad("a redirect URI that is no list", {**base, "redirect_uri": "https://c/cb"}),
        bad("a number among the redirect URIs", {**base, "redirect_uri": ["a", 1]}),
        bad("no name", {"redirect_uri": ["a"], "software_id": "s"}),
        bad("no software identifier", {"redirect_uri": ["a"], "client_name": "n"}),
        bad("a challenge that is no list", {**base, "handshake_challenge": {"T": "otp1.0"}}),
        bad("a challenge with two members",
            {**base, "handshake_challenge": {"T": ["otp1.0"], "V": ["x"]}}),
        bad("a key that is no object", {**base, "jwks": {"dfs": [1]}}),
        bad("types that are no texts", {**base, "handshake_types": [1]}),
        bad("an array", "[]"),
        bad("no document", "registration"),
    ]
    challenge = {"C": "3405716291", "M": "1985229328", "V": "hVnCkQ0mS6mZ0b8p1cT2rg=="}
    fixed = {"client_id": "kY0p2bX1QWq0m1c8m0bVwA==", "client_secret": "m2bC0c1kQ3e6aVtYQ3Jm1Q==",
             "client_secret_expires_in": "86400"}
    asked = {**challenge, "T": ["otp1.0", "software_id_cert-1.0"]}

    def answer(name, members, written=None, why=None):
        document = {**fixed, **members}
        row = {"name": name, "valid": written is not False, "members": document}
        if written is not False:
            row["written"] = compact({"kest_policy_auth_req": [], **document, **(written or {})})
        return {**row, "why": why} if why else row

    responses = [
        answer("a challenge alone", {"handshake_challenge": asked}),
        answer("one type in the challenge",
               {"handshake_challenge": {"T": "software_id_cert-1.0", "V": challenge["V"]}},
               {"handshake_challenge": {"T": ["software_id_cert-1.0"], "V": challenge["V"]}},
               "\"T\" is always an array here"),
        answer("everything", {"handshake_challenge": asked,
                              "handshake_response": {"M": "7", "C": "9", "R": "94287082"},
                              "grant_types": ["authorization_code"],
                              "kest_policy_auth_types": ["p"], "kest_policy_auth_req": ["q", "r"],
                              "ssl_cert_cryptex": "YWJj", "software_id_cert": [device]},
               {"handshake_response": {"M": "7", "C": "9", "R": ["94287082"]}},
               "\"R\" is always an array here"),
        answer("a challenge of one parameter", {"handshake_challenge": {"T": "otp1.0"}}, False,
               "two parameters are the least that is written"),
        answer("no challenge", {}, False),
    ]
    def told(name, document, fields=None, why=None):
        row = {"name": name, "valid": fields is not None, "document": compact(document)}
        if fields is not None:
            row["fields"] = {"client_secret_expires_at": "0", **fields}
        return {**row, "why": why} if why else row

    secret = {"client_id": "a", "client_secret": "s"}
    answers = [
        told("an identifier alone", {"client_id": "a"}, {"client_id": "a"}),
        told("everything", {**secret, "client_secret_expires_at": 1798761600,
                            "client_id_issued_at": 1767225600, "registration_access_token": "t",
                            "registration_client_uri": "https://server.example/c?id=a"},
             {**secret, "client_secret_expires_at": "1798761600", "client_id_issued_at": "1767225600",
              "registration_access_token": "t",
              "registration_client_uri": "https://server.example/c?id=a"}),
        told("the end of a secret that is not there", {"client_id": "a", "client_secret_expires_at": 60},
             {"client_id": "a"}, "it is not looked at"),
        told("the largest number", {**secret, "client_secret_expires_at": 4294967295},
             {**secret, "client_secret_expires_at": "4294967295"}),
        told("a time of issue that is a text", {"client_id": "a", "client_id_issued_at": "60"},
             {"client_id": "a"}),
        told("no identifier", {"client_secret": "s", "client_secret_expires_at": 60}),
        told("a secret without an end", secret),
        told("an end that is a text", {**secret, "client_secret_expires_at": "60"}),
        told("an end beyond 32 bits", {**secret, "client_secret_expires_at": 4294967296}),
        told("a negative end", {**secret, "client_secret_expires_at": -1}),
    ]
    return {
        "about": "Registration: \"requests\" as parse_register_request reads and "
                 "write_register_request writes them, \"responses\" as write_register_response "
                 "writes them for a record with these members (a list of one may stand as a text), "
                 "\"answers\" of an OpenID Connect endpoint as parse_oidc_register_response reads them.",
        "requests": requests,
        "responses": responses,
        "answers": answers,
    }


def authorization():
    base = {"client_id": "kY0p2bX1QWq0m1c8m0bVwA==", "client_secret": "m2bC0c1kQ3e6aVtYQ3Jm1Q==",
            "state": "af0ifjsldkj"}
    refresh = {**base, "refresh_token": "pE8dJg1bY7m5m0i3b1kD1w=="}
    proofs = {"handshake_response": {"R": ["94287082", "MEUCIQ"]}}

    def good(name, document, written=None, why=None):
        row = {"name": name, "valid": True, "document": compact(document),
               "written": compact(written if written is not None else document)}
        return {**row, "why": why} if why else row

    def bad(name, document, why=None):
        row = {"name": name, "valid": False, "document": document if isinstance(document, str)
               else compact(document)}
        return {**row, "why": why} if why else row

    without = {name: {k: v for k, v in refresh.items() if k != name} for name in base}
    requests = [
        good("with a refresh token", refresh),
        good("with a handshake response", {**base, **proofs}),
        good("one proof", {**base, "handshake_response": {"R": "94287082"}},
             {**base, "handshake_response": {"R": ["94287082"]}}, "\"R\" is written as an array"),
        good("both", {**refresh, **proofs}, {**base, **proofs},
             "NOTE: the refresh token is read, and not written beside a handshake"),
        good("with policies", {**refresh, "kest_policy_auth": {"a": "1", "b": "2"}}),
        good("policies that are no object", {**refresh, "kest_policy_auth": ["a"]}, refresh),
        good("a handshake that is no object", {**refresh, "handshake_response": "x"}, refresh),
        good("parameters without texts", {**base, "handshake_response": {"A": None, "B": 1, "R": ["x"]}},
             {**base, "handshake_response": {"R": ["x"]}}),
        bad("neither refresh token nor handshake", base),
        bad("an empty handshake", {**refresh, "handshake_response": {}},
            "it refuses the request even beside a refresh token"),
        bad("an object inside the handshake", {**refresh, "handshake_response": {"R": {"a": "b"}}}),
        bad("a number among the proofs", {**base, "handshake_response": {"R": ["x", 1]}}),
        bad("a policy that is no text", {**refresh, "kest_policy_auth": {"a": 1}}),
        bad("a state that is no text", {**refresh, "state": 1}),
        *(bad(f"without \"{name}\"", document) for name, document in without.items()),
        bad("an array", "[]"),
    ]
    answer = {"access_token": "e30.e30.AAAA", "refresh_token": "pE8dJg1bY7m5m0i3b1kD1w==",
              "state": "af0ifjsldkj", "expires_in": "3600", "token_type": "bearer"}
    responses = [
        good("an answer", answer),
        good("a member more", {**answer, "scope": "x"}, answer),
        bad("a lifetime that is a number", {**answer, "expires_in": 3600},
            "NOTE: RFC 6749 makes it a number; here it is a string"),
        *(bad(f"without \"{name}\"", {k: v for k, v in answer.items() if k != name})
          for name in answer),
    ]
    return {
        "about": "Authorization: \"requests\" as parse_authorize_request reads and "
                 "write_authorize_request writes them, \"responses\" the same for the answers.",
        "requests": requests,
        "responses": responses,
    }


FILES = {
    "base64url.json": base64url,
    "tokens.json": tokens,
    "delegated.json": delegated,
    "jwk.json": jwk,
    "otp.json": one_time_passwords,
    "certificate_proof.json": certificate_proofs,
    "certificates.json": certificates,
    "ecies.json": ecies,
    "register.json": registration,
    "authorize.json": authorization,
}


# What a reader accepts and a writer must not send, by file and by name of the test.
NOT_SENT = {
    "base64url.json": {
        "the standard alphabet is taken, too", "complete padding", "a line feed",
        "bits behind the last byte are ignored"},
    "tokens.json": {
        "times in hexadecimal", "issued in the future", "\"alg\" is not consulted",
        "\"crit\" is not consulted", "padding behind the signature"},
    "delegated.json": {
        "ES256, signature in DER", "chosen by \"kid\"", "chosen by \"alg\"", "no curve",
        "a curve that is not known", "\"crit\" is not consulted", "times as texts",
        "without a subject", "scope as an object"},
    "jwk.json": {"lower case", "no curve means P-256", "RSA in lower case"},
    "otp.json": {"names in another case"},
    "certificate_proof.json": {
        "the signature in standard Base64", "both proofs, the second missing",
        "certificate first, wrong signature"},
    "certificates.json": {
        "the last of two", "in the order of TLS", "development root on a marked device",
        "its first 17 bytes"},
    "ecies.json": {
        "in Base64url", "no line feed behind that of the data", "a line feed and nothing else", "an altered IV",
        "no MAC on a marked device", "no IV on a marked device"},
    "register.json": {
        "a list of keys that is none", "null where nothing is needed",
        "the end of a secret that is not there", "a time of issue that is a text"},
    "authorize.json": {
        "both", "policies that are no object", "a handshake that is no object",
        "parameters without texts"},
}


def marked(name, document):
    """The document, its tests that a writer must not send marked as such."""
    rows = [row for group in document.values() if isinstance(group, list) for row in group]
    for row in rows:
        if row["name"] in NOT_SENT[name]:
            row["send"] = False
    assert {row["name"] for row in rows if "send" in row} == NOT_SENT[name], name
    return document


def main():
    if sys.argv[1:] not in ([], ["--check"]):
        sys.exit(__doc__)
    differing = 0
    for name, make in FILES.items():
        text = json.dumps(marked(name, make()), indent=1) + "\n"
        path = HERE / name
        if sys.argv[1:] == []:
            path.write_text(text, encoding="utf-8")
        elif not path.exists() or path.read_text(encoding="utf-8") != text:
            print(f"{name} is not what make.py writes")
            differing += 1
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
