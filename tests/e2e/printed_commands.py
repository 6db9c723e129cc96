#!/usr/bin/env python3
"""Runs what README and the guides tell to type, page by page, each in a folder of its own beside an installation of the
build; a stand-in for ffplay takes the player's place. A block of a shell carries a mark behind its language: "run", or
"shown: REASON" where it cannot be run. In a transcript the lines with "$ " are run; where it shows a fault of gvxctl below
a command, that command has to fail. plugin_guide.py runs its own page.

usage: printed_commands.py BUILD_DIR
"""
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import types

import gvx_e2e as e2e

SOURCE = pathlib.Path(__file__).resolve().parents[2]
README = "README.md"
WALKED = (README, "docs/gvxctl.md", "docs/plugin-file.md", "docs/plugin-rtsp.md", "docs/alarms.md")
MARKED = (*WALKED, "docs/plugin-guide.md", "docs/wireshark.md", "SECURITY.md", "CONTRIBUTING.md")
FENCE = re.compile(r"^```([^\n]*)\n(.*?)^```$", flags=re.M | re.S)
LIMIT = 240


def marked_blocks(name):
    """The blocks of a page that are to be run, as (language, text)."""
    text = (SOURCE / name).read_text(encoding="utf-8")
    prose = FENCE.sub("", text)
    indented = re.search(r"\n\n( {4,}\S.*)", prose)
    e2e.check(name not in MARKED or not indented, f"{name}: a block without a fence: {indented and indented[1]}")
    runs = []
    for info, block in FENCE.findall(text):
        language, _, mark = info.partition(" ")
        if language in ("sh", "bash", "console"):
            e2e.check(mark == "run" or re.fullmatch(r"shown: \S.+", mark), f"{name}: a block without a mark:\n{block}")
            runs += [(language, block)] if mark == "run" else []
        e2e.check(name not in MARKED or language, f"{name}: a block without a language:\n{block}")
    return runs


def typed(language, block):
    """What a shell is given for a block."""
    if language != "console":
        return block
    script = ""
    for command, shown in re.findall(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", block, flags=re.M):
        fails = re.search(r"^gvxctl: ", shown, flags=re.M)
        script += f"code=0; {command} || code=$?; [[ $code == [123] ]]\n" if fails else command + "\n"
    return script


def walk(name, folder, home, stack):
    page = pathlib.Path(tempfile.mkdtemp(prefix=name.replace("/", "_"), dir=folder))
    (page / "password.txt").write_text("S3cret of a device\n")
    bin_folder = home / "gvx/bin"
    environment = {**os.environ, "HOME": str(home), "PATH": f"{folder}/player:{os.environ['PATH']}"}
    gateway = None
    if name != README:  # which starts its own
        options = types.SimpleNamespace(gvxd=bin_folder / "gvxd", conf=home / "gvx/etc/gvx", slow=1,
                                        plugin_dir=next(home.glob("gvx/lib*/**/gvx/plugins")))
        gateway = e2e.Gateway(options, page, settings={"GVX_INTAKE_PORT": "9610"})
        gateway.environment = {"GVX_ROOT": str(gateway.conf / "root")}
        gateway.port = 9600
        stack.callback(gateway.kill)
        gateway.start()
        environment |= {"PATH": f"{bin_folder}:{environment['PATH']}", "GVX_ROOT": gateway.environment["GVX_ROOT"]}
    script = "set -eu\ntrap 'kill $(jobs -p) 2>/dev/null || true' EXIT\nset -x\n"
    blocks = marked_blocks(name)
    script += "\n".join(typed(*block) for block in blocks)
    done = subprocess.run(["bash", "-c", script], cwd=page, env=environment, stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=LIMIT, check=False)
    e2e.check(done.returncode == 0, f"{name} does not do what it says:\n{done.stdout[-4000:]}")
    print(f"{name}: {len(blocks)} blocks")
    if gateway:
        gateway.stop()


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    e2e.in_own_network("9600, 9610, 9700, 20000 to 20003 and 20010")
    pages = sorted({*MARKED, *(f"docs/{path.name}" for path in (SOURCE / "docs").glob("*.md"))})
    runs = {name for name in pages if marked_blocks(name)}
    e2e.check(runs == {*WALKED, "docs/plugin-guide.md"}, f"pages with commands: {sorted(runs)}")
    with tempfile.TemporaryDirectory(prefix="gvx_printed_") as name, contextlib.ExitStack() as stack:
        folder = pathlib.Path(name)
        home = folder / "home"
        e2e.run("cmake", "--install", str(build), "--prefix", str(home / "gvx"))
        (folder / "player").mkdir()
        (folder / "player/ffplay").write_text('#!/bin/sh\nfor last; do :; done\nexec ffmpeg -nostdin -v error '
                                              '-protocol_whitelist file,udp,rtp -i "$last" -frames:v 10 -f null -\n')
        (folder / "player/ffplay").chmod(0o755)
        for page in WALKED:
            walk(page, folder, home, stack)


if __name__ == "__main__":
    try:
        main()
    except e2e.Failure as failure:
        sys.exit(f"FAILED: {failure}")
