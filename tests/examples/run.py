# SPDX-License-Identifier: Apache-2.0
"""run.py EXAMPLE PROGRAM...: runs an example as its readers would, and looks at
what it does. Ends with a complaint where it does something else."""

import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

# What runs programs that are built for another machine.
EMULATOR = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))


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

        message = transfer("seal", "left", "right", "for your eyes")
        expect("the text", transfer("open", "right", "left", message), "for your eyes\n")
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
        with subprocess.Popen([*EMULATOR, service, *files], stdout=subprocess.PIPE, text=True) as running:
            try:
                expect("the service", running.stdout.readline(), "ready\n")
                said = run(client, secrets)
                expect("what went wrong", [line for line in said.splitlines() if line.startswith("WRONG")], [])
                expect("the steps", said.count("as it should: "), 11)
                expect("the refusals", said.count('{"error":"invalid_client"}'), 6)
            finally:
                running.terminate()
    expect("the key's mode", (directory / "signing.pem").stat().st_mode & 0o777, 0o600)


if __name__ == "__main__":
    {"delegated": delegated, "ecies": ecies, "dbus": dbus}[sys.argv[1]](*sys.argv[2:])
