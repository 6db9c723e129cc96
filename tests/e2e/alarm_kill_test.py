#!/usr/bin/env python3
"""Ends a process that raises and clears alarms, at any moment, and looks at what its store holds: what was told to be
stored is there once, what was told to be cleared is not, and the next start takes over exactly that. The same with a
full disk and with a store that becomes read-only; those need rights that are not given everywhere, and are passed over
with a line that says so."""
import collections
import contextlib
import pathlib
import random
import shutil
import sqlite3
import subprocess
import tempfile
import time

import kill_test
from gvx_e2e import check, main

RECORD_FAIL, FLOW = "308521803", "308521806"
ON, OFF, FLOW_OFF = "ALARM_GVX_LOG_RECORD_FAIL_ON", "ALARM_GVX_LOG_RECORD_FAIL_OFF", "ALARM_GVX_FLOW_CONTROL_ERROR_OFF"
STORE_ON, STORE_OFF = "ALARM_GVX_ALARM_RECORD_FAIL_ON", "ALARM_GVX_ALARM_RECORD_FAIL_OFF"
THREADS, KILLS, KILLS_MEANWHILE = 4, 300, 20
BEFORE, NEVER = -1, -2  # when the links open; else so many milliseconds after the store
IN_HAND = 32  # clears that left last may come again at the next start, as docs/alarms.md says


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
        self.flows, self.sent, self.loaded, self.stored = set(), collections.Counter(), False, 0
        self.raised = collections.Counter()  # raising alarms since the last clear that was sent
        self.doubled = 0
        self.clears = []  # texts of the clearing alarms that were sent
        self.ends = collections.Counter()  # ends of faults; the clears of some may still wait
        self.told = {}  # whether the last word that was sent about a text is a raise
        for line in output.splitlines(keepends=True):
            if line.endswith("\n"):
                self._take(*line.split())
        self.resumed = collections.Counter({text: count for (kind, text), count in self.sent.items()
                                            if kind == FLOW_OFF})

    def _take(self, step, what, *rest):
        if step == "sent":
            text = " ".join(rest)
            self.sent[what, text] += 1
            self.clears += [text] if what in (OFF, FLOW_OFF) else []
            if what in (ON, OFF):
                self.told[text] = what == ON
                self.raised[text] = self.raised[text] + 1 if what == ON else 0
                self.doubled += self.raised[text] > 1
        elif step == "loaded":
            self.loaded = True
        elif step == "begin":
            self.last[int(rest[0])] = what
        else:
            number = int(rest[0])
            self.last.pop(number)
            self.stored += what != "clear"
            if what == "flow":
                self.flows.add(number)
            else:
                self.ends[file_row(number)[1]] += what == "clear" and self.open.get(number, True)
                self.open[number] = what == "raise"


class Account:
    """Compares what was told with what is in the store, over all the kills."""

    def __init__(self):
        self.alarms = self.lost = self.doubled = 0
        self.before = collections.Counter()
        self.platform = {}  # whether an alarm of that text is open there

    def add(self, run, found):
        self.alarms += run.stored
        self.doubled += run.doubled
        expected = {row: True for row in self.before if row[0] == RECORD_FAIL}
        # A raise that is open from before must not go out anew.
        self.doubled += sum(run.raised[text] > 0 and not run.sent[OFF, text] for _, text in expected)
        expected.update((file_row(number), is_open) for number, is_open in run.open.items())
        self.platform.update(run.told)
        in_doubt = {file_row(number) for number, what in run.last.items() if what != "flow"}
        known = set(expected) | {row for row in found if row[0] == RECORD_FAIL}
        known |= {(RECORD_FAIL, text) for text in self.platform}
        for _, text in in_doubt:
            self.platform.pop(text, None)  # a raise may have left ahead of its row
        for row in known - in_doubt:
            is_open, is_open_there = expected.get(row), self.platform.get(row[1])
            self.lost += bool(is_open or is_open_there) and found[row] == 0
            # A row whose clear has not left yet stays.
            self.doubled += not is_open and is_open_there is False and found[row] > 0 and self._is_done(run, row[1])
        self.doubled += sum(count > 1 for row, count in found.items() if row[0] == RECORD_FAIL)
        self._add_flows(run, found)
        self.before = found

    @staticmethod
    def _is_done(run, text):
        return (text in run.clears[:-IN_HAND] and text not in run.clears[-IN_HAND:]
                and run.clears.count(text) >= run.ends[text])

    def _add_flows(self, run, found):
        """A start clears those of before; a row whose clear has not left waits for the next one, as those of now do."""
        before = {text for kind, text in self.before if kind == FLOW}
        now = {flow_row(number) for number in run.flows}
        expected = now | {flow_row(number) for number, what in run.last.items() if what == "flow"}
        for text in before:
            self.lost += not run.resumed[text] and not found[FLOW, text]
            self.doubled += (FLOW, text) not in expected and found[FLOW, text] > 0 and self._is_done(run, text)
        self.doubled += sum((run.resumed - collections.Counter(before)).values())
        expected |= set(self.before)
        self.lost += len(now - set(found))
        self.doubled += sum(count - (row in expected) for row, count in found.items() if row[0] == FLOW)


def run_until_killed(program, store):
    links = random.choice([BEFORE, NEVER, random.randrange(40)])
    with subprocess.Popen([program, "loop", str(store), str(THREADS), str(links)], stdout=subprocess.PIPE,
                          text=True) as process:
        output = ""
        if random.randrange(4) == 0:  # somewhere in the start, most of the time
            time.sleep(random.uniform(0, 0.03))
        else:
            while not output.endswith(("loaded 0\n", "loaded 1\n")) and (line := process.stdout.readline()):
                output += line
            time.sleep(random.uniform(0, 0.05))
        check(process.poll() is None, f"the keeper ended with {process.poll()}")
        process.kill()
        return Run(output + process.stdout.read())


def kill_keepers(options, folder):
    store, account, kills, starts = folder / "kill.db", Account(), options.kills or KILLS, 0
    for _ in range(kills):
        run = run_until_killed(options.keeper, store)
        starts += run.loaded
        account.add(run, rows(store))
    closing = f"kills {kills}, alarms {account.alarms}, lost {account.lost}, doubled {account.doubled}"
    print(f"{closing}; {kills - starts} kills in the middle of a start")
    check(account.alarms > kills, f"too little happened: {closing}")
    check(account.lost == 0 and account.doubled == 0, closing)


@contextlib.contextmanager
def asked_keeper(program, store, text):
    """Gives ask(order, types...): a keeper follows the order, and alarms of these types must go out."""
    with subprocess.Popen([program, "ask", str(store)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                          bufsize=1) as process:
        def until(word):
            told = []
            while not told or told[-1][0] != word:
                told.append(process.stdout.readline().split())
                check(told[-1], f"{text}: the keeper ended with {process.poll()}")
            return told

        def ask(order, *types):
            process.stdin.write(order + "\n")
            sent = tuple(words[1] for words in until("done") if words[0] == "sent")
            check(sent == types, f"{text}: {order} sends {sent}")

        try:
            until("loaded")
            yield ask
        finally:
            process.kill()


def failing_store(options, store, text, break_it, mend_it):
    """Alarms go out all the while; the store's own fault is raised once and cleared; what it took stays, and the next
    start knows it, also when a kill comes while the store fails."""
    for meanwhile in [True] * KILLS_MEANWHILE + [False]:
        with asked_keeper(options.keeper, store, text) as ask:
            ask("raise 1", ON, STORE_OFF)
            break_it()
            ask("raise 2", ON, STORE_ON)
            if not meanwhile:
                ask("raise 3", ON)
                ask("clear 1", OFF)
                mend_it()
                ask("raise 4", ON, STORE_OFF)
                ask("raise 1")  # which the store keeps
        with tempfile.TemporaryDirectory(prefix="gvx_alarms_") as copy:  # to look at it takes room, and rights
            for part in store.parent.glob(f"{store.name}*"):
                shutil.copyfile(part, pathlib.Path(copy) / part.name)
            left = rows(pathlib.Path(copy) / store.name)
        wanted = [file_row(1)] if meanwhile else [file_row(1), file_row(4)]
        check(left == collections.Counter(wanted), f"{text}: after a kill the store holds {left}")
        if meanwhile:
            mend_it()
        with asked_keeper(options.keeper, store, text) as ask:
            ask("raise 1")
            ask("clear 1", OFF, STORE_OFF)
    print(f"{text}: told once, stored alarms kept, store whole after {KILLS_MEANWHILE} kills meanwhile")


def full_disk(options, folder):
    at = folder / "small"
    at.mkdir()
    with kill_test.mounted("full disk", "-t", "tmpfs", "-o", "size=256k", "tmpfs", at=at) as is_mounted:
        if is_mounted:
            filler = at / "filler"
            failing_store(options, at / "full.db", "full disk", lambda: kill_test.fill(filler), filler.unlink)


def read_only_store(options, folder):
    def protect(flag, *names):
        return subprocess.run(["chattr", flag, *map(str, names)], capture_output=True, check=False).returncode == 0

    probe, store = folder / "probe", folder / "read_only.db"
    parts = [store, pathlib.Path(f"{store}-wal")]
    with open(probe, "wb", buffering=0) as file:
        protected = protect("+i", probe)
        with contextlib.suppress(PermissionError):
            file.write(b"x")
            protected = False  # some file systems hold a file that is open already to be writable
        protect("-i", probe)
    if not protected:
        print("read-only store: passed over, an open file cannot be protected here")
        return
    try:
        failing_store(options, store, "read-only store", lambda: protect("+i", *parts), lambda: protect("-i", *parts))
    finally:
        protect("-i", *parts)


def test(options, folder, _stack):
    for part in (full_disk, read_only_store, kill_keepers):
        part(options, folder)


if __name__ == "__main__":
    main(test, ["keeper"])
