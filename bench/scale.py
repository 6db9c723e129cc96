#!/usr/bin/env python3
"""What grows with the work: processor time, memory, threads and lateness of a gateway with 50, 500 and 1,000 streams of the
file plug-in, three of a camera, and with 10,000 cameras alone.

Every stream but one goes to a socket that nobody reads; how late packets of that one arrive, against the time stamps
that they carry, is what is told. scripts/bench.sh scale
"""
import json
import os
import pathlib
import socket
import statistics
import struct
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "e2e"))
import gvx_e2e as e2e  # noqa: E402

STREAMS = (50, 500, 1000)
SOURCES = 334  # cameras of the streams, three of each
CAMERAS = 10000
SECONDS = 8
CLOCK = 90000
IN_FLIGHT = 500  # requests, so that no queue refuses one


class Process:
    def __init__(self, pid):
        self.folder = pathlib.Path(f"/proc/{pid}")

    def cpu_seconds(self):
        fields = (self.folder / "stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def status(self, key):
        return int((self.folder / "status").read_text().split(f"{key}:")[1].split()[0])

    def memory_mb(self):
        return self.status("VmRSS") / 1024


def udp_socket(buffer):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
    sock.bind(("127.0.0.1", 0))
    return sock


def send_all(peer, requests):
    """Sends requests, many at a time, and waits for as many answers, which must be good."""
    waiting = 0
    for kind, tag, body in requests:
        peer.seq += 1
        peer.send(e2e.frame(kind, peer.seq, tag, body, trans=b"scale-%d" % peer.seq))
        waiting += 1
        while waiting >= IN_FLIGHT:
            waiting -= answered(peer)
    while waiting:
        waiting -= answered(peer)


def answered(peer):
    message = peer.receive(60)
    if message.kind < e2e.RESPONSE:
        peer.on_request(message)
        return 0
    e2e.check(message.code == 0, f"0x{message.kind:04x} was refused with {message.code}")
    return 1


def addition(dev):
    return (e2e.ADD_DEV, e2e.TAG_XML, f"<Content><DevCode>{dev}</DevCode><PluginName>file</PluginName>"
            f"<FormType>1</FormType><Extend>{json.dumps({'media': 'clip'})}</Extend></Content>".encode())


def deletion(dev):
    return e2e.DEL_DEV, e2e.TAG_XML, f"<Content><DevCode>{dev}</DevCode></Content>".encode()


def start(dev, number, port):
    body = {"DevCode": dev, "ServiceID": f"{dev}-{number}", "StreamType": number, "Protocol": 1, "DstIP": "127.0.0.1",
            "DstVideoPort": port, "Audio": False}
    return e2e.START_STREAM, e2e.TAG_JSON, json.dumps(body).encode()


def stop(dev, number):
    return e2e.STOP_STREAM, e2e.TAG_JSON, json.dumps({"DevCode": dev, "ServiceID": f"{dev}-{number}"}).encode()


def lateness_ms(sock, seconds):
    """Arrival of each frame's first packet, against the earliest in step with its time stamp."""
    late, last = [], None
    end = time.monotonic() + seconds
    sock.settimeout(1)
    while (now := time.monotonic()) < end:
        stamp = struct.unpack(">I", sock.recv(2048)[4:8])[0]
        if stamp != last:
            last = stamp
            late.append(time.monotonic() - stamp / CLOCK)
    first = min(late)
    late = sorted((value - first) * 1000 for value in late)
    return statistics.median(late), late[len(late) * 99 // 100]


def row(name, *fields):
    print(f"| {name} | " + " | ".join(fields) + " |", flush=True)


def with_streams(peer, process, count, idle):
    devices = [f"S{count}-{number}" for number in range(min(count, SOURCES))]
    streams = [(devices[number % SOURCES], number // SOURCES) for number in range(count)]
    unread, watched = udp_socket(4096), udp_socket(8 << 20)
    port = unread.getsockname()[1]
    send_all(peer, map(addition, devices))
    time.sleep(1)
    before, cameras = process.status("Threads"), process.memory_mb()
    send_all(peer, (start(dev, number, port) for dev, number in streams[1:]))
    send_all(peer, [start(*streams[0], watched.getsockname()[1])])
    time.sleep(2)
    while True:  # what came before is not looked at
        try:
            watched.recv(2048, socket.MSG_DONTWAIT)
        except BlockingIOError:
            break
    cpu, begin = process.cpu_seconds(), time.monotonic()
    median, late = lateness_ms(watched, SECONDS)
    share = (process.cpu_seconds() - cpu) / (time.monotonic() - begin)
    memory, threads = process.memory_mb(), process.status("Threads")
    send_all(peer, (stop(dev, number) for dev, number in streams))
    time.sleep(3)
    left = process.memory_mb() - cameras
    send_all(peer, map(deletion, devices))
    time.sleep(3)
    row(f"{count} streams", f"{100 * share:.0f} %", f"{memory:.0f} MB", f"{left:+.0f} MB",
        f"{process.memory_mb() - idle:+.0f} MB", f"{threads} ({threads - before:+d} by the streams)",
        f"{median:.1f} ms", f"{late:.1f} ms")


def scale(options, folder, stack):
    clip = {"video": str(pathlib.Path(options.clip).resolve()), "loop": True}
    gateway = e2e.Gateway(options, folder, {"clip": clip},
                          {"MAX_SOCKET_SIZE": "2000", "GVX_MAX_DEVICES": str(CAMERAS), "MAX_DEVICE_NUM": "20000"})
    stack.callback(gateway.kill)
    gateway.start()
    peer = e2e.Platform(gateway.port).main
    process = Process(gateway.process.pid)
    time.sleep(1)
    idle = process.memory_mb()
    row("work", "CPU of one processor", "memory", "left by its streams", "and its cameras", "threads", "late, p50",
        "late, p99")
    print("| --- | --- | --- | --- | --- | --- | --- | --- |")
    row("nothing", "", f"{idle:.0f} MB", "", "", str(process.status("Threads")), "", "")
    for count in STREAMS:
        with_streams(peer, process, count, idle)
    begin = time.monotonic()
    send_all(peer, (addition(f"D{number}") for number in range(CAMERAS)))
    took = time.monotonic() - begin
    cpu, begin = process.cpu_seconds(), time.monotonic()
    time.sleep(5)
    share = (process.cpu_seconds() - cpu) / (time.monotonic() - begin)
    row(f"{CAMERAS} cameras, added in {took:.2f} s", f"{100 * share:.1f} %", f"{process.memory_mb():.0f} MB", "", "",
        str(process.status("Threads")), "", "")
    gateway.stop(10)


e2e.main(scale, ("gvxd", "gvxctl", "plugin-dir", "conf", "clip"))
