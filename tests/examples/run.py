# SPDX-License-Identifier: Apache-2.0
"""run.py EXAMPLE PROGRAM...: runs an example as its readers would, and looks at
what it does. Ends with a complaint where it does something else."""

import contextlib
import os
import pathlib
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile

# What runs programs that are built for another machine.
EMULATOR = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))


# Why the daemon refuses what its client tries.
DAEMON_RULES = {"argument.length", "client.challenge-used", "client.refresh-reused", "client.secret", "client.unknown",
                "handshake.proof-wrong"}


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


@contextlib.contextmanager
def bus(directory):
    """A bus of its own, with the policy of the system bus; all its users are the one who runs this."""
    if not shutil.which("dbus-daemon"):
        sys.exit("there is no dbus-daemon")
    config = (directory / "bus.conf").read_text(encoding="utf-8")
    policy = (directory / "org.example.Tokens.conf").read_text(encoding="utf-8")
    policy = re.sub('user="[^"]*"', f'user="{os.getuid()}"', policy)
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        (place / "policy.conf").write_text(policy, encoding="utf-8")
        (place / "bus.conf").write_text(
            config.replace("</busconfig>", "<include>policy.conf</include></busconfig>"), encoding="utf-8")
        with bus_of(place / "bus.conf"):
            yield


@contextlib.contextmanager
def bus_of(config):
    with subprocess.Popen(["dbus-daemon", "--nofork", "--print-address", f"--config-file={config}"],
                          stdout=subprocess.PIPE, text=True) as daemon:
        try:
            address = daemon.stdout.readline().strip()
            os.environ.update(DBUS_SYSTEM_BUS_ADDRESS=address, DBUS_SESSION_BUS_ADDRESS=address)
            yield
        finally:
            daemon.terminate()


@contextlib.contextmanager
def started(place, *command, end=signal.SIGTERM, status=0):
    """A service that says when it is ready; its log is in place/log."""
    (place / "notify").unlink(missing_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as told, open(place / "log", "w", encoding="utf-8") as log:
        told.bind(str(place / "notify"))
        told.settimeout(60)
        running = subprocess.Popen([*map(str, command)], stderr=log,
                                   env={**os.environ, "NOTIFY_SOCKET": str(place / "notify")})
        try:
            expect("the notification", told.recv(100), b"READY=1")
            yield
        finally:
            running.send_signal(end)
            expect(f"the end of {command}", running.wait(60), status)


def as_root_of_a_namespace():
    """Begins again in a user namespace, if an ordinary user may make one. bmcoauth-sandbox would make one for
    the service alone, to which its own user's client would be somebody else there."""
    names = ["unshare", "--user", "--map-root-user"]
    if os.geteuid() != 0 and subprocess.run([*names, "true"], capture_output=True, check=False).returncode == 0:
        os.execvp(names[0], [*names, sys.executable, *sys.argv])


def dbus(directory, tool, service, judge, client, _load):
    as_root_of_a_namespace()
    data = pathlib.Path(directory)
    with tempfile.TemporaryDirectory() as name, bus(data):
        place = pathlib.Path(name)
        for folder in "state", "devices", "judge":
            (place / folder).mkdir()
        shutil.copy(data / "secrets.json", place / "devices" / "dev-1.json")
        (place / "devices" / "dev-1.rights").write_text("ravok_login ravok_configure\n", encoding="ascii")
        run(tool, "pki", "make", "--device", "dev-1", place / "pki")
        play(place, data, service, judge, client)
        refuse_to_start(place, service)


def play(place, data, service, judge, client):
    made = place / "pki"
    proof = [made / "dev-1-chain.pem", made / "dev-1.key"]
    log = place / "log"
    sandbox = [data.parent.parent / "tools" / "bmcoauth-sandbox", "--roots", made, "--"]
    can_have_roots = subprocess.run([*sandbox, "true"], capture_output=True, check=False).returncode == 0
    # The second time, the key and the clients are there already; the third time after a crash.
    for mode, end, status in ("2", signal.SIGTERM, 0), ("2", signal.SIGKILL, -9), ("3", signal.SIGINT, 0):
        if mode == "3" and not can_have_roots:
            continue
        before = sandbox if mode == "3" else []
        with started(place, *before, *EMULATOR, service, mode, place / "state", place / "devices", end=end,
                     status=status), \
                started(place / "judge", *EMULATOR, judge):
            # Twice at once: the judge looks for an unknown key once a second, so the signal must tell it of a new one.
            for _ in range(2):
                said = run(client, "dev-1", place / "devices" / "dev-1.json", *(proof if mode == "3" else []))
                expect("what went wrong", [line for line in said.splitlines() if line.startswith("WRONG")], [])
                expect("the steps", said.count("as it should: "), 27)
        found = set(re.findall(r" refused: ([a-z.-]+)", log.read_text(encoding="utf-8")))
        expect("the rules in the log", found, DAEMON_RULES)
        for file in (place / "state").iterdir():
            expect(f"the mode of {file}", file.stat().st_mode & 0o777, 0o600)


def refuse_to_start(place, service):
    """Files that cannot be used end the service with the cause, and stay as they are."""
    missing, bad = place / "missing", place / "bad"
    for folder, file in ("key", "signing.pem"), ("clients", "clients.db"):
        shutil.copytree(place / "state", bad / folder)
        (bad / folder / file).write_text("no file of SQLite, and no key\n" * 64, encoding="ascii")
    for state, wanted in (
        (missing, "file.unwritable: "),
        (bad / "key", "key."),
        (bad / "clients", "client.store-failed: file is not a database"),
    ):
        before = {path: path.read_bytes() for path in bad.rglob("*") if path.is_file()}
        done = subprocess.run([*EMULATOR, service, "2", state, place / "devices"], capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, timeout=30, check=False)
        expect("the status", done.returncode, 1)
        expect("what stops the service", done.stderr[:len("cannot go on: " + wanted)], "cannot go on: " + wanted)
        after = {path: path.read_bytes() for path in bad.rglob("*") if path.is_file()}
        expect("the files", after, before)
    run(service, "4", place / "state", place / "devices", status=1)


def dbus_load(directory, service, _judge, _client, load):
    """The short form of the load test."""
    data = pathlib.Path(directory)
    with bus(data):
        done = subprocess.run([sys.executable, data / "load.py", "--seconds", "5", "--kill-every", "2.5", service, load],
                              capture_output=True, text=True, check=False)
    expect("the status", (done.returncode, done.stdout + done.stderr if done.returncode else ""), (0, ""))
    expect("nothing lost", "faults: 0\n" in done.stdout, True)


def dbus_units(directory):
    """The units are hardened, as far as systemd can tell, and their root folders are empty ones in memory."""
    if not shutil.which("systemd-analyze"):
        sys.exit(77)
    for name in "token-service.service", "token-judge.service":
        unit = pathlib.Path(directory) / name
        subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", "--threshold=20", unit],
                       stdout=subprocess.DEVNULL, check=True)
        said = unit.read_text(encoding="utf-8")
        expect(f"a root folder in memory in {name}", "\nTemporaryFileSystem=/:ro\n" in said, True)
        # With any of them, the folder on disk is the root again.
        expect(f"what undoes it in {name}", re.findall("^(?:ProtectSystem|RootDirectory|RootImage)=.*", said, re.M), [])
    # No directive is unknown. The program is not installed here.
    with tempfile.TemporaryDirectory() as place:
        units = [pathlib.Path(place) / name for name in ("token-service.service", "token-judge.service")]
        for unit in units:
            said = (pathlib.Path(directory) / unit.name).read_text(encoding="utf-8")
            unit.write_text(re.sub("^ExecStart=.*", "ExecStart=/bin/true", said, flags=re.M), encoding="utf-8")
        subprocess.run(["systemd-analyze", "verify", "--man=no", "--recursive-errors=no", *units], check=True)


if __name__ == "__main__":
    {"delegated": delegated, "ecies": ecies, "dbus": dbus, "dbus-load": dbus_load,
     "dbus-units": dbus_units}[sys.argv[1]](*sys.argv[2:])
