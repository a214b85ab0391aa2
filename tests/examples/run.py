# SPDX-License-Identifier: Apache-2.0
"""run.py EXAMPLE PROGRAM...: runs an example as its readers would, and looks at
what it does. Ends with a complaint where it does something else."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

# What runs programs that are built for another machine.
EMULATOR = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))


# Why the daemon refuses what its client tries.
DAEMON_RULES = {"authorize.grant", "handshake.proof-wrong", "handshake.types", "token.signature"}


def run(*command, status=0, text=""):
    """What the program prints; it must end with the given status."""
    done = subprocess.run([*EMULATOR, *map(str, command)], input=text, capture_output=True, text=True, check=False)
    if done.returncode != status:
        sys.exit(f"{command}: status {done.returncode} instead of {status}\n{done.stdout}{done.stderr}")
    return done.stdout


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"{what}: found\n{found}\ninstead of\n{wanted}")


def delegated(program, directory):
    data = pathlib.Path(directory)
    tokens = (data / "tokens.txt").read_text(encoding="ascii")
    wanted = (data / "expected.txt").read_text(encoding="ascii")
    expect("all tokens", run(program, data / "issuer.jwks", status=1, text=tokens), wanted)
    valid = tokens.splitlines(keepends=True)[0]
    expect("a valid one", run(program, data / "issuer.jwks", text=valid), wanted.splitlines(keepends=True)[0])
    run(program, data / "tokens.txt", status=1, text=valid)
    run(program, status=1, text=valid)
    run(program, data / "missing", status=1, text=valid)


def ecies(program):
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        for side in "left", "right", "stranger":
            subprocess.run(
                ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                 "-subj", f"/CN={side}", "-keyout", directory / f"{side}.key", "-out", directory / f"{side}.pem"],
                capture_output=True, check=True)

        def transfer(verb, own, peer, text, status=0):
            return run(program, verb, directory / f"{own}.key", directory / f"{peer}.pem", text=text, status=status)

        for text in "for your eyes", "for your eyes\n":
            message = transfer("seal", "left", "right", text)
            expect("the text", transfer("open", "right", "left", message), text)
        transfer("open", "stranger", "left", message, status=1)
        transfer("open", "right", "stranger", message, status=1)
        place = message.index('"encrypted_sslcert":"') + 30
        other = "A" if message[place] != "A" else "B"
        transfer("open", "right", "left", message[:place] + other + message[place + 1:], status=1)
        transfer("open", "right", "left", "{}", status=1)
        run(program, "open", status=1)


def dbus(service, client, directory):
    if not shutil.which("dbus-daemon"):
        sys.exit("there is no dbus-daemon")
    data = pathlib.Path(directory)
    with tempfile.TemporaryDirectory() as name:
        with subprocess.Popen(
            ["dbus-daemon", "--nofork", "--print-address", f"--config-file={data / 'bus.conf'}"],
            stdout=subprocess.PIPE, text=True) as bus:
            try:
                os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
                play(service, client, data / "secrets.json", pathlib.Path(name))
            finally:
                bus.terminate()


def play(service, client, secrets, directory):
    files = [str(directory / "signing.pem"), str(directory / "clients.db"), str(secrets)]
    for _ in "first", "again":
        # The second time the key and the clients are there already.
        with subprocess.Popen([*EMULATOR, service, *files], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True) as running:
            try:
                expect("the service", running.stdout.readline(), "ready\n")
                said = run(client, secrets)
                expect("what went wrong", [line for line in said.splitlines() if line.startswith("WRONG")], [])
                expect("the steps", said.count("as it should: "), 13)
                expect("the refusals", said.count('{"error":"invalid_client"}'), 6)
            finally:
                running.terminate()
            log = running.stderr.read()
        expect("the rules in the log", set(re.findall(r" refused: ([a-z.-]+)", log)), DAEMON_RULES)
        for name in files[:2]:
            expect(f"the mode of {name}", pathlib.Path(name).stat().st_mode & 0o777, 0o600)
        # Others could read the clients that an earlier version made.
        pathlib.Path(files[1]).chmod(0o644)
    refuse_to_start(service, files, directory)


def refuse_to_start(service, files, directory):
    """A file that cannot be used ends the service with its name and the cause, and stays as it is."""
    key, clients, secrets = files
    missing, text, encrypted = (directory / name for name in ("missing", "text", "encrypted.pem"))
    text.write_text("no file of SQLite, and no key\n" * 64, encoding="ascii")
    subprocess.run(["openssl", "ec", "-in", key, "-aes128", "-passout", "pass:x", "-out", encrypted],
                   capture_output=True, check=True)
    link = directory / "link"
    link.symlink_to(missing)
    no_key = "not an unencrypted P-256 private key in PEM form"
    for arguments, wanted in (
        ([missing / "key.pem", clients, secrets], f"cannot make {missing}/key.pem: No such file or directory"),
        ([text / "key.pem", clients, secrets], f"{text}/key.pem: Not a directory"),
        ([link, clients, secrets], f"{link}: No such file or directory"),
        ([directory, clients, secrets], f"{directory}: {no_key}"),
        ([encrypted, clients, secrets], f"{encrypted}: {no_key}"),
        ([key, directory, secrets], f"{directory}: unable to open database file (Is a directory)"),
        ([key, text, secrets], f"{text}: file is not a database"),
        ([key, clients, missing], f"{missing}: No such file or directory"),
        ([key, clients, directory], f"{directory}: Is a directory"),
    ):
        before = {path: path.read_bytes() for path in directory.iterdir() if path.is_file()}
        done = subprocess.run([*EMULATOR, service, *map(str, arguments)], capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, timeout=30, check=False)
        expect("what stops the service", (done.returncode, done.stderr), (1, f"token-service: {wanted}\n"))
        after = {path: path.read_bytes() for path in directory.iterdir() if path.is_file()}
        expect("the files", after, before)


def python(directory, vectors, tool):
    """The client in Python: knows the vectors, and gets on with the command as its controller."""
    examples = pathlib.Path(directory)

    def script(name, *arguments, status=0, text=""):
        # Python runs here, whatever machine the tool is built for.
        done = subprocess.run([sys.executable, "-W", "ignore", examples / name, *map(str, arguments)], input=text,
                              capture_output=True, text=True, check=False)
        if done.returncode != status:
            sys.exit(f"{name} {arguments}: status {done.returncode} instead of {status}\n{done.stdout}{done.stderr}")
        return done.stdout

    expect("the vectors", script("check_vectors.py", vectors).split(", ")[1], "0 wrong\n")
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        # A vector that is not so is told.
        shutil.copytree(vectors, place / "vectors")
        for file, old, new in (
            ("otp.json", '"R": "94287082"', '"R": "94287083"'),
            ("otp.json", '"hmac_sha1": "75', '"hmac_sha1": "74'),
            ("otp.json", '"offset": 11', '"offset": 12'),
            ("otp.json", '"number": 1094287082', '"number": 94287082'),
            ("ecies.json", '"mac": "C9', '"mac": "C8'),
            ("ecies.json", '"shared_secret": "', '"shared_secret": "00'),
            ("ecies.json", '"key_material": "', '"key_material": "00'),
            ("ecies.json", '"data": "line"', '"data": "line\\n"'),
            ("ecies.json", '"plaintext": "2d', '"plaintext": "2c'),
        ):
            original = (place / "vectors" / file).read_text()
            expect(f"{old} in {file}", old in original, True)
            (place / "vectors" / file).write_text(original.replace(old, new))
            told = script("check_vectors.py", place / "vectors", status=1)
            expect(f"{file} with {new}", ", 0 wrong" in told, False)
            (place / "vectors" / file).write_text(original)

        made = place / "made"
        run(tool, "pki", "make", "--device", "a-client", "--device", "a-controller", made)
        proof = ["--certificate", made / "a-client-chain.pem", "--key", made / "a-client.key"]
        keys = place / "keys.json"
        keys.write_text(run(tool, "handshake", "keys", "--prefix", "otp", "--keys", "1", "--tokens", "3"))
        request = script("client.py", "request", *proof[:2])
        (place / "request.json").write_text(request)
        for mode, given in ("1", proof), ("2", ["--keys", keys]), ("3", [*proof, "--keys", keys]):
            response = run(tool, "register", "response", "--mode", mode, text=request)
            (place / "response.json").write_text(response)
            authorize = script("client.py", "authorize", *given, text=response)
            run(tool, "handshake", "check", "--challenge", place / "response.json", "--keys", keys,
                "--certificate", place / "request.json", text=authorize)

        for key in "signing", "other":
            run(tool, "key", "generate", place / f"{key}.pem")
            public = run(tool, "key", "convert", "--to", "pem", "--public", place / f"{key}.pem")
            (place / f"{key}-public.pem").write_text(public)
        tokens = run(tool, "token", "issue", "--key", place / "signing.pem", "--subject", "admin", text=authorize)
        claims = script("client.py", "verify", "--public", place / "signing-public.pem", text=tokens)
        expect("the subject", '"sub":"admin"' in claims, True)
        script("client.py", "verify", "--public", place / "other-public.pem", text=tokens, status=1)

        token = script("client.py", "delegated", "--key", place / "other.pem",
                       text='{"sub":"alice","iss":"corp","exp":4102444800,"scope":"ravok_login"}')
        (place / "trusted.jwk").write_text(script("client.py", "jwk", "--key", place / "other.pem"))
        judged = run(tool, "token", "delegated", "--trust", place / "trusted.jwk", text=token)
        expect("the user", '"mask":1' in judged and '"user":"alice"' in judged, True)

        for data in "for your eyes only", "for your eyes only\n":
            sealed = run(tool, "ecies", "seal", "--key", made / "a-controller.key", "--peer", made / "a-client.pem",
                         text=data)
            opened = ["open", "--key", made / "a-client.key", "--peer"]
            expect("the data", script("client.py", *opened, made / "a-controller.pem", text=sealed),
                   "for your eyes only")
            script("client.py", *opened, made / "a-client.pem", text=sealed, status=1)


if __name__ == "__main__":
    {"delegated": delegated, "ecies": ecies, "dbus": dbus, "python": python}[sys.argv[1]](*sys.argv[2:])
