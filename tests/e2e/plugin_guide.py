#!/usr/bin/env python3
"""Installs the build and does what docs/plugin-guide.md tells a newcomer, command by command, until ffmpeg has decoded
pictures; ffmpeg stands in for the player's window. Then what the page does not type: names that are refused, the build
by pkg-config, the page's pieces of code, and which headers are installed.

usage: plugin_guide.py BUILD_DIR GUIDE
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import gvx_e2e as e2e

PICTURES = 20
LIMIT = 400  # seconds for any one step


def run(*command, code=0, **kwargs):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=LIMIT, check=False, **kwargs)
    if done.returncode != code:
        sys.exit(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def blocks(text, language):
    return re.findall(rf"^```{language}(?: run)?\n(.*?)^```$", text, flags=re.M | re.S)


def check_headers(prefix):
    """Every public header of the core stands in the one that includes them all, and no other is installed."""
    include = prefix / "include/gvx"
    installed = {str(path.relative_to(include)) for path in (include / "gvx_common").rglob("*.h")}
    named = set(re.findall(r'#include "([^"]+)"', (include / "gvx_common/gvx_common.h").read_text()))
    if installed - {"gvx_common/gvx_common.h"} != named:
        sys.exit(f"gvx_common.h and the installed headers differ: {sorted(installed ^ named)}")
    # Every record of an operation stands in the layout that is compared when a plug-in is loaded.
    listed = set(re.findall(r"TYPE\((\w+)\)", (include / "gvx_common/adapter/gvx_plugin_layout.h").read_text()))
    rooms = ("gvx_adapter", "gvx_discovery", "device_config", "guard", "intelligent", "picture", "ptz", "recording")
    records = {name for path in (include / f"gvx_common/records/{room}_records.h" for room in rooms)
               for name in re.findall(r"^struct (\w+) \{", path.read_text(), flags=re.M)}
    if missing := records - listed - {"_NSS_START_SNAP_SHOT_REQ"}:
        sys.exit(f"gvx_plugin_layout.h lists no {sorted(missing)}")


def check_second_install(build, prefix):
    """A file of the configuration that its operator has edited stays, and the shipped one lies beside it."""
    edited = prefix / "etc/gvx/net.xml"
    edited.write_text(edited.read_text().replace("GVX#001", "GVX#002"))
    run("cmake", "--install", build, "--prefix", str(prefix))
    new = [path.name for path in prefix.rglob("*.new")]
    if "GVX#002" not in edited.read_text() or new != ["net.xml.new"]:
        sys.exit(f"a second install touches what is edited, or lays down {new}")


def check_refused_names(folder):
    (folder / "here").mkdir()
    for name, why in (("", "missing"), ("MyCam", "only a-z"), ("my cam", "only a-z"), ("a/b", "only a-z"), ("x" * 33, "33"),
                      ("-x", "no option"), ("file", "already"), ("here", "here already")):
        said = run("gvx-new-plugin", name, code=2, cwd=folder)
        if why not in said or len(said.splitlines()) != 1:
            sys.exit(f"gvx-new-plugin {name!r} says: {said}")


def walk(page, folder):
    """All commands of the page in one shell; the seconds that each block took."""
    player = folder / "player"
    player.mkdir()
    (player / "ffplay").write_text(f'#!/bin/sh\nexec ffmpeg -nostdin -v error "$1" "$2" -i "$3" -frames:v {PICTURES} '
                                   f'-f framemd5 "{folder}/pictures"\n')
    (player / "ffplay").chmod(0o755)
    tell_time = f"echo $EPOCHREALTIME >>{folder}/times"
    script = ["set -eu", tell_time, "trap 'kill $(jobs -p) 2>/dev/null || true' EXIT"]
    for block in blocks(page, "sh"):
        script += [block, "wait $!" if "ffplay" in block else "", tell_time]
    run("bash", "-c", "\n".join(script), cwd=folder, env={**os.environ, "PATH": f"{player}:{os.environ['PATH']}"})
    pictures = [line.split()[-1] for line in (folder / "pictures").read_text().splitlines() if not line.startswith("#")]
    times = [float(time) for time in (folder / "times").read_text().split()]
    print(f"{len(pictures)} pictures decoded, {len(set(pictures))} different; seconds of the steps:",
          *(f"{end - begin:.1f}" for begin, end in zip(times, times[1:])))
    if len(pictures) != PICTURES or len(set(pictures)) < PICTURES // 2:
        sys.exit(f"decoded pictures: {pictures}")


def compile_pieces(page, folder):
    flags = run("pkg-config", "--cflags", "gvx_common").split()
    (folder / "whole.cpp").write_text("#include <gvx_common/gvx_common.h>\n")
    for number, piece in enumerate(blocks(page, "cpp")):
        (folder / f"piece_{number}.cpp").write_text(piece)
    for source in folder.glob("*.cpp"):
        run("g++", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", str(source), *flags)


def main():
    build, guide = sys.argv[1:]
    e2e.in_own_network("9600 and 20000")
    page = pathlib.Path(guide).read_text()
    with tempfile.TemporaryDirectory(prefix="gvx_guide_") as name:
        folder = pathlib.Path(name)
        prefix = folder / "prefix"
        run("cmake", "--install", build, "--prefix", str(prefix))
        [package] = prefix.rglob("gvx_common.pc")
        os.environ.update(PATH=f"{prefix}/bin:{os.environ['PATH']}", PKG_CONFIG_PATH=str(package.parent),
                          CMAKE_PREFIX_PATH=str(prefix))
        check_headers(prefix)
        check_second_install(build, prefix)
        check_refused_names(folder)
        walk(page, folder)
        run("gvx-new-plugin", "by-make_2", cwd=folder)
        run("make", "check", cwd=folder / "by-make_2")
        compile_pieces(page, folder)


if __name__ == "__main__":
    main()
