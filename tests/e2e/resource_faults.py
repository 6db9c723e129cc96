"""gvxd without enough of something. Start, link, device, stream, alarm, edit and stop run under limits of tasks, descriptors
and memory from too low upwards, and with one call in turn that fails: the n-th allocation, thread, socket, epoll, open,
write, fsync, rename, mmap. Never a signal, a hang, a spin, a leak of descriptors, or a success that was none.

Which calls fail is drawn by --seed, as many as --seconds allows; --all 1 takes every n, --only KIND[:N[:COUNT]] some."""
import argparse
import collections
import contextlib
import json
import os
import pathlib
import random
import re
import resource
import signal
import socket
import struct
import sys
import tempfile
import time

import gvx_e2e as e2e

KINDS = ("memory", "thread", "socket", "epoll", "open", "write", "fsync", "rename", "mmap")
LIMITS = {"descriptors": resource.RLIMIT_NOFILE, "memory-size": resource.RLIMIT_AS}
SCARCE = 17  # the exit code of a start that gets no thread, descriptor or memory
LIMIT = 20
CONFIG_EDIT = 0x0A11
UNSURE = (e2e.Failure, OSError)  # under a fault a link may be closed or refused; what is answered must be true


class Run:
    """One life of gvxd under a fault or a limit."""

    def __init__(self, options, folder, name, clip, order=None, limits=()):
        self.options, self.name, self.order, self.limits = options, name, order, limits
        self.intake = e2e.free_port()
        self.gateway = e2e.Gateway(options, folder, {"clip": {"video": str(clip), "loop": True}},
                                   {"GVX_INTAKE_PORT": self.intake, "GVX_LOG_LEVEL": 7})
        self.counts_file, self.refused, self.pieces = folder / "counts", [], []
        if order is not None:
            self.gateway.environment = {"LD_PRELOAD": options.shim, "FAULT_SHIM": order,
                                        "FAULT_SHIM_COUNTS": str(self.counts_file)}
        self.once = order is not None and not order.endswith(":0")

    def check(self, good, text):
        e2e.check(good, f"{self.name}: {text}")

    def start(self):
        gateway = self.gateway
        gateway.port = e2e.free_port()
        with open(gateway.folder / "gvxd_console.log", "wb") as console:
            gateway.process = e2e.subprocess.Popen(
                [*gateway.command(), "--listen-port", str(gateway.port), "--log-file", gateway.log_file],
                stdout=console, stderr=console, env=gateway.whole_environment(),
                preexec_fn=lambda: [resource.setrlimit(limit, (value, value)) for limit, value in self.limits])
        ready = lambda: gateway.log_file.exists() and gateway.lines("gvxd ready")
        try:
            e2e.wait_until(lambda: gateway.process.poll() is not None or e2e.listens(gateway.port) and ready(),
                           LIMIT * self.options.slow, "gvxd is ready or has ended")
        except e2e.Failure:
            # A log that cannot be written tells nothing, and is no reason not to serve.
            self.check(e2e.listens(gateway.port), "the start hangs")
        return gateway.process.poll()

    def failed_start(self, code):
        lines = self.gateway.console().splitlines()
        self.check(10 <= code <= SCARCE and len(lines) == 1 and lines[0].startswith("gvxd: "),
                   f"the start ended with {code}: {lines}")

    def is_alive(self):
        code = self.gateway.process.poll()
        self.check(code is None, f"gvxd ended with {code}: {self.gateway.console()}")

    def link(self):
        end = time.monotonic() + 6 * self.options.slow
        while True:
            self.is_alive()
            try:
                return e2e.Peer.linked(self.gateway.port, "GVX#900")
            except UNSURE:
                if time.monotonic() > end:
                    return None

    def ask(self, what, kind, tag, body):
        """True when it was done; a refusal must say why. An answer that never comes ends the link."""
        try:
            answer = self.peer.request(kind, tag, body, LIMIT * self.options.slow)
        except UNSURE as fault:
            self.refused.append(f"{what}: {fault}")
            self.is_alive()
            self.peer = self.link()
            return None
        if answer.code != 0:
            self.refused.append(f"{what}: {answer.code} {answer.body!r}")
        return answer.code == 0

    def serve(self, number):
        """One device with one stream, one alarm, one edit. Gives whether all of it was done."""
        self.peer = self.link()
        if self.peer is None:
            return False
        dev = f"CAM{number}"
        body = (f"<Content><DevCode>{dev}</DevCode><PluginName>file</PluginName><FormType>1</FormType>"
                f'<Extend>{{"media":"clip"}}</Extend></Content>')
        done = [self.ask("add", e2e.ADD_DEV, e2e.TAG_XML, body.encode())]
        with e2e.udp_sink() as sink:
            if done[0] and self.peer:
                request = {"DevCode": dev, "ServiceID": dev, "StreamType": 0, "Protocol": 1, "DstIP": "127.0.0.1",
                           "DstVideoPort": sink.getsockname()[1], "Audio": False}
                done.append(self.ask("start", e2e.START_STREAM, e2e.TAG_JSON, json.dumps(request).encode()))
                if done[-1]:
                    try:
                        e2e.check_media_flows(sink, LIMIT * self.options.slow, "a stream that was started")
                    except e2e.Failure as fault:
                        self.check(self.gateway.lines(dev, " ERR ") or self.gateway.lines("out of"), fault)
                        done.append(False)
        done.append(self.push_alarm(dev))
        done.append(self.edit(100 + number))
        if self.peer:
            done.append(self.ask("stop", e2e.STOP_STREAM, e2e.TAG_JSON,
                                 json.dumps({"DevCode": dev, "ServiceID": dev}).encode()))
        if self.peer:
            done.append(self.ask("delete", e2e.DEL_DEV, e2e.TAG_XML,
                                 f"<Content><DevCode>{dev}</DevCode></Content>".encode()))
        if self.peer:
            self.peer.sock.close()
        self.is_alive()
        return all(done)

    def push_alarm(self, dev):
        line = json.dumps({"device": dev, "channel": 0, "code": "shield", "action": "start"}).encode() + b"\n"
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.intake), timeout=5) as device:
            device.sendall(line)
        return True

    def edit(self, value):
        if self.peer is None:
            return False
        body = ("<Content><ConfigInfo><ConfigName>MAX_CAPS</ConfigName><ConfigType>SERVICE_CAPACITY</ConfigType>"
                f"<ConfigValue>{value}</ConfigValue></ConfigInfo></Content>")
        done = self.ask("edit", CONFIG_EDIT, e2e.TAG_XML, body.encode())
        stored = f"MAX_CAPS={value}\n" in (self.gateway.conf / "zvs_gvx.conf").read_text()
        self.check(stored or not done, "an edit was answered with 0, and the file does not hold it")
        return done

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.gateway.process.pid}/fd"))

    def no_leak(self, usual):
        """What a clean run holds open at the same moment; it may fall to that for a while."""
        with contextlib.suppress(e2e.Failure):
            e2e.wait_until(lambda: self.descriptors() <= usual, LIMIT * self.options.slow, "")
        self.check(self.descriptors() <= usual, f"{self.descriptors()} descriptors, and {usual} without a fault: "
                   f"{sorted(map(self.target, pathlib.Path(f'/proc/{self.gateway.process.pid}/fd').iterdir()))}")

    @staticmethod
    def target(link):
        try:
            return os.readlink(link)
        except OSError:
            return ""

    def no_spin(self):
        def ticks():
            fields = pathlib.Path(f"/proc/{self.gateway.process.pid}/stat").read_text(encoding="ascii").rsplit(")")[1].split()
            return int(fields[11]) + int(fields[12])
        begin = ticks()
        time.sleep(0.5)
        share = (ticks() - begin) / os.sysconf("SC_CLK_TCK") / 0.5
        self.check(share < 0.7, f"takes {share:.0%} of a processor with nothing to do")

    def stop(self):
        self.gateway.process.send_signal(signal.SIGTERM)
        try:
            code = self.gateway.process.wait(LIMIT * self.options.slow)
        except e2e.subprocess.TimeoutExpired:
            self.check(False, "the stop hangs")
        self.check(code == 0, f"the stop ended with {code}: {self.gateway.console()}")

    def counts(self):
        return dict(zip(KINDS, struct.unpack("9Q", self.counts_file.read_bytes())))

    def whole(self, usual=None):
        """Gives what happened in a word."""
        code = self.start()
        if code is not None:
            self.failed_start(code)
            return f"exit {code}"
        first = self.serve(1)
        if self.once:
            # The one call may fail as late as in the second round.
            self.check(self.serve(2) or self.serve(3), f"nothing fails any more, but: {self.refused}")
            if usual is not None:
                self.no_leak(usual)
        else:
            self.no_spin()
        self.held = self.descriptors()
        self.stop()
        self.calls = self.counts() if self.once else {}
        return "served" if first else "refused"


class Bench:
    def __init__(self, options, folder, clip):
        self.options, self.folder, self.clip, self.number = options, folder, clip, 0
        self.outcomes = collections.Counter()
        self.failures = []

    def run(self, name, usual=None, **how):
        self.number += 1
        with tempfile.TemporaryDirectory(dir=self.folder) as inner:
            one = Run(self.options, pathlib.Path(inner), name, self.clip, **how)
            try:
                outcome = one.whole(usual)
            except e2e.Failure as fault:
                self.failures.append(str(fault))
                outcome = "FAILED"
                print(fault, file=sys.stderr)
                if self.options.keep:
                    e2e.shutil.copytree(inner, pathlib.Path(self.options.keep) / name.replace(" ", "_"), dirs_exist_ok=True)
            finally:
                one.gateway.kill()
            self.outcomes[f"{name.split()[0]}: {outcome}"] += 1
            return one, outcome


def limits(bench):
    """From too low upwards; the last of each must serve."""
    mib = 1 << 20
    for name, values in (("descriptors", (8, 16, 24, 32, 40, 48, 56, 64, 80, 100, 120, 140, 400)),
                         ("memory-size", [mib * n for n in (60, 120, 160, *range(190, 320, 10), 500, 8000)])):
        for value in values:
            yield lambda name=name, value=value, last=value == values[-1]: must_serve(
                bench, f"{name} {value}", last, limits=[(LIMITS[name], value)])
    for value in (*range(1, 24, 2), 24, 28, 34, 40, 400):
        yield lambda value=value: must_serve(bench, f"tasks {value}", value == 400, order=f"thread:{value}:0")


def must_serve(bench, name, must, **how):
    _, outcome = bench.run(name, **how)
    if must and outcome != "served":
        bench.failures.append(f"{name}: {outcome}")


def faults(bench, counts, usual):
    """Every kind in its turn, each n at most once."""
    draw = random.Random(bench.options.seed)
    left = {kind: draw.sample(range(1, int(counts[kind]) + 1), int(counts[kind])) for kind in KINDS if kind != "memory"}
    # Most allocations are of one kind, in the midst: half of the sample is spread over the magnitudes of n.
    left["memory"] = [number for low in draw.sample(range(1, int(counts["memory"])), min(int(counts["memory"]) - 1, 20000))
                      for number in (low, int(counts["memory"] ** draw.random()))]
    while any(left.values()):
        for kind in KINDS:
            if left[kind]:
                number = left[kind].pop()
                yield lambda kind=kind, number=number: bench.run(f"{kind} {number}", usual, order=f"{kind}:{number}:1")


def run(options, folder):
    clip, _ = e2e.make_clip(folder, seconds=1)
    bench = Bench(options, folder, clip)
    end = time.monotonic() + options.seconds
    if options.only:
        kind, number, count = (options.only + ":1:1").split(":")[:3]
        if kind in LIMITS:
            bench.run(f"{kind} {number}", limits=[(LIMITS[kind], int(number))])
        else:
            bench.run(f"{kind} {number}", order=f"{kind}:{number}:{count}")
    else:
        clean, outcome = bench.run("clean", order="memory:0:1")
        e2e.check(outcome == "served", f"a clean run: {outcome}, {clean.refused}")
        print({**clean.calls, "descriptors": clean.held})
        singles = faults(bench, clean.calls, clean.held)
        for whole in (limits(bench), singles):
            share = time.monotonic() + (end - time.monotonic()) * (0.4 if whole is not singles else 1)
            steps = list(whole) if whole is not singles else whole
            if whole is not singles:
                random.Random(options.seed).shuffle(steps)
            for step in steps:
                if not options.all and time.monotonic() > share:
                    break
                step()
    for outcome, count in sorted(bench.outcomes.items()):
        print(f"{count:6} {outcome}")
    e2e.check(not bench.failures, f"{len(bench.failures)} of {bench.number} runs: " + "\n".join(bench.failures[:20]))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("gvxd", "gvxctl", "plugin-dir", "conf", "shim"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--seconds", type=float, default=110)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--slow", type=float, default=1)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--keep", help="a folder that gets what failed runs leave")
    options = parser.parse_args()
    print(f"seed {options.seed}")
    with tempfile.TemporaryDirectory(prefix="gvx_e2e_") as name:
        try:
            run(options, pathlib.Path(name))
        except e2e.Failure as fault:
            print(f"FAILED: {fault}", file=sys.stderr)
            sys.exit(1)
    print("passed")


if __name__ == "__main__":
    main()
