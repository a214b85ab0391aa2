#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""load.py SERVICE LOAD: runs the token service under load (token-load), and kills it again and again.

Looks at what must not be lost: the clients do so for their tokens and revocations; this script for the
counters of failed proofs, which are in the data base, and for how many guesses were looked at, which is in
the log. Needs a bus: dbus-run-session -- load.py SERVICE LOAD
"""

import argparse
import contextlib
import os
import pathlib
import shlex
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
# As many as the service looks at before it locks a sender.
MOST_GUESSES = 10
# What runs programs that are built for another machine.
EMULATOR = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))


class Service:
    """The service, which is killed and started again."""

    def __init__(self, program, place):
        self.place = place
        self.command = [*EMULATOR, program, "2", place / "state", place / "devices"]
        self.log = open(place / "log", "wb")
        self.told = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.told.bind(str(place / "notify"))
        self.told.settimeout(60)
        self.start()

    def start(self):
        environment = {**os.environ, "NOTIFY_SOCKET": str(self.place / "notify")}
        self.running = subprocess.Popen(self.command, stderr=self.log, env=environment)
        try:
            self.told.recv(100)
        except TimeoutError:
            sys.exit("the service does not start: " + (self.place / "log").read_text(encoding="utf-8"))

    def kill(self):
        self.running.send_signal(signal.SIGKILL)
        self.running.wait()

    def guesses(self):
        """How many guesses it has looked at."""
        return (self.place / "log").read_text(encoding="utf-8").count("handshake.proof-wrong")


def counters(place):
    """When each counter of failed proofs ends."""
    with contextlib.closing(sqlite3.connect(place / "state" / "clients.db")) as database:
        return dict(database.execute("SELECT name, busy_until FROM counters"))


def set_back(before, after):
    """The counters that are less than they were, and have not run out."""
    now = time.time()
    return [name for name, end in before.items() if end > now and after.get(name, 0) < end]


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--seconds", type=int, default=60)
    arguments.add_argument("--kill-every", type=float, default=5)
    arguments.add_argument("service")
    arguments.add_argument("load")
    given = arguments.parse_args()
    os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = os.environ["DBUS_SESSION_BUS_ADDRESS"]
    with tempfile.TemporaryDirectory() as name:
        place = pathlib.Path(name)
        (place / "state").mkdir()
        (place / "devices").mkdir()
        secrets = (HERE / "secrets.json").read_bytes()
        (place / "devices" / "example-1.json").write_bytes(secrets)
        (place / "devices" / "example-1.rights").write_text("ravok_login\n", encoding="ascii")
        service = Service(given.service, place)
        load = subprocess.Popen([*EMULATOR, given.load, str(given.seconds), "example-1", HERE / "secrets.json"],
                                stdout=subprocess.PIPE, text=True)
        if load.stdout.readline() != "ready\n":
            sys.exit("the clients do not start")
        kills = 0
        lowered = []
        while True:
            try:
                load.wait(given.kill_every)
                break
            except subprocess.TimeoutExpired:
                before = counters(place)
                service.kill()
                kills += 1
                lowered += set_back(before, counters(place))
                service.start()
                lowered += set_back(before, counters(place))
        print(load.stdout.read(), end="")
        service.kill()
        print(f"kills: {kills}\nguesses looked at: {service.guesses()}\ncounters set back: {len(lowered)}")
        good = load.returncode == 0 and kills > 0 and not lowered and 0 < service.guesses() <= MOST_GUESSES
        return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
