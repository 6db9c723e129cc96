"""gvxd without enough of something. Start, link, device, stream, alarm, edit and stop run under limits of tasks, descriptors
and memory from too low upwards, and with one call that fails: the n-th allocation, thread, socket, epoll, open, write,
fsync, rename, mmap. Never a signal, a hang, a spin, a leak of descriptors, or a success that was none.

Which calls fail is drawn by --seed, as many as --seconds allows. --only KIND:N[-M[/STEP]][:COUNT] runs the faults or limits
from N to M instead, until there are no more calls of that kind."""
import argparse
import collections
import contextlib
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

import gvx_e2e as e2e

KINDS = ("memory", "thread", "socket", "epoll", "open", "write", "fsync", "rename", "mmap")
LIMITS = {"descriptors": resource.RLIMIT_NOFILE, "memory-size": resource.RLIMIT_AS}
MIB = 1 << 20
# From too low upwards; under the last of each everything is served. Tasks: from that thread on there is none.
STEPS = {"descriptors": (8, 16, 24, 32, 40, 48, 56, 64, 80, 100, 120, 140, 400),
         "memory-size": [MIB * n for n in (60, 120, 160, *range(190, 320, 10), 500, 8000)],
         "tasks": (*range(1, 24, 2), 24, 28, 34, 40, 400)}
SCARCE = 17  # the exit code of a start that gets no thread, descriptor or memory
LIMIT = 20
CONFIG_EDIT = 0x0A11
UNSURE = (e2e.Failure, OSError)  # under a fault a link may be closed or refused; what is answered must be true


class Run:
    """One life of gvxd under a fault or a limit."""

    def __init__(self, options, folder, clip, kind, number, count):
        self.options, self.name, self.once = options, f"{kind} {number}", kind in KINDS and count == 1
        self.limit = (LIMITS[kind], number) if kind in LIMITS else None
        self.codes = range(10, SCARCE + 1) if kind in ("write", "fsync", "rename") else (SCARCE,)
        self.seconds = LIMIT * options.slow
        self.intake, self.counts = e2e.free_port(), folder / "counts"
        self.gateway = e2e.Gateway(options, folder, {"clip": {"video": str(clip), "loop": True}},
                                   {"GVX_INTAKE_PORT": self.intake, "GVX_LOG_LEVEL": 7})
        self.peer, self.refused = None, []
        if kind not in LIMITS:
            order = f"thread:{number}:0" if kind == "tasks" else f"{kind}:{number}:{count}"
            self.gateway.environment = {"LD_PRELOAD": options.shim, "FAULT_SHIM": order,
                                        "FAULT_SHIM_COUNTS": str(self.counts)}

    def check(self, good, text):
        e2e.check(good, f"{self.name}: {text}")

    def start(self):
        """The exit code of a start that was refused."""
        gateway = self.gateway
        gateway.port = e2e.free_port()
        with open(gateway.folder / "gvxd_console.log", "wb") as console:
            gateway.process = subprocess.Popen(
                [*gateway.command(), "--listen-port", str(gateway.port), "--log-file", gateway.log_file],
                stdout=console, stderr=console, env=gateway.whole_environment(),
                preexec_fn=lambda: self.limit and resource.setrlimit(self.limit[0], (self.limit[1],) * 2))
        # Links are accepted before the last step of the start. A log that cannot be written does not tell its end.
        ready = lambda: gateway.log_file.exists() and gateway.lines("gvxd ready")
        with contextlib.suppress(e2e.Failure):
            e2e.wait_until(lambda: gateway.process.poll() is not None or ready(), self.seconds, "")
        code = gateway.process.poll()
        self.check(code is not None or e2e.listens(gateway.port), "the start hangs")
        lines = gateway.console().splitlines()
        self.check(code is None or code in self.codes and len(lines) == 1 and lines[0].startswith("gvxd: "),
                   f"the start ended with {code}: {lines}")
        return code

    def is_alive(self):
        code = self.gateway.process.poll()
        self.check(code is None, f"gvxd ended with {code}: {self.gateway.console()}")

    def link(self):
        self.peer, end = None, time.monotonic() + 6 * self.options.slow
        while self.peer is None and time.monotonic() < end:
            self.is_alive()
            with contextlib.suppress(*UNSURE):
                self.peer = e2e.Peer.linked(self.gateway.port, "GVX#900")

    def ask(self, kind, tag, body):
        """True when it was done. An answer that never comes ends the link."""
        if self.peer is None:
            return False
        try:
            answer = self.peer.request(kind, tag, body if isinstance(body, bytes) else json.dumps(body).encode(), self.seconds)
        except UNSURE as fault:
            self.refused.append(f"0x{kind:04x}: {fault}")
            self.link()
            return False
        if answer.code != 0:
            self.refused.append(f"0x{kind:04x}: {answer.code} {answer.body!r}")
        return answer.code == 0

    def serve(self, number):
        """One device with one stream, one alarm, one edit. Gives whether all of it was done."""
        self.link()
        dev, value = f"CAM{number}", 100 + number
        done = [self.ask(e2e.ADD_DEV, e2e.TAG_XML, f"<Content><DevCode>{dev}</DevCode><PluginName>file</PluginName><FormType>1"
                         f'</FormType><Extend>{{"media":"clip"}}</Extend></Content>'.encode())]
        with e2e.udp_sink() as sink:
            done.append(self.ask(e2e.START_STREAM, e2e.TAG_JSON, {
                "DevCode": dev, "ServiceID": dev, "StreamType": 0, "Protocol": 1, "DstIP": "127.0.0.1",
                "DstVideoPort": sink.getsockname()[1], "Audio": False}))
            if done[-1]:
                e2e.check_media_flows(sink, self.seconds, f"{self.name}: a stream that was started")
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.intake), timeout=5) as device:
            device.sendall(json.dumps({"device": dev, "channel": 0, "code": "shield", "action": "start"}).encode() + b"\n")
        done.append(self.ask(CONFIG_EDIT, e2e.TAG_XML, "<Content><ConfigInfo><ConfigName>MAX_CAPS</ConfigName><ConfigType>"
                             f"SERVICE_CAPACITY</ConfigType><ConfigValue>{value}</ConfigValue></ConfigInfo></Content>".encode()))
        stored = f"MAX_CAPS={value}\n" in (self.gateway.conf / "zvs_gvx.conf").read_text()
        self.check(stored or not done[-1], "an edit was answered with 0, and the file does not hold it")
        done.append(self.ask(e2e.STOP_STREAM, e2e.TAG_JSON, {"DevCode": dev, "ServiceID": dev}))
        done.append(self.ask(e2e.DEL_DEV, e2e.TAG_XML, f"<Content><DevCode>{dev}</DevCode></Content>".encode()))
        if self.peer:
            self.peer.sock.close()
        self.is_alive()
        return all(done)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.gateway.process.pid}/fd"))

    def no_spin(self):
        def ticks():
            stat = pathlib.Path(f"/proc/{self.gateway.process.pid}/stat").read_text(encoding="ascii").rsplit(")")[1].split()
            return int(stat[11]) + int(stat[12])
        begin = ticks()
        time.sleep(0.5)
        share = (ticks() - begin) / os.sysconf("SC_CLK_TCK") / 0.5
        self.check(share < 0.7, f"takes {share:.0%} of a processor with nothing to do")

    def whole(self, usual):
        """Gives what happened in a word. usual: the descriptors that a clean run holds in the end."""
        code = self.start()
        if code is not None:
            return f"exit {code}"
        served = self.serve(1)
        if self.once:
            # The one call may fail as late as in the second round.
            self.check(self.serve(2) or self.serve(3), f"nothing fails any more, but: {self.refused}")
            with contextlib.suppress(e2e.Failure):
                e2e.wait_until(lambda: self.descriptors() <= usual, self.seconds, "")
            self.check(self.descriptors() <= usual, f"{self.descriptors()} descriptors, and {usual} without a fault")
        else:
            self.no_spin()
        self.held = self.descriptors()
        try:
            self.gateway.stop(self.seconds)
        except subprocess.TimeoutExpired:
            self.check(False, "the stop hangs")
        return "served" if served else "refused"


def runs(options, folder, clip, outcomes):
    """Runs one after another, by name; gives what was wrong."""
    wrong = []

    def one(kind, number, count=1, usual=10000, must=False, told=False):
        with tempfile.TemporaryDirectory(dir=folder) as inner:
            run = Run(options, pathlib.Path(inner), clip, kind, number, count)
            try:
                outcome = run.whole(usual)
                run.check(outcome == "served" or not must, f"{outcome}: {run.refused}")
            except e2e.Failure as fault:
                outcome = "FAILED"
                wrong.append(str(fault))
                print(fault, file=sys.stderr)
                if options.keep:
                    shutil.copytree(inner, pathlib.Path(options.keep) / run.name.replace(" ", "_"), dirs_exist_ok=True)
            finally:
                run.gateway.kill()
            calls = struct.unpack("9Q", run.counts.read_bytes()) if run.counts.exists() else ()
        outcomes[f"{kind}: {outcome}"] += 1
        if told:
            print(run.name, outcome, run.gateway.console().strip() if outcome != "served" else "", *run.refused, flush=True)
        return run, dict(zip(KINDS, calls))

    begin, draw = time.monotonic(), random.Random(options.seed)
    clean, calls = one("memory", 0, must=True)
    print({**calls, "descriptors": clean.held})
    if options.only:
        kind, numbers, count = (options.only + ":1").split(":")[:3]
        first, last, step = re.fullmatch(r"(\d+)(?:-(\d+)(?:/(\d+))?)?", numbers).groups()
        for number in range(int(first), int(last or first) + 1, int(step or 1)):
            _, calls = one(kind, number, int(count), usual=clean.held, told=True)
            if calls.get(kind, number) < number:
                break
        return wrong
    steps = [(kind, number) for kind, numbers in STEPS.items() for number in numbers]
    draw.shuffle(steps)
    for kind, number in steps:
        if time.monotonic() - begin < 0.4 * options.seconds:
            one(kind, number, must=number == STEPS[kind][-1])
    while time.monotonic() - begin < options.seconds:
        for kind in KINDS:
            # Most allocations are of one kind, in the midst: half of the sample is spread over the magnitudes of n.
            most = max(calls[kind], 1)
            one(kind, draw.choice((draw.randint(1, most), int(most ** draw.random()))), usual=clean.held)
    return wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("gvxd", "gvxctl", "plugin-dir", "conf", "shim"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--seconds", type=float, default=100)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--slow", type=float, default=1)
    parser.add_argument("--only", default="")
    parser.add_argument("--keep", help="a folder that gets what failed runs leave")
    options = parser.parse_args()
    print(f"seed {options.seed}")
    outcomes = collections.Counter()
    with tempfile.TemporaryDirectory(prefix="gvx_e2e_") as name:
        clip, _ = e2e.make_clip(pathlib.Path(name), seconds=1)
        wrong = runs(options, pathlib.Path(name), clip, outcomes)
    print("\n".join(f"{count:6} {outcome}" for outcome, count in sorted(outcomes.items())))
    sys.exit(f"FAILED: {len(wrong)} of {outcomes.total()} runs:\n" + "\n".join(wrong[:20]) if wrong else None)


if __name__ == "__main__":
    main()
