#!/usr/bin/env python3
"""Turns nss_msg_type.list into the enumerators and the name table of the message numbers.

Usage: generate_msg_types.py LIST OUTPUT_FOLDER

The notation stands at the head of the list. A fault in the list ends the build with one line that says where.
"""

import os
import re
import sys

RESPONSE_OFFSET = 0x9000
MAX_VALUE = 0xFFFF

RUN_START = re.compile(r"(0x[0-9A-Fa-f]{1,8}):(.*)")
NAME = re.compile(r"[A-Z][A-Za-z0-9_]*!?")


class ListError(Exception):
    def __init__(self, line, text):
        super().__init__(f"line {line}: {text}")


def read_runs(lines):
    """Yields (line number, first value, text of the run)."""
    run = None
    for number, raw in enumerate(lines, 1):
        line = raw.split("#", 1)[0].rstrip()
        if not line:
            continue
        start = RUN_START.fullmatch(line)
        if start:
            if run:
                yield run
            run = (number, int(start.group(1), 16), start.group(2).strip())
        elif line[0].isspace() and run:
            run = (run[0], run[1], run[2] + " " + line.strip())
        else:
            raise ListError(number, f"neither a run nor the rest of one: '{line}'")
    if run:
        yield run


def read_entries(lines):
    """Gives (line number, value, name as listed) for every listed name, in the order of the list."""
    entries = []
    owners = {}
    for line, value, text in read_runs(lines):
        for group in text.split(","):
            if value in owners:
                raise ListError(line, f"value 0x{value:04X} is taken by the run of line {owners[value]}")
            if value > MAX_VALUE:
                raise ListError(line, f"value 0x{value:X} does not fit in 16 bits")
            owners[value] = line
            for listed in (name.strip() for name in group.split("=")):
                if not NAME.fullmatch(listed):
                    raise ListError(line, f"not a name: '{listed}'")
                if not listed.endswith("!") and value >= RESPONSE_OFFSET:
                    raise ListError(line, f"{listed}: a request's value is below 0x{RESPONSE_OFFSET:04X}")
                entries.append((line, value, listed))
            value += 1
    if not entries:
        raise ListError(len(lines), "the list has no names")
    return entries


def make_rows(entries):
    """Gives (name, value) for every name of the enumeration, each response behind its request."""
    lines_of = {}
    for line, _, listed in entries:
        full = listed[:-1] if listed.endswith("!") else listed + "_REQ"
        if full in lines_of:
            raise ListError(line, f"{full} is listed already in the run of line {lines_of[full]}")
        lines_of[full] = line
    rows = []
    for _, value, listed in entries:
        if listed.endswith("!"):
            rows.append(("NSS_" + listed[:-1], value))
            continue
        rows.append((f"NSS_{listed}_REQ", value))
        # A response that is listed itself stands under its own value alone.
        if listed + "_RSP" not in lines_of:
            rows.append((f"NSS_{listed}_RSP", value + RESPONSE_OFFSET))
    return rows


def write_whole(path, text):
    temporary = path + ".new"
    with open(temporary, "w", encoding="ascii") as out:
        out.write(text)
    os.replace(temporary, path)


def main(arguments):
    if len(arguments) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    list_path, folder = arguments[1:]
    try:
        with open(list_path, encoding="ascii") as source:
            rows = make_rows(read_entries(source.read().splitlines()))
        os.makedirs(folder, exist_ok=True)
        write_whole(os.path.join(folder, "nss_msg_type_enumerators.inc"),
                    "".join(f"{name} = 0x{value:04X},\n" for name, value in rows))
        write_whole(os.path.join(folder, "nss_msg_type_rows.inc"),
                    "".join(f'{{"{name}", 0x{value:04X}}},\n' for name, value in rows))
    except (ListError, OSError, UnicodeError) as error:
        print(f"{list_path}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
