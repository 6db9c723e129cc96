#!/usr/bin/env python3
"""Ends a process that saves its settings, at any moment, and looks at what is left: the old file or the new one, whole,
and a next start that removes the side file. The same with a full file system, a read-only folder and a rename that
fails; those need the right to mount and are passed over, with a line that says so, where it is not given."""
import os
import pathlib
import random
import re
import shutil
import subprocess
import time

import kill_test
from gvx_e2e import check, main

LINE = re.compile(rb"^MAX_CAPS=(\d+)$", re.M)
KILLS = 300


class Saver:
    """The program on one configuration folder, and what its file must look like."""

    def __init__(self, program, conf, folder, padding=0):
        self.program, self.folder = program, folder
        self.environment = {**os.environ, "GVX_ROOT": str(folder / "root")}
        shutil.copytree(conf, folder, dirs_exist_ok=True)
        self.file, self.side = folder / "zvs_gvx.conf", folder / "zvs_gvx.conf.bak"
        text = self.file.read_bytes()
        self.file.write_bytes(text + b"".join(b"; padding %06d\n" % i for i in range(padding)) + b"LAST=1\n")
        check(self.run("edit", 1)[0] == 0, "the first edit fails")  # the store writes its own form from here on
        self.template = LINE.sub(b"MAX_CAPS=", self.file.read_bytes())

    def run(self, mode, *values):
        """The exit code and the setting that is in force."""
        done = subprocess.run([self.program, mode, str(self.folder), *map(str, values)], capture_output=True, text=True,
                              env=self.environment, timeout=60, check=False)
        return done.returncode, done.stdout.strip()

    def whole_value(self):
        """The value in the file; None when anything else in it has changed."""
        content = self.file.read_bytes()
        found = LINE.findall(content)
        whole = len(found) == 1 and LINE.sub(b"MAX_CAPS=", content) == self.template
        return int(found[0]) if whole else None

    def save_until_killed(self, after):
        """Gives the values that were saved, by the program's own word."""
        with subprocess.Popen([self.program, "loop", str(self.folder)], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, env=self.environment) as process:
            first = process.stdout.readline()
            time.sleep(after)
            process.kill()
            check(first, "the saver ended before its first save")
            return [int(value) for value in (first + process.stdout.read()).split()]

    def edit(self, text, taken):
        """A save that cannot be made must leave the file as it is and answer an error."""
        before = self.whole_value()
        wanted = before % 150 + 1
        value = wanted if taken else before
        told = self.run("edit", wanted)
        check(told == (0 if taken else 1, str(value)), f"{text}: the edit gives {told}")
        check(self.whole_value() == value, f"{text}: the file is another than it must be")
        check(not taken or not self.side.exists(), f"{text}: a side file is left")
        print(f"{text}: {'saved' if taken else 'old file whole'}")

    def start_again(self):
        told = self.run("start")
        check(told == (0, str(self.whole_value())) and not self.side.exists(),
              f"the next start gives {told} or leaves the side file")


def kill_savers(options, folder):
    saver = Saver(options.saver, options.conf, folder / "kill", padding=4000)
    saves = damaged = left_side_file = 0
    kills = options.kills or KILLS
    for _ in range(kills):
        values = saver.save_until_killed(random.uniform(0, 0.004))
        saves += len(values)
        left_side_file += saver.side.exists()
        # What was told last is on disk; one more save may have gone through before its word was out.
        damaged += saver.whole_value() not in (values[-1], values[-1] % 150 + 1)
    saver.start_again()
    print(f"kills {kills}, saves {saves}, side files left {left_side_file}, damaged files {damaged}")
    check(damaged == 0, f"{damaged} damaged files")
    check(left_side_file > 0, "no kill fell into a save")


def full_file_system(options, folder):
    at = folder / "small"
    at.mkdir()
    with kill_test.mounted("full file system", "-t", "tmpfs", "-o", "size=512k", "tmpfs", at=at) as is_mounted:
        if not is_mounted:
            return
        saver = Saver(options.saver, options.conf, at / "conf", padding=4000)
        filler = at / "filler"
        kill_test.fill(filler)
        saver.edit("full file system", False)
        filler.unlink()
        saver.edit("room again", True)
        subprocess.run(["mount", "-o", "remount,ro", str(at)], check=True)
        saver.edit("read-only folder", False)
        subprocess.run(["mount", "-o", "remount,rw", str(at)], check=True)
        saver.edit("writable again", True)


def failing_rename(options, folder):
    saver = Saver(options.saver, options.conf, folder / "rename")
    # A file that is a mount point cannot be renamed over.
    with kill_test.mounted("failing rename", "--bind", str(saver.file), at=saver.file) as is_mounted:
        if not is_mounted:
            return
        saver.edit("failing rename", False)
        check(saver.side.exists(), "the complete side file is not left behind")
    saver.start_again()


def test(options, folder, _stack):
    for part in (kill_savers, full_file_system, failing_rename):
        part(options, folder)


if __name__ == "__main__":
    main(test, ["saver", "conf"])
