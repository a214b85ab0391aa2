#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""journeys.py journeys BUILD [--markdown]: what a whole journey takes over the bus
journeys.py fleet BUILD [--markdown]: many registrations at once, without a bus (bench-fleet)
journeys.py instructions BUILD [--arm BUILD] [--markdown]: what the steps execute

The first runs the token service of examples/dbus in mode 3 on a bus of its own, with bench-journeys as
its client, and prints tables: each step, with what it takes of the processors and how often they
switch, and the calls in a second. The service's clients are on the disk of BUILD, and in a second
run in memory: the difference is the medium's. The last counts with callgrind while bench-fleet
takes its steps, and for 32-bit ARM with the emulator's plugin of ./dev bench --arm. With --markdown the tables also go into docs/performance.md, or docs/capacity.md.
"""

import argparse
import contextlib
import datetime
import importlib.machinery
import importlib.util
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent
DOCUMENTS = {"journeys": "performance.md", "fleet": "capacity.md", "instructions": "capacity.md"}
ROUNDS, BATCH, SECONDS = 9, 50, 3
COUNTED_ROUNDS = 7
# Methods of the service, and the same without a bus in bench-fleet.
ALONE = {"register": "registration, answered", "token": "proof, answered with tokens",
         "introspect": "introspection, first", "introspect-again": "introspection, again",
         "refresh": "refresh, answered with tokens", "write-registration": "registration, written",
         "write-proof": "proof, written", "read-tokens": "tokens, read", "write-refresh": "refresh, written"}


def other(name):
    """A script of the house as a module."""
    loader = importlib.machinery.SourceFileLoader(name, str(TOP / "scripts" / name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


bench = other("bench")


@contextlib.contextmanager
def ended(process, by):
    try:
        yield process
    finally:
        process.send_signal(by)
        process.wait()


@contextlib.contextmanager
def bus():
    """A bus of its own; its process number."""
    daemon = subprocess.Popen(["dbus-daemon", "--nofork", "--print-address",
                               f"--config-file={TOP / 'examples' / 'dbus' / 'bus.conf'}"],
                              stdout=subprocess.PIPE, text=True)
    with ended(daemon, signal.SIGTERM):
        address = daemon.stdout.readline().strip()
        os.environ.update(DBUS_SYSTEM_BUS_ADDRESS=address, DBUS_SESSION_BUS_ADDRESS=address)
        yield daemon.pid


@contextlib.contextmanager
def service(build, place, state):
    """The service, which trusts the factory roots in `place`; its process number."""
    notify = place / "notify"
    notify.unlink(missing_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as told, open(place / "log", "w", encoding="utf-8") as log:
        told.bind(str(notify))
        told.settimeout(60)
        running = subprocess.Popen(
            [TOP / "tools" / "bmcoauth-sandbox", "--roots", place, "--", build / "examples" / "token-service", "3",
             state, place / "devices"], stdout=subprocess.DEVNULL, stderr=log,
            env={**os.environ, "NOTIFY_SOCKET": str(notify)})
        with ended(running, signal.SIGTERM):
            told.recv(100)
            yield running.pid


class Client:
    """bench-journeys, which is asked by lines."""

    def __init__(self, build, place):
        self.process = subprocess.Popen([build / "bench" / "bench-journeys", place], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.stdout.readline()

    def ask(self, *words):
        """The lines of the answer, each as words."""
        print(*words, file=self.process.stdin, flush=True)
        lines = []
        while line := self.process.stdout.readline().split():
            lines.append(line)
        if not lines:
            sys.exit(f"bench-journeys ended: {self.process.wait()}")
        return lines


def measured(build, place, bus_process, state):
    """What the client measures while the service keeps its clients in the folder `state`."""
    client = Client(build, place)
    devices = place / "devices"
    devices.mkdir(exist_ok=True)
    (place / "client-1.json").replace(devices / "client-1.json")
    (devices / "rights").write_text(f"client-1 ravok_login ravok_configure\nuser:{os.getuid()} introspect\n",
                                    encoding="ascii")
    with ended(client.process, signal.SIGTERM), service(build, place, state) as process:
        steps = {name: list(map(float, rest))
                 for name, *rest in client.ask("steps", ROUNDS, BATCH, process, bus_process)}
        calls = {(method, threads): list(map(float, client.ask("calls", SECONDS, threads, method)[0]))
                 for method in ("journey", "Introspect") for threads in (1, 8)}
    return steps, calls


def alone(build):
    """The same steps without a bus, in microseconds."""
    output = subprocess.run([build / "bench" / "bench-fleet", "steps", "3", "101"], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    cells = [[cell.strip() for cell in line.split("|")] for line in output.splitlines()]
    return {row[3]: float(row[4]) for row in cells[2:]}


def steps_table(disk, memory, library):
    rows = []
    for name, (wall, client, ours, served, theirs, carried, others) in disk.items():
        own = library.get(ALONE.get(name))
        rows.append([name, bench.number(wall), bench.number(memory[name][0]), f"{client:.0f}",
                     f"{served:.0f}", f"{carried:.0f}", f"{ours:.1f} / {theirs:.1f} / {others:.1f}",
                     bench.number(own) if own else "-"])
    return bench.table(["step, µs", "call, clients on disk", "in memory", "client", "service", "bus",
                        "switches of these", "library alone"], rows)


def calls_table(disk, memory):
    rows = []
    for (method, threads), (rate, median) in disk.items():
        calls = 3 if method == "journey" else 1
        what = "whole journeys" if method == "journey" else "introspections of one token"
        fast, fast_median = memory[(method, threads)]
        rows.append([f"{what}, {threads} client{'s' if threads > 1 else ''}", f"{rate * calls:.0f}",
                     f"{median / 1000:.2f}", f"{fast * calls:.0f}", f"{fast_median / 1000:.2f}"])
    return bench.table(["load", "calls a second, on disk", "median, ms", "calls a second, in memory", "median, ms"],
                       rows)


def journeys(build):
    library = alone(build)
    found = []
    for directory in (build, pathlib.Path("/dev/shm")):
        with tempfile.TemporaryDirectory() as name, tempfile.TemporaryDirectory(dir=directory) as state, bus() as process:
            found.append(measured(build, pathlib.Path(name), process, state))
    (disk_steps, disk_calls), (memory_steps, memory_calls) = found
    return [steps_table(disk_steps, memory_steps, library), calls_table(disk_calls, memory_calls)]


def fleet(build):
    output = subprocess.run([build / "bench" / "bench-fleet"], check=True, text=True, stdout=subprocess.PIPE).stdout
    tables = []
    for line in output.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if cells[0] == "mode" and (not tables or tables[-1][0] != cells):
            tables.append([cells])
        elif not cells[0].startswith("-") and cells[0] != "mode":
            tables[-1].append(cells)
    return [bench.table(heads, rows) for heads, *rows in tables]


def steps_of(command, mode, **options):
    """Runs a command that runs bench-fleet; the names of its steps, and what it has written to standard error."""
    done = subprocess.run([*command, "steps", mode, str(COUNTED_ROUNDS)], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
    if done.returncode != 0:
        sys.exit(f"journeys: {command[0]} ended with {done.returncode}: {done.stderr}")
    return [line.split("|")[3].strip() for line in done.stdout.splitlines()[2:]], done.stderr


def medians(steps, counts):
    """The median of what each step has counted in the rounds; of tuples, one of each place."""
    return {step: [statistics.median(values) for values in zip(*counts[i::len(steps)])]
            for i, step in enumerate(steps)}


def counted(build, mode):
    """All instructions, and those not of libcrypto and liboath: random keys, so the median of some rounds."""
    with tempfile.TemporaryDirectory() as name:
        steps, _ = steps_of(["valgrind", "--tool=callgrind", "--toggle-collect=measured", "--dump-after=measured",
                             f"--callgrind-out-file={name}/out", build / "bench" / "bench-fleet"], mode)
        parts = range(1, COUNTED_ROUNDS * len(steps) + 1)
        return medians(steps, [bench.counts_of(pathlib.Path(name) / f"out.{part}") for part in parts])


def emulated(build, mode):
    """Those on a Cortex-A7. The plugin writes how far it has counted at each mark."""
    steps, marks = steps_of(["qemu-arm", "-cpu", "cortex-a7", "-plugin", build / "bench" / "count-instructions.so",
                             "-L", build.parent / "sysroot", build / "bench" / "bench-fleet"], mode)
    at = list(map(int, marks.split()))
    return medians(steps, [(end - begin,) for begin, end in zip(at[::2], at[1::2], strict=True)])


def instructions(build, arm):
    tables = []
    for mode in "2", "3":
        device = emulated(arm.resolve(), mode) if arm else {}
        rows = [[step, f"{total / 1000:.0f}", f"{(total - own) / 1000:.0f}", f"{own / 1000:.0f}",
                 *(f"{count / 1000:.0f}" for count in device.get(step, []))]
                for step, (total, own) in counted(build, mode).items()]
        tables.append(bench.table([f"mode {mode}, thousands of instructions", "x86-64", "libcrypto, liboath",
                                   "library, jsoncpp, C++", *(["32-bit ARM"] if arm else [])], rows))
    return tables


def put(what, text):
    """Puts the tables between their marks in the document."""
    document = TOP / "docs" / DOCUMENTS[what]
    begin, end = f"<!-- {what}: begin -->\n", f"<!-- {what}: end -->\n"
    before, _, rest = document.read_text(encoding="utf-8").partition(begin)
    after = rest.partition(end)[2]
    document.write_text(f"{before}{begin}\nOn {datetime.date.today():%d %B %Y}:\n\n{text}\n\n{end}{after}",
                        encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=DOCUMENTS)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--arm", type=pathlib.Path)
    parser.add_argument("--markdown", action="store_true")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    if arguments.what == "instructions":
        tables = instructions(build, arguments.arm)
    else:
        tables = {"journeys": journeys, "fleet": fleet}[arguments.what](build)
    text = "\n\n".join(map("\n".join, tables))
    print(text)
    if arguments.markdown:
        put(arguments.what, text)


if __name__ == "__main__":
    main()
