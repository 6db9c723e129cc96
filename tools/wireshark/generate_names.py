#!/usr/bin/env python3
"""Turns the list of message numbers and the table of results into the dissector's tables of names.

Usage: generate_names.py FOLDER_OF_THE_LIST TABLE_OF_RESULTS OUTPUT_FOLDER

The first folder holds nss_msg_type.list and generate_msg_types.py, which reads it for the gateway's own build as well.
The table is zvs_error_table.inc.
"""
import os
import re
import sys

RESULT_ROW = re.compile(r"^ZVS_ERROR_ROW\((\w+), (\d+),", re.MULTILINE)


def read_results(path):
    """The rows of names by result, in the order of the numbers; of two names the first."""
    with open(path, encoding="utf-8") as source:
        found = RESULT_ROW.findall(source.read())
    if not found:
        raise OSError("no row of results")
    results = {}
    for name, number in found:
        results.setdefault(int(number), name)
    return ['  [%d] = "%s",' % row for row in sorted(results.items())]


def main(arguments):
    if len(arguments) != 4:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    folder, table, output = arguments[1:]
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
        os.makedirs(output, exist_ok=True)
        types.write_whole(os.path.join(output, "gvx_nss_names.lua"),
                          "-- Message names by number; the first of a number is the common one.\nreturn {\n" +
                          "\n".join(lines) + "\n}\n")
        types.write_whole(os.path.join(output, "gvx_nss_results.lua"),
                          "-- Names of results by number.\nreturn {\n" + "\n".join(read_results(table)) + "\n}\n")
    except (types.ListError, OSError, UnicodeError) as error:
        print(f"{list_path}, {table}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
