"""Whole RTSP sessions with GStreamer's server: Basic and Digest, right and wrong password, media on the connection and
over UDP."""
import os
import pathlib
import subprocess

import gvx_e2e as e2e

SERVER = pathlib.Path(__file__).parent / "rtsp_session" / "gst_rtsp_server.py"
SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's bindings are for
TCP, UDP = "RTP/AVP/TCP;unicast;interleaved=0-1", "RTP/AVP;unicast;client_port=%d-%d"
STEPS = ["OPTIONS 0", "DESCRIBE 0", "SETUP 0", "SETUP 0", "PLAY 0"]


def test(options, folder, stack):
    def session(port, transport, password):
        done = subprocess.run([options.client, f"rtsp://127.0.0.1:{port}/live", "admin", transport],
                              input=password + "\n", text=True, capture_output=True, timeout=120, check=False,
                              env={**os.environ, "GVX_ROOT": str(folder)})
        return done.stdout.splitlines(), f"{auth}, {transport}: {done}"

    sinks = [stack.enter_context(e2e.udp_sink()) for _ in range(2)]
    udp = UDP % tuple(sink.getsockname()[1] for sink in sinks)
    for auth, word in (("none", ""), ("basic", "Basic"), ("digest", "Digest")):
        server = subprocess.Popen([SYSTEM_PYTHON, "-B", SERVER, auth], stdout=subprocess.PIPE, text=True)
        stack.callback(server.kill)
        line = server.stdout.readline().split()
        e2e.check(line[:1] == ["port"], f"{auth}: the server does not start")
        for transport in (TCP, udp):
            lines, text = session(line[1], transport, "Camera-123")
            e2e.check([row[:len(step)] for row, step in zip(lines, STEPS)] == STEPS, text)
            e2e.check({"DESCRIBE", "SETUP", "PLAY", "TEARDOWN"} <= {w.strip(",") for w in lines[0].split()}, text)
            e2e.check("video=RTP/AVP=stream=0" in lines[1] and "audio=RTP/AVP=stream=1" in lines[1], text)
            e2e.check(transport is not TCP or "PACKETS of each" in lines, text)
            e2e.check(lines[-2:] == ["TEARDOWN 0", f"AUTHORIZATION {word}"], text)
            print(f"{auth:6} {transport}: {len(lines)} steps", flush=True)
        if auth != "none":
            lines, text = session(line[1], TCP, "wrong")
            e2e.check(lines == ["OPTIONS -401"] or lines[-1] == "DESCRIBE -401", text)
        server.kill()
        seen = server.communicate()[0].split()
        e2e.check({"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"} <= set(seen), f"{auth}: the server saw {seen}")


if __name__ == "__main__":
    e2e.main(test, ["client"])
