#!/usr/bin/env python3
"""From camera to platform: processor time of a stream at 1080p25 and 4 Mbit/s with 50 cameras of one RTSP server, beside ffmpeg
and GStreamer that copy the same 50 from RTSP over TCP to RTP over UDP, and how much later than its last packet comes in the
last packet of a picture leaves.

The latter is told by a camera of its own beside the 50: it notes the time in front of its send of each picture's last
packet, and the system that of the packet's arrival at the platform. Exits 1 when the goal is missed. scripts/bench.sh camera
"""
import os
import pathlib
import select
import socket
import statistics
import struct
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "e2e"))
import gvx_e2e as e2e  # noqa: E402

CAMERAS = int(os.environ.get("CAMERAS", "50"))
SETTLE, SECONDS = 8, 20
MOST_OF_THE_BETTER = 0.4
PICTURE = 20000  # bytes: 4 Mbit/s at 25 pictures a second
NANOSECOND_STAMPS = 35  # SO_TIMESTAMPNS
DESCRIPTION = ("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
               "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=Z0IAHpWoKA9puAgICBA=,aM48gA==\r\na=control:track1\r\n")


def numbered(number):
    """A picture's number in bytes that are no start code."""
    return bytes(0x80 | number >> shift & 0x7F for shift in (21, 14, 7, 0))


class TimedCamera(threading.Thread):
    """An RTSP camera over interleaved TCP that notes when it sent the last packet of each picture."""

    def __init__(self):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port, self.sent = self.listener.getsockname()[1], {}

    def run(self):
        while True:
            link, _ = self.listener.accept()
            link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            try:
                while self.take(link) != "PLAY":
                    pass
                self.play(link)
            except (OSError, EOFError):
                link.close()

    def take(self, link):
        """Takes a report of the receiver, or answers a request; gives the request's method."""
        request = link.recv(1)
        if request == b"$":
            head = link.recv(3, socket.MSG_WAITALL)
            link.recv(head[1] << 8 | head[2], socket.MSG_WAITALL)
            return None
        while not request.endswith(b"\r\n\r\n"):
            piece = link.recv(1)
            if not piece:
                raise EOFError
            request += piece
        text = request.decode()
        heads = {"OPTIONS": "Public: OPTIONS, DESCRIBE, SETUP, PLAY\r\n\r\n",
                 "DESCRIBE": f"Content-Type: application/sdp\r\nContent-Length: {len(DESCRIPTION)}\r\n\r\n{DESCRIPTION}",
                 "SETUP": "Session: 1;timeout=60\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n"}
        method, number = text.split()[0], text.split("CSeq:")[1].split()[0]
        link.sendall(f"RTSP/1.0 200 OK\r\nCSeq: {number}\r\n{heads.get(method, chr(13) + chr(10))}".encode())
        return method

    def play(self, link):
        begin, sequence = time.monotonic(), 0
        for number in range(1 << 28):
            time.sleep(max(0.0, begin + number / 25 - time.monotonic()))
            while select.select([link], [], [], 0)[0]:
                self.take(link)
            key = number % 50 == 0
            body = b"\xaa" * (PICTURE - 4) + numbered(number)
            pieces = [body[at:at + 1400] for at in range(0, len(body), 1400)]
            packets = []
            for place, piece in enumerate(pieces):
                last = place == len(pieces) - 1
                head = struct.pack(">BBHII", 0x80, 96 | last << 7, sequence & 0xFFFF, number * 3600 & 0xFFFFFFFF, 7)
                unit = bytes((0x7C, (0x80 if place == 0 else 0) | (0x40 if last else 0) | (5 if key else 1)))
                packet = head + unit + piece
                packets.append(b"$\0" + struct.pack(">H", len(packet)) + packet)
                sequence += 1
            link.sendall(b"".join(packets[:-1]))
            self.sent[number] = time.time_ns()
            link.sendall(packets[-1])


class Arrivals(threading.Thread):
    """When the last packet of each picture of the timed camera has come, by the system's stamps."""

    def __init__(self):
        super().__init__(daemon=True)
        self.sock, self.came = udp_socket(8 << 20), {}
        self.sock.setsockopt(socket.SOL_SOCKET, NANOSECOND_STAMPS, 1)

    def run(self):
        while True:
            data, notes, _, _ = self.sock.recvmsg(2048, 64)
            number = [byte & 0x7F for byte in data[-4:]]
            if data[1] & 0x80 and len(data) > 100 and notes:
                seconds, nanoseconds = struct.unpack("qq", notes[0][2][:16])
                value = number[0] << 21 | number[1] << 14 | number[2] << 7 | number[3]
                self.came[value] = seconds * 10**9 + nanoseconds


def udp_socket(buffer):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
    sock.bind(("127.0.0.1", 0))
    return sock


def cpu_seconds(processes):
    total = 0
    for process in processes:
        fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total / os.sysconf("SC_CLK_TCK")


def measure(name, processes, sinks, more=0):
    """Percent of a processor that a stream takes, once it has settled; every stream must flow all the while. more: streams
    beside those of the sinks."""
    e2e.wait_until(lambda: len(select.select(sinks, [], [], 0)[0]) == len(sinks), 120, f"{name}: every stream flows")
    time.sleep(SETTLE)
    for sink in sinks:
        while select.select([sink], [], [], 0)[0]:
            sink.recv(2048)
    cpu, begin = cpu_seconds(processes), time.monotonic()
    time.sleep(SECONDS)
    share = (cpu_seconds(processes) - cpu) / (time.monotonic() - begin)
    flows = len(select.select(sinks, [], [], 0)[0])
    e2e.check(flows == len(sinks) and all(process.poll() is None for process in processes), f"{name}: {flows} streams flow")
    return 100 * share / (len(sinks) + more)


def start_server(options, folder, stack):
    log = folder / "server.log"
    server = subprocess.Popen(["/usr/bin/python3", "-B", str(ROOT / "scripts/lib/rtsp_camera.py"), "--auth", "none", "--mounts",
                               str(CAMERAS), "--clip", options.clip], stdout=open(log, "w"))
    stack.callback(server.kill)
    e2e.wait_until(lambda: log.read_text().startswith("port "), 60, "the cameras listen")
    return log.read_text().split()[1]


def through_gateway(options, folder, stack, port, sinks):
    gateway = e2e.start_gateway(options, folder, stack, settings={"GVX_PLUGIN_LIST": "rtsp"})
    peer = e2e.Platform(gateway.port).main
    timed, arrivals = TimedCamera(), Arrivals()
    timed.start()
    arrivals.start()
    rows = [(f"CAM{number}", port, f"/cam{number}", sink) for number, sink in enumerate(sinks)]
    for name, at, path, sink in [("TIMED", timed.port, "/", arrivals.sock), *rows]:
        peer.must(e2e.ADD_DEV, e2e.TAG_XML, f"<Content><DevCode>{name}</DevCode><PluginName>rtsp</PluginName><FormType>1</FormType>"
                  f"<IP>127.0.0.1</IP><Port>{at}</Port><Extend>{{\"main\":\"{path}\"}}</Extend></Content>".encode())
        peer.start_stream(name, name, sink.getsockname()[1])
    share = measure("gvx", [gateway.process], sinks, more=1)
    first = max(arrivals.came) - 25 * SECONDS
    late = sorted((came - timed.sent[number]) / 1e6 for number, came in arrivals.came.items() if number > first and number in timed.sent)
    e2e.check(len(late) > 20 * SECONDS, f"{len(late)} pictures of the timed camera in {SECONDS} s")
    gateway.stop(10)
    return share, late


def by_ffmpeg(port, sinks, stack):
    return [spawn(stack, "ffmpeg", "-nostdin", "-v", "fatal", "-rtsp_transport", "tcp", "-i", f"rtsp://127.0.0.1:{port}/cam{number}",
                  "-c", "copy", "-f", "rtp", f"rtp://127.0.0.1:{sink.getsockname()[1]}") for number, sink in enumerate(sinks)]


def by_gstreamer(port, sinks, stack):
    words = []
    for number, sink in enumerate(sinks):
        words += (f"rtspsrc location=rtsp://127.0.0.1:{port}/cam{number} protocols=tcp ! rtph264depay ! h264parse ! rtph264pay ! "
                  f"udpsink host=127.0.0.1 port={sink.getsockname()[1]}").split()
    return [spawn(stack, "gst-launch-1.0", "-q", *words)]


def spawn(stack, *command):
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    stack.callback(process.kill)
    return process


def end(processes):
    for process in processes:
        process.kill()
        process.wait()


def camera(options, folder, stack):
    port = start_server(options, folder, stack)
    sinks = [udp_socket(65536) for _ in range(CAMERAS)]
    others = {}
    for name, start in (("ffmpeg", by_ffmpeg), ("GStreamer", by_gstreamer)):
        processes = start(port, sinks, stack)
        others[name] = measure(name, processes, sinks)
        end(processes)
    share, late = through_gateway(options, folder, stack, port, sinks)
    print(f"| {CAMERAS} cameras, 1080p25, 4 Mbit/s, TCP to UDP | Value | Ratio | Goal |\n| --- | --- | --- | --- |")
    print(f"| gvx, CPU a stream | {share:.2f} % | | |")
    goal = f"at most {MOST_OF_THE_BETTER} of the better"
    for name, other in others.items():
        print(f"| {name}, CPU a stream | {other:.2f} % | {share / other:.2f} | {goal} |")
    print(f"| last packet in to last packet out, p50 | {statistics.median(late):.2f} ms | | |")
    print(f"| the same, p99 | {late[len(late) * 99 // 100]:.2f} ms | | |")
    e2e.check(share <= MOST_OF_THE_BETTER * min(others.values()), "the goal is missed")


e2e.main(camera, ("gvxd", "gvxctl", "plugin-dir", "conf", "clip"))
