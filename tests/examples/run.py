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


if __name__ == "__main__":
    {"delegated": delegated, "ecies": ecies, "dbus": dbus}[sys.argv[1]](*sys.argv[2:])
