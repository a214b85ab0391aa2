# SPDX-License-Identifier: Apache-2.0
"""The verbs of register, handshake and ecies, as client and controller use them."""

import base64
import hashlib
import hmac
import json
import stat
import shutil
import subprocess

from support import INVALID, PKI_WARNING, SUCCESS, USAGE, ToolTest, altered

CERTIFICATE_TYPE = "software_id_cert-1.0"
TYPES = ["--type", "otp1.0", "--type", CERTIFICATE_TYPE]


def hotp(secret, counter):
    """RFC 4226 with 8 digits."""
    digest = hmac.digest(secret.encode(), counter.to_bytes(8, "big"), hashlib.sha1)
    offset = digest[-1] & 15
    number = int.from_bytes(digest[offset : offset + 4], "big") & 0x7FFFFFFF
    return f"{number % 10**8:08d}"


class RegisterRequest(ToolTest):
    REQUEST = ["register", "request", "--redirect-uri", "https://c/cb"]
    NAMES = ["--client-name", "c", "--software-id", "s"]

    def test_writes_what_is_needed(self):
        self.assertEqual(
            self.good(*self.REQUEST, *self.NAMES),
            '{"client_name":"c","redirect_uri":["https://c/cb"],"software_id":"s"}',
        )

    def test_writes_everything_else(self):
        self.pki()
        self.write("secret", b"\x00\xff")
        challenge = self.write("challenge.json", {"T": ["a", "a"]})
        request = self.good_json(
            *self.REQUEST,
            *self.NAMES,
            *("--handshake-type", "a", "--handshake-type", "b", "--redirect-uri", "x"),
            *("--certificate", "pki/a.pem", "--dfs", "secret", "--challenge", challenge),
        )
        self.assertEqual(request["handshake_types"], ["a", "b"])
        self.assertEqual(request["redirect_uri"], ["https://c/cb", "x"])
        self.assertEqual(request["handshake_challenge"], {"T": ["a", "a"]})
        self.assertEqual(request["jwks"]["dfs"], [{"dfs": "AP8=", "kty": "DFS"}])
        key = self.good_json("cert", "encode", "pki/a.pem")
        self.assertEqual(request["jwks"]["software_id_cert"], [key])

    def test_needs_uri_name_and_software(self):
        self.refused(USAGE, "--client-name|--software-id", *self.REQUEST)
        self.refused(USAGE, "--redirect-uri", "register", "request", *self.NAMES)

    def test_refuses_an_empty_secret(self):
        self.write("secret", "")
        self.refused(INVALID, "no secret", *self.REQUEST, *self.NAMES, "--dfs", "secret")

    def test_refuses_a_parameter_without_a_value(self):
        # The library would leave out the whole list, without a word.
        self.pki()
        self.write("challenge.json", {"T": "a", "n": 7})
        given = ["--challenge", "challenge.json"]
        self.refused(INVALID, "challenge.json are refused: document.", *self.REQUEST, *self.NAMES, *given)
        self.write("key.json", {**self.good_json("cert", "encode", "pki/a.pem"), "n": 7})
        given = ["--certificate", "key.json"]
        self.refused(INVALID, "keys are refused: document.", *self.REQUEST, *self.NAMES, *given)


class RegisterResponse(ToolTest):
    REQUEST = json.dumps(
        {
            "redirect_uri": ["x"],
            "client_name": "c",
            "software_id": "s",
            "handshake_types": ["otp1.0", CERTIFICATE_TYPE],
        }
    )

    def test_challenges_by_the_types_of_the_request(self):
        types = {1: CERTIFICATE_TYPE, 2: "otp1.0", 3: ["otp1.0", CERTIFICATE_TYPE]}
        for mode, asked in types.items():
            response = self.good_json("register", "response", "--mode", mode, text=self.REQUEST)
            challenge = response["handshake_challenge"]
            self.assertEqual(challenge["T"], asked if isinstance(asked, list) else [asked])
            self.assertEqual("V" in challenge, mode != 2)
            self.assertEqual("M" in challenge and "C" in challenge, mode != 1)
            self.assertEqual(len(base64.b64decode(response["client_id"])), 16)
            self.assertEqual(len(base64.b64decode(response["client_secret"])), 16)
            self.assertEqual(response["client_secret_expires_in"], "0")

    def test_writes_the_settings(self):
        self.pki()
        sealed = self.write("sealed.json", {"ciphertext": "YWJj", "mac": "bQ==", "iv": "0" * 32})
        answer = self.write("answer.json", {"R": ["12345678"]})
        response = self.good_json(
            *("register", "response", "--expires-in", "60", "--grant-type", "g"),
            *("--policy-type", "p", "--policy-req", "q", "--certificate", "pki/a.pem"),
            *("--sealed", sealed, "--handshake-response", answer),
            text=self.REQUEST,
        )
        self.assertEqual(response["client_secret_expires_in"], "60")
        self.assertEqual(response["grant_types"], ["g"])
        self.assertEqual(response["kest_policy_auth_types"], ["p"])
        self.assertEqual(response["kest_policy_auth_req"], ["q"])
        self.assertEqual(response["ssl_cert_cryptex"], "YWJj")
        self.assertEqual(response["handshake_response"], {"R": ["12345678"]})
        self.assertEqual(len(response["software_id_cert"][0]["x5c"]), 1)

    def test_refuses_types_that_the_mode_lacks(self):
        request = json.dumps({**json.loads(self.REQUEST), "handshake_types": ["otp1.0"]})
        self.refused(INVALID, "by mode 3: handshake.types: ", "register", "response", text=request)
        self.good("register", "response", "--mode", "2", text=request)

    def test_refuses_other_modes(self):
        for mode in ("0", "4"):
            self.refused(USAGE, "--mode", "register", "response", "--mode", mode, text=self.REQUEST)

    def test_refuses_what_is_no_request(self):
        self.refused(INVALID, "is not a register request", "register", "response", text="{}")
        self.refuses_what_is_no_text("register", "response", "@")


class RegisterAnswer(ToolTest):
    def test_prints_the_fields(self):
        self.assertEqual(
            self.good(
                *("register", "answer"),
                text='{"client_id":"a","client_secret":"s","client_secret_expires_at":60,"x":1}',
            ),
            '{"client_id":"a","client_secret":"s","client_secret_expires_at":"60"}',
        )

    def test_prints_an_answer_without_secret(self):
        self.assertEqual(
            self.good_json("register", "answer", text='{"client_id":"a","client_id_issued_at":7}'),
            {"client_id": "a", "client_id_issued_at": "7", "client_secret_expires_at": "0"},
        )

    def test_refuses_a_secret_without_an_end(self):
        text = '{"client_id":"a","client_secret":"s"}'
        self.refused(INVALID, "client_secret_expires_at", "register", "answer", text=text)

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("register", "answer", "@")


class HandshakeChallenge(ToolTest):
    def test_asks_for_both_proofs(self):
        challenge = self.good_json("handshake", "challenge", *TYPES)
        self.assertEqual(challenge["T"], ["otp1.0", CERTIFICATE_TYPE])
        self.assertEqual(sorted(challenge), ["C", "M", "T", "V"])

    def test_refuses_types_that_the_mode_lacks(self):
        self.refused(INVALID, "handshake.types: ", "handshake", "challenge", "--type", "otp1.0")

    def test_makes_a_clients_challenge(self):
        client = ["handshake", "challenge", "--client", *TYPES]
        self.assertEqual(self.good(*client), '{"T":"otp1.0"}')
        self.assertEqual(self.good(*client, "--count", "2"), '{"T":["otp1.0","otp1.0"]}')
        self.refused(
            USAGE, "handshake.types: ", "handshake", "challenge", "--client", "--type", "otp1.0"
        )

    def test_needs_a_type(self):
        self.refused(USAGE, "--type", "handshake", "challenge")


class HandshakeKeys(ToolTest):
    def test_makes_secrets(self):
        keys = self.good_json("handshake", "keys", "--prefix", "k", "--keys", "2", "--tokens", "3")
        self.assertEqual(list(keys), ["k1.0", "k2.0"])
        secrets = keys["k1.0"] + keys["k2.0"]
        self.assertEqual(len(set(secrets)), 6)
        for secret in secrets:
            self.assertRegex(secret, r"^[A-Za-z0-9_-]{27}$")

    def test_makes_secrets_of_any_length(self):
        keys = self.good_json("handshake", "keys", "--prefix", "k", "--length", "1")
        self.assertEqual(len(keys["k1.0"][0]), 2)

    def test_writes_a_file_that_only_its_owner_reads(self):
        keys = ["handshake", "keys", "--prefix", "k", "--out", "keys.json"]
        self.assertEqual(self.good(*keys), "")
        file = self.directory / "keys.json"
        self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o600)
        first = json.loads(file.read_text())
        self.assertEqual(list(first), ["k1.0"])
        self.refused(USAGE, "keys.json exists already: give --force", *keys)
        self.assertEqual(json.loads(file.read_text()), first)
        self.assertEqual(self.good_json(*keys, "--force", "--json"), {"file": "keys.json"})
        self.assertNotEqual(json.loads(file.read_text()), first)
        self.refused(USAGE, "--out takes a file", *keys[:-1], "-")

    def test_refuses_a_prefix_that_is_too_long(self):
        keys = ["handshake", "keys", "--prefix"]
        self.assertEqual(list(self.good_json(*keys, "k" * 46)), ["k" * 46 + "1.0"])
        self.refused(USAGE, "too long: 50 characters .* 49 at most", *keys, "k" * 47)
        self.refused(USAGE, "too long: 50 characters", *keys, "k" * 46, "--keys", "10")
        self.assertEqual(self.good_json(*keys, "k" * 99, "--keys", "0"), {})


class Handshake(ToolTest):
    def setUp(self):
        super().setUp()
        self.pki()
        self.secrets = ["first", "second", "third"]
        self.write("keys.json", {"otp1.0": self.secrets})
        self.write(
            "challenge.json",
            {"T": ["otp1.0", CERTIFICATE_TYPE], "M": "7", "C": "42", "V": "dG9rZW4="},
        )

    def respond(self, challenge="challenge.json"):
        return self.good_json(
            *("handshake", "respond", "--challenge", challenge, "--keys", "keys.json"),
            *("--certificate", "pki/a-chain.pem", "--key", "pki/a.key"),
        )

    CHECK = ["handshake", "check", "--challenge", "challenge.json", "--keys", "keys.json"]
    CERTIFIED = [*CHECK, "--certificate", "pki/a-chain.pem"]

    def test_response_holds_both_proofs(self):
        password, signature = self.respond()["R"]
        # The secret is the one at index 7 modulo 3.
        self.assertEqual(password, hotp("second", 42))
        self.write("signature", base64.urlsafe_b64decode(signature + "=" * (-len(signature) % 4)))
        self.write("public.pem", self.openssl("x509", "-in", "pki/a.pem", "-noout", "-pubkey"))
        verify = ["dgst", "-sha256", "-verify", "public.pem", "-signature", "signature"]
        self.assertEqual(self.openssl(*verify, text=b"dG9rZW4=:a"), b"Verified OK\n")

    def test_response_is_accepted(self):
        text = json.dumps(self.respond())
        self.assertEqual(self.good(*self.CERTIFIED, text=text), "accepted")

    def test_response_inside_an_authorize_request_is_accepted(self):
        text = json.dumps({"state": "x", "handshake_response": self.respond()})
        self.assertEqual(self.good(*self.CERTIFIED, text=text), "accepted")

    def test_challenge_inside_a_register_response_is_found(self):
        challenge = json.loads((self.directory / "challenge.json").read_text())
        self.write("registered.json", {"client_id": "x", "handshake_challenge": challenge})
        self.assertEqual(self.respond("registered.json")["R"][0], hotp("second", 42))

    def refuses(self, rule, proofs, *options, **members):
        text = json.dumps({"R": proofs})
        options = options or ("--certificate", "pki/a-chain.pem")
        self.refused_by(rule, *self.CHECK, *options, text=text, **members)

    def test_wrong_password_is_refused(self):
        password, signature = self.respond()["R"]
        for wrong in (hotp("second", 43), hotp("first", 42), password[2:], ""):
            self.refuses("handshake.proof-wrong", [wrong, signature], index="0", subject="otp1.0")

    def test_forged_signature_is_refused(self):
        password, signature = self.respond()["R"]
        proofs = [password, altered(signature, 0)]
        self.refuses("handshake.proof-wrong", proofs, index="1", subject=CERTIFICATE_TYPE)

    def test_signature_of_another_key_is_refused(self):
        self.good("pki", "make", "other", "--device", "a", warning=PKI_WARNING)
        other = ["--certificate", "other/a.pem"]
        self.refuses("handshake.proof-wrong", self.respond()["R"], *other, index="1")

    def test_no_password_is_shown(self):
        password, signature = self.respond()["R"]
        self.write("keys.json", {"otp1.0": ["others"]})
        text = json.dumps({"R": [password, signature]})
        outcome = self.tool(*self.CERTIFIED, "--json", text=text)
        self.assertEqual(outcome.status, INVALID)
        for secret in (password, hotp("others", 42), "others"):
            self.assertNotIn(secret.encode(), outcome.out + outcome.err)

    def test_what_the_check_lacks_is_named(self):
        proofs = self.respond()["R"]
        self.refuses("handshake.certificate", proofs, "--as-the-library")
        self.write("keys.json", {"otp1.0": "x"})
        self.refuses("handshake.secret", proofs, subject="otp1.0")
        without = ["handshake", "check", "--challenge", "challenge.json", "--certificate", "pki/a.pem"]
        text = json.dumps({"R": proofs})
        self.refused_by("handshake.keys", *without, text=text)

    def test_what_cannot_be_answered_is_named(self):
        proof = CERTIFICATE_TYPE
        self.write("keys.json", {"otp": ["one", "two"], "odd": [7]})
        keys, own = ["--keys", "keys.json"], ["--certificate", "pki/a.pem", "--key", "pki/a.key"]
        for challenge, given, rule in (
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, keys, "handshake.certificate"),
            ({"T": ["otp", proof], "M": "1", "C": "1", "V": "t"}, own, "handshake.keys"),
            ({"T": ["otp", proof], "M": "0", "C": "1", "V": "t"}, keys + own, "handshake.counters"),
            ({"T": ["otp", proof], "M": "1", "V": "t"}, keys + own, "handshake.counters"),
            ({"T": ["otp", proof], "M": "1", "C": "1"}, keys + own, "handshake.token"),
            ({"T": "pot", "M": "1", "C": "1"}, keys + own, "handshake.secret"),
            ({"T": "odd", "M": "1", "C": "1"}, keys + own, "handshake.secret"),
        ):
            with self.subTest(rule):
                self.write("challenge.json", {"handshake_challenge": challenge})
                self.refused_by(rule, "handshake", "respond", "--challenge", "challenge.json", *given)

    def test_missing_proof_is_refused(self):
        text = json.dumps({"R": [hotp("second", 42)]})
        reason = "the challenge asks for 2 proofs, and the response holds 1"
        self.refused(INVALID, f": {reason}$", *self.CERTIFIED, text=text)
        self.refuses("tool.proof-count", [hotp("second", 42)])
        # The library does not ask for it.
        library = [*self.CERTIFIED, "--as-the-library"]
        self.assertEqual(self.good(*library, text=text, warning=reason), "accepted")
        self.assertEqual(
            self.good_json(*library, "--json", text=text, warning=reason),
            {"verdict": "valid", "chain_verified": False, "proofs": 1, "types": 2},
        )
        text = json.dumps({"R": [hotp("second", 43)]})
        self.refused(INVALID, "handshake.proof-wrong: ", *library, text=text)

    def test_proof_beyond_the_types_is_refused(self):
        text = json.dumps({"R": [*self.respond()["R"], "x"]})
        reason = "the challenge asks for 2 proofs, and the response holds 3"
        self.refused(INVALID, reason, *self.CERTIFIED, text=text)
        library = [*self.CERTIFIED, "--as-the-library"]
        self.assertEqual(self.good(*library, text=text, warning=reason), "accepted")

    def test_certificate_proof_that_does_not_count_is_refused(self):
        # The library looks at the last proof, and the forged one before it is forgotten.
        self.write(
            "challenge.json",
            {"T": [CERTIFICATE_TYPE, "otp1.0"], "M": "7", "C": "42", "V": "dG9rZW4="},
        )
        text = json.dumps({"R": ["forged", hotp("second", 42)]})
        reason = "asks for another proof after the certificate proof, which then does not count"
        self.refused(INVALID, "tool.proof-order: .*" + reason, *self.CERTIFIED, text=text)
        warning = "the challenge " + reason
        library = [*self.CERTIFIED, "--as-the-library"]
        self.assertEqual(self.good(*library, text=text, warning=warning), "accepted")

    def test_password_alone_needs_no_certificate(self):
        self.write("challenge.json", {"T": "otp1.0", "M": "1", "C": "5"})
        response = self.good_json(
            "handshake", "respond", "--challenge", "challenge.json", "--keys", "keys.json"
        )
        self.assertEqual(response, {"R": hotp("second", 5)})
        self.assertEqual(self.good(*self.CHECK, text=json.dumps(response)), "accepted")

    def test_password_is_that_of_oathtool(self):
        if shutil.which("oathtool") is None:
            self.skipTest("oathtool is not installed")
        keys = self.good_json("handshake", "keys", "--prefix", "otp", "--keys", "1", "--tokens", "3")
        self.write("keys.json", keys)
        for counter in (1, 2, 1000000, 2**63 - 1, 2**64 - 2):
            self.write("challenge.json", {"T": "otp1.0", "M": "5", "C": str(counter)})
            response = self.good_json(
                "handshake", "respond", "--challenge", "challenge.json", "--keys", "keys.json"
            )
            # The characters of the secret are its bytes; 5 modulo 3 selects the last one.
            secret = keys["otp1.0"][2].encode().hex()
            password = subprocess.run(
                ["oathtool", "--hotp", "--digits=8", f"--counter={counter}", secret],
                check=True,
                stdout=subprocess.PIPE,
                timeout=60,
            )
            self.assertEqual(response, {"R": password.stdout.decode().strip()})

    def test_certificate_alone_needs_no_secrets(self):
        self.write("challenge.json", {"T": CERTIFICATE_TYPE, "V": "x"})
        respond = ["handshake", "respond", "--challenge", "challenge.json"]
        own = ["--certificate", "pki/a.pem"]
        response = self.good(*respond, *own, "--key", "pki/a.key")
        check = ["handshake", "check", "--challenge", "challenge.json", *own]
        self.assertEqual(self.good(*check, text=response), "accepted")
        self.refused(INVALID, "cannot be answered", *respond)

    def test_chain_is_verified_where_that_is_asked(self):
        self.install_roots()
        text = json.dumps(self.respond())
        chain = [*self.CERTIFIED, "--chain"]
        self.assertEqual(self.good(*chain, text=text), "accepted, chain verified")
        self.assertEqual(self.good(*chain, "--name", "a", text=text), "accepted, chain verified")
        wrong = [*chain, "--name", "b"]
        self.refused_by("certificate.name", *wrong, text=text)
        alone = [argument for argument in chain if argument != "--chain"]
        self.refused(USAGE, "--name needs --chain", *alone, "--name", "a", text=text)

    def test_strangers_certificate_before_a_chain_is_refused(self):
        own = ["--certificate", self.stranger(), "--key", "stranger/a.key"]
        text = self.good(
            "handshake", "respond", "--challenge", "challenge.json", "--keys", "keys.json", *own
        )
        self.install_roots()
        check = [*self.CHECK, "--certificate", "attack.pem"]
        self.assertEqual(self.good(*check, text=text), "accepted")
        for name in ([], ["--name", "a"]):
            # The option is about proofs.
            for options in ([], ["--as-the-library"]):
                refused = [*check, "--chain", *name, *options]
                self.refused_by("chain.ends", *refused, text=text)

    def test_chain_to_another_root_is_refused(self):
        self.good("pki", "make", "other", warning=PKI_WARNING)
        text = json.dumps(self.respond())
        self.install_roots("other")
        self.assertEqual(self.good(*self.CERTIFIED, text=text), "accepted")
        self.refused(INVALID, "chain.untrusted: ", *self.CERTIFIED, "--chain", text=text)

    def test_chain_needs_a_certificate(self):
        self.refused(USAGE, "--chain needs --certificate", *self.CHECK, "--chain", text='{"R":"x"}')

    def test_documents_that_are_none_are_refused(self):
        for text in ("{}", '{"R":{}}', '{"handshake_response":{}}'):
            self.refused(INVALID, "no list of parameters", *self.CERTIFIED, text=text)
        self.refuses_what_is_no_text(*self.CERTIFIED, "@")


class Ecies(ToolTest):
    def setUp(self):
        super().setUp()
        self.pki("--device", "a", "--device", "b")

    SEAL = ["ecies", "seal", "--key", "pki/a.key", "--peer", "pki/b.pem"]
    OPEN = ["ecies", "open", "--key", "pki/b.key", "--peer", "pki/a.pem"]

    def test_iv_is_random(self):
        first, second = self.good("ecies", "iv"), self.good("ecies", "iv")
        self.assertRegex(first, r"^[0-9A-F]{32}$")
        self.assertNotEqual(first, second)

    def test_opens_what_it_sealed(self):
        sealed = self.good(*self.SEAL, text="hello\nworld")
        self.assertEqual(sorted(json.loads(sealed)), ["ciphertext", "iv", "mac"])
        opened = self.good(*self.OPEN, text=sealed)
        self.assertRegex(opened, r"^hello\nworld\n[A-Za-z0-9+/=]{16}$")

    def data(self, envelope):
        outcome = self.tool(*self.OPEN, "--data-only", text=envelope)
        self.assertEqual((outcome.status, outcome.err), (SUCCESS, b""))
        return outcome.out.decode()

    def test_data_comes_back_the_same_byte_for_byte(self):
        for data in ("hello\nworld", (self.directory / "pki/a.pem").read_text(), "\n"):
            self.assertEqual(self.data(self.good(*self.SEAL, text=data)), data)

    def test_takes_an_iv(self):
        iv = "00112233445566778899aabbccddeeff"
        self.assertEqual(self.good_json(*self.SEAL, "--iv", iv, text="x")["iv"], iv)
        for wrong in (iv[1:], iv + "0", "g" + iv[1:]):
            self.refused(USAGE, "32 hexadecimal digits", *self.SEAL, "--iv", wrong, text="x")

    def test_refuses_an_altered_envelope(self):
        sealed = self.good_json(*self.SEAL, text="x" * 100)
        for change, rule in (
            ({"ciphertext": altered(sealed["ciphertext"], 0)}, "envelope.mac-wrong"),
            ({"mac": altered(sealed["mac"], 0)}, "envelope.mac-wrong"),
            ({"mac": ""}, "base64.malformed"),
            ({"iv": "00"}, "envelope.iv"),
            ({"ciphertext": "*"}, "base64.malformed"),
        ):
            with self.subTest(change):
                self.refused_by(rule, *self.OPEN, text=json.dumps({**sealed, **change}))

    def test_refuses_other_keys(self):
        sealed = self.good(*self.SEAL, text="x")
        own = ["ecies", "open", "--key", "pki/a.key", "--peer", "pki/a.pem"]
        self.refused_by("envelope.mac-wrong", *own, text=sealed)

    def test_refuses_data_that_no_envelope_takes(self):
        self.refused(INVALID, "holds 0 bytes", *self.SEAL, text="")
        self.refused(INVALID, "holds 73711 bytes", *self.SEAL, text="x" * 73711)
        # Room for a second line feed, which tells it from the envelope's own.
        self.refused(INVALID, "holds 73710 bytes: an envelope takes from 1 to 73709$", *self.SEAL, text="x" * 73709 + "\n")
        self.refused(INVALID, "zero byte", *self.SEAL, text=b"a\0b")

    def test_opens_the_largest_envelope(self):
        for data in ("x" * 73710, "x" * 73708 + "\n"):
            self.assertEqual(self.data(self.good(*self.SEAL, text=data)), data)

    def test_refuses_what_is_no_envelope(self):
        for text in ("{}", '{"ciphertext":"YQ==","mac":"YQ=="}', '{"encrypted_sslcert":"x","mac":""}'):
            self.refused(INVALID, "is not an envelope", *self.OPEN, text=text)
        self.refuses_what_is_no_text(*self.OPEN, "@")

    def test_opens_what_was_attached_to_a_response(self):
        self.write("sealed.json", self.good(*self.SEAL, text="certificate"))
        attached = self.good(
            "handshake", "attach", "--sealed", "sealed.json", text='{"R":["12345678"]}'
        )
        document = json.loads(attached)
        self.assertEqual(sorted(document), ["HMAC", "R", "encrypted_sslcert", "iv"])
        self.assertEqual(document["R"], "12345678")
        self.assertEqual(self.data(attached), "certificate")

    def test_refuses_to_attach_an_iv_of_another_length(self):
        self.write("sealed.json", {"ciphertext": "YQ==", "mac": "YQ==", "iv": "0" * 31})
        attach = ["handshake", "attach", "--sealed", "sealed.json"]
        self.refused(INVALID, "sealed.json is refused: [a-z]+.", *attach, text='{"R":"x"}')
