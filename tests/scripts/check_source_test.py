# SPDX-License-Identifier: Apache-2.0
"""Which phrases scripts/check-source finds hard to read, and where it looks for them."""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"
sys.path.insert(0, str(SCRIPTS))

from plain_words import PHRASES, comments_of_c, comments_of_scripts, hard_to_read, prose_of_markdown  # noqa: E402

# Hard to read, and found in no other text here.
HARD = [
    "An empty text is no key.",
    "Digits that are none are refused.",
    "Releases an answer; null is nothing to do.",
    "An error in encoding a part is told to the journal.",
    "The name stands in the header.",
    "The file lies beside it.",
    "A plus sign at will.",
    "Names are compared in any case.",
    "It is released all the same.",
    "The lock is held for ever.",
    "From the begin of 2035.",
    "The same, of what cannot be changed.",
    "Chains are judged as of the first day.",
    "What is malformed goes to OpenSSL.",
    "Who calls a function here links libcrypto.",
    "That the key fits nobody asks.",
]

# The same words, used well.
PLAIN = [
    "There is no key, and there are no others.",
    "It is no longer valid, and no more than 16 bytes.",
    "The key is not there; if there is none, nothing happens.",
    "The client is told the lifetime.",
    "In a line, the dots stand for any text; a stand-in for the library.",
    "The point lies on the curve.",
    "They are all the same.",
    "Chains are verified as of 1 January 2035.",
    "The begin marker is missing.",
    "What the caller must do: nothing.",
    "What is left of one block of a chain.",
    "What is the time?",
    "Who a client is by its certificate.",
    "Who may read a file.",
    "That is all.",
]


def found(*lines, reader=comments_of_scripts):
    return [f"{number}: {message.split(':')[0]}" for number, message in hard_to_read(reader(list(lines)))]


class Phrases(unittest.TestCase):
    def test_are_found_one_in_each_hard_text(self):
        self.assertEqual(len(HARD), len(PHRASES))
        for text, (_, advice) in zip(HARD, PHRASES):
            messages = [message for _, message in hard_to_read([(1, text)])]
            self.assertEqual(len(messages), 1, (text, messages))
            self.assertTrue(messages[0].endswith(advice), (text, messages))

    def test_are_not_found_where_the_words_are_used_well(self):
        for text in PLAIN:
            self.assertEqual(list(hard_to_read([(1, text)])), [], text)

    def test_are_found_across_lines_and_named_by_the_line_in_which_they_begin(self):
        self.assertEqual(found("# A text that is", "# no key.", "code", "# The name", "# stands there."), ["1: 'is no'", "5: 'stands'"])

    def test_do_not_begin_in_one_comment_and_end_in_another(self):
        self.assertEqual(found("# A text is", "code", "# no key"), [])


class Places(unittest.TestCase):
    def test_are_the_comments_of_c(self):
        for comment in "// It stands.", "/* It stands. */", "/** It stands. */", "code(); // It stands.", "one, /**< It stands. */":
            self.assertEqual(found(comment, reader=comments_of_c), ["1: 'stands'"], comment)
        self.assertEqual(found("/* A text", " * stands. */", "int stands;", reader=comments_of_c), ["2: 'stands'"])

    def test_are_not_the_code_of_c(self):
        for code in 'print("It stands.");', 'open("http://stands/");', "int stands;":
            self.assertEqual(found(code, reader=comments_of_c), [], code)

    def test_are_the_comments_and_the_documentation_of_scripts(self):
        self.assertEqual(found('"""It stands."""', "#!/bin/stands", "stands = 1"), ["1: 'stands'"])
        self.assertEqual(found("def f():", '    """One line,', "    and it stands.", '    """', "    stands()"), ["3: 'stands'"])

    def test_are_the_text_of_documents_without_their_code(self):
        read = prose_of_markdown
        self.assertEqual(found("- It", "  stands.", "", "| a | it stands |", reader=read), ["2: 'stands'", "4: 'stands'"])
        self.assertEqual(found("# It stands", "", "```sh", "it stands", "```", "", "`stands`", reader=read), [])


class Script(unittest.TestCase):
    def test_looks_at_sources_scripts_and_documents(self):
        with tempfile.TemporaryDirectory() as name:
            tree = pathlib.Path(name)
            texts = {
                "scripts/bad": "#!/bin/sh\n# SPDX-License-Identifier: Apache-2.0\n# It stands.\n",
                "src/bad.cpp": "// SPDX-License-Identifier: Apache-2.0\n// It stands.\n",
                "tools/bad.cpp": '// SPDX-License-Identifier: Apache-2.0\nconst char* text = "It stands.";\n',
                "docs/bad.md": "# A title\n\nIt stands.\n",
                "README.md": "It stands.\n",
                "dev": "#!/bin/sh\n# SPDX-License-Identifier: Apache-2.0\n",
            }
            for path, text in texts.items():
                (tree / path).parent.mkdir(exist_ok=True)
                (tree / path).write_text(text, encoding="utf-8")
            for script in "check-source", "plain_words.py", "layers.py":
                shutil.copy(SCRIPTS / script, tree / "scripts")
            run = subprocess.run(
                [sys.executable, tree / "scripts/check-source"], stdout=subprocess.PIPE, text=True, check=False
            )
        self.assertEqual(run.returncode, 1)
        self.assertEqual(
            sorted(line.split(": ")[0] for line in run.stdout.splitlines()),
            ["README.md:1", "docs/bad.md:3", "scripts/bad:3", "src/bad.cpp:2", "tools/bad.cpp:2"],
        )


if __name__ == "__main__":
    unittest.main()
