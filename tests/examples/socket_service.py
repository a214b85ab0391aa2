# SPDX-License-Identifier: Apache-2.0
"""socket_service.py SERVICE TOOL: a device of a factory made for this test registers with the
service, and uses its tokens; others try what must fail."""

import concurrent.futures
import json
import os
import pathlib
import shlex
import socket
import subprocess
import sys
import tempfile
import threading

# What runs programs that are built for another machine.
EMULATOR = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))
REDIRECT = "https://client.example/callback"
CLIENT = {"error": "invalid_client"}
INVALID = {"error": "invalid_request"}


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"{what}: found\n{found}\ninstead of\n{wanted}")


class Service:
    """The service, as systemd starts it: the listening socket is its descriptor 3."""

    def __init__(self, program, folder, introspector):
        self.path = str(folder / f"socket-{introspector}")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path)
            listener.listen(16)
            command = ["sh", "-c", 'exec "$@" 3<&0 < /dev/null', "sh", *EMULATOR, program, folder / "signing.pem",
                       folder / "secrets", str(introspector)]
            self.process = subprocess.Popen(list(map(str, command)), stdin=listener, stderr=subprocess.PIPE, text=True,
                                            env={**os.environ, "FACTORY_ROOTS": str(folder / "pki")})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.log = self.process.communicate()[1]

    def send(self, *parts):
        """What the service answers to a line that comes in these parts."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(60)
            connection.connect(self.path)
            for part in parts:
                connection.sendall(part)
            return json.loads(connection.makefile().readline())

    def call(self, name, **members):
        return self.send(json.dumps({"call": name, **members}).encode() + b"\n")


class Device:
    """A client that has what the factory has made for `name`."""

    def __init__(self, tool, folder, name):
        self.tool, self.folder, self.name = tool, folder, name
        self.chain, self.key = (folder / "pki" / f"{name}{end}" for end in ("-chain.pem", ".key"))
        self.credentials = {}

    def run(self, *arguments):
        done = subprocess.run([*EMULATOR, self.tool, *map(str, arguments)], capture_output=True, text=True, check=True,
                              stdin=subprocess.DEVNULL)
        return json.loads(done.stdout)

    def request(self, software=None, uri=REDIRECT):
        return self.run("register", "request", "--redirect-uri", uri, "--client-name", "a device", "--software-id",
                        software or self.name, "--handshake-type", "otp1.0", "--handshake-type",
                        "software_id_cert-1.0", "--certificate", self.chain)

    def register(self, service):
        answer = service.call("register", **self.request())
        self.credentials = {name: answer[name] for name in ("client_id", "client_secret")}
        return answer["handshake_challenge"]

    def proof(self, challenge, key=None):
        path = self.folder / f"challenge-{threading.get_ident()}.json"
        path.write_text(json.dumps(challenge), encoding="ascii")
        response = self.run("handshake", "respond", "--challenge", path, "--keys",
                            self.folder / "secrets" / f"{self.name}.json", "--certificate", self.chain, "--key",
                            key or self.key)
        return {**self.credentials, "state": "any", "handshake_response": response}

    def refresh(self, service, token):
        return service.call("token", **self.credentials, state="any", refresh_token=token)


def play(service, device, other):
    """All that a device does; its last access token."""
    request = device.request()
    expect("another's name", service.call("register", **device.request(software=other.name)), INVALID)
    expect("another URI", service.call("register", **device.request(uri=REDIRECT + "/")), INVALID)
    stranger = {**request["jwks"]["software_id_cert"][0]}
    stranger["x5c"] = other.request()["jwks"]["software_id_cert"][0]["x5c"][:1] + stranger["x5c"][1:]
    expect("a strange certificate before a chain",
           service.call("register", **{**request, "jwks": {"software_id_cert": [stranger]}}), INVALID)

    challenge = device.register(service)
    expect("both proofs", len(challenge["T"]), 2)
    wrong = device.proof(challenge, key=other.key)
    expect("another's signature", service.call("token", **wrong), CLIENT)
    good = device.proof(challenge)
    expect("a second answer", service.call("token", **good), CLIENT)

    good = device.proof(device.register(service))
    one_password = {**good, "handshake_response": {"R": good["handshake_response"]["R"][:1]}}
    expect("half an answer", service.call("token", **one_password), CLIENT)
    good = device.proof(device.register(service))
    first = service.call("token", **good)
    expect("the tokens", sorted(first), ["access_token", "expires_in", "refresh_token", "state", "token_type"])
    expect("the same proof again", service.call("token", **good), CLIENT)

    second = device.refresh(service, first["refresh_token"])
    expect("a wrong secret",
           service.call("token", **{**device.credentials, "client_secret": "guess"}, state="any",
                        refresh_token=second["refresh_token"]), CLIENT)
    for tokens in first, second:
        expect("a valid token", service.call("validate", token=tokens["access_token"]), {})
    expect("no token", service.call("validate", token=first["refresh_token"]), {"error": "invalid_token"})
    return device.refresh(service, second["refresh_token"])


def end(service, device, other, tokens):
    """The owner alone revokes, and nothing is left then."""
    access = tokens["access_token"]
    described = service.call("introspect", token=access)
    expect("what it is good for", {name: described[name] for name in ("active", "client_id", "scope")},
           {"active": True, "client_id": device.credentials["client_id"], "scope": "ravok_login"})
    theirs = service.call("token", **other.proof(other.register(service)))
    expect("another's revocation", service.call("revoke", **other.credentials, token=access), {})
    expect("still valid", service.call("validate", token=access), {})
    expect("the owner's", service.call("revoke", **device.credentials, token=tokens["refresh_token"]), {})
    expect("revoked", service.call("validate", token=access), {"error": "invalid_token"})
    expect("nothing said of it", service.call("introspect", token=access), {"active": False})
    expect("no refresh", device.refresh(service, tokens["refresh_token"]), CLIENT)
    expect("the other's", service.call("validate", token=theirs["access_token"]), {})


def hostile(service):
    """Lines that are not calls, and connections that say nothing."""
    for line in b"\n", b"[]\n", b"{}\n", b"{\n", b"\xff\n", b'{"call":"unknown"}\n', b'{"call":7}\n':
        expect(line, service.send(line), INVALID)
    expect("a line in parts", service.send(b'{"call":', b'"none"}', b"\n"), INVALID)
    with concurrent.futures.ThreadPoolExecutor(16) as pool:
        silent = [socket.socket(socket.AF_UNIX) for _ in range(8)]
        for one in silent:
            one.connect(service.path)
        expect("behind silence", pool.submit(service.send, b"{}\n").result(), INVALID)
        for one in silent:
            one.close()
        many = [pool.submit(service.send, b"{}\n") for _ in range(64)]
        expect("all at once", [one.result() for one in many], [INVALID] * 64)
    # No more than 32 KiB is read of a line.
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(service.path)
        try:
            connection.sendall(b"[" * 1048576)
        except ConnectionError:
            pass
        else:
            sys.exit("a line without end was read")


def main(program, tool):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        device, other = (Device(tool, folder, one) for one in ("device-1", "device-2"))
        subprocess.run([*EMULATOR, tool, "pki", "make", "--device", device.name, "--device", other.name,
                        folder / "pki"], capture_output=True, check=True)
        (folder / "secrets").mkdir()
        for one in device, other:
            keys = one.run("handshake", "keys", "--prefix", "otp", "--keys", "1", "--tokens", "3")
            (folder / "secrets" / f"{one.name}.json").write_text(json.dumps(keys), encoding="ascii")
        with Service(program, folder, os.getuid()) as service:
            tokens = play(service, device, other)
            end(service, device, other, tokens)
            hostile(service)
            spent = device.register(service)
        for rule in ("certificate.name", "client.redirect-uri", "chain.ends", "handshake.proof-wrong",
                     "client.challenge-used", "handshake.proof-missing", "client.secret", "policy.revoked"):
            expect(f"{rule} in the log", f"refused: {rule}" in service.log, True)
        expect("secrets in the log", device.credentials["client_secret"] in service.log, False)
        # Another user may ask here, and the key is the one of the first start.
        with Service(program, folder, os.getuid() + 1) as service:
            expect("who may ask", service.call("introspect", token=tokens["access_token"]),
                   {"error": "access_denied"})
            expect("after a restart", service.call("token", **device.proof(spent)), CLIENT)
    done = subprocess.run([*EMULATOR, program], capture_output=True, text=True, check=False)
    expect("without arguments", (done.returncode, done.stderr.split(": ")[0]),
           (1, "socket-service KEY SECRETS USER"))


if __name__ == "__main__":
    main(*sys.argv[1:])
