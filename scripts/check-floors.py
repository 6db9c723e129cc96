#!/usr/bin/env python3
"""Holds every include of ours against src/floors.txt, and the picture in ARCHITECTURE.md against the same file.

    scripts/check-floors.py             exits 1 and tells file, line and rule where an include is not allowed
    scripts/check-floors.py --picture   prints the picture of the floors
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = [ROOT / name for name in ("src", "plugins", "tools", "bench", "fuzz")]


def read_floors():
    allowed, groups, picture = {}, {}, []
    for number, line in enumerate((ROOT / "src/floors.txt").read_text().splitlines(), 1):
        if line.startswith("=="):
            name, _, what = line[2:].partition(":")
            picture.append([name.strip(), what.strip(), []])
        elif line and not line.startswith("#"):
            name, sign, rooms = re.match(r"(\S+)\s*([:=])(.*)", line).groups()
            rooms = [room for word in rooms.split() for room in groups.get(word, [word])]
            above = [room for room in rooms if room not in allowed and sign == ":"]
            if above:
                sys.exit(f"src/floors.txt:{number}: {name} stands below {', '.join(above)}, or there is no such room")
            if sign == "=":
                groups[name] = rooms
            else:
                allowed[name] = set(rooms) | {name}
                picture[-1][2].append(name)
    text = [f"    {head:<12}{what}\n" + "".join(f"        {row}\n" for row in wrap(rooms))
            for head, what, rooms in reversed(picture)]
    return allowed, "".join(text)


def wrap(rooms, width=104):
    rows = [""]
    for room in rooms:
        name = room.replace("gvx_common/", "")
        if len(rows[-1]) + len(name) > width:
            rows.append("")
        rows[-1] += ("  " if rows[-1] else "") + name
    return rows


def room_of(path, allowed):
    parts = path.relative_to(ROOT / "src" if ROOT / "src" in path.parents else ROOT).parts[:-1]
    return next(("/".join(parts[:n]) for n in range(len(parts), 0, -1) if "/".join(parts[:n]) in allowed), None)


def main():
    allowed, picture = read_floors()
    if "--picture" in sys.argv:
        print(picture, end="")
        return 0
    faults = [] if picture in (ROOT / "ARCHITECTURE.md").read_text() else [
        "ARCHITECTURE.md: its picture of the floors is not that of scripts/check-floors.py --picture"]
    for path in sorted(file for folder in FOLDERS for file in folder.rglob("*") if file.suffix in (".h", ".cpp")):
        room = room_of(path, allowed)
        for number, line in enumerate(path.read_text().splitlines(), 1):
            named = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            bases = (ROOT / "src", ROOT / "plugins", ROOT / "tools", ROOT / "bench", path.parent)
            target = named and next((base / named[1] for base in bases if (base / named[1]).is_file()), None)
            if target and room_of(target, allowed) not in allowed.get(room, ()):
                faults.append(f"{path.relative_to(ROOT)}:{number}: {room or 'a folder without a room'} may not include "
                              f"{room_of(target, allowed) or named[1]} (src/floors.txt)")
    print("\n".join(faults) if faults else f"{len(allowed)} rooms, no include against src/floors.txt")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
