# SPDX-License-Identifier: Apache-2.0
"""What the tests of the command share."""

import base64
import fcntl
import json
import os
import pathlib
import pty
import re
import struct
import subprocess
import tempfile
import termios
import time
import unittest

# The command, as subprocess takes it.
TOOL = []
# What its commands say of themselves, by their words. Every start counts: under an emulator it
# takes most of a second.
HELP = {}

PKI_WARNING = "these certificates are for development only; their authorities' keys were not kept"

# Runs a command where the files of a directory are the device's factory roots.
WITH_ROOTS = """
place=/etc/default/certs
[ -d $place ] || place=/etc/default
mount -t tmpfs tmpfs $place && mkdir -p /etc/default/certs || exit 99
find "$1" -name 'Factorycert*.pem' -exec cp -p {} /etc/default/certs ';'
shift
exec "$@"
"""
ALONE = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "--mount"]

try:
    import jsonschema
except ImportError:
    jsonschema = None

SCHEMA = pathlib.Path(__file__).resolve().parents[2] / "docs/tool-output.schema.json"

SUCCESS, FAILURE, USAGE, INVALID, EXPIRED = range(5)
VERDICTS = {FAILURE: "failed", USAGE: "usage", INVALID: "invalid", EXPIRED: "expired"}


def check_verdict(document):
    """Compares a verdict or refusal with the schema; raises what says where they differ."""
    if jsonschema is not None:
        jsonschema.validate(document, json.loads(SCHEMA.read_text(encoding="utf-8")))


class Outcome:
    def __init__(self, process):
        self.status = process.returncode
        self.out = process.stdout
        self.err = process.stderr


class ToolTest(unittest.TestCase):
    """Runs the command in an empty directory of its own."""

    maxDiff = None

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.prefix = []

    def tool(self, *arguments, text=b""):
        """Runs the command; text, or bytes, come from standard input."""
        if isinstance(text, str):
            text = text.encode()
        return Outcome(
            subprocess.run(
                [*self.prefix, *TOOL, *map(str, arguments)],
                input=text,
                capture_output=True,
                cwd=self.directory,
                timeout=60,
                check=False,
            )
        )

    def good(self, *arguments, text=b"", warning=None):
        """What the command prints when all goes well, without the last line feed."""
        outcome = self.tool(*arguments, text=text)
        self.assertEqual(outcome.status, SUCCESS, outcome.err)
        if warning is None:
            self.assertEqual(outcome.err, b"")
        else:
            self.assertEqual(outcome.err.decode(), f"bmcoauth: warning: {warning}\n")
        self.assertTrue(outcome.out == b"" or outcome.out.endswith(b"\n"))
        return outcome.out.decode()[:-1]

    def good_json(self, *arguments, text=b"", warning=None):
        return json.loads(self.good(*arguments, text=text, warning=warning))

    def refused(self, status, pattern, *arguments, text=b""):
        """Expects a refusal without --json and with it; returns the document of the latter."""
        self.refused_in_text(status, pattern, *arguments, text=text)
        document = self.refused_in_json(status, *arguments, text=text)
        self.assertRegex("bmcoauth: " + document["reason"], pattern)
        return document

    def refused_in_text(self, status, pattern, *arguments, text=b""):
        """Expects the exit status, nothing on stdout, and one line on stderr with the pattern."""
        outcome = self.tool(*arguments, text=text)
        self.assertEqual(outcome.status, status, (outcome.out, outcome.err))
        self.assertEqual(outcome.out, b"")
        self.assertTrue(outcome.err.startswith(b"bmcoauth: "), outcome.err)
        self.assertEqual(outcome.err.count(b"\n"), 1, outcome.err)
        self.assertTrue(outcome.err.endswith(b"\n"), outcome.err)
        self.assertRegex(outcome.err.decode(errors="replace"), pattern)
        self.assertFalse(any(byte < 0x20 for byte in outcome.err[:-1]), outcome.err)

    def refused_in_json(self, status, *arguments, text=b""):
        """The document that --json prints of a problem; it says what stderr says."""
        # "--" ends the options.
        end = arguments.index("--") if "--" in arguments else len(arguments)
        outcome = self.tool(*arguments[:end], "--json", *arguments[end:], text=text)
        self.assertEqual(outcome.status, status, (outcome.out, outcome.err))
        document = json.loads(outcome.out)
        check_verdict(document)
        self.assertEqual(document["verdict"], VERDICTS[status])
        self.assertEqual(outcome.err.decode(), f"bmcoauth: {document['reason']}\n")
        return document

    def refused_by(self, rule, *arguments, text=b"", status=INVALID, **members):
        """Expects that the rule refuses: by its name on stderr and, with --json, in a document on
        stdout, whose other members match the patterns given."""
        document = self.refused(status, f": {re.escape(rule)}: ", *arguments, text=text)
        self.assertEqual(document["rule"], rule)
        for name, pattern in members.items():
            self.assertRegex(str(document[name]), f"^({pattern})$")

    def help(self, *command):
        """The help of a command, for which it is started once."""
        if command not in HELP:
            HELP[command] = self.good(*command, "--help")
        return HELP[command]

    def verbs(self, *group):
        """The words of every verb, as the help of the groups tells."""
        for name in re.findall(r"^  ([a-z]+)  ", self.help(*group), re.MULTILINE):
            if " COMMAND\n" in self.help(*group, name):
                yield from self.verbs(*group, name)
            else:
                yield (*group, name)

    def on_terminal(self, columns, *arguments, environment=None):
        """Runs the command on a terminal with so many columns, and gives what it prints there."""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("4H", 25, columns, 0, 0))
        run = subprocess.Popen(
            [*self.prefix, *TOOL, *map(str, arguments)],
            stdin=slave,
            stdout=slave,
            stderr=slave,
            cwd=self.directory,
            env={**os.environ, **(environment or {})},
        )
        os.close(slave)
        out = b""
        try:
            while block := os.read(master, 4096):
                out += block
        except OSError:
            pass  # That is how a terminal ends.
        os.close(master)
        run.wait(timeout=60)
        return out.decode().replace("\r\n", "\n")

    def write(self, name, content):
        """A file of the test's directory; text, bytes or a JSON document."""
        path = self.directory / name
        if isinstance(content, bytes):
            path.write_bytes(content)
        elif isinstance(content, str):
            path.write_text(content, encoding="utf-8")
        else:
            path.write_text(json.dumps(content), encoding="utf-8")
        return name

    def openssl(self, *arguments, text=b""):
        return subprocess.run(
            ["openssl", *map(str, arguments)],
            input=text,
            capture_output=True,
            cwd=self.directory,
            check=True,
        ).stdout

    def key(self, name="key.pem"):
        self.good("key", "generate", name)
        return name

    def pki(self, *options):
        """The directory pki with a factory's roots and the certificate of device a."""
        if "--device" not in options:
            options = ("--device", "a", *options)
        self.good("pki", "make", "pki", *options, warning=PKI_WARNING)

    def stranger(self, name="a"):
        """The file attack.pem, which a stranger makes of a genuine chain in pki, which is public: a
        certificate of the stranger's own, for the key stranger/NAME.key, in place of the first."""
        self.good("pki", "make", "stranger", "--device", name, warning=PKI_WARNING)
        end = "-----END CERTIFICATE-----\n"
        first = (self.directory / f"stranger/{name}.pem").read_text(encoding="utf-8")
        chain = (self.directory / f"pki/{name}-chain.pem").read_text(encoding="utf-8")
        return self.write("attack.pem", first + chain.partition(end)[2])

    def install_roots(self, directory="pki"):
        """From here on the command finds the roots of the directory on its device, which is the
        test's alone: a file system that nobody else sees. Skips where the system allows none."""
        prefix = [*ALONE, "sh", "-c", WITH_ROOTS, "sh", str(self.directory / directory)]
        probe = subprocess.run([*prefix, "true"], capture_output=True, check=False)
        if probe.returncode != 0:
            self.skipTest("this system allows no mount namespace")
        self.prefix = prefix

    def refuses_what_is_no_text(self, *arguments):
        """What every verb must answer where it reads a document; "@" stands for its name."""

        def named(name):
            return [name if argument == "@" else argument for argument in arguments]

        self.refused(FAILURE, "No such file", *named("missing"))
        os.mkdir(self.directory / "folder")
        self.refused(FAILURE, "cannot read folder: Is a directory", *named("folder"))
        self.refused(INVALID, "standard input holds a zero byte", *named("-"), text=b'{"a"\0:1}')
        self.refused(INVALID, "standard input", *named("-"), text=b"")


def base64url(data):
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


def part(document):
    return base64url(json.dumps(document).encode())


def claims(begin=-60, end=600, **others):
    """The claims of a token that is valid from and to so many seconds from now."""
    now = int(time.time())
    return {
        "sub": "admin",
        "iss": "test",
        "jti": "1",
        "iat": str(now + begin),
        "nbf": str(now + begin),
        "exp": str(now + end),
        **others,
    }


def signed_token(test, key, payload, algorithm="ES256"):
    """A token made by hand, signed by the openssl command: ECDSA in DER form."""
    text = part({"typ": "JWT", "alg": algorithm}) + "." + part(payload)
    signature = test.openssl("dgst", "-sha256", "-sign", key, text=text.encode())
    return text + "." + base64url(signature)


def altered(token, number):
    """The token with another letter in the middle of the part with that number."""
    parts = token.split(".")
    middle = len(parts[number]) // 2
    letter = "A" if parts[number][middle] != "A" else "B"
    parts[number] = parts[number][:middle] + letter + parts[number][middle + 1 :]
    return ".".join(parts)
