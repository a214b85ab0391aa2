# SPDX-License-Identifier: Apache-2.0
"""dialect.py INCLUDE COMPILER [OPTION...]: compiled as C++17, each header for
C++ in the folder INCLUDE says that it needs C++20, and nothing else.
"""

import pathlib
import re
import subprocess
import sys


def errors_of(header, command):
    compiled = subprocess.run(
        [*command, "-std=c++17", "-x", "c++", "-"],
        input=f"#include <{header}>\n",
        capture_output=True,
        text=True,
        check=False,
        env={"LC_ALL": "C", "PATH": "/usr/local/bin:/usr/bin:/bin"},
    )
    return re.findall(r"(?:fatal )?error: .+", compiled.stderr)


def main(include, *command):
    folder = pathlib.Path(include)
    headers = [folder / "bmcoauth.hpp", *folder.glob("bmcoauth/cpp/*.hpp"), folder / "bmcoauth/service.hpp"]
    count = 0
    for header in headers:
        errors = errors_of(header.relative_to(folder), command)
        # The second is the one that stops the compiler.
        if len(errors) != 2 or any("needs C++20" not in error for error in errors):
            print(f"{header}:", *errors, sep="\n")
            count += 1
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
