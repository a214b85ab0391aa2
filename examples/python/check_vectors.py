#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_vectors.py DIRECTORY: checks the files of docs/vectors with client.py, and with what only a
controller judges, by the documents alone. Prints how many there are and how many differ."""
from __future__ import annotations

import base64
import datetime
import hmac
import json
import pathlib
import sys
from typing import Callable, Dict, List, Optional, Tuple, Union

from cryptography import x509
from cryptography.exceptions import InvalidSignature, UnsupportedAlgorithm
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec, padding, rsa, utils

import client
from client import Json, Refused, decode, is_texts, parameter, written


def expect(condition: bool, reason: str = "refused") -> None:
    if not condition:
        raise Refused(reason)


# -- Handshake ---------------------------------------------------------------------------------


def handshake(challenge: Json, response: Json, keys: Json, certificate: Json) -> None:
    """As a controller judges proofs: missing ones at the end are not asked for, a wrong password
    ends the check, and the last proof decides."""
    numbers = client.numbers_of(challenge, response)
    right = False
    for kind, proof in zip(parameter(challenge, "T"), parameter(response, "R")):
        if kind != client.CERTIFICATE_PROOF:
            right = proof == client.password(kind, keys, numbers)
            expect(right, "wrong password")
            continue
        try:
            text = client.proof_text(challenge, certificate)
            key = client.key_of(client.first_certificate(certificate))
            key.verify(decode(proof), text, client.ECDSA_SHA256)
            right = True
        except InvalidSignature:
            right = False
    expect(right, "no proof, or a wrong one")


def chain(bodies: List[str], roots: List[x509.Certificate]) -> None:
    """The last certificate up to a root, by way of those between the first and the last."""
    try:
        loaded = [x509.load_der_x509_certificate(base64.b64decode(b)) for b in bodies[1:] or bodies]
    except ValueError as error:
        raise Refused("no certificate") from error
    day = datetime.datetime(2035, 1, 1, tzinfo=datetime.timezone.utc)
    subject, authorities = loaded[-1], loaded[:-1] + roots
    while subject not in roots:
        begin, end = moment(subject, "not_valid_before"), moment(subject, "not_valid_after")
        expect(begin <= day <= end, "not valid in 2035")
        for authority in authorities:
            if authority.subject == subject.issuer and signed_by(subject, authority):
                break
        else:
            raise Refused("no way to a root")
        subject = authority


def moment(certificate: x509.Certificate, name: str) -> datetime.datetime:
    """In UTC. Newer modules warn of the times without a zone; older ones have no others."""
    time: Optional[datetime.datetime] = getattr(certificate, name + "_utc", None)
    return time or getattr(certificate, name).replace(tzinfo=datetime.timezone.utc)


def signed_by(subject: x509.Certificate, authority: x509.Certificate) -> bool:
    try:
        constraints = authority.extensions.get_extension_for_class(x509.BasicConstraints).value
        key = client.key_of(authority)
        key.verify(subject.signature, subject.tbs_certificate_bytes, client.ECDSA_SHA256)
    except (x509.ExtensionNotFound, InvalidSignature):
        return False
    return constraints.ca


def same_name(pem: str, name: Optional[str]) -> None:
    found = x509.load_pem_x509_certificate(pem.encode()).subject.get_attributes_for_oid(x509.NameOID.COMMON_NAME)
    first = str(found[0].value).encode()[:17].lower() if found else None
    expect(name is None or first == name.encode().lower())


# -- Tokens and keys ---------------------------------------------------------------------------


def public_numbers(key: Json) -> Union[rsa.RSAPublicNumbers, ec.EllipticCurvePublicNumbers]:
    """A JSON Web Key as an issuer publishes it."""
    kind, curve = str(key.get("kty")).upper(), str(key.get("crv")).upper()
    numbers = {name: int.from_bytes(decode(key[name]), "big") for name in "xyne" if isinstance(key.get(name), str)}
    if kind == "RSA":
        return rsa.RSAPublicNumbers(numbers["e"], numbers["n"])
    expect(kind == "EC", "no public key")
    curves = {"P-384": ec.SECP384R1(), "P-521": ec.SECP521R1()}
    return ec.EllipticCurvePublicNumbers(numbers["x"], numbers["y"], curves.get(curve, ec.SECP256R1()))


def imported(text: str) -> Tuple[str, str]:
    """The key as it is trusted: with the PEM form, by which alone it verifies."""
    key = client.read(text)
    form = serialization.Encoding.PEM, serialization.PublicFormat.SubjectPublicKeyInfo
    try:
        pem = public_numbers(key).public_key().public_bytes(*form).decode()
    except (ValueError, KeyError) as error:
        raise Refused("not a public key") from error
    return pem, written({**key, "kest_decoded_key": pem.rstrip("\n")})


def chosen(text: str, header: Json) -> Optional[str]:
    """The PEM form of a key that is to be tried on a token with this header."""
    if text.startswith("-----"):
        return text
    key = client.read(text)
    algorithm, curve = header["alg"], {"256": "P-256", "384": "P-384", "512": "P-521"}.get(header["alg"][-3:])
    known = key.get("crv") in ("P-256", "P-384", "P-521")
    if (
        key.get("alg") == algorithm
        or ("kid" in header and key.get("kid") == header["kid"])
        or (key.get("kty") == "RSA" and algorithm.startswith(("RS", "P")))
        or (key.get("kty") == "EC" and algorithm.startswith("E") and (not known or key["crv"] == curve))
    ):
        return str(key.get("kest_decoded_key", ""))
    return None


def signed(pem: str, algorithm: str, signature: str, text: bytes) -> bool:
    """RFC 7518, section 3.1; and ECDSA in DER form besides."""
    digests = {"256": hashes.SHA256(), "384": hashes.SHA384(), "512": hashes.SHA512()}
    try:
        key, digest = serialization.load_pem_public_key(pem.encode()), digests[algorithm[-3:]]
        octets = decode(signature)
        if algorithm[0] == "E" and isinstance(key, ec.EllipticCurvePublicKey):
            size = (key.key_size + 7) // 8
            if len(octets) == 2 * size:
                pair = (int.from_bytes(octets[:size], "big"), int.from_bytes(octets[size:], "big"))
                octets = utils.encode_dss_signature(*pair)
            key.verify(octets, text, ec.ECDSA(digest))
        elif algorithm[0] in "RP" and isinstance(key, rsa.RSAPublicKey):
            salted = padding.PSS(padding.MGF1(digest), padding.PSS.AUTO)
            key.verify(octets, text, salted if algorithm[0] == "P" else padding.PKCS1v15(), digest)
        else:
            return False
    except (InvalidSignature, ValueError, KeyError, UnsupportedAlgorithm):
        return False
    return True


def delegated(test: Json, now: int) -> None:
    header, claims, signature, text = client.parts(test["token"])
    verified = False
    for key in test["keys"]:
        pem = chosen(key, header)
        if pem is not None:
            verified = signed(pem, header["alg"], signature, text)
            if verified and not key.startswith("-----"):
                break
    expect(verified, "no trusted key has signed it")
    begin, end = (int(claims.get(name, 0)) for name in ("nbf", "exp"))
    expect(begin - test["skew"] <= now < end + test["skew"], "not yet valid, or not any more")


# -- Documents ---------------------------------------------------------------------------------


def listed(parameters: Json) -> Json:
    """A parameter list whose values are written as arrays; a value that is not a text is absent."""
    known = {}
    for name, value in parameters.items():
        expect(isinstance(value, str) or not isinstance(value, (list, dict)) or is_texts(value))
        if isinstance(value, (str, list)):
            known[name] = value
    return {**known, "R": parameter(known, "R")} if "R" in known else known


def read(text: str, needed: List[str]) -> Tuple[Json, Json]:
    document = client.read(text)
    return document, {name: client.string(document, name) for name in needed}


def register_request(text: str) -> str:
    document, names = read(text, ["client_name", "software_id"])
    result: Json = dict(names)
    result["redirect_uri"] = document.get("redirect_uri")
    expect(is_texts(result["redirect_uri"]) and result["redirect_uri"] != [], "no redirect URI")
    challenge, types = document.get("handshake_challenge"), document.get("handshake_types")
    if challenge is not None:
        alone = list(challenge) == ["T"] and is_texts(challenge["T"])
        expect(alone and challenge["T"] != [], "a challenge is T alone, a list")
        result["handshake_challenge"] = challenge
    if types is not None:
        expect(is_texts(types))
        result["handshake_types"] = types
    lists = {name: keys for name, keys in (document.get("jwks") or {}).items() if isinstance(keys, list)}
    expect(all(isinstance(key, dict) for keys in lists.values() for key in keys))
    return written({**result, **({"jwks": lists} if lists else {})})


def register_response(members: Json) -> str:
    challenge = members.get("handshake_challenge", {})
    expect(len(challenge) > 1, "a challenge of two parameters or more is needed")
    result: Json = {"kest_policy_auth_req": [], **members}
    result["handshake_challenge"] = {**challenge, "T": parameter(challenge, "T")}
    if "handshake_response" in members:
        result["handshake_response"] = listed(members["handshake_response"])
    return written(result)


def endpoint_answer(text: str) -> Json:
    document, result = read(text, ["client_id"])
    result["client_secret_expires_at"] = "0"
    for name in ("client_secret", "registration_access_token", "registration_client_uri"):
        if isinstance(document.get(name), str):
            result[name] = document[name]
    if isinstance(document.get("client_id_issued_at"), int):
        result["client_id_issued_at"] = str(document["client_id_issued_at"])
    if "client_secret" in document:
        end = document.get("client_secret_expires_at")
        expect(isinstance(end, int) and 0 <= end < 2**32, "when does the secret end?")
        result["client_secret_expires_at"] = str(end)
    return result


def authorize_request(text: str) -> str:
    document, result = read(text, ["client_id", "client_secret", "state"])
    response, policies = document.get("handshake_response"), document.get("kest_policy_auth")
    if isinstance(policies, dict):
        expect(is_texts(list(policies.values())))
        result["kest_policy_auth"] = policies
    if isinstance(response, dict):
        expect(response != {}, "an empty handshake response")
        return written({**result, "handshake_response": listed(response)})
    return written({**result, "refresh_token": client.string(document, "refresh_token")})


def authorize_response(text: str) -> str:
    return written(read(text, list(client.TOKEN_ANSWER))[1])


# -- The files ---------------------------------------------------------------------------------


def same(got: object, wanted: object) -> None:
    if got != wanted:
        raise AssertionError(f"{got!r} instead of {wanted!r}")


def envelope(file: Json, test: Json) -> None:
    receiver = serialization.load_der_private_key(bytes.fromhex(file["receiver"]["der"]), None)
    assert isinstance(receiver, ec.EllipticCurvePrivateKey)
    sender = x509.load_der_x509_certificate(base64.b64decode(file["sender"]["x5c"]))
    # A marked device, a controller under development, looks at no MAC.
    data = None if test["marked"] else client.open_envelope(test, receiver, sender)
    material, body = client.key_material(receiver, sender), decode(test["ciphertext"])
    plaintext = client.decrypted(material, body, bytes.fromhex(test["iv"] or "00" * 16))
    same((client.data_of(plaintext) if data is None else data).decode(), test.get("data"))
    same(plaintext.removesuffix(b"\0").decode(), test["plaintext"])
    steps = {
        "shared_secret": receiver.exchange(ec.ECDH(), client.key_of(sender)).hex(),
        "key_material": material.hex(),
        "plaintext": plaintext.hex(),
        "ciphertext": body.hex(),
        "mac": hmac.digest(material[16:], body, "sha256").hex() if test["mac"] else None,
    }
    same(steps, test["intermediate"])


def passwords(test: Json) -> None:
    handshake(test["challenge"], test["response"], json.loads(test["keys"]), {})
    same([step["password"] for step in test["intermediate"]], parameter(test["response"], "R"))
    for step in test["intermediate"]:
        mac = hmac.HMAC(step["secret"].encode(), bytes.fromhex(step["counter"]), "sha1").digest()
        same((mac.hex(), mac[19] % 16), (step["hmac_sha1"], step["offset"]))
        number = int(mac.hex()[2 * step["offset"] :][:8], 16) % 2**31
        same((number, str(number)[-8:].zfill(8)), (step["number"], step["password"]))


def certificate_chain(file: Json, test: Json) -> None:
    names = ["production_root", "development_root"][: 2 if test["marked"] else 1]
    chain(test["x5c"], [x509.load_pem_x509_certificate(file[name].encode()) for name in names])


CHECKS: Dict[str, Callable[[Json, Json], None]] = {
    "base64url.tests": lambda file, test: same(decode(test["text"]).hex(), test.get("bytes")),
    "otp.tests": lambda file, test: passwords(test),
    "certificate_proof.tests": lambda file, test: handshake(
        test["challenge"], test["response"], json.loads(file["keys"]), test.get("certificate", file["certificate"])
    ),
    "tokens.tests": lambda file, test: same(
        {**client.verify_access_token(test["token"], file["key"]["jwk"], file["now"]), **test.get("claims", {})},
        client.parts(test["token"])[1],
    ),
    "delegated.tests": lambda file, test: delegated(test, file["now"]),
    "jwk.tests": lambda file, test: same(imported(test["jwk"]), (test.get("pem"), test.get("written"))),
    "ecies.tests": envelope,
    "certificates.chains": certificate_chain,
    "certificates.names": lambda file, test: same_name(test["pem"], test["common_name"]),
    "certificates.encoded": lambda file, test: same(
        client.certificate_key(test["pem"].encode())["x5c"], test.get("x5c")
    ),
    "register.requests": lambda file, test: same(register_request(test["document"]), test.get("written")),
    "register.responses": lambda file, test: same(register_response(test["members"]), test.get("written")),
    "register.answers": lambda file, test: same(endpoint_answer(test["document"]), test.get("fields")),
    "authorize.requests": lambda file, test: same(authorize_request(test["document"]), test.get("written")),
    "authorize.responses": lambda file, test: same(authorize_response(test["document"]), test.get("written")),
}


def main() -> int:
    directory, wrong, count = pathlib.Path(sys.argv[1]), 0, 0
    for key, check in CHECKS.items():
        name, group = key.split(".")
        file = json.loads((directory / f"{name}.json").read_text())
        for test in file[group]:
            count += 1
            try:
                check(file, test)
                verdict = "accepted"
            except Refused as problem:
                verdict = f"refused ({problem!r})"
            except AssertionError as problem:
                verdict = f"different ({problem})"
            if verdict.startswith("accepted") != test["valid"] or verdict.startswith("different"):
                wrong += 1
                print(f"{key}: {test['name']}: {verdict}")
    print(f"{count} vectors, {wrong} wrong")
    return 1 if wrong or not count else 0


if __name__ == "__main__":
    sys.exit(main())
