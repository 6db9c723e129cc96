"""The black box of a device: a trace of a login with Digest and of a stream, which tshark reads without a complaint and which
shows no credential; the dialogue of a camera that refused the password, had after it is well again; and the limits."""
import json
import pathlib
import subprocess

import gvx_e2e as e2e
import rtsp_camera

FIELDS = ("frame.protocols", "ip.src", "exported_pdu.src_port", "rtsp.method", "rtsp.status", "rtp.seq", "rtp.ssrc", "rtcp.pt",
          "http.response.code", "gvxnss.type", "gvxnss.code", "gvxnss.malformed.cut", "_ws.malformed", "_ws.expert.severity")
ERROR = str(0x00800000)  # the severity of what is wrong


class Trace:
    def __init__(self, options, gateway):
        self.options, self.gateway = options, gateway

    def __call__(self, *arguments, code=0):
        done = subprocess.run([self.options.gvxctl, "trace", *arguments], capture_output=True, text=True, timeout=120,
                              env=self.gateway.whole_environment(), check=False)
        e2e.check(done.returncode == code, f"trace {arguments} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout if code == 0 else done.stderr

    def json(self, *arguments):
        return json.loads(self(*arguments, "--json"))


def packets(options, file):
    script = pathlib.Path(options.plugin_dir).parent / "wireshark" / "gvx_nss.lua"
    done = e2e.run("tshark", "-n", "-X", f"lua_script:{script}", "-r", file, "-T", "fields", "-E", "occurrence=f",
                   *[word for field in FIELDS for word in ("-e", field)], seconds=300)
    e2e.check("rror" not in done.stderr and "cut short" not in done.stderr, done.stderr)
    return [dict(zip(FIELDS, line.split("\t"))) for line in done.stdout.splitlines()]


def no_secret(data, what):
    for secret in (rtsp_camera.PASSWORD, "wrong-pass", 'response="', "Digest username"):
        e2e.check(secret.encode() not in data, f"{what} shows {secret}")


def with_port(camera):
    return ["--plugin", "rtsp", "--port", camera.port, "--user", "admin", "--extend", '{"main":"/live"}']


def check_trace(options, folder, ctl, trace, camera):
    ctl("add-device", "--dev", "CAM", *with_port(camera), "--password", rtsp_camera.PASSWORD)
    e2e.wait_until(lambda: "online" in trace("dialogue", "CAM") or ctl.gateway.lines("Camera[CAM]", "online"), 60,
                   "the camera was looked at")
    out = folder / "cam.pcapng"
    tracing = subprocess.Popen([options.gvxctl, "trace", "start", "CAM", "--seconds", "600", "--out", str(out), "--json"],
                               stdout=subprocess.PIPE, env=ctl.gateway.whole_environment())
    e2e.wait_until(lambda: trace.json("list")["traces"], 30, "the trace runs")
    e2e.check("traced already" in trace("start", "CAM", code=1), "a second trace of one device")
    sink = e2e.udp_sink()
    ctl("start-stream", "--dev", "CAM", "--service-id", "s", "--dst", f"127.0.0.1:{sink.getsockname()[1]}")
    e2e.wait_until(lambda: trace.json("list")["traces"][0]["packets"] > 300, 60, "packets are traced")
    ctl("stop-stream", "--dev", "CAM", "--service-id", "s")
    facts = trace.json("stop", "CAM")["trace"]
    e2e.check(tracing.wait(30) == 0, "gvxctl that waited for the trace")
    e2e.check(not facts["running"] and facts["lost"] == 0 and facts["ended"] == "It was stopped.", f"{facts}")
    kept = pathlib.Path(facts["path"]).read_bytes()
    e2e.check(out.read_bytes() == kept and len(kept) == facts["bytes"], "the copy is another file")
    no_secret(kept, "the trace")
    e2e.check(b"rtsp://***@" not in kept and b"Authorization: ***" in kept, "the request's head is not there")
    seen = packets(options, out)
    wrong = [p for p in seen if p["_ws.malformed"] or p["gvxnss.malformed.cut"] or p["_ws.expert.severity"] == ERROR]
    e2e.check(not wrong, f"tshark complains of {wrong[:3]}")
    methods = {p["rtsp.method"] for p in seen if p["rtsp.method"]}
    e2e.check({"OPTIONS", "DESCRIBE", "SETUP", "PLAY"} <= methods, f"{methods}")
    e2e.check({"401", "200"} <= {p["rtsp.status"] for p in seen}, "the challenge and its answer")
    e2e.check(any(p["rtcp.pt"] for p in seen), "no report")
    check_order(seen, camera)
    frames = [(int(p["gvxnss.type"], 16), p["gvxnss.code"]) for p in seen if p["gvxnss.type"]]
    for kind in (e2e.START_STREAM, e2e.STOP_STREAM):
        e2e.check((kind, "0") in frames and (kind + e2e.RESPONSE, "0") in frames, f"{kind:#x} is not among {frames}")
    e2e.check(len(seen) == facts["messages"] + facts["packets"] + facts["frames"], f"{len(seen)} packets, {facts}")


def check_order(seen, camera):
    """Each source's numbers follow one another, as they came from the camera."""
    numbers = {}
    for packet in seen:
        if packet["rtp.seq"]:
            e2e.check(packet["exported_pdu.src_port"] == camera.port and packet["ip.src"] == "127.0.0.1", f"{packet}")
            numbers.setdefault(packet["rtp.ssrc"], []).append(int(packet["rtp.seq"]))
    e2e.check(numbers, "no packet of media")
    for ssrc, row in numbers.items():
        e2e.check(all((b - a) % 65536 == 1 for a, b in zip(row, row[1:])), f"{ssrc}: {row}")


def check_failure(ctl, trace, camera):
    """The camera refuses a password, and takes it later: what was said meanwhile stays."""
    ctl("add-device", "--dev", "BAD", *with_port(camera), "--password", "wrong-pass")
    e2e.wait_until(lambda: "== wrong password." in trace("dialogue", "BAD"), 60, "the refusal is kept")
    camera.kill()
    camera.password = "wrong-pass"
    camera.start()
    e2e.wait_until(lambda: "== online" in trace("dialogue", "BAD"), 120, "the camera takes the password")
    kept = trace.json("dialogue", "BAD")
    text = trace("dialogue", "BAD")
    for said in ("BAD failed from", "DESCRIBE rtsp://", "RTSP/1.0 401 Unauthorized", "Authorization: ***", "== wrong password."):
        e2e.check(said in text, f"{said} is not in {text}")
    e2e.check(not kept["failing"] and kept["began"] <= kept["ended"], "the episode has no end")
    no_secret(text.encode() + json.dumps(kept).encode(), "the dialogue")


def check_limits(folder, ctl, trace):
    e2e.check("Is it CAM" in trace("start", "CAN", code=1) and "no device NONE." in trace("dialogue", "NONE", code=1), "names")
    e2e.check("not traced" in trace("stop", "CAM", code=1), "a trace that does not run")
    trace("start", "CAM", "--seconds", "3601", code=2)
    trace("start", "CAM", "--out", str(folder / "no" / "folder"), code=2)
    e2e.check("is traced for 1 s at most, into /" in trace("start", "CAM", "--seconds", "1"), "where it goes")
    ended = e2e.wait_until(lambda: not (first := trace.json("list")["traces"][0])["running"] and first, 30, "its time is over")
    e2e.check(ended["ended"] == "Its time was over.", f"{ended}")
    for out in (folder / "copy", pathlib.Path(ended["path"])):
        trace("fetch", ended["file"], "--out", str(out))
        e2e.check(out.stat().st_size == ended["bytes"], f"{out} has another size")
    for wrong in ("", "C AM"):
        e2e.check("one word" in trace("dialogue", wrong, code=2), "a word that is none")
    trace("start", "CAM")
    pathlib.Path(ended["path"]).parent.rename(folder / "moved")
    e2e.check("moved or removed" in trace("stop", "CAM", code=1) and not trace.json("list")["traces"], "a trace without its file")
    trace("start", "CAM")
    ctl("del-device", "--dev", "CAM")
    e2e.wait_until(lambda: trace.json("list")["traces"][0]["ended"] == "The device was deleted.", 30, "it ends with the device")
    e2e.check("no device CAM." in trace("dialogue", "CAM", code=1), "the dialogue of a device that was deleted")


def test(options, folder, stack):
    camera = rtsp_camera.Camera(folder, stack, codec="h264", auth="digest", audio="alaw")
    gateway = e2e.start_gateway(options, folder, stack, settings={"GVX_PLUGIN_LIST": "rtsp"})
    ctl, trace = rtsp_camera.Ctl(options, gateway), Trace(options, gateway)
    check_trace(options, folder, ctl, trace, camera)
    check_limits(folder, ctl, trace)
    check_failure(ctl, trace, camera)
    waiting = subprocess.Popen([options.gvxctl, "trace", "start", "BAD", "--out", str(folder / "copy2")],
                               env=gateway.whole_environment())
    e2e.wait_until(lambda: trace.json("list")["traces"][0]["device"] == "BAD", 30, "the last trace runs")
    gateway.stop()
    e2e.check((waiting.wait(60) == 0) == (folder / "copy2").exists(), "a copy of nothing")
    last = max((folder / "root/var/lib/gvx/traces").glob("BAD-*.pcapng"))
    e2e.check(packets(options, last) and b"The gateway stops." in last.read_bytes(), "the stop leaves no whole file")
    no_secret(gateway.log_file.read_bytes() + gateway.console().encode(), "the log")


if __name__ == "__main__":
    e2e.main(test)
