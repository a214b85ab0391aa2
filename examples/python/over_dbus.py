#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A client of the token service in examples/dbus, with client.py and the command `busctl`.

Registers, proves itself, refreshes its tokens and verifies the access token. A service of its own
would call D-Bus through a module: arguments of commands can be seen by everybody on the machine."""
from __future__ import annotations

import argparse
import json
import pathlib
import subprocess

from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import ec

import client

SERVICE = ("org.example.Tokens", "/org/example/Tokens", "org.example.Tokens1")


def call(method: str, *texts: str) -> str:
    """The answer; if the service refuses, its error document, which is the message of the D-Bus error."""
    command = ["busctl", "--user", "--json=short", "call", *SERVICE, method, "s" * len(texts), *texts]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        return done.stderr.partition("Call failed: ")[2]
    return str(json.loads(done.stdout)["data"][0])


def send(what: str, text: str) -> str:
    return call({"register": "Register", "authorize": "Issue"}[what], text)


def identity(chain: str, path: str) -> client.Identity:
    key = serialization.load_pem_private_key(pathlib.Path(path).read_bytes(), None)
    if not isinstance(key, ec.EllipticCurvePrivateKey):
        raise client.Refused(f"{path} is not a P-256 key")
    return client.Identity(client.certificate_key(pathlib.Path(chain).read_bytes()), key)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--software", required=True, help="software identifier, the name of the device")
    parser.add_argument("--keys", required=True, help="key document with the secrets of one-time passwords")
    parser.add_argument("--certificate", help="PEM chain: device, intermediates, device")
    parser.add_argument("--key", help="its private key, PEM")
    given = parser.parse_args()

    mine = client.Client(send, client.read(pathlib.Path(given.keys).read_bytes()))
    types = list(mine.keys)
    if given.certificate:
        mine.identity = identity(given.certificate, given.key)
        types.append(client.CERTIFICATE_PROOF)
    uri = "https://client.example/callback"
    mine.register(client.register_request("a client in Python", given.software, uri, types, mine.identity))
    print("registered:", mine.registered["client_id"])
    tokens = mine.authorize()
    print("proven, token for", tokens["expires_in"], "seconds")
    tokens = mine.refresh()
    print("refreshed, token for", tokens["expires_in"], "seconds")
    claims = client.verify_access_token(tokens["access_token"], client.read(call("Keys")))
    print("verified, token of", claims["sub"])


if __name__ == "__main__":
    main()
