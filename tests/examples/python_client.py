# SPDX-License-Identifier: Apache-2.0
"""python_client.py tool EXAMPLES VECTORS TOOL: the client in Python knows the vectors, and gets on with
the command as its controller.
python_client.py daemon EXAMPLES TOOL SANDBOX SERVICE DBUS: it gets on with the token service of examples/dbus."""
import base64
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import ec

from run import EMULATOR, bus, expect, run, started

sys.path.insert(0, sys.argv[2])
import client  # noqa: E402
import over_dbus  # noqa: E402

URI = "https://client.example/callback"


def refused(what, *arguments, by=client.Refused):
    try:
        what(*arguments)
    except by as problem:
        return str(problem)
    sys.exit(f"{what} {arguments} is not refused")


# -- The vectors -------------------------------------------------------------------------------

# Each of these makes a vector wrong.
ALTERED = (
    ("otp.json", '"R": "94287082"', '"R": "94287083"'),
    ("otp.json", '"hmac_sha1": "75', '"hmac_sha1": "74'),
    ("otp.json", '"offset": 11', '"offset": 12'),
    ("otp.json", '"number": 1094287082', '"number": 94287082'),
    ("ecies.json", '"mac": "C9', '"mac": "C8'),
    ("ecies.json", '"shared_secret": "', '"shared_secret": "00'),
    ("ecies.json", '"key_material": "', '"key_material": "00'),
    ("ecies.json", '"data": "line"', '"data": "line\\n"'),
    ("ecies.json", '"plaintext": "2d', '"plaintext": "2c'),
)


def check_vectors(examples, vectors, place):
    def check(directory, status=0):
        # Python runs here, whatever machine the tool is built for.
        done = subprocess.run([sys.executable, "-W", "ignore", examples / "check_vectors.py", directory],
                              capture_output=True, text=True, check=False)
        expect("the status of check_vectors.py", (done.returncode, done.stderr), (status, ""))
        return done.stdout

    expect("the vectors", check(vectors).split(", ")[1], "0 wrong\n")
    shutil.copytree(vectors, place / "vectors")
    for file, old, new in ALTERED:
        original = (place / "vectors" / file).read_text(encoding="ascii")
        expect(f"{old} in {file}", old in original, True)
        (place / "vectors" / file).write_text(original.replace(old, new), encoding="ascii")
        expect(f"{file} with {new}", ", 0 wrong" in check(place / "vectors", 1), False)
        (place / "vectors" / file).write_text(original, encoding="ascii")


# -- The command as the controller -------------------------------------------------------------


class Controller:
    """What a controller does with a request, by means of the command."""

    def __init__(self, tool, place, mode):
        self.tool, self.place, self.mode = tool, place, mode
        self.keys, self.key = place / "keys.json", place / "signing.pem"
        self.answer_own, self.change, self.refresh = self.keys, {}, None

    def send(self, what, text):
        answer = self.register(text) if what == "register" else self.authorize(text)
        return client.written({**json.loads(answer), **self.change})

    def register(self, text):
        request = json.loads(text)
        options = ["--mode", self.mode]
        if "handshake_challenge" in request and self.answer_own:
            own, response = self.place / "own.json", self.place / "response.json"
            own.write_text(json.dumps(request["handshake_challenge"]))
            response.write_text(run(self.tool, "handshake", "respond", "--challenge", own, "--keys", self.answer_own))
            options += ["--handshake-response", response]
        answer = run(self.tool, "register", "response", *options, text=text)
        (self.place / "registered.json").write_text(answer)
        (self.place / "request.json").write_text(text)
        return answer

    def authorize(self, text):
        request = json.loads(text)
        if "handshake_response" in request:
            proven = ["--challenge", self.place / "registered.json", "--keys", self.keys]
            proven += ["--certificate", self.place / "request.json"] if self.mode != "2" else []
            done = subprocess.run([*EMULATOR, self.tool, "handshake", "check", *proven], input=text,
                                  capture_output=True, text=True, check=False)
            if done.returncode != 0:
                return run(self.tool, "error", "invalid_client")
        elif request["refresh_token"] != self.refresh:
            return run(self.tool, "error", "invalid_client")
        answer = run(self.tool, "token", "issue", "--key", self.key, "--subject", "admin", text=text)
        self.refresh = json.loads(answer)["refresh_token"]
        return answer


def register(mine, types, own=None):
    request = client.register_request("a client", "python-1", URI, types, mine.identity)
    mine.register({**request, **({"handshake_challenge": own} if own else {})})


def prove(tool, place, keys, identity):
    """The handshake in all modes, with and without a challenge of the client's own. Returns a token."""
    everything = [*keys, client.CERTIFICATE_PROOF]
    own = {"T": ["otp1.0", "otp2.0"]}
    for mode in "123":
        for challenge in None, own:
            controller = Controller(tool, place, mode)
            mine = client.Client(controller.send, keys, identity)
            register(mine, everything, challenge)
            first = mine.authorize()
            second = mine.refresh()
            expect("the refresh token", first["refresh_token"] == second["refresh_token"], False)
            mine.refresh_token = first["refresh_token"]
            expect("an old refresh token", refused(mine.refresh, by=client.Failed), "invalid_client")
            refused(mine.authorize)  # there is no challenge any more
            register(mine, everything)
            expect("the refresh token of another registration", mine.refresh_token, "")
    return second["access_token"]


def prove_wrongly(tool, place, keys, identity):
    other = client.Identity(identity.certificate, ec.generate_private_key(ec.SECP256R1()))
    for mode, wrong in (
        ("1", client.Client(Controller(tool, place, "1").send, keys, other)),
        ("2", client.Client(Controller(tool, place, "2").send, {"otp1.0": ["another"]})),
    ):
        register(wrong, ["otp1.0", client.CERTIFICATE_PROOF][: 3 - int(mode)])
        expect(f"a wrong proof in mode {mode}", refused(wrong.authorize, by=client.Failed), "invalid_client")


def mistrust(tool, place, keys, identity):
    """What a client takes from nobody."""
    controller = Controller(tool, place, "2")
    mine = client.Client(controller.send, keys, identity)
    own = {"T": ["otp1.0"]}
    controller.answer_own = None
    refused(register, mine, list(keys), own)
    controller.answer_own = place / "other-keys.json"
    controller.answer_own.write_text('{"otp1.0":["another"]}')
    refused(register, mine, list(keys), own)
    for challenge in None, "x", {"T": ["otp9.0"], "M": "1", "C": "1"}, {"T": [client.CERTIFICATE_PROOF], "V": "x"}:
        controller.change = {"handshake_challenge": challenge}
        refused(register, mine, list(keys))
    expect("what is kept", mine.registered, {})
    controller.change = {}
    for change in {"state": "another"}, {"token_type": "mac"}, {"expires_in": 600}, {"access_token": None}:
        register(mine, list(keys))
        controller.change = change
        refused(mine.authorize)
        expect("the refresh token", mine.refresh_token, "")
        controller.change = {}
    for challenge in ({}, {"T": []}, {"T": 1}, {"T": "otp1.0", "M": "1"}, {"T": "otp1.0", "M": "0", "C": "1"},
                      {"T": "otp1.0", "M": "1", "C": str(2**63)}, {"T": "otp1.0", "M": "٣", "C": "1"},
                      {"T": "otp3.0", "M": "1", "C": "1"}, {"T": client.CERTIFICATE_PROOF, "V": [None]},
                      {"T": client.CERTIFICATE_PROOF, "V": "\ud800"}):
        refused(client.respond, challenge, keys, identity)
    refused(client.respond, {"T": client.CERTIFICATE_PROOF, "V": "x"}, keys)
    refused(client.check_answer, {"T": []}, {"R": []}, keys)
    for _ in range(20):
        client.check_answer(own, client.respond(own, keys), keys)
    for key in {}, {"x5c": []}, {"x5c": [1]}, {"x5c": ["!"]}, {"x5c": ["TUlJ"]}, {"x5c": 1}:
        refused(client.first_certificate, key)
    for text in "", "[]", "{", "[" * 100000, '{"error":7}':
        mine.send = lambda what, request, text=text: text
        refused(mine.ask, "register", {})


def verify(tool, place, vectors, token):
    def jwk(name, *options):
        return client.read(run(tool, "key", "convert", "--to", "jwk", "--public", *options, place / f"{name}.pem"))

    run(tool, "key", "generate", place / "other.pem")
    other, mine = jwk("other", "--kid", "other"), jwk("signing", "--kid", "mine")
    for keys in mine, jwk("signing"), {"keys": [other, mine]}, {"keys": [{"kty": "RSA"}, mine]}:
        expect("the subject", client.verify_access_token(token, keys)["sub"], "admin")
    for keys in other, {"keys": [other]}, {"keys": []}, {**mine, "crv": "P-384"}:
        expect("the reason", refused(client.verify_access_token, token, keys), "no known key has signed it")
    expect("the reason", refused(client.verify_access_token, token, mine, 2**40), "not yet valid, or expired")
    file = client.read((vectors / "tokens.json").read_bytes())
    (named,) = (test["token"] for test in file["tests"] if test["name"] == "with a key identifier")
    client.verify_access_token(named, {**file["key"]["jwk"], "kid": "k1"}, file["now"])
    refused(client.verify_access_token, named, {**file["key"]["jwk"], "kid": "k2"}, file["now"])


# -- Documents that are not what they should be ------------------------------------------------

VALUES = (None, 1, 1.5, True, [], {}, "", "é", "\ud800", "\0", [None], ["x", 1], "9" * 5000, "1_0", [[[]]], 2**70)


def altered(document):
    """The document with each member absent, of another type or with another value."""
    for name, value in document.items():
        yield {other: kept for other, kept in document.items() if other != name}
        inner = altered(value) if isinstance(value, dict) else ()
        for other in (*VALUES, *inner):
            yield {**document, name: other}


def refuses_alone(what, *arguments):
    """Whatever comes, a client need not be prepared for anything but this."""
    try:
        what(*arguments)
    except (client.Refused, client.Failed):
        pass


def hostile(vectors, keys, identity):
    types = [*keys, client.CERTIFICATE_PROOF]
    own = {"T": ["otp1.0"]}
    request = {**client.register_request("a client", "python-1", URI, types), "handshake_challenge": own}
    challenge = {"T": types, "M": "1", "C": "1", "V": "x"}
    answer = {"client_id": "a", "client_secret": "b", "handshake_challenge": challenge,
              "handshake_response": client.respond(own, keys)}
    for registered in altered(answer):
        mine = client.Client(lambda what, text, answer=registered: json.dumps(answer), keys, identity)
        refuses_alone(mine.register, request)
        refuses_alone(mine.authorize)
    mine.registered = answer
    for tokens in altered({name: "x" for name in client.TOKEN_ANSWER}):
        mine.send = lambda what, text, answer=tokens: json.dumps({**answer, "state": json.loads(text)["state"]})
        refuses_alone(mine.refresh)

    file = client.read((vectors / "tokens.json").read_bytes())
    token, jwk, now = file["tests"][0]["token"], file["key"]["jwk"], file["now"]
    header, claims, _, _ = client.parts(token)
    signing = serialization.load_der_private_key(bytes.fromhex(file["key"]["der"]), None)
    for change in altered({"header": {**header, "kid": "x"}, "claims": {**claims, "scope": {"a": ["b"]}}}):
        text = ".".join(client.encode(json.dumps(change.get(name)).encode()) for name in ("header", "claims"))
        signature = client.encode(signing.sign(text.encode(), client.ECDSA_SHA256))
        refuses_alone(client.verify_access_token, f"{text}.{signature}", jwk, now)
    for key in (*altered(jwk), *altered({"keys": [jwk]})):
        refuses_alone(client.verify_access_token, token, key, now)

    file = client.read((vectors / "ecies.json").read_bytes())
    peer = client.first_certificate({"x5c": [file["sender"]["x5c"]]})
    for envelope in altered({name: file["tests"][0][name] for name in ("ciphertext", "mac", "iv")}):
        refuses_alone(client.open_envelope, envelope, identity.key, peer)
    body = base64.b64decode(file["sender"]["x5c"])
    for place, byte in enumerate(body):
        other = base64.b64encode(body[:place] + bytes([byte ^ 7]) + body[place + 1 :]).decode()
        refuses_alone(lambda x5c: client.key_of(client.first_certificate({"x5c": x5c})), [other])
        refuses_alone(client.proof_text, {"V": "x"}, {"x5c": [other]})


# -- Envelopes ---------------------------------------------------------------------------------


def envelopes(tool, place, made):
    ours = over_dbus.identity(made / "a-client-chain.pem", made / "a-client.key")
    theirs = client.first_certificate(client.certificate_key((made / "a-controller.pem").read_bytes()))
    to_them = ["--key", made / "a-controller.key", "--peer", made / "a-client.pem"]
    for data in "for your eyes only", "for your eyes only\n", "\n", "x" * 73710:
        sealed = client.seal(data.encode(), ours.key, theirs)
        opened = run(tool, "ecies", "open", "--data-only", *to_them, text=client.written(sealed))
        expect("the data", opened, data)
    sealed = json.loads(run(tool, "ecies", "seal", *to_them, text="for your eyes only"))
    attached = place / "sealed.json"
    attached.write_text(json.dumps(sealed))
    response = json.loads(run(tool, "handshake", "attach", "--sealed", attached, text='{"R":["00000000"]}'))
    for envelope in sealed, response:
        expect("the data", client.open_envelope(envelope, ours.key, theirs), b"for your eyes only")
    for change in {"mac": "AA=="}, {"iv": None}, {"iv": sealed["iv"] + "00"}, {"mac": None}, {"ciphertext": None}:
        refused(client.open_envelope, {**sealed, **change}, ours.key, theirs)
    refused(client.open_envelope, {**sealed, "ciphertext": sealed["ciphertext"] + "\n" * 98304}, ours.key, theirs)
    refused(client.open_envelope, sealed, ours.key, client.first_certificate(ours.certificate))
    longest = json.loads(run(tool, "ecies", "seal", *to_them, text="x" * 73710))
    expect("the longest data", client.open_envelope(longest, ours.key, theirs), b"x" * 73710)
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-384", "-nodes",
                    "-subj", "/O=nameless", "-keyout", place / "p384.key", "-out", place / "p384.pem"],
                   capture_output=True, check=True)
    other = client.certificate_key((place / "p384.pem").read_bytes())
    refused(client.seal, b"data", ours.key, client.first_certificate(other))
    refused(client.proof_text, {"V": "x"}, other)
    for data in b"", b"a\0b", b"x" * 73711:
        refused(client.seal, data, ours.key, theirs)


def with_tool(examples, vectors, tool):
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        check_vectors(pathlib.Path(examples), vectors, place)
        made = place / "made"
        run(tool, "pki", "make", "--device", "a-client", "--device", "a-controller", made)
        run(tool, "key", "generate", place / "signing.pem")
        (place / "keys.json").write_text(run(tool, "handshake", "keys", "--prefix", "otp", "--keys", "2",
                                             "--tokens", "3"))
        keys = client.read((place / "keys.json").read_bytes())
        identity = over_dbus.identity(made / "a-client-chain.pem", made / "a-client.key")
        verify(tool, place, pathlib.Path(vectors), prove(tool, place, keys, identity))
        prove_wrongly(tool, place, keys, identity)
        mistrust(tool, place, keys, identity)
        hostile(pathlib.Path(vectors), keys, identity)
        envelopes(tool, place, made)


# -- The token service -------------------------------------------------------------------------


def with_daemon(examples, tool, sandbox, service, directory):
    if not shutil.which("busctl"):
        print("busctl is missing")
        sys.exit(77)
    data = pathlib.Path(directory)
    with tempfile.TemporaryDirectory() as name, bus(data):
        place = pathlib.Path(name)
        for folder in "state", "devices":
            (place / folder).mkdir()
        shutil.copy(data / "secrets.json", place / "devices" / "dev-1.json")
        made = place / "made"
        run(tool, "pki", "make", "--device", "dev-1", made)
        in_sandbox = [sandbox, "--roots", made, "--"]
        can_have_roots = subprocess.run([*in_sandbox, "true"], capture_output=True, check=False).returncode == 0
        for mode, before in ("2", []), ("3", in_sandbox):
            if mode == "2" or can_have_roots:
                with started(place, *before, *EMULATOR, service, mode, place / "state", place / "devices"):
                    talk(pathlib.Path(examples), place, mode)


def talk(examples, place, mode):
    secrets, made = place / "devices" / "dev-1.json", place / "made"
    proof = [made / "dev-1-chain.pem", made / "dev-1.key"]
    options = ["--certificate", proof[0], "--key", proof[1]] if mode == "3" else []
    done = subprocess.run([sys.executable, examples / "over_dbus.py", "--software", "dev-1", "--keys", secrets,
                           *options], capture_output=True, text=True, check=False)
    story = "registered: .*\nproven, token for \\d+ seconds\nrefreshed, token for \\d+ seconds\nverified, token of .*\n"
    expect(f"the story {done}", bool(re.fullmatch(story, done.stdout)) and done.returncode == 0, True)

    keys = client.read(secrets.read_bytes())
    identity = over_dbus.identity(*proof) if mode == "3" else None
    types = [*keys, client.CERTIFICATE_PROOF][: None if identity else -1]
    request = client.register_request("a client", "dev-1", URI, types, identity)
    mine = client.Client(over_dbus.send, keys, identity)
    mine.register(request)
    expect("the types asked for", len(mine.registered["handshake_challenge"]["T"]), int(mode) - 1)
    challenge = mine.registered["handshake_challenge"]
    mine.authorize()
    mine.registered["handshake_challenge"] = challenge
    expect("a challenge that is used up", refused(mine.authorize, by=client.Failed), "invalid_client")
    stranger = client.Client(over_dbus.send, {name: ["another"] for name in keys}, identity)
    stranger.register(request)
    expect("a wrong password", refused(stranger.authorize, by=client.Failed), "invalid_client")
    expect("no request", refused(mine.ask, "register", {}, by=client.Failed), "invalid_request")


if __name__ == "__main__":
    {"tool": with_tool, "daemon": with_daemon}[sys.argv[1]](*sys.argv[2:])
