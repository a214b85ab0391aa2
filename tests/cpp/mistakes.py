# SPDX-License-Identifier: Apache-2.0
"""mistakes.py SOURCE COMPILER [OPTION...]: the source compiles as it is, and
with none of its macros. Each macro's line says what the compiler complains of,
so that no mistake passes for being refused for another reason.
"""

import re
import subprocess
import sys

def compile_source(command, source, macro=None):
    options = [f"-D{macro}"] if macro else []
    return subprocess.run(
        [*command, "-std=c++20", *options, source],
        capture_output=True,
        text=True,
        check=False,
        env={"LC_ALL": "C", "PATH": "/usr/local/bin:/usr/bin:/bin"},
    )


def main(source, *command):
    with open(source, encoding="utf-8") as file:
        mistakes = re.findall(r"^#ifdef (\w+) // (.+)$", file.read(), re.M)
    if not mistakes:
        print("no mistakes are listed")
        return 1
    right = compile_source(command, source)
    if right.returncode != 0:
        print("the source does not compile as it is:", right.stderr, sep="\n")
        return 1
    count = 0
    for macro, complaint in mistakes:
        wrong = compile_source(command, source, macro)
        # Some name inline namespaces.
        said = wrong.stderr.replace("v1::", "")
        if wrong.returncode == 0:
            print(f"{macro} compiles")
            count += 1
        elif complaint not in said:
            print(f"{macro} is refused, but not for '{complaint}':", wrong.stderr, sep="\n")
            count += 1
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
