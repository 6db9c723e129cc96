"""Records which locks gvxd holds while it takes another one, and holds that against the table of ARCHITECTURE.md: every
nesting that a run of the gateway shows must stand there, and none may stand in both directions."""
import pathlib
import re
import subprocess
import sys

import gvx_e2e as e2e

ROOT = pathlib.Path(__file__).resolve().parents[2]
NAME = re.compile(r"(?:[\w.]+(?:->|\.|\(\)))*((?:[mg]_\w*|\w*[Mm]utex\w*|startStop|lock_)(?:\(\))?)")
TYPES = re.compile(r"\b(?:std::\w+|ACE_\w*|BP_Thread_Mutex|\w*Guard)\b(?:<[^<>]*(?:<[^<>]*>)?[^<>]*>)?")
TAKES = re.compile(r"lock_guard|unique_lock|shared_lock|scoped_lock|Guard|GUARD|\.lock\(\)|acquire\(|lock\.lock")


def locate(frames):
    """From module+offset to (function, file, line), by addr2line, one call a module."""
    places = {}
    modules = {}
    for frame in frames:
        module, offset = frame.rsplit("+", 1)
        modules.setdefault(module, []).append(offset)
    for module, offsets in modules.items():
        # The byte before a return address belongs to the call.
        before = [hex(int(offset, 16) - 1) for offset in offsets]
        done = subprocess.run(["addr2line", "-f", "-C", "-e", module, *before], capture_output=True, text=True, check=True)
        rows = done.stdout.splitlines()
        for i, offset in enumerate(offsets):
            file, _, line = rows[2 * i + 1].partition(" ")[0].rpartition(":")
            places[f"{module}+{offset}"] = (rows[2 * i], file, int(line) if line.isdigit() else 0)
    return places


def owner(function, file):
    """The class whose operation it is, else the file."""
    name = re.sub(r"\(anonymous namespace\)::", "", function)
    while (plain := re.sub(r"<[^<>]*>", "", name)) != name:  # arguments of templates, from within
        name = plain
    name = re.sub(r"\(.*", "", name).replace("gvx::", "").replace("BP::", "").rpartition(" ")[2]
    head = name.rpartition("::")[0]
    return head if head and not re.search(r"[<{]", head) else pathlib.Path(file).stem


def lock_name(frames, places, sources):
    """The lock that is taken there, as its source writes it; None for one of a library's own."""
    for frame in frames:
        function, file, line = places[frame]
        path = next((ROOT / part for part in (file[file.find(top):] for top in ("src/", "plugins/") if top in file)
                     if (ROOT / part).is_file()), None)
        if path is None:
            continue
        if path not in sources:
            sources[path] = path.read_text().splitlines()
        text = " ".join(sources[path][max(0, line - 1):line + 1])
        for taken in (sources[path][line - 1] if 0 < line <= len(sources[path]) else "", text):
            names = NAME.findall(TYPES.sub("", taken)) if TAKES.search(taken) else []
            if names:
                return f"{owner(function, str(path))}::{names[-1].rstrip('()')}"
        return f"a library's, from {owner(function, str(path))}"
    return None


def read_record(path):
    pairs = [[side.split() for side in line.split("|")] for line in path.read_text().splitlines()]
    places = locate({frame for pair in pairs for side in pair for frame in side})
    sources = {}
    nestings = {}
    for outer, inner in pairs:
        names = lock_name(outer, places, sources), lock_name(inner, places, sources)
        ours = all(names) and not any(name.startswith(("a library's", "LogRepeats::")) for name in names)
        if ours and names[0] != names[1]:
            nestings.setdefault(names, [places[frame][0] for frame in inner])
    return nestings


def read_table():
    text = (ROOT / "ARCHITECTURE.md").read_text()
    section = text.partition("\n## Locks\n")[2].partition("\n## ")[0]
    rows = re.findall(r"^\| `([^`]+)` \| (.*?) \|", section, re.MULTILINE)
    table = {(outer, inner) for outer, inners in rows for inner in re.findall(r"`([^`]+)`", inners)}
    while True:  # what is taken two steps below a lock may be taken right below it
        more = {(a, d) for a, b in table for c, d in table if b == c} - table
        if not more:
            return table
        table |= more


def drive(options, folder, stack):
    video, audio = e2e.make_clip(folder)
    media = {"demo": {"video": str(video), "audio": str(audio), "loop": True}}
    gateway = e2e.Gateway(options, folder, media, {"TRANSMISSION_THREAD_NUM": "2"})
    gateway.environment = {"LD_PRELOAD": options.recorder, "GVX_LOCK_RECORD": str(folder / "locks.txt")}
    stack.callback(gateway.kill)
    gateway.start()
    platform = e2e.Platform(gateway.port)
    sink = stack.enter_context(e2e.udp_sink())
    for dev in ("CAM001", "CAM002"):
        platform.main.add_device(dev, {"media": "demo"})
        platform.main.start_stream(dev, f"{dev}-s", sink.getsockname()[1])
    e2e.check_media_flows(sink, 20 * options.slow, "the first stream")
    platform.main.stop_stream("CAM001", "CAM001-s")
    platform.scu.sock.close()
    e2e.wait_until(lambda: gateway.lines("SCU closed"), 30 * options.slow, "the SCU's end")
    for words in (["get"], ["set", "MESSAGE", "MU_NSS_TIMEOUT", "5"], ["set", "SERVICE_CAPACITY", "MAX_CAPS", "200"]):
        subprocess.run([options.gvxctl, "config", words[0], "--gateway", str(gateway.port), *words[1:]],
                       stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)
    gateway.stop(30)
    return read_record(folder / "locks.txt")


def test(options, folder, stack):
    found = drive(options, folder, stack)
    if options.print:
        for outer, inner in sorted(found):
            print(f"{outer} -> {inner}")
        return
    table = read_table()
    e2e.check(len(found) > 10, f"only {len(found)} nestings were recorded: the recorder sees nothing")
    both = [pair for pair in table | set(found) if pair[::-1] in table | set(found)]
    e2e.check(not both, f"taken in both orders: {both}")
    unknown = sorted(set(found) - table)
    e2e.check(not unknown, "not in the table of ARCHITECTURE.md: " + "; ".join(
        f"{outer} -> {inner} by {' < '.join(found[outer, inner][:6])}" for outer, inner in unknown))


if __name__ == "__main__":
    e2e.main(test)
