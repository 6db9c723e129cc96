"""Whole RTSP sessions with GStreamer's server: Basic and Digest, right and wrong password, H.264 and H.265 with G.711,
over UDP and on the connection. Every frame that the server plays arrives whole."""
import hashlib
import os
import pathlib
import re
import subprocess

import gvx_e2e as e2e

SERVER = pathlib.Path(__file__).parent / "rtsp_session" / "gst_rtsp_server.py"
SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's bindings are for
STEPS = ["OPTIONS 0", "DESCRIBE 0", "SETUP 0", "SETUP 0", "PLAY 0", "ENDED both", "TEARDOWN 0"]


def md5(path):
    # Start codes have three or four bytes in a clip; frames come out with four.
    data = path.read_bytes()
    return hashlib.md5(data if path.name.endswith("alaw") else re.sub(rb"\0{2,}\x01", b"\0\0\0\x01", data)).hexdigest()


def test(options, folder, stack):
    def session(codec, transport, password):
        done = subprocess.run([options.client, f"rtsp://127.0.0.1:{port}/{codec}", "admin", codec, transport, folder],
                              input=password + "\n", text=True, capture_output=True, timeout=120, check=False,
                              env={**os.environ, "GVX_ROOT": str(folder)})
        return done.stdout.splitlines(), f"{auth}, {codec}, {transport}: {done}"

    clips = {codec: e2e.make_clip(folder, codec) for codec in ("h264", "h265")}
    for auth, word in (("basic", "Basic"), ("digest", "Digest")):
        server = subprocess.Popen([SYSTEM_PYTHON, "-B", SERVER, auth, *(clip[0] for clip in clips.values()),
                                   clips["h264"][1]], stdout=subprocess.PIPE, text=True)
        stack.callback(server.kill)
        port = server.stdout.readline().removeprefix("port ").strip()
        e2e.check(port.isdigit(), f"{auth}: the server does not start")
        for codec in clips:
            for transport in ("udp", "tcp"):
                lines, text = session(codec, transport, "Camera-123")
                e2e.check([row[:len(step)] for row, step in zip(lines, STEPS)] == STEPS, text)
                e2e.check({"DESCRIBE", "SETUP", "PLAY", "TEARDOWN"} <= {w.strip(",") for w in lines[0].split()}, text)
                e2e.check("video=RTP/AVP=stream=0" in lines[1] and "audio=RTP/AVP=stream=1" in lines[1], text)
                e2e.check(lines[-1] == f"AUTHORIZATION {word}", text)
                for received, played in ((codec, f"clip.{codec}.played"), ("alaw", "clip.alaw")):
                    e2e.check(md5(folder / f"received.{received}") == md5(folder / played),
                              f"{received} is not what was played: {text}")
                print(f"{auth:6} {codec} {transport}: {lines[5]}, md5 equal", flush=True)
        lines, text = session("h264", "tcp", "wrong")
        e2e.check(lines == ["OPTIONS -401"] or lines[-1] == "DESCRIBE -401", text)
        server.kill()
        seen = server.communicate()[0].split()
        e2e.check({"OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"} <= set(seen), f"{auth}: the server saw {seen}")


if __name__ == "__main__":
    e2e.main(test, ["client"])
