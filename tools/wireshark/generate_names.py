#!/usr/bin/env python3
"""Turns the list of message numbers into the dissector's table of names.

Usage: generate_names.py FOLDER_OF_THE_LIST OUTPUT_FILE

The folder holds nss_msg_type.list and generate_msg_types.py, which reads it for the gateway's own build as well.
"""
import os
import sys


def main(arguments):
    if len(arguments) != 3:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    folder, output = arguments[1:]
    sys.path.insert(0, folder)
    import generate_msg_types as types

    list_path = os.path.join(folder, "nss_msg_type.list")
    try:
        with open(list_path, encoding="ascii") as source:
            rows = types.make_rows(types.read_entries(source.read().splitlines()))
        names = {}
        for name, value in rows:
            names.setdefault(value, []).append(name)
        lines = ["  [0x%04X] = {%s}," % (value, ", ".join(f'"{name}"' for name in found))
                 for value, found in sorted(names.items())]
        os.makedirs(os.path.dirname(output), exist_ok=True)
        types.write_whole(output, "-- Message names by number; the first of a number is the common one.\nreturn {\n" +
                          "\n".join(lines) + "\n}\n")
    except (types.ListError, OSError, UnicodeError) as error:
        print(f"{list_path}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
