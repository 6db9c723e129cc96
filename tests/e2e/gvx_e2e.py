"""What the end-to-end scripts share: the gateway as a process, peers of its links, clips, and checks.

The peers are written here a second time, on plain sockets, so that a fault in gvxctl cannot hide one in gvxd.
"""
import argparse
import collections
import contextlib
import fcntl
import itertools
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

HEAD = struct.Struct(">HHII64sI32sI")
REGISTER, KEEPALIVE, RESPONSE = 0x0000, 0x0002, 0x9000
ADD_DEV, DEL_DEV, PORT_QUERY, PORT_REPORT, START_STREAM, STOP_STREAM = 0x0109, 0x0110, 0x02D4, 0x0BAA, 0x0501, 0x0503
GATEWAY_ALARM, SCU_ALARM, KSP_REPORT = 0x1008, 0x0C00, 0x0C76
TAG_XML, TAG_JSON = 1, 7
ZVS_GVX_DEV_NOT_EXIST = 189108041


class Failure(Exception):
    pass


def check(good, text):
    if not good:
        raise Failure(text)


def wait_until(condition, seconds, text):
    """Polls until condition() is true and gives its value."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        check(time.monotonic() < end, f"in {seconds:.0f} s not: {text}")
        time.sleep(0.02)


# Frames

def frame(kind, seq=0, tag=None, body=b"", code=0, trans=b"", trace=0, length=None):
    item = b"" if tag is None else struct.pack(">HI", tag, len(body)) + body
    size = HEAD.size + len(item) if length is None else length
    return HEAD.pack(0x0100, kind, seq, trace, trans, code, b"", size) + item


def text(field):
    return field.split(b"\0")[0].decode()


class Message:
    def __init__(self, data):
        _, self.kind, self.seq, _, trans, self.code, _, _ = HEAD.unpack(data[: HEAD.size])
        self.trans = trans.rstrip(b"\0")
        self.raw = data[HEAD.size:]  # all that stands behind the head
        self.body = data[HEAD.size + 6:]


class Peer:
    """One side of one link. Keep-alives and reports of used ports are answered while it reads."""

    def __init__(self, sock):
        self.sock, self.send, self.data, self.seq = sock, sock.sendall, b"", 10
        self.on_request = lambda message: None

    @classmethod
    def linked(cls, port, link_id, receive_buffer=None, wrap=lambda sock: sock):
        sock = socket.socket()
        if receive_buffer:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        sock.settimeout(10)
        sock.connect(("127.0.0.1", port))
        peer = cls(wrap(sock))
        peer.send(frame(REGISTER, 1, TAG_JSON, json.dumps({"LinkID": link_id}).encode()))
        answer = peer.receive(30)
        check(answer.kind == RESPONSE and answer.code == 0, f"{link_id} was not registered: code {answer.code}")
        check(json.loads(answer.body)["LinkID"] == "GVX#001", f"the gateway calls itself {answer.body!r}")
        return peer

    def receive(self, seconds):
        """The next frame that is no keep-alive."""
        message = self.receive_if_any(seconds)
        check(message, f"no frame within {seconds:.0f} s")
        return message

    def receive_kind(self, kind, seconds):
        while (message := self.receive(seconds)).kind != kind:
            pass
        return message

    def receive_if_any(self, seconds):
        end = time.monotonic() + seconds
        while True:
            message = self.next_frame(end)
            if message is None or message.kind not in (KEEPALIVE, KEEPALIVE + RESPONSE, PORT_REPORT):
                return message
            if message.kind in (KEEPALIVE, PORT_REPORT):
                self.send(frame(message.kind + RESPONSE, message.seq, trans=message.trans))

    def keeps_alive(self, seconds=60):
        """Asks whether the gateway is there and waits for its word."""
        self.seq += 1
        self.send(frame(KEEPALIVE, self.seq))
        end = time.monotonic() + seconds
        while True:
            message = self.next_frame(end)
            check(message, f"no answer to a keep-alive within {seconds} s")
            if message.kind == KEEPALIVE + RESPONSE and message.seq == self.seq:
                return

    def next_frame(self, end):
        """The next frame of any kind; None when the time runs out."""
        while (message := self._cut()) is None:
            self.sock.settimeout(max(0.001, end - time.monotonic()))
            try:
                data = self.sock.recv(65536)
            except socket.timeout:
                return None
            check(data, "the gateway closed the link")
            self.data += data
        return message

    def _cut(self):
        if len(self.data) < HEAD.size:
            return None
        length = HEAD.unpack(self.data[: HEAD.size])[7]
        check(length >= HEAD.size, f"a frame of {length} bytes")
        if len(self.data) < length:
            return None
        message, self.data = Message(self.data[:length]), self.data[length:]
        return message

    def request(self, kind, tag, body, seconds=60):
        """Sends a request and waits for its response; other requests that come meanwhile go to on_request."""
        self.seq += 1
        trans = b"e2e-%d" % self.seq
        self.send(frame(kind, self.seq, tag, body, trans=trans))
        while True:
            message = self.receive(seconds)
            if message.kind == kind + RESPONSE and message.trans == trans:
                return message
            if message.kind < RESPONSE:
                self.on_request(message)

    def must(self, kind, tag, body):
        response = self.request(kind, tag, body)
        check(response.code == 0, f"0x{kind:04x} was refused with {response.code}: {response.body!r}")
        return response

    def add_device(self, dev, extend, plugin="file"):
        body = (f"<Content><DevCode>{dev}</DevCode><PluginName>{plugin}</PluginName><FormType>1</FormType>"
                f"<Extend>{extend if isinstance(extend, str) else json.dumps(extend)}</Extend></Content>")
        return self.must(ADD_DEV, TAG_XML, body.encode())

    def start_stream(self, dev, service, video_port, audio_port=0):
        body = {"DevCode": dev, "ServiceID": service, "StreamType": 0, "Protocol": 1, "DstIP": "127.0.0.1",
                "DstVideoPort": video_port, "Audio": audio_port != 0, **({"DstAudioPort": audio_port} if audio_port else {})}
        return self.must(START_STREAM, TAG_JSON, json.dumps(body).encode())

    def stop_stream(self, dev, service):
        body = json.dumps({"DevCode": dev, "ServiceID": service}).encode()
        return json.loads(self.must(STOP_STREAM, TAG_JSON, body).body)

    def is_answered(self):
        """A request that changes nothing comes back."""
        response = self.request(DEL_DEV, TAG_XML, b"<Content><DevCode>NOBODY</DevCode></Content>")
        check(response.code == ZVS_GVX_DEV_NOT_EXIST, f"deleting nobody answered {response.code}")

    def closed_within(self, seconds):
        """Reads on until the gateway ends the connection."""
        end = time.monotonic() + seconds
        try:
            while True:
                self.sock.settimeout(max(0.001, end - time.monotonic()))
                if not self.sock.recv(65536):
                    return True
        except socket.timeout:
            return False
        except OSError:
            return True


class Platform:
    """Main service, SCU, OMU and MU: every link that a gateway has."""

    def __init__(self, port):
        self.main = Peer.linked(port, "GVX#000")
        with socket.create_server(("127.0.0.1", 0)) as listener:
            listener.settimeout(60)
            mu_port = listener.getsockname()[1]  # told again to a gateway that asks again later
            self.main.on_request = lambda message: self._answer_port(message, mu_port)
            self.scu, self.omu = Peer.linked(port, "SCU#001"), Peer.linked(port, "OMU#001")
            self.port_told = False
            while not self.port_told:
                self.main.is_answered()
            self.mu = Peer(listener.accept()[0])
        registration = self.mu.receive(30)
        check(registration.kind == REGISTER, f"the MU link began with 0x{registration.kind:04x}")
        self.mu.send(frame(RESPONSE, registration.seq, TAG_JSON, b'{"LinkID":"MU#001"}'))

    def _answer_port(self, message, port):
        if message.kind == PORT_QUERY:
            body = f"<Content><LinkID>SCU#001</LinkID><MUPort>{port}</MUPort></Content>".encode()
            self.main.send(frame(PORT_QUERY + RESPONSE, message.seq, TAG_XML, body, trans=message.trans))
            self.port_told = True


# Clips

def run(*command, seconds=120):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=seconds,
                          check=False)
    check(done.returncode == 0, f"{command[0]} ended with {done.returncode}: {done.stderr[-2000:]}")
    return done


def make_clip(folder, codec="h264", seconds=2):
    """A small clip with B-frames, H.264 with four slices a frame, and G.711A beside it."""
    coder = {
        "h264": ["libx264", "-preset", "veryfast", "-x264-params", "slices=4:bframes=2:b-adapt=0:keyint=25:scenecut=0"],
        "h265": ["libx265", "-preset", "ultrafast", "-x265-params", "bframes=2:keyint=25:log-level=error"],
    }[codec]
    video, audio = folder / f"clip.{codec}", folder / "clip.alaw"
    run("ffmpeg", "-nostdin", "-y", "-v", "error",
        "-f", "lavfi", "-i", f"testsrc2=size=640x360:rate=25:duration={seconds}",
        "-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=8000:duration={seconds}",
        "-map", "0:v", "-c:v", *coder, "-pix_fmt", "yuv420p", "-f", "hevc" if codec == "h265" else "h264", str(video),
        "-map", "1:a", "-c:a", "pcm_alaw", "-ac", "1", "-f", "alaw", str(audio))
    return video, audio


def decoded_pictures(path):
    """Checksums of the pictures that ffmpeg decodes, which must not complain."""
    done = run("ffmpeg", "-nostdin", "-v", "error", "-i", str(path), "-map", "0:v", "-fps_mode", "passthrough", "-f",
               "framemd5", "-")
    check(not done.stderr.strip(), f"decoding {path.name}: {done.stderr[-1000:]}")
    return [line.split()[-1] for line in done.stdout.splitlines() if not line.startswith("#")]


# The gateway

def write_settings(conf, settings):
    text = (conf / "zvs_gvx.conf").read_text()
    for key, value in settings.items():
        text, count = re.subn(f"^{key}=.*", f"{key}={value}", text, flags=re.M)
        check(count == 1, f"the configuration has the key {key} {count} times")
    (conf / "zvs_gvx.conf").write_text(text)


class Gateway:
    """gvxd with a configuration folder of its own under `folder`."""

    def __init__(self, options, folder, media=None, settings=None):
        self.options, self.folder, self.port = options, folder, 0
        self.conf, self.log_file = folder / "conf", folder / "gvxd.log"
        shutil.copytree(options.conf, self.conf)
        write_settings(self.conf, {"GVX_LISTEN_IP": "127.0.0.1", **(settings or {})})
        if media is not None:
            (self.conf / "plugins").mkdir(exist_ok=True)
            (self.conf / "plugins" / "file.json").write_text(json.dumps({"media": media}))
        self.process = None
        self.environment = {}  # beside what this process has

    def command(self):
        return [self.options.gvxd, "--config-dir", self.conf, "--plugin-dir", self.options.plugin_dir]

    def whole_environment(self):
        return {**os.environ, "GVX_ROOT": str(self.folder / "root"), **self.environment}

    def start(self):
        self.port = self.port or free_port()
        with open(self.folder / "gvxd_console.log", "ab") as console:
            self.process = subprocess.Popen([*self.command(), "--listen-port", str(self.port), "--log-file",
                                             self.log_file], stdout=console, stderr=console,
                                            env=self.whole_environment())
        wait_until(lambda: self.process.poll() is not None or listens(self.port), 30 * self.options.slow, "gvxd listens")
        check(self.process.poll() is None, f"gvxd ended with {self.process.returncode}: {self.console()}")

    def console(self):
        return (self.folder / "gvxd_console.log").read_text(errors="replace")[-3000:]

    def lines(self, *parts):
        """Of the log and its backups, the oldest first."""
        end = time.monotonic() + 10
        while True:
            files = [*sorted(self.log_file.parent.glob("gvxd.*.log"), reverse=True), self.log_file]
            try:
                texts = [file.read_text(errors="replace") for file in files]
            except FileNotFoundError:  # the gateway may be giving its backups their next names
                check(time.monotonic() < end, f"there is no log {self.log_file}")
                continue
            return [line for text in texts for line in text.splitlines() if all(part in line for part in parts)]

    def memory_kib(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(status.split("VmRSS:")[1].split()[0])

    def stop(self, limit=5.0, number=signal.SIGTERM):
        """The exit code must be 0, which under a sanitizer also says that nothing leaked. Two seconds are promised; a busy
        machine gets some more."""
        begin = time.monotonic()
        self.process.send_signal(number)
        code = self.process.wait(60 + limit * self.options.slow)
        took = time.monotonic() - begin
        check(code == 0, f"gvxd ended with {code}: {self.console()}")
        check(took <= limit * self.options.slow, f"gvxd took {took:.2f} s to stop")
        return took

    def kill(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()


def listens(port, protocol="tcp"):
    """By the system's table: to connect would be an event for who listens."""
    with open(f"/proc/net/{protocol}", encoding="ascii") as table:
        return any(line.split()[1].endswith(f":{port:04X}") and line.split()[3] in ("0A", "07") for line in table)


RESERVED = collections.deque(maxlen=100)


def free_port():
    """The first of two ports, for TCP and UDP, below those that the kernel gives to whoever asks. As long as this process
    holds a name for it, no other test gets it."""
    while True:
        port = random.randrange(10000, 20000, 2)
        name = socket.socket(socket.AF_UNIX)
        with contextlib.suppress(OSError), contextlib.ExitStack() as stack:
            name.bind(f"\0gvx_e2e {port}")
            for kind, number in itertools.product((socket.SOCK_STREAM, socket.SOCK_DGRAM), (port, port + 1)):
                stack.enter_context(socket.socket(socket.AF_INET, kind)).bind(("0.0.0.0", number))
            RESERVED.append(name)
            return port


def in_own_network(ports):
    """What is run has fixed ports, so the test takes a network of its own, where the system lets it."""
    if "GVX_OWN_NETWORK" not in os.environ:
        os.environ["GVX_OWN_NETWORK"] = "1"
        own = ["unshare", "--user", "--map-root-user", "--net"]
        if shutil.which("unshare") and subprocess.run([*own, "true"], check=False, stderr=subprocess.DEVNULL).returncode == 0:
            os.execvp("unshare", [*own, sys.executable, "-B", *sys.argv])
        print(f"no network of its own: the ports {ports} have to be free")
        return
    with socket.socket() as any_socket:  # SIOCGIFFLAGS, SIOCSIFFLAGS with IFF_UP
        request = struct.pack("16sh14x", b"lo", 0)
        flags = struct.unpack("16sh14x", fcntl.ioctl(any_socket, 0x8913, request))[1]
        if not flags & 1:
            fcntl.ioctl(any_socket, 0x8914, struct.pack("16sh14x", b"lo", flags | 1))


def udp_sink():
    sink = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sink.bind(("127.0.0.1", 0))
    return sink


def check_media_flows(sink, seconds, text):
    sink.settimeout(seconds)
    try:
        packet = sink.recv(4096)
    except socket.timeout:
        raise Failure(f"no media: {text}") from None
    check(len(packet) > 12 and packet[0] >> 6 == 2, f"no RTP: {packet[:16].hex()}")


def start_gateway(options, folder, stack, media=None, settings=None):
    """A gateway that runs until the stack is undone."""
    gateway = Gateway(options, folder, media, settings)
    stack.callback(gateway.kill)
    gateway.start()
    return gateway


def main(test, programs=("gvxd", "gvxctl", "plugin-dir", "conf")):
    """Runs test(options, folder, stack) with the options --<program>; what is on the stack is undone in any case."""
    parser = argparse.ArgumentParser()
    for name in programs:
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--recorder", default=os.environ.get("GVX_LOCK_RECORDER"), help="the library of lock_order.py")
    parser.add_argument("--print", action="store_true", help="lock_order.py: print what was recorded, check nothing")
    parser.add_argument("--kills", type=int, help="how often the kill tests end a process")
    parser.add_argument("--held", type=int, default=10000, help="alarms_in_order.py: how many alarms wait for the links")
    parser.add_argument("--seconds", type=float, default=1.0, help="hostile_peers.py: of each case")
    parser.add_argument("--case", default="", help="hostile_peers.py: this one alone")
    parser.add_argument("--slow", type=float, default=1, help="factor of every limit")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="gvx_e2e_") as name, contextlib.ExitStack() as stack:
        folder = pathlib.Path(name)
        folder.chmod(0o755)  # some servers read it as a user of their own
        try:
            test(options, folder, stack)
        except (Failure, OSError, subprocess.SubprocessError) as fault:
            print(f"FAILED: {fault}", file=sys.stderr)
            for log in folder.glob("**/gvxd.log"):
                print("\n".join(log.read_text(errors="replace").splitlines()[-40:]), file=sys.stderr)
            sys.exit(1)
    print("passed")
