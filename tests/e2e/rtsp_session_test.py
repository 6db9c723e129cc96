"""Whole RTSP sessions with GStreamer's server: Basic and Digest, right and wrong password, media on the connection and
over UDP."""
import argparse
import os
import pathlib
import socket
import subprocess
import sys
import tempfile

SERVER = pathlib.Path(__file__).parent / "rtsp_session" / "gst_rtsp_server.py"
SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's bindings are for
TCP, UDP = "RTP/AVP/TCP;unicast;interleaved=0-1", "RTP/AVP;unicast;client_port=%d-%d"
STEPS = ["OPTIONS 0", "DESCRIBE 0", "SETUP 0", "SETUP 0", "PLAY 0"]


def check(good, text):
    if not good:
        raise SystemExit(text)


def session(client, port, transport, password, folder):
    done = subprocess.run([client, f"rtsp://127.0.0.1:{port}/live", "admin", transport], input=password + "\n", text=True,
                          capture_output=True, timeout=120, env={**os.environ, "GVX_ROOT": folder})
    return done.stdout.splitlines(), done.stderr


def receivers():
    """Two sockets for media that nobody reads here."""
    sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
    for receiver in sockets:
        receiver.bind(("127.0.0.1", 0))
    return sockets


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--client", required=True)
    client = parser.parse_args().client
    sockets = receivers()
    udp = UDP % tuple(receiver.getsockname()[1] for receiver in sockets)
    with tempfile.TemporaryDirectory(prefix="gvx_rtsp_") as folder:
        for auth, word in (("none", ""), ("basic", "Basic"), ("digest", "Digest")):
            server = subprocess.Popen([SYSTEM_PYTHON, "-B", SERVER, "--auth", auth], stdout=subprocess.PIPE, text=True)
            try:
                line = server.stdout.readline().split()
                check(line[:1] == ["port"], f"{auth}: the server does not start")
                for transport in (TCP, udp):
                    lines, errors = session(client, line[1], transport, "Camera-123", folder)
                    text = f"{auth}, {transport}: {lines}\n{errors}"
                    check([row[:len(step)] for row, step in zip(lines, STEPS)] == STEPS, text)
                    check({"DESCRIBE", "SETUP", "PLAY", "TEARDOWN"} <= {w.strip(",") for w in lines[0].split()}, text)
                    check("video=RTP/AVP=stream=0" in lines[1] and "audio=RTP/AVP=stream=1" in lines[1], text)
                    check(transport is not TCP or "PACKETS of each" in lines, text)
                    check(lines[-2:] == ["TEARDOWN 0", f"AUTHORIZATION {word}"], text)
                    print(f"{auth:6} {transport}: {len(lines)} steps", flush=True)
                if auth != "none":
                    lines, errors = session(client, line[1], TCP, "wrong", folder)
                    check(lines == ["OPTIONS -401"] or lines[-1] == "DESCRIBE -401", f"{auth}: {lines}\n{errors}")
                    print(f"{auth:6} wrong password: {lines[-1]}", flush=True)
            finally:
                server.kill()
                seen = server.communicate()[0].split()
            for request in ("OPTIONS", "DESCRIBE", "SETUP", "PLAY", "TEARDOWN"):
                check(request in seen, f"{auth}: the server saw no {request}: {seen}")


if __name__ == "__main__":
    sys.exit(main())
