#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what a shared library exports with the lists of its symbols, in both directions, and
the lists with the declarations in the public headers. So with the list by which Debian's packages
depend on each other.

A list names one symbol a line: a plain name, or a C++ function with its argument types, in which
size_t, uint64_t and std::string stand for what the platform makes of them."""

import argparse
import pathlib
import re
import subprocess
import sys

VERSION_NODE = "BMCOAUTH_REFUSAL"
STRING = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"


def expand(symbol, wide):
    """A line of a list, in the words of the demangler."""
    for alias, meaning in (
        ("std::string", STRING),
        ("size_t", "unsigned long" if wide else "unsigned int"),
        ("uint64_t", "unsigned long" if wide else "unsigned long long"),
    ):
        symbol = symbol.replace(alias, meaning)
    return symbol


def listed(paths, wide):
    """Every symbol of the lists, with the list that has it."""
    symbols = {}
    faults = []
    for path in paths:
        for line in path.read_text(encoding="utf-8").splitlines():
            symbol = expand(line.strip(), wide)
            if symbol in symbols:
                faults.append(f"{path}: {line} is listed twice")
            if symbol:
                symbols[symbol] = path
    return symbols, faults


def exported(library, nm):
    """Every defined symbol of the dynamic symbol table."""
    table = subprocess.run(
        [nm, "-D", "--defined-only", "--format=posix", library],
        check=True, stdout=subprocess.PIPE, text=True,
    ).stdout
    names = (line.split()[0] for line in table.splitlines())
    # Version nodes are listed among the symbols, under their own name.
    return {name.partition("@")[0] for name in names if name != VERSION_NODE and not name.startswith(VERSION_NODE + "@")}


def demangled(names, cxxfilt):
    text = subprocess.run(
        [cxxfilt], check=True, input="\n".join(names), stdout=subprocess.PIPE, text=True
    ).stdout
    return {name for name in text.split("\n") if name}


def packaged(path, wide):
    """The symbols of a debian/*.symbols, as they are in the library: " (tags)NAME@VERSION SINCE"."""
    names = set()
    for line in path.read_text(encoding="utf-8").splitlines():
        entry = re.fullmatch(r" (?:\(arch-bits=(32|64)\))?(\w+)@(?:Base|BMCOAUTH_REFUSAL) [\d.]+", line)
        if line.startswith(" "):
            assert entry, f"{path}: what is {line}?"
            if entry[1] in (None, "64" if wide else "32"):
                names.add(entry[2])
    return names - {VERSION_NODE}


def declared(headers):
    """The name of every exported function and table of the headers, and whether it is plain."""
    found = set()
    for header in headers:
        text = re.sub(r"/\*.*?\*/", "", header.read_text(encoding="utf-8"), flags=re.DOTALL)
        plain = False
        for token in re.finditer(r"\bBMCOAUTH_(PLAIN_BEGIN|PLAIN_END|API\b[^;]*;)", text):
            if not token[1].startswith("API"):
                plain = token[1] == "PLAIN_BEGIN"
                continue
            # Before the arguments of a function, or the bounds of a table.
            name = re.search(r"(\w+)\s*[(\[]", token[1])
            assert name, f"{header}: no name in {token[0]}"
            found.add((name[1], plain))
    return found


def is_wide(library):
    """Whether the library is one for 64 bits: the class byte of its ELF header."""
    with open(library, "rb") as file:
        header = file.read(5)
    assert header[:4] == b"\x7fELF", f"{library} is no ELF file"
    return header[4] == 2


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--cxxfilt", default="c++filt")
    parser.add_argument("--library", required=True)
    parser.add_argument("--list", nargs="+", type=pathlib.Path, required=True)
    parser.add_argument("--header", nargs="*", type=pathlib.Path, default=[])
    parser.add_argument("--packaged", type=pathlib.Path)
    arguments = parser.parse_args()

    wide = is_wide(arguments.library)
    wanted, faults = listed(arguments.list, wide)
    in_library = exported(arguments.library, arguments.nm)
    found = demangled(in_library, arguments.cxxfilt)
    for symbol in sorted(found - wanted.keys()):
        faults.append(f"exported, but in no list: {symbol}")
    for symbol in sorted(wanted.keys() - found):
        faults.append(f"{wanted[symbol]}: not exported: {symbol}")

    if arguments.header:
        # A C++ symbol carries its argument types, a plain one does not.
        in_lists = {(symbol.split("(")[0].split("[")[0], "(" not in symbol) for symbol in wanted}
        in_headers = declared(arguments.header)
        for name, plain in sorted(in_lists ^ in_headers):
            kind = "plain" if plain else "C++"
            where = "a list" if (name, plain) in in_lists else "a header"
            faults.append(f"the {kind} symbol {name} stands in {where} only")

    if arguments.packaged:
        for name in sorted(packaged(arguments.packaged, wide) ^ in_library):
            where = "the library" if name in in_library else str(arguments.packaged)
            faults.append(f"{name} stands in {where} only")

    for fault in faults:
        print(fault)
    print(f"{len(found)} symbols, {len(faults)} faults")
    return 1 if faults or not found else 0


if __name__ == "__main__":
    sys.exit(main())
