# SPDX-License-Identifier: Apache-2.0
"""The command line itself, and the verbs error, json and key."""

import os
import pathlib
import pty
import pwd
import re
import resource
import stat
import subprocess
import unittest.mock

import support
from support import FAILURE, INVALID, SUCCESS, USAGE, ToolTest


class CommandLine(ToolTest):
    def test_tells_its_version(self):
        self.assertRegex(self.good("--version"), r"^bmcoauth \d+\.\d+\.\d+\n/.*/libbmcoauth\.so\.[\d.]+$")

    def test_lists_the_verbs_if_there_is_none(self):
        for group, verbs in ((), ("issue", "doctor", "merge")), (("token",), ("issue", "inspect")):
            outcome = self.tool(*group)
            self.assertEqual((outcome.status, outcome.out), (USAGE, b""))
            self.assertEqual(outcome.err.decode(), self.help(*group) + "\n")
            for verb in verbs:
                self.assertRegex(outcome.err.decode(), rf"\b{verb}\b")

    def test_refuses_an_unknown_command(self):
        self.refused(USAGE, r"there is no command frobnicate \(see bmcoauth --help\)", "frobnicate", "x")
        self.refused(USAGE, r"there is no command frobnicate \(see bmcoauth token --help\)", "token", "frobnicate")

    def test_says_which_command_may_have_been_meant(self):
        for words, meant in (
            ("tokne issue", "token"),
            ("toekn", "token"),
            ("token verfy", "verify"),
            ("token delegate", "delegated"),
            ("inspect", "token inspect"),
            ("check", "key check or cert check or handshake check"),
        ):
            with self.subTest(words):
                self.refused(USAGE, rf": did you mean {meant}\? \(see", *words.split())
        for words in ("x", "key chxxk", "token thumbprint", "frobnicate"):
            self.refused(USAGE, r"there is no command \w+ \(see", *words.split())

    def test_says_which_option_may_have_been_meant(self):
        for words, meant in (
            ("token issue --kye a", "--key"),
            ("token issue --lifetim=5", "--lifetime"),
            ("error 0 --descrption a", "--description"),
            ("doctor --jsn", "--json"),
        ):
            with self.subTest(words):
                self.refused(USAGE, rf"there is no option \S+: did you mean {meant}\? \(see", *words.split())

    def test_refuses_an_unknown_option(self):
        self.refused(USAGE, r"there is no option --frobnicate \(see bmcoauth --help\)", "--frobnicate")
        self.refused(
            USAGE, r"there is no option --frobnicate \(see bmcoauth error --help\)", "error", "0", "--frobnicate"
        )
        # The missing argument, too, may be due to a slip.
        self.refused(USAGE, "there is no option --frobnicate", "json", "get", "--frobnicate")

    def test_names_the_first_argument_too_many(self):
        self.refused(
            USAGE, r"an argument too many, c \(see bmcoauth json get --help\)", "json", "get", "a", "b", "c", "d"
        )

    def test_names_what_is_missing(self):
        self.refused(USAGE, r"CODE is required \(see bmcoauth error --help\)", "error")
        self.refused(USAGE, r"--key is required \(see bmcoauth token issue --help\)", "token", "issue")

    def test_refuses_an_option_given_twice(self):
        self.refused(USAGE, "--uri", "error", "0", "--uri", "a", "--uri", "b")

    def test_keeps_control_characters_of_an_argument_from_the_terminal(self):
        self.refused(USAGE, r"no error has the code \?\[2Jx\?y", "error", "\x1b[2Jx\ny")

    def test_lists_what_each_exit_status_means(self):
        for words in ("0  success", "1  failure", "2  wrong usage", "3  a token", "4  a token", "6  doctor"):
            self.assertIn(words, self.help())

    def test_every_verb_has_help_with_an_example_of_itself(self):
        verbs = list(self.verbs())
        self.assertEqual(len(verbs), 32)
        for verb in verbs:
            with self.subTest(verb):
                self.assertIn("Example:\n  bmcoauth " + " ".join(verb), self.help(*verb))

    def test_usage_names_what_is_required(self):
        for verb, usage in (
            ("token issue", "--key FILE [OPTIONS] [FILE]"),
            ("key convert", "--to pem|der|jwk [OPTIONS] FILE"),
            ("json merge", "[OPTIONS] FILE OTHER"),
            ("handshake challenge", "--type TYPE... [OPTIONS]"),
        ):
            first = self.help(*verb.split()).splitlines()[0]
            self.assertEqual(first, f"Usage: bmcoauth {verb} {usage}")

    def test_help_fits_into_eighty_columns(self):
        for line in self.good("--help-all").splitlines():
            self.assertLessEqual(len(line), 80, line)

    def test_help_is_as_wide_as_the_terminal(self):
        for columns, widest in ((60, 60), (90, 90), (300, 100), (10, 60), (0, 80)):
            out = self.on_terminal(columns, "--help-all")
            # The table of exit statuses is not wrapped.
            longest = max(len(line) for line in out.splitlines() if not re.match(r"  \d", line))
            self.assertTrue(widest - 12 < longest <= widest, (columns, longest))

    def test_tells_the_options_of_every_verb_once(self):
        self.assertRegex(self.help(), r"Options of every verb:\n(  .*\n)*  --json")
        self.assertNotRegex(self.help("token", "issue"), r"(?m)^  --(json|help)")

    def test_every_verb_is_described(self):
        top = pathlib.Path(__file__).resolve().parents[2]
        text = (top / "docs/tool.md").read_text(encoding="utf-8")
        described = re.findall(r"^### (.*)$", text, re.MULTILINE)
        self.assertEqual(sorted(described), sorted(" ".join(verb) for verb in self.verbs()))

    def test_an_option_that_may_be_given_again_leaves_the_argument_behind_it_alone(self):
        self.write("doc.json", "{}")
        self.assertEqual(self.good("json", "set", "a", "--value", "x", "doc.json"), '{"a":"x"}')

    def test_tells_when_its_output_cannot_be_written(self):
        # What is printed at once, and what is more than a stream keeps for later.
        # The last one warns, too.
        token = self.directory / "token"
        token.write_text(".".join((support.base64url(b"{}"), support.base64url(b"{}"), "AA")))
        for verb in (["error", "0"], ["error", "0", "--description", "x" * 100_000], ["doctor"],
                     ["token", "inspect", token]):
            with self.subTest(verb), open("/dev/full", "wb") as full:
                run = subprocess.run([*support.TOOL, *verb], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual(run.returncode, FAILURE)
            self.assertEqual(run.stderr, b"bmcoauth: cannot write standard output: No space left on device\n")

    def run_on(self, file, *arguments, **settings):
        return subprocess.run(
            [*support.TOOL, *arguments], stdin=file, capture_output=True, check=False, **settings
        )

    def test_tells_when_standard_input_cannot_be_read(self):
        folder = os.open(self.directory, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        run = self.run_on(folder, "json", "get", "a")
        self.assertEqual(run.returncode, FAILURE)
        self.assertEqual(run.stderr, b"bmcoauth: cannot read standard input: Is a directory\n")

    def test_reads_no_document_without_end(self):
        with open("/dev/zero", "rb") as zero:
            run = self.run_on(zero, "json", "get", "a")
        self.assertEqual(run.returncode, INVALID)
        self.assertEqual(run.stderr, b"bmcoauth: standard input is longer than 67108864 bytes\n")
        self.refused(INVALID, "/dev/zero is longer than", "token", "inspect", "/dev/zero")

    def test_tells_when_memory_is_exhausted(self):
        limit = {
            "preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_AS, (100_000_000, 100_000_000))
        }
        start = self.run_on(subprocess.DEVNULL, "--version", **limit)
        if len(support.TOOL) > 1 or start.returncode != SUCCESS:
            self.skipTest("an emulator, or this build, needs more memory to begin with")
        with open("/dev/zero", "rb") as zero:
            run = self.run_on(zero, "json", "get", "a", **limit)
        self.assertEqual(run.returncode, FAILURE)
        self.assertEqual(run.stderr, b"bmcoauth: memory is exhausted\n")

    def test_takes_no_private_key_from_standard_input(self):
        for verb in ("issue", "verify"):
            self.refused(USAGE, "from a file, not from", "token", verb, "--key", "-", text="x")
        self.refused(USAGE, "from a file, not from", "key", "check", "-", text="x")

    def test_writes_no_key_to_a_file_named_like_standard_output(self):
        self.key()
        self.refused(USAGE, "to a file, not to", "key", "generate", "-")
        self.refused(USAGE, "--out takes a file", *"key convert --to pem --out - key.pem".split())
        self.assertEqual([path.name for path in self.directory.iterdir()], ["key.pem"])

    def test_takes_one_document_from_standard_input(self):
        for verb in (
            ("handshake", "attach", "--sealed", "-"),
            ("handshake", "check", "--challenge", "-"),
        ):
            outcome = self.tool(*verb, text='{"T":"otp","ciphertext":"a","mac":"b","iv":"c"}')
            self.assertEqual((outcome.status, outcome.out), (USAGE, b""), outcome.err)
            self.assertEqual(
                outcome.err, b"bmcoauth: only one document can come from standard input\n"
            )


GREEN, YELLOW, RED, PLAIN = "\x1b[32m", "\x1b[33m", "\x1b[31m", "\x1b[0m"


class Color(ToolTest):
    def setUp(self):
        super().setUp()
        environment = unittest.mock.patch.dict(os.environ)
        environment.start()
        self.addCleanup(environment.stop)
        os.environ.pop("NO_COLOR", None)
        self.key()

    def check(self, *options, **environment):
        return self.on_terminal(80, "key", "check", "key.pem", *options, environment=environment)

    def test_is_for_terminals(self):
        self.assertTrue(self.check().startswith(f"{GREEN}valid{PLAIN}"))
        self.assertTrue(self.good("key", "check", "key.pem").startswith("valid"))

    def test_is_not_for_who_wants_none(self):
        for out in (
            self.check(NO_COLOR="1"),
            self.check("--color=never"),
            self.check("--color", "auto", NO_COLOR="1"),
        ):
            self.assertTrue(out.startswith("valid"), out)
        self.assertTrue(self.check(NO_COLOR="").startswith(GREEN))

    def test_can_be_forced(self):
        self.assertTrue(self.good("key", "check", "key.pem", "--color=always").startswith(GREEN))
        self.assertTrue(self.check("--color=always", NO_COLOR="1").startswith(GREEN))

    def test_tells_what_is_refused(self):
        self.write("other.pem", "nonsense")
        refused = self.tool("key", "check", "other.pem", "--color=always").err.decode()
        self.assertTrue(refused.startswith(f"{RED}bmcoauth:{PLAIN} other.pem does not"), refused)
        warned = self.tool("pki", "make", "made", "--color=always").err.decode()
        self.assertTrue(warned.startswith(f"bmcoauth: {YELLOW}warning:{PLAIN} these"), warned)

    def test_tells_what_is_bad_on_a_device(self):
        lines = self.tool("doctor", "--key", "missing", "--color=always").out.decode()
        self.assertRegex(lines, rf"{re.escape(RED)}bad *{re.escape(PLAIN)} *key file")
        self.assertRegex(lines, rf"{re.escape(GREEN)}ok *{re.escape(PLAIN)} *jsoncpp")

    def test_is_never_in_json(self):
        self.assertNotIn("\x1b", self.good("key", "check", "key.pem", "--color=always", "--json"))

    def test_has_three_settings(self):
        self.refused(USAGE, "--color: blue not in", "key", "check", "key.pem", "--color", "blue")


class StandardInput(ToolTest):
    def test_says_on_a_terminal_that_it_waits(self):
        master, slave = pty.openpty()
        with subprocess.Popen(
            [*support.TOOL, "json", "get", "a"], stdin=slave, stderr=subprocess.PIPE
        ) as run:
            line = run.stderr.readline()
            run.kill()
        os.close(master)
        os.close(slave)
        self.assertEqual(line, b"bmcoauth: reading standard input (Ctrl-D ends it)\n")

    def test_says_nothing_where_a_file_is_read(self):
        document = self.write("doc.json", '{"a":"x"}')
        self.assertEqual(self.on_terminal(80, "json", "get", "a", document), "x\n")

    def test_says_nothing_of_a_pipe(self):
        self.assertEqual(self.good("json", "get", "a", text='{"a":"x"}'), "x")


class Error(ToolTest):
    def test_writes_a_code_given_by_number(self):
        self.assertEqual(self.good("error", "2"), '{"error":"invalid_request"}')

    def test_writes_a_code_given_by_name_and_all_texts(self):
        self.assertEqual(
            self.good(
                "error", "invalid_scope", "--description", 'a "b"', "--resolution", "", "--uri", "u"
            ),
            '{"error":"invalid_scope","error_description":"a \\"b\\"","error_resolution":"",'
            '"error_uri":"u"}',
        )

    def test_knows_every_code(self):
        for code in range(14):
            self.assertRegex(self.good("error", code), r'^\{"error":"[a-z_]+"\}$')

    def test_refuses_other_codes(self):
        for code in ("14", "-1", "", "02", "nonsense"):
            with self.subTest(code):
                self.refused(USAGE, ".", "error", "--", code)

    def test_needs_a_code(self):
        self.refused(USAGE, "CODE", "error")


class JsonGet(ToolTest):
    def test_prints_a_string_as_it_is(self):
        self.assertEqual(self.good("json", "get", "a", text='{"a":"x\\"y"}'), 'x"y')

    def test_prints_anything_else_as_json(self):
        document = self.write("doc.json", '{"n": 5, "l": ["x", {"z": 1, "b": true}]}')
        self.assertEqual(self.good("json", "get", "n", document), "5")
        self.assertEqual(self.good("json", "get", "l", document), '["x",{"b":true,"z":1}]')

    def test_prints_no_comment(self):
        text = '/*\x1b[2J*/{"a":{"b":1 // \x1b[2J\n},"c":[2] /*x*/}'
        self.assertEqual(self.good("json", "get", "a", text=text), '{"b":1}')
        self.assertEqual(self.good("json", "get", "c", text=text), "[2]")

    def test_cuts_no_string(self):
        text = '{"a":"x\\u0000y"}'
        self.refused_in_text(INVALID, '"a" holds a zero byte', "json", "get", "a", text=text)
        self.assertEqual(self.good("json", "get", "a", "--json", text=text), '"x\\u0000y"')

    def test_refuses_a_missing_member_and_null(self):
        for name in ("b", "c"):
            self.refused(INVALID, f'has no member "{name}"', "json", "get", name, text='{"c":null}')

    def test_refuses_what_is_no_object(self):
        for text in ("[]", "{", "7", "nonsense", "[" * 5000):
            self.refused(INVALID, "is not a JSON object", "json", "get", "a", text=text)

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("json", "get", "a", "@")

    def test_says_why_a_file_cannot_be_opened(self):
        # Not by its permissions: they do not stop root.
        os.symlink("doc.json", self.directory / "doc.json")
        self.refused(FAILURE, "symbolic links", "json", "get", "a", "doc.json")


class JsonSet(ToolTest):
    def test_sets_a_string(self):
        self.assertEqual(
            self.good("json", "set", "c", "--value", "x", text='{"b":1,"a":2}'),
            '{"a":2,"b":1,"c":"x"}',
        )

    def test_sets_an_array(self):
        for values, array in ((["x", "y"], '["x","y"]'), (["x"], '["x"]'), ([], "[]")):
            options = [option for value in values for option in ("--value", value)]
            self.assertEqual(
                self.good("json", "set", "a", *options, "--array", text="{}"), f'{{"a":{array}}}'
            )

    def test_drops_comments(self):
        text = '{"a":1 // x\n,"b":2 /* y */}'
        self.assertEqual(
            self.good("json", "set", "c", "--value", "z", text=text), '{"a":1,"b":2,"c":"z"}'
        )

    def test_several_values_are_an_array(self):
        self.assertEqual(
            self.good("json", "set", "a", "--value", "x", "--value", "y", text="{}"),
            '{"a":["x","y"]}',
        )

    def test_removes(self):
        self.assertEqual(self.good("json", "set", "a", "--remove", text='{"a":1,"b":2}'), '{"b":2}')

    def test_needs_one_thing_to_do(self):
        for options in ([], ["--remove", "--value", "x"], ["--remove", "--array"]):
            with self.subTest(options):
                self.refused(USAGE, "needs either", "json", "set", "a", *options, text="{}")

    def test_refuses_what_is_no_text(self):
        self.refuses_what_is_no_text("json", "set", "a", "@", "--value", "x")


class JsonMerge(ToolTest):
    def test_merges(self):
        first = self.write("first.json", '{"a":{"b":1},"c":[1]}')
        second = self.write("second.json", '{"a":{"d":2},"c":[2],"e":{"f":3}}')
        self.assertEqual(
            self.good("json", "merge", first, second), '{"a":{"b":1,"d":2},"c":[2],"e":null}'
        )

    def test_drops_comments(self):
        first = self.write("first.json", '{"a":1 // x\n}')
        second = self.write("second.json", '{"b":2 // y\n}')
        self.assertEqual(self.good("json", "merge", first, second), '{"a":1,"b":2}')

    def test_takes_either_document_from_standard_input(self):
        document = self.write("doc.json", '{"a":1}')
        self.assertEqual(self.good("json", "merge", document, "-", text='{"a":2}'), '{"a":2}')
        self.assertEqual(self.good("json", "merge", "-", document, text='{"a":2}'), '{"a":1}')

    def test_refuses_to_take_both_from_standard_input(self):
        self.refused(USAGE, "only one", "json", "merge", "-", "-", text="{}")

    def test_refuses_a_document_that_is_none(self):
        good = self.write("good.json", "{}")
        self.refused(INVALID, "standard input is not", "json", "merge", good, "-", text="[]")
        self.refused(INVALID, "standard input is not", "json", "merge", "-", good, text="[]")


class Key(ToolTest):
    def test_generates_a_key_that_openssl_reads(self):
        self.assertEqual(self.good("key", "generate", "key.pem"), "")
        mode = (self.directory / "key.pem").stat().st_mode
        self.assertEqual(stat.S_IMODE(mode), 0o600)
        text = self.openssl("pkey", "-in", "key.pem", "-noout", "-text")
        self.assertIn(b"prime256v1", text)
        self.assert_valid()

    def test_replaces_a_file_only_by_force(self):
        self.write("key.pem", "precious")
        self.refused(USAGE, "--force", "key", "generate", "key.pem")
        self.assertEqual((self.directory / "key.pem").read_text(), "precious")
        self.good("key", "generate", "key.pem", "--force")
        self.assert_valid()

    def files(self):
        """The files in the directory, temporary ones included."""
        return sorted(path.name for path in self.directory.iterdir())

    # Ways to write a private key to key.pem, by a verb that makes one and one that copies it.
    WRITING = (
        ["key", "generate", "key.pem"],
        ["key", "convert", "--to", "pem", "--out", "key.pem", "source"],
    )

    def assert_new_key(self):
        path = self.directory / "key.pem"
        self.assertFalse(path.is_symlink())
        self.assertEqual(stat.S_IMODE(path.stat().st_mode), 0o600)
        self.assert_valid()

    def test_old_mode_does_not_open_the_new_key_to_others(self):
        self.key("source")
        for verb in self.WRITING:
            with self.subTest(verb):
                self.write("key.pem", "old")
                os.chmod(self.directory / "key.pem", 0o666)
                with open(self.directory / "key.pem", encoding="utf-8") as reader:
                    self.good(*verb, "--force")
                    # A process that had the old file open does not see the new key.
                    self.assertEqual(reader.read(), "old")
                self.assert_new_key()
                self.assertEqual(self.files(), ["key.pem", "source"])

    def test_mode_does_not_depend_on_the_umask(self):
        self.key("source")
        for mask in (0, 0o277):
            for verb in self.WRITING:
                with self.subTest(f"{mask:o} {verb}"):
                    self.addCleanup(os.umask, os.umask(mask))
                    self.good(*verb)
                    self.assert_new_key()
                    (self.directory / "key.pem").unlink()

    def test_does_not_follow_a_link(self):
        self.key("source")
        link = self.directory / "key.pem"
        for verb in self.WRITING:
            for target in ("target", "nowhere"):
                with self.subTest(f"{verb} {target}"):
                    link.unlink(missing_ok=True)
                    self.write("target", "precious")
                    link.symlink_to(target)
                    self.refused(USAGE, "key.pem exists already: give --force", *verb)
                    self.assertEqual(os.readlink(link), target)
                    self.good(*verb, "--force")
                    self.assert_new_key()
                    self.assertEqual((self.directory / "target").read_text(), "precious")
                    self.assertEqual(self.files(), ["key.pem", "source", "target"])

    def test_replaces_neither_a_device_nor_a_directory(self):
        self.key("source")
        link = self.directory / "key.pem"
        for target, reason in (("/dev/full", "it is not a regular file"), (".", "Is a directory")):
            link.symlink_to(target)
            for verb in self.WRITING:
                with self.subTest(f"{verb} {target}"):
                    self.refused(FAILURE, f"^bmcoauth: cannot write key.pem: {reason}$", *verb, "--force")
                    self.assertEqual(os.readlink(link), target)
            link.unlink()
        self.assertEqual(self.files(), ["source"])

    def test_keeps_the_old_key_when_the_new_one_cannot_be_written(self):
        self.key("source")

        def no_room():
            resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))

        for verb in self.WRITING:
            for old in ("old", None):
                with self.subTest(f"{verb} {old}"):
                    if old is None:
                        (self.directory / "key.pem").unlink()
                    else:
                        self.write("key.pem", old)
                    run = subprocess.run(
                        [*support.TOOL, *verb, "--force"],
                        capture_output=True,
                        cwd=self.directory,
                        # So that the signal about the limit is ignored in the command, too.
                        restore_signals=False,
                        preexec_fn=no_room,
                        check=False,
                    )
                    self.assertEqual(run.stderr, b"bmcoauth: cannot write key.pem: File too large\n")
                    self.assertEqual((run.returncode, run.stdout), (FAILURE, b""))
                    if old is not None:
                        self.assertEqual((self.directory / "key.pem").read_text(), old)
                    self.assertEqual(self.files(), ["key.pem", "source"] if old else ["source"])

    def test_writes_nothing_where_no_file_can_be_made(self):
        self.key("source")
        for verb in self.WRITING:
            for force in ([], ["--force"]):
                # In this directory not even root makes a file.
                verb = ["/proc/self/key.pem" if word == "key.pem" else word for word in verb]
                reason = r"cannot write /proc/self/key.pem: (Operation not|Permission|No such)"
                self.refused(FAILURE, reason, *verb, *force)

    def test_takes_the_longest_name(self):
        name = "k" * 255
        self.good("key", "generate", name)
        self.assertEqual(self.files(), [name])

    def test_of_several_that_make_the_same_key_one_succeeds(self):
        runs = [
            subprocess.Popen(
                [*support.TOOL, "key", "generate", "key.pem"],
                stderr=subprocess.PIPE,
                cwd=self.directory,
            )
            for _ in range(8)
        ]
        outcomes = [(run.communicate()[1], run.returncode) for run in runs]
        refusal = (b"bmcoauth: key.pem exists already: give --force to replace it\n", USAGE)
        self.assertEqual(sorted(outcomes), [(b"", SUCCESS), *[refusal] * 7])
        self.assert_new_key()
        self.assertEqual(self.files(), ["key.pem"])

    def test_tells_when_the_key_cannot_be_written(self):
        (self.directory / "file").touch()
        (self.directory / "directory").mkdir()
        for path, reason in (
            ("missing/key.pem", "No such file or directory"),
            ("file/key.pem", "Not a directory"),
            ("directory", "Is a directory"),
        ):
            with self.subTest(path):
                message = f"cannot write {path}: {reason}"
                self.refused(FAILURE, message, "key", "generate", "--force", path)
        self.good("key", "generate", "directory/key.pem")
        self.good("key", "generate", str(self.directory / "key.pem"))

    def test_checks_a_key_of_another_curve_too(self):
        self.openssl("ecparam", "-name", "secp384r1", "-genkey", "-noout", "-out", "key.pem")
        self.assert_valid("P-384")

    def assert_valid(self, curve="P-256"):
        self.assertEqual(self.good("key", "check", "key.pem").splitlines()[0], f"valid: {curve}")

    def test_describes_a_key(self):
        self.key()
        thumbprint = self.good("key", "thumbprint", "key.pem")
        owner = pwd.getpwuid(os.getuid()).pw_name
        self.assertEqual(
            self.good("key", "check", "key.pem"),
            f"valid: P-256\n  mode        0600\n  owner       {owner}\n  thumbprint  {thumbprint}",
        )
        self.assertEqual(
            self.good_json("key", "check", "key.pem", "--json"),
            {"verdict": "valid", "curve": "P-256", "mode": "0600", "owner": owner, "thumbprint": thumbprint},
        )
        os.chmod(self.directory / "key.pem", 0o640)
        self.assertIn("  mode        0640, lets others read it\n", self.good("key", "check", "key.pem"))

    def test_describes_a_key_on_a_curve_that_no_web_key_knows(self):
        self.openssl("ecparam", "-name", "secp256k1", "-genkey", "-noout", "-out", "key.pem")
        self.assertRegex(self.good("key", "check", "key.pem"), r"^valid: secp256k1\n(.*\n)*  thumbprint  -$")

    def test_refuses_what_is_no_private_key(self):
        self.openssl("genpkey", "-algorithm", "RSA", "-out", "rsa.pem")
        self.openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", "ec.pem")
        self.openssl("ec", "-in", "ec.pem", "-pubout", "-out", "public.pem")
        self.openssl("ec", "-in", "ec.pem", "-aes128", "-passout", "pass:x", "-out", "locked.pem")
        self.write("empty.pem", "")
        for name, rule in (
            ("rsa.pem", "key.kind"),
            ("public.pem", "key.encoding"),
            ("locked.pem", "key.encoding"),
            ("empty.pem", "key.encoding"),
        ):
            with self.subTest(name):
                self.refused_by(rule, "key", "check", name)

    def test_tells_which_file_cannot_be_read(self):
        self.refused(FAILURE, "cannot read missing: No such file", "key", "check", "missing")
        self.refused(FAILURE, "cannot read .: Is a directory", "key", "check", ".")

    def test_needs_a_file(self):
        for verb in ("generate", "check"):
            self.refused(USAGE, "FILE", "key", verb)


