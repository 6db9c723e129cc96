#!/usr/bin/env python3
"""Ends a process that raises and clears alarms, at any moment, and looks at what its store holds: what was told to be
stored is there once, what was told to be cleared is not, and the next start takes over exactly that. The same with a
full disk and with a store that becomes read-only; those need rights that are not given everywhere, and are passed over
with a line that says so."""

import collections
import contextlib
import pathlib
import random
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

import kill_test
from kill_test import check

RECORD_FAIL, FLOW = "308521803", "308521806"
ON, OFF, FLOW_OFF = "ALARM_GVX_LOG_RECORD_FAIL_ON", "ALARM_GVX_LOG_RECORD_FAIL_OFF", "ALARM_GVX_FLOW_CONTROL_ERROR_OFF"
STORE_ON, STORE_OFF = "ALARM_GVX_ALARM_RECORD_FAIL_ON", "ALARM_GVX_ALARM_RECORD_FAIL_OFF"
THREADS = 4
KILLS_MEANWHILE = 20


def rows(store):
    """What the store holds, by type and text, once sqlite3 finds it whole."""
    with contextlib.closing(sqlite3.connect(store)) as database:
        verdict = database.execute("PRAGMA integrity_check").fetchall()
        check(verdict == [("ok",)], f"integrity_check says {verdict}")
        if not database.execute("SELECT name FROM sqlite_master WHERE name = 'alarm'").fetchall():
            return collections.Counter()  # ended ahead of the first table
        return collections.Counter(database.execute("SELECT type, info FROM alarm"))


def file_row(number):
    return RECORD_FAIL, f"FilePath=/log,FileName={number},ErrorCode=500"


def flow_row(number):
    return FLOW, f"<Level>0</Level><ThreadID>{number}</ThreadID><ThreadName></ThreadName>"


class Run:
    """What a process told until its end."""

    def __init__(self, output):
        self.open, self.last = {}, {}  # what the last word on a number was; steps without an end
        self.flows, self.sent, self.loaded, self.stored = set(), collections.Counter(), None, 0
        self.raised = collections.Counter()  # raising alarms since the last clear that was sent
        self.doubled = 0
        for line in output.splitlines(keepends=True):
            if line.endswith("\n"):
                self._take(line.split())

    def _take(self, words):
        if words[0] == "sent":
            self.sent[words[1], " ".join(words[2:])] += 1
            self._count_raises(words[1], words[-1])
        elif words[0] == "loaded":
            self.loaded = int(words[1])
        else:
            step, what, number = words[0], words[1], int(words[2])
            if step == "begin":
                self.last[number] = what
                return
            self.last.pop(number)
            if what == "flow":
                self.flows.add(number)
            else:
                self.open[number] = what == "raise"
            self.stored += what != "clear"

    def _count_raises(self, kind, text):
        if kind == ON:
            self.raised[text] += 1
            self.doubled += self.raised[text] > 1
        elif kind == OFF:
            self.raised[text] = 0

    @property
    def resumed(self):
        return collections.Counter({text: count for (kind, text), count in self.sent.items() if kind == FLOW_OFF})


class Account:
    """Compares what was told with what is in the store, over all the kills."""

    def __init__(self):
        self.kills = self.alarms = self.lost = self.doubled = 0
        self.before = collections.Counter()

    def add(self, run, found):
        self.kills += 1
        self.alarms += run.stored
        self.doubled += run.doubled
        expected = {row: True for row in self.before if row[0] == RECORD_FAIL}
        expected.update((file_row(number), is_open) for number, is_open in run.open.items())
        in_doubt = {file_row(number) for number, what in run.last.items() if what != "flow"}
        for row in set(expected) | {row for row in found if row[0] == RECORD_FAIL}:
            count = found[row]
            if row not in in_doubt:
                self.lost += bool(expected.get(row)) and count == 0
                self.doubled += not expected.get(row) and count > 0
            self.doubled += count > 1
        self._add_flows(run, found)
        for row in self.before:  # a raise that is open from before must not go out anew
            if row[0] == RECORD_FAIL and run.raised[row[1]] and not run.sent[OFF, row[1]]:
                self.doubled += 1
        self.before = found

    def _add_flows(self, run, found):
        """A start clears those of before; a row that it has not come to waits for the next one, as those of now do."""
        started = run.loaded is not None
        for (kind, text), count in self.before.items():
            resumed = run.resumed[text] if kind == FLOW else count
            self.lost += max(0, count - resumed) if started or not found[kind, text] else 0
        self.doubled += sum((run.resumed - self._flows_before()).values())
        now = {flow_row(number) for number in run.flows}
        expected = now | {flow_row(number) for number, what in run.last.items() if what == "flow"}
        expected |= set() if started else set(self.before)
        self.lost += len(now - set(found))
        for row, count in found.items():
            if row[0] == FLOW:
                self.doubled += count - 1 if row in expected else count

    def _flows_before(self):
        return collections.Counter({text: count for (kind, text), count in self.before.items() if kind == FLOW})

    def tell(self):
        return f"kills {self.kills}, alarms {self.alarms}, lost {self.lost}, doubled {self.doubled}"


def run_until_killed(keeper, store):
    process = subprocess.Popen([keeper, "loop", str(store), str(THREADS)], stdout=subprocess.PIPE, text=True)
    output = ""
    if random.randrange(4) == 0:  # somewhere in the start, most of the time
        time.sleep(random.uniform(0, 0.03))
    else:
        for line in process.stdout:
            output += line
            if line.startswith("loaded"):
                break
        time.sleep(random.uniform(0, 0.05))
    check(process.poll() is None, f"the keeper ended with {process.poll()}")
    process.kill()
    output += process.stdout.read()
    process.wait()
    return Run(output)


def kill_keepers(options, folder):
    store, account, starts = folder / "kill.db", Account(), 0
    for _ in range(options.kills):
        run = run_until_killed(options.keeper, store)
        starts += run.loaded is not None
        account.add(run, rows(store))
    closing = account.tell()
    print(f"kills in the middle of a start {options.kills - starts}")
    check(account.alarms > options.kills, f"too little happened: {closing}")
    print(closing)
    check(account.lost == 0 and account.doubled == 0, closing)


class Keeper:
    """A keeper that does what it is told."""

    def __init__(self, program, store):
        self.process = subprocess.Popen([program, "ask", str(store)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, bufsize=1)
        self.loaded = self._until("loaded")

    def ask(self, what, number):
        """The types of the alarms that went out."""
        self.process.stdin.write(f"{what} {number}\n")
        return self._until("done")

    def _until(self, word):
        sent = []
        for line in self.process.stdout:
            words = line.split()
            if words[0] == word:
                return sent if word == "done" else int(words[1])
            if words[0] == "sent":
                sent.append(words[1])
        raise kill_test.Failure(f"the keeper ended with {self.process.poll()}")

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


def failing_store(options, store, text, break_it, mend_it):
    """Alarms go out all the while; the store's own fault is raised once and cleared; what it took stays."""
    keeper = Keeper(options.keeper, store)
    try:
        check(keeper.ask("raise", 1) == [ON, STORE_OFF], f"{text}: the first raise")
        break_it()
        sent = keeper.ask("raise", 2)
        check(sent == [ON, STORE_ON], f"{text}: the store's fault is not told: {sent}")
        check(keeper.ask("raise", 3) == [ON], f"{text}: the store's fault is told again")
        check(keeper.ask("clear", 1) == [OFF], f"{text}: the clear")
        mend_it()
        check(keeper.ask("raise", 4) == [ON, STORE_OFF], f"{text}: the end of the store's fault")
        check(keeper.ask("raise", 1) == [], f"{text}: an alarm that the store keeps is raised anew")
    finally:
        keeper.kill()
    left = rows(store)
    check(left == collections.Counter([file_row(1), file_row(4)]), f"{text}: the store holds {left}")
    keeper = Keeper(options.keeper, store)
    try:
        check(keeper.loaded == 0 and keeper.ask("clear", 1) == [OFF, STORE_OFF], f"{text}: the next start")
    finally:
        keeper.kill()
    print(f"{text}: told once, stored alarms kept")


def killed_meanwhile(options, store, text, break_it, mend_it):
    """Kills while the store fails: it is whole, and the next start knows the alarm that it took before."""
    for _ in range(KILLS_MEANWHILE):
        kill_once_meanwhile(options, store, text, break_it, mend_it)
    print(f"{text}: store whole after {KILLS_MEANWHILE} kills meanwhile")


def kill_once_meanwhile(options, store, text, break_it, mend_it):
    keeper = Keeper(options.keeper, store)
    try:
        check(keeper.ask("raise", 1) == [ON, STORE_OFF], f"{text}: the first raise")
        break_it()
        check(keeper.ask("raise", 2) == [ON, STORE_ON], f"{text}: the store's fault is not told")
    finally:
        keeper.kill()
    with tempfile.TemporaryDirectory(prefix="gvx_alarms_") as copy:  # to look at it takes room, and rights
        for part in store.parent.glob(f"{store.name}*"):
            shutil.copyfile(part, pathlib.Path(copy) / part.name)
        left = rows(pathlib.Path(copy) / store.name)
    check(left == collections.Counter([file_row(1)]), f"{text}: after a kill the store holds {left}")
    mend_it()
    keeper = Keeper(options.keeper, store)
    try:
        check(keeper.loaded == 0 and keeper.ask("raise", 1) == [], f"{text}: an alarm is raised anew after a kill")
        check(keeper.ask("clear", 1) == [OFF, STORE_OFF], f"{text}: the clear after a kill")
    finally:
        keeper.kill()


def full_disk(options, folder):
    at = folder / "small"
    at.mkdir()
    with kill_test.mounted("-t", "tmpfs", "-o", "size=256k", "tmpfs", at=at) as is_mounted:
        if not is_mounted:
            print("full disk: passed over, mount is not permitted")
            return
        filler = at / "filler"
        for test in (killed_meanwhile, failing_store):
            test(options, at / f"{test.__name__}.db", "full disk", lambda: kill_test.fill(filler), filler.unlink)


def read_only_store(options, folder):
    probe = folder / "probe"
    probe.touch()

    def protect(flag, *names):
        return subprocess.run(["chattr", flag, *map(str, names)], capture_output=True, check=False).returncode == 0

    if not protect("+i", probe):
        print("read-only store: passed over, chattr is not permitted here")
        return
    protect("-i", probe)
    # Some file systems hold a file that is open already to be writable.
    if not holds_open_files(protect, probe):
        print("read-only store: passed over, this file system lets files that are open be written")
        return
    for test in (killed_meanwhile, failing_store):
        store = folder / f"{test.__name__}.db"
        parts = [store, pathlib.Path(f"{store}-wal")]
        try:
            test(options, store, "read-only store", lambda at=parts: protect("+i", *at),
                 lambda at=parts: protect("-i", *at))
        finally:
            protect("-i", *parts)


def holds_open_files(protect, probe):
    with open(probe, "wb", buffering=0) as file:
        protect("+i", probe)
        try:
            file.write(b"x")
            return False
        except OSError:
            return True
        finally:
            protect("-i", probe)


if __name__ == "__main__":
    sys.exit(kill_test.main(__doc__, ["keeper"], 200, (full_disk, read_only_store, kill_keepers)))
