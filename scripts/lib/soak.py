"""The work of scripts/soak.sh: soak.py BUILD_DIR OUT_DIR MINUTES."""
import contextlib
import itertools
import json
import os
import pathlib
import selectors
import shutil
import socket
import sys
import threading
import time
import types
import urllib.request

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests/e2e"))
import gvx_e2e as e2e  # noqa: E402, pylint: disable=wrong-import-position

DEVICES = 20
STEP_SECONDS = 0.5  # between two changes: a device or a stream that goes, and one that comes
SAMPLE_SECONDS = 2
WARM_SHARE = 0.25  # of the time: until then pools fill and caches grow
# What a figure may rise by over the measured time, by the straight line through it.
ALLOWED = {"memory": (8.0, "MiB"), "descriptors": (5.0, ""), "threads": (5.0, "")}


class Drain(threading.Thread):
    """Takes in what is streamed: datagrams, and connections that the gateway makes."""

    def __init__(self):
        super().__init__(daemon=True)
        self.selector = selectors.DefaultSelector()
        self.udp, self.tcp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM), socket.socket()
        self.bytes = {"UDP": 0, "TCP": 0}
        self.udp.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        for listener in (self.udp, self.tcp):
            listener.bind(("127.0.0.1", 0))
            listener.setblocking(False)
            self.selector.register(listener, selectors.EVENT_READ)
        self.tcp.listen(64)

    def run(self):
        while True:
            for key, _ in self.selector.select():
                if key.fileobj is self.tcp:
                    connection = self.tcp.accept()[0]
                    connection.setblocking(False)
                    self.selector.register(connection, selectors.EVENT_READ)
                    continue
                try:
                    data = key.fileobj.recv(1 << 18)
                except OSError:
                    data = b""
                self.bytes["UDP" if key.fileobj is self.udp else "TCP"] += len(data)
                if not data and key.fileobj is not self.udp:
                    self.selector.unregister(key.fileobj)
                    key.fileobj.close()


class Soak:
    def __init__(self, options, folder, stack):
        self.drain = Drain()
        self.drain.start()
        media = {"demo": {"video": str(SOURCE / "conf/plugins/demo.h264"), "audio": str(SOURCE / "conf/plugins/demo.g711a"),
                          "fps": 25, "metadata": str(folder / "script.json")}}
        picture = str(SOURCE / "conf/plugins/demo.jpg")
        (folder / "script.json").write_text(json.dumps({"messages": [
            {"time": 0, "repeat": 1, "kind": "heartbeat"},
            {"time": 0.5, "repeat": 2, "kind": "plate", "plate": "GVX 4711", "plate_picture": picture, "form": "ex"}]}))
        # Devices that have gone are forgotten within the run, not after half an hour.
        settings = {"HISTORY_SWEEP_PERIOD": "5", "HISTORY_TRACK_EXPIRED_TIME": "10"}
        self.status_port = None
        if "\nGVX_STATUS_PORT=" in (options.conf / "zvs_gvx.conf").read_text():
            self.status_port = int(os.environ.get("GVX_STATUS_PORT") or e2e.free_port())
            settings["GVX_STATUS_PORT"] = str(self.status_port)
        self.gateway = e2e.start_gateway(options, folder, stack, media, settings)
        self.links = e2e.Platform(self.gateway.port)
        self.codes, self.services = itertools.count(1), itertools.count(1)
        self.devices = {}  # code: service of its stream
        self.counts = {"devices": 0, "streams": 0, "packets": 0, "dropped": 0, "scrapes": 0}
        self.samples = []

    def start_stream(self, dev):
        """Each second stream over TCP."""
        number = next(self.services)
        tcp = number % 2 == 0
        sink = (self.drain.tcp if tcp else self.drain.udp).getsockname()[1]
        body = {"DevCode": dev, "ServiceID": f"soak-{number}", "StreamType": 0, "Protocol": 2 if tcp else 1,
                "DstIP": "127.0.0.1", "DstVideoPort": sink, "DstAudioPort": sink, "Audio": True, "Metadata": True,
                "DstMetadataPort": sink}
        self.links.main.must(e2e.START_STREAM, e2e.TAG_JSON, json.dumps(body).encode())
        self.devices[dev] = body["ServiceID"]
        self.counts["streams"] += 1

    def stop_stream(self, dev):
        sent = self.links.main.stop_stream(dev, self.devices[dev])
        self.counts["packets"] += sent["VideoPackets"] + sent["AudioPackets"]
        self.counts["dropped"] += sent["Dropped"]

    def add_device(self):
        dev = f"SOAK{next(self.codes):06d}"
        self.links.main.add_device(dev, {"media": "demo"})
        self.counts["devices"] += 1
        self.start_stream(dev)

    def change(self, step):
        """In turn: the oldest device goes and another comes; a stream ends and another of that device begins."""
        dev = next(iter(self.devices))
        self.stop_stream(dev)
        if step % 2 == 0:
            self.devices.pop(dev)
            self.links.main.must(e2e.DEL_DEV, e2e.TAG_XML, f"<Content><DevCode>{dev}</DevCode></Content>".encode())
            self.add_device()
        else:
            self.devices.pop(dev)  # to the end of the row
            self.start_stream(dev)

    def serve_links(self, seconds):
        """Answers what the gateway asks on its links until the time has gone."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            for peer in (self.links.main, self.links.scu, self.links.omu, self.links.mu):
                peer.receive_if_any(0.02)

    def scrape(self):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.status_port}/metrics", timeout=5) as answer:
            e2e.check(answer.status == 200 and b"# TYPE" in answer.read(), "the status port answers no metrics")
        self.counts["scrapes"] += 1

    def sample(self, seconds):
        process = pathlib.Path(f"/proc/{self.gateway.process.pid}")
        e2e.check(self.gateway.process.poll() is None, f"gvxd has ended: {self.gateway.console()}")
        status = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
        self.samples.append({"seconds": seconds, "memory": int(status["VmRSS"].split()[0]) / 1024,
                             "threads": int(status["Threads"]), "descriptors": len(os.listdir(process / "fd"))})

    def run(self, minutes):
        for _ in range(DEVICES):
            self.add_device()
        begin = time.monotonic()
        sampled = scraped = told = -60.0
        for step in itertools.count():
            seconds = time.monotonic() - begin
            if seconds >= minutes * 60:
                break
            self.change(step)
            self.serve_links(STEP_SECONDS)
            if seconds - sampled >= SAMPLE_SECONDS:
                self.sample(seconds)
                sampled = seconds
            if self.status_port and seconds - scraped >= 1:
                self.scrape()
                scraped = seconds
            if seconds - told >= 60:
                print(f"{seconds / 60:3.0f} min: {describe(self.samples[-1])}", flush=True)
                told = seconds
        for dev in list(self.devices):
            self.stop_stream(dev)
        self.gateway.stop(limit=4)


def describe(sample):
    return f"{sample['memory']:.1f} MiB, {sample['descriptors']} descriptors, {sample['threads']} threads"


def slope(samples, name):
    """Of the straight line through the samples, a minute."""
    times = [sample["seconds"] / 60 for sample in samples]
    values = [sample[name] for sample in samples]
    middle, mean = sum(times) / len(times), sum(values) / len(values)
    spread = sum((at - middle) ** 2 for at in times)
    return sum((at - middle) * (value - mean) for at, value in zip(times, values)) / spread


def judge(samples, minutes):
    """The table; whether all is below its limit."""
    measured = [sample for sample in samples if sample["seconds"] >= minutes * 60 * WARM_SHARE]
    span = (measured[-1]["seconds"] - measured[0]["seconds"]) / 60
    good = True
    print(f"\n{'figure':<14}{'first':>10}{'last':>10}{'most':>10}{'slope a minute':>18}{'limit':>10}")
    for name, (allowed, unit) in ALLOWED.items():
        values = [sample[name] for sample in measured]
        rise, limit = slope(measured, name), allowed / span
        good = good and rise <= limit
        print(f"{name + (' ' + unit if unit else ''):<14}{values[0]:>10.1f}{values[-1]:>10.1f}{max(values):>10.1f}{rise:>18.3f}"
              f"{limit:>10.3f}  {'ok' if rise <= limit else 'TOO STEEP'}")
    print(f"measured over the last {span:.1f} minutes")
    return good


def main():
    build, out, minutes = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), int(sys.argv[3])
    shutil.rmtree(out, ignore_errors=True)
    out.mkdir(parents=True)
    options = types.SimpleNamespace(gvxd=build / "bin/gvxd", plugin_dir=build / "plugins", conf=SOURCE / "conf", slow=1)
    with contextlib.ExitStack() as stack:
        soak = Soak(options, out, stack)
        soak.run(minutes)
    counts, taken = soak.counts, soak.drain.bytes
    good = judge(soak.samples, minutes)
    print(f"{counts['devices']} devices and {counts['streams']} streams came, {counts['packets']} packets of video and audio, "
          f"{counts['dropped']} dropped; received {taken['UDP'] >> 20} MiB over UDP, {taken['TCP'] >> 20} MiB over TCP; "
          f"{counts['scrapes']} scrapes; {len(soak.gateway.lines())} lines of log")
    (out / "soak.json").write_text(json.dumps({"samples": soak.samples, "counts": counts}))
    sys.exit(0 if good and min(taken.values()) > 0 else 1)


if __name__ == "__main__":
    try:
        main()
    except e2e.Failure as failure:
        sys.exit(f"FAILED: {failure}")
