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
import sys
import time

import kill_test
from kill_test import check

LINE = re.compile(rb"^MAX_CAPS=(\d+)$", re.M)


class Saver:
    """The program on one configuration folder, and what its file must look like."""

    def __init__(self, program, conf, folder, padding=0):
        self.program, self.folder = program, folder
        shutil.copytree(conf, folder, dirs_exist_ok=True)
        self.file, self.side = folder / "zvs_gvx.conf", folder / "zvs_gvx.conf.bak"
        text = self.file.read_bytes()
        self.file.write_bytes(text + b"".join(b"; padding %06d\n" % i for i in range(padding)) + b"LAST=1\n")
        check(self.edit(1)[0] == 0, "the first edit fails")  # the store writes its own form from here on
        self.template = LINE.sub(b"MAX_CAPS=", self.file.read_bytes())

    def run(self, *arguments):
        environment = {**os.environ, "GVX_ROOT": str(self.folder / "root")}
        done = subprocess.run([self.program, *arguments], capture_output=True, text=True, env=environment, timeout=60,
                              check=False)
        return done.returncode, done.stdout.strip()

    def edit(self, value):
        return self.run("edit", str(self.folder), str(value))

    def start(self):
        return self.run("start", str(self.folder))

    def whole_value(self):
        """The value in the file; None when anything else in it has changed."""
        content = self.file.read_bytes()
        found = LINE.findall(content)
        whole = len(found) == 1 and LINE.sub(b"MAX_CAPS=", content) == self.template
        return int(found[0]) if whole else None

    def save_until_killed(self, after):
        """Gives the values that were saved, by the program's own word."""
        environment = {**os.environ, "GVX_ROOT": str(self.folder / "root")}
        process = subprocess.Popen([self.program, "loop", str(self.folder)], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=environment)
        first = process.stdout.readline()
        time.sleep(after)
        process.kill()
        rest = process.stdout.read()
        process.wait()
        check(first, f"the saver ended with {process.returncode} before its first save")
        return [int(value) for value in (first + rest).split()]


def kill_savers(options, folder):
    saver = Saver(options.saver, options.conf, folder / "kill", padding=4000)
    saves = damaged = left_side_file = 0
    for _ in range(options.kills):
        values = saver.save_until_killed(random.uniform(0, 0.004))
        saves += len(values)
        left_side_file += saver.side.exists()
        value = saver.whole_value()
        # What was told last is on disk; one more save may have gone through before its word was out.
        if value not in (values[-1], values[-1] % 150 + 1):
            damaged += 1
    code, value = saver.start()
    check(code == 0 and not saver.side.exists(), f"the next start ends with {code} or leaves the side file")
    check(value == str(saver.whole_value()), f"the next start reads {value}")
    print(f"kills {options.kills}, saves {saves}, side files left {left_side_file}, damaged files {damaged}")
    check(damaged == 0, f"{damaged} damaged files")
    check(left_side_file > 0, "no kill fell into a save")


def refuse_edit(saver, text):
    """A save that cannot be made must leave the file as it is and answer an error."""
    before = saver.whole_value()
    code, value = saver.edit(before % 150 + 1)
    check(code == 1, f"{text}: the edit ends with {code}")
    check(value == str(before), f"{text}: the running value is {value}")
    check(saver.whole_value() == before, f"{text}: the file has changed")


def take_edit(saver, text):
    wanted = saver.whole_value() % 150 + 1
    code, value = saver.edit(wanted)
    check(code == 0 and value == str(wanted) and saver.whole_value() == wanted, f"{text}: the next edit fails")
    check(not saver.side.exists(), f"{text}: a side file is left")


def full_file_system(options, folder):
    at = folder / "small"
    at.mkdir()
    with kill_test.mounted("-t", "tmpfs", "-o", "size=512k", "tmpfs", at=at) as is_mounted:
        if not is_mounted:
            print("full file system and read-only folder: passed over, mount is not permitted")
            return
        saver = Saver(options.saver, options.conf, at / "conf", padding=4000)
        filler = at / "filler"
        kill_test.fill(filler)
        refuse_edit(saver, "full file system")
        filler.unlink()
        take_edit(saver, "room again")
        print("full file system: old file whole")
        subprocess.run(["mount", "-o", "remount,ro", str(at)], check=True)
        refuse_edit(saver, "read-only folder")
        subprocess.run(["mount", "-o", "remount,rw", str(at)], check=True)
        take_edit(saver, "writable again")
        print("read-only folder: old file whole")


def failing_rename(options, folder):
    saver = Saver(options.saver, options.conf, folder / "rename")
    # A file that is a mount point cannot be renamed over.
    with kill_test.mounted("--bind", str(saver.file), at=saver.file) as is_mounted:
        if not is_mounted:
            print("failing rename: passed over, mount is not permitted")
            return
        refuse_edit(saver, "failing rename")
        check(saver.side.exists(), "the complete side file is not left behind")
    code, _ = saver.start()
    check(code == 0 and not saver.side.exists(), "the next start leaves the side file")
    print("failing rename: old file whole, side file removed at the next start")


if __name__ == "__main__":
    sys.exit(kill_test.main(__doc__, ["saver", "conf"], 300, (kill_savers, full_file_system, failing_rename)))
