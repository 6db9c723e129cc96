#!/usr/bin/env python3
"""Prints a header with its plain comments as Doxygen reads them. A comment that stands directly above a declaration
belongs to it, one behind a declaration likewise; any other stays plain. Nothing in a comment is a command."""
import pathlib
import re
import sys


def text(comment):
    return re.sub(r"([\\@<>#$%&])", r"\\\1", comment)


def convert(lines):
    block = []
    for line in [*lines, ""]:
        alone = re.match(r"(\s*)//(?!/)\s?(.*)", line)
        if alone:
            block.append(alone)
            continue
        belongs = re.match(r"\s*[\w~#\[]", line) and not re.match(r"\s*(#(?!\s*define)|public:|private:|protected:)", line)
        for comment in block:
            yield f"{comment[1]}{'///' if belongs else '//'} {text(comment[2]) if belongs else comment[2]}"
        block = []
        behind = re.match(r'((?:[^"/]|"[^"]*"|/(?!/))*[;,{}\w)])(\s+)// ?(.*)', line)
        yield f"{behind[1]}{behind[2]}///< {text(behind[3])}" if behind and re.match(r"\s*[\w~]", line) else line


if __name__ == "__main__":
    print("\n".join(convert(pathlib.Path(sys.argv[1]).read_text().splitlines())))
