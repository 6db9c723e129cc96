"""What the gateway tells of itself: by its control socket and gvxctl, and by its HTTP port, whatever peers do there."""
import concurrent.futures
import http.client
import json
import os
import re
import socket
import subprocess
import sys
import threading
import time

import gvx_e2e as e2e

sys.path.append("/usr/lib/python3/dist-packages")  # where Debian has the parser, whichever Python runs this
from prometheus_client.parser import text_string_to_metric_families  # noqa: E402

MEBIBYTE, STREAM_CTRL = 1 << 20, 0x0507


def get(port, path, method="GET", headers=None, body=None):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)
    connection.request(method, path, body=body, headers=headers or {})
    answer = connection.getresponse()
    text = answer.read().decode()
    connection.close()
    return answer.status, text


def scrape(port):
    """The samples by name and labels, read by a parser that refuses what Prometheus would."""
    status, text = get(port, "/metrics")
    e2e.check(status == 200, f"/metrics answers {status}")
    samples = {}
    for family in text_string_to_metric_families(text):
        e2e.check(family.documentation and family.type in ("gauge", "counter"), f"{family.name}: {family.type}")
        for sample in family.samples:
            e2e.check((family.type == "counter") == sample.name.endswith("_total"), f"{sample.name} of {family.type}")
            key = (sample.name, *sorted(sample.labels.items()))
            e2e.check(key not in samples, f"{key} stands there twice")
            samples[key] = sample.value
    return samples


def raw(port, data):
    """What comes back for those bytes, until the gateway closes the connection."""
    with socket.create_connection(("127.0.0.1", port), timeout=60) as sock:
        try:
            sock.sendall(data)
        except OSError:
            pass  # it has heard enough
        answer = b""
        try:
            while piece := sock.recv(65536):
                answer += piece
        except OSError:
            pass
    return answer


class Control:
    def __init__(self, options, gateway):
        self.options, self.environment = options, gateway.whole_environment()

    def run(self, *words):
        return subprocess.run([self.options.gvxctl, *words], env=self.environment, capture_output=True, text=True,
                              timeout=60, check=False)

    def json(self, *words):
        done = self.run(*words, "--json")
        e2e.check(done.returncode == 0, f"gvxctl {words} ended with {done.returncode}: {done.stderr}")
        return json.loads(done.stdout)


def check_socket(gateway, control):
    e2e.check(control.json("status")["counts"]["devices"] == 1, "gvxctl status counts one device")
    stream = control.json("streams")["streams"][0]
    e2e.check((stream["id"], stream["transport"], stream["link"]) == ("live", "UDP", "GVX#000"), json.dumps(stream))
    e2e.check(control.json("devices")["devices"][0]["code"] == "CAM1", "gvxctl devices lists the device")
    e2e.check(control.json("links")["links"][0]["main_service"], "gvxctl links knows the main service")
    for command, word in (("status", "ready"), ("devices", "CAM1"), ("streams", "H.264"), ("links", "GVX#000"),
                          ("alarms", "no alarms"), ("queue", "Device0"), ("plugins", "file")):
        done = control.run(command)
        e2e.check(done.returncode == 0 and word in done.stdout, f"gvxctl {command}: {done.stdout}{done.stderr}")
    e2e.check(control.run("top", "--count", "2", "--period", "100").stdout.count("FRAMES/S") == 2, "top shows two pictures")
    for words, code in ((("log", "level", "loud"), 1), (("status", "--socket", "/nowhere/socket"), 1), (("links", "extra"), 2)):
        e2e.check(control.run(*words).returncode == code, f"gvxctl {words} does not end with {code}")
    e2e.check(control.json("log", "level", "debug")["log_level"] == "debug", "the level rises")
    e2e.check(control.run("log", "level", "info").stdout == "info\n", "the level goes back")
    e2e.wait_until(lambda: gateway.lines("DEBUG"), 30, "debug lines of the time between")
    path = gateway.folder / "root/run/gvx/control.sock"
    e2e.check(path.stat().st_mode & 0o777 == 0o660, f"the socket's mode is {path.stat().st_mode:o}")
    with socket.socket(socket.AF_UNIX) as sock:
        sock.connect(str(path))
        sock.sendall(b"x" * 100000)
        e2e.check(b"error" in sock.recv(4096), "a request without end is refused")


def check_metrics(port):
    e2e.wait_until(lambda: scrape(port)[("gvx_streams", ("state", "delivering"))] == 1, 30, "one stream delivers")
    before = scrape(port)
    e2e.check(not any("device" in dict(key[1:]) for key in before), "devices are a label unasked")
    e2e.wait_until(lambda: scrape(port)[("gvx_stream_frames_total",)] > before[("gvx_stream_frames_total",)], 30,
                   "frames are counted")
    after = scrape(port)
    falls = [key for key in before if key[0].endswith("_total") and after[key] < before[key]]
    e2e.check(not falls, f"counters fall: {falls}")


def check_paused(platform, control, sink):
    """A recording that the platform has paused is not one that fails."""
    platform.must(e2e.START_STREAM, e2e.TAG_JSON, json.dumps({
        "DevCode": "CAM1", "ServiceID": "old", "ServiceType": 7, "StartTime": "20260101000000",
        "EndTime": "20260101000010", "DstIP": "127.0.0.1", "DstVideoPort": sink.getsockname()[1]}).encode())
    platform.must(STREAM_CTRL, e2e.TAG_JSON, b'{"DevCode":"CAM1","ServiceID":"old","Command":1}')
    old = next(stream for stream in control.json("streams")["streams"] if stream["id"] == "old")
    e2e.check(old["state"] == "paused" and old["delivering"], json.dumps(old))
    platform.stop_stream("CAM1", "old")


def check_strangers(gateway, port, stack):
    """What a peer calls itself becomes no label."""
    for name in ("ANY\\thing\"#1", "NONE#2"):
        stack.callback(e2e.Peer.linked(gateway.port, name).sock.close)
    e2e.wait_until(lambda: scrape(port).get(("gvx_links", ("kind", "other"))) == 2, 30, "two links of a kind that is none")


def check_refusals(port):
    here = {"Host": f"127.0.0.1:{port}"}
    for host in ("evil.example", f"evil.example:{port}", "127.0.0.1.evil.example"):
        e2e.check(get(port, "/metrics", headers={"Host": host})[0] == 421, f"the port answers as {host}")
    for head in (b"HTTP/1.1\r\nHost: localhost:99", b"HTTP/1.0"):
        e2e.check(raw(port, b"GET /livez " + head + b"\r\n\r\n").split()[1] == b"200", f"no answer to {head}")
    for method in ("POST", "PUT", "DELETE", "OPTIONS"):
        e2e.check(get(port, "/metrics", method, here)[0] == 405, f"{method} is served")
    for path in ("/metrics/", "//metrics", "/./metrics", "/%6detrics", "/..%2fetc/passwd", "/metrics%00", "/nothing"):
        e2e.check(get(port, path, headers=here)[0] == 404, f"{path} is served")
    head = b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n"
    for name, data in (("a body of 1 MB", head + b"Content-Length: 1048576\r\n\r\n" + b"x" * MEBIBYTE),
                       ("a chunked body", head + b"Transfer-Encoding: chunked\r\n\r\n" + b"5\r\nhello\r\n" * 1000),
                       ("a header of 1 MB", head + b"X: " + b"x" * MEBIBYTE + b"\r\n\r\n"),
                       ("a path of 1 MB", b"GET /" + b"x" * MEBIBYTE + b" HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                       ("two hosts", head + b"Host: evil.example\r\n\r\n"), ("no host", b"GET / HTTP/1.1\r\n\r\n"),
                       ("garbage", bytes(range(256)) * 100)):
        first = raw(port, data).split(b"\r\n")[0]
        e2e.check(not first or re.match(rb"HTTP/1\.[01] 4\d\d ", first), f"{name} is answered with {first!r}")


def check_shared_pages(port):
    """Many readers share what is written; those who have gone keep nobody waiting."""
    with concurrent.futures.ThreadPoolExecutor(40) as readers:
        answers = list(readers.map(lambda _: get(port, "/status.json"), range(40)))
    e2e.check({code for code, _ in answers} == {200} and len({text for _, text in answers}) < 20, "40 pages for 40 readers")
    for _ in range(100):
        with socket.create_connection(("127.0.0.1", port), timeout=60) as sock:
            sock.sendall(b"GET /status.json HTTP/1.1\r\nHost: localhost\r\n\r\n")
    e2e.check([get(port, path)[0] for path in ("/livez", "/status.json", "/metrics")] == [200] * 3, "nothing behind those")


def trickle(port, closed):
    """A request that never ends, a byte at a time."""
    with socket.create_connection(("127.0.0.1", port), timeout=60) as sock:
        sock.sendall(b"GET / HTTP/1.1\r\nX: ")
        try:
            while True:
                sock.sendall(b"x")
                time.sleep(0.2)
        except OSError:
            closed.set()


def open_events(port, stack, receive_buffer=None):
    sock = stack.enter_context(socket.socket())
    if receive_buffer:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
    sock.settimeout(60)
    sock.connect(("127.0.0.1", port))
    sock.sendall(b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
    return sock


def check_slow_readers(options, port, platform, stack):
    for _ in range(100):
        open_events(port, stack, receive_buffer=2048)
    reader = open_events(port, stack)
    begin = time.monotonic()
    platform.add_device("CAM2", {"media": "demo"})
    seen = b""
    while b'"CAM2"' not in seen:
        seen += reader.recv(65536)
    for _ in range(10):
        e2e.check(get(port, "/livez")[0] == 200, "/livez among slow readers")
    took = time.monotonic() - begin
    e2e.check(took < 10 * options.slow, f"slow readers delay the others by {took:.1f} s")


def check_second_gateway(options, folder, stack, first, port):
    """Neither the port nor the socket can be had: one line each, and the gateway serves."""
    (folder / "second").mkdir()
    second = e2e.start_gateway(options, folder / "second", stack, settings={
        "GVX_STATUS_PORT": port, "GVX_CONTROL_SOCKET": first.folder / "root/run/gvx/control.sock"})
    e2e.Peer.linked(second.port, "GVX#000").is_answered()
    e2e.wait_until(lambda: second.lines("Status port", "Address already in use"), 20, "a line about the port")
    e2e.wait_until(lambda: second.lines("Control socket", "another process answers there"), 20, "a line about the socket")
    # By the configuration alone, which both name, gvxctl finds the first one.
    found = Control(options, second)
    found.environment["GVX_CONFIG_DIR"] = str(second.conf)
    e2e.check(found.json("status")["gateway"]["pid"] == first.process.pid, "gvxctl does not read the configuration")
    second.stop()


def check_status(options, folder, stack):
    video, audio = e2e.make_clip(folder, seconds=10)  # long enough to be paused
    port = e2e.free_port()
    gateway = e2e.start_gateway(options, folder, stack, {"demo": {
        "video": str(video), "audio": str(audio), "recorded": "20260101000000"}}, {"GVX_STATUS_PORT": port})
    control = Control(options, gateway)
    e2e.wait_until(lambda: e2e.listens(port), 30, "the status port listens")
    e2e.check(get(port, "/readyz") == (503, "No main service is linked.\n"), "ready without a platform")
    closed = threading.Event()
    threading.Thread(target=trickle, args=(port, closed), daemon=True).start()
    platform = e2e.Peer.linked(gateway.port, "GVX#000")
    e2e.wait_until(lambda: get(port, "/readyz")[0] == 200, 30, "/readyz with a platform")
    platform.add_device("CAM1", {"media": "demo"})
    sink = e2e.udp_sink()
    platform.start_stream("CAM1", "live", sink.getsockname()[1])
    e2e.check_media_flows(sink, 30, "the stream")
    check_socket(gateway, control)
    check_metrics(port)
    check_paused(platform, control, sink)
    check_strangers(gateway, port, stack)
    memory = gateway.memory_kib()
    check_refusals(port)
    check_shared_pages(port)
    check_slow_readers(options, port, platform, stack)
    check_second_gateway(options, folder, stack, gateway, port)
    e2e.check(closed.wait(60), "a request without end is not closed")
    grown = gateway.memory_kib() - memory
    e2e.check(options.slow > 1 or grown < 32 * 1024, f"requests to be refused cost {grown} KiB")
    whole = json.loads(get(port, "/status.json")[1])
    e2e.check(len(whole["devices"]) == 2 and whole["threads"], "status.json has all lists")
    gateway.kill()
    e2e.check(control.run("status").returncode == 1, "gvxctl finds no gateway")
    gateway.start()  # the socket that was left behind is replaced
    e2e.wait_until(lambda: control.run("status").returncode == 0, 30, "gvxctl finds the gateway again")
    gateway.stop()
    e2e.check(not os.path.exists(gateway.folder / "root/run/gvx/control.sock"), "the socket stays behind")


if __name__ == "__main__":
    e2e.main(check_status)
