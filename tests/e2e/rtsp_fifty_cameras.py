"""Fifty cameras of one server, which is killed each minute: every stream comes back, and nothing grows. Run by hand:

  tests/e2e/rtsp_fifty_cameras.py --gvxd build/release/bin/gvxd --gvxctl build/release/bin/gvxctl --plugin-dir build/release/plugins

CAMERAS and MINUTES of the environment change the number of cameras and the length (50, 10)."""
import os
import pathlib
import select
import socket
import time

import gvx_e2e as e2e
import rtsp_camera

CAMERAS = int(os.environ.get("CAMERAS", "50"))
MINUTES = int(os.environ.get("MINUTES", "10"))
BACK_LIMIT = 5 + 30 * 1.2  # seconds: the longest pause between two tries, and some more


def look(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    value = {line.split(":")[0]: line.split()[1] for line in status.splitlines() if len(line.split()) > 1}
    return {"descriptors": len(os.listdir(f"/proc/{pid}/fd")), "threads": int(value["Threads"]), "KiB": int(value["VmRSS"])}


def first_packets(sockets, seconds):
    """Seconds until each socket has got a packet; those that came before count for nothing."""
    for one in sockets:
        while select.select([one], [], [], 0)[0]:
            one.recv(2048)
    begin, left, came = time.monotonic(), set(sockets), []
    while left and time.monotonic() - begin < seconds:
        for one in select.select(list(left), [], [], 1)[0]:
            one.recv(2048)
            left.discard(one)
            came.append(time.monotonic() - begin)
    return came


def test(options, folder, stack):
    camera = rtsp_camera.Camera(folder, stack, mounts=CAMERAS, size="160x96", kbit=64)
    gateway = e2e.start_gateway(options, folder, stack, settings={"GVX_PLUGIN_LIST": "rtsp"})
    control = ("--gateway", str(gateway.port))
    before, sockets = look(gateway.process.pid), []
    for number in range(CAMERAS):
        one = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        stack.callback(one.close)
        one.bind(("127.0.0.1", 0))
        sockets.append(one)
        name = f"CAM{number}"
        e2e.run(options.gvxctl, "add-device", *control, "--dev", name, "--plugin", "rtsp", "--port", camera.port, "--user",
                "admin", "--password", rtsp_camera.PASSWORD, "--extend", f'{{"main":"/cam{number}"}}')
        e2e.run(options.gvxctl, "start-stream", *control, "--dev", name, "--dst", f"127.0.0.1:{one.getsockname()[1]}",
                "--service-id", name, "--udp-ports", "30000-32999")
    came = first_packets(sockets, 60)
    e2e.check(len(came) == CAMERAS, f"{len(came)} of {CAMERAS} streams")
    print(f"{CAMERAS} cameras; without any {before}")
    first = None
    for minute in range(1, MINUTES + 1):
        end = time.monotonic() + 60
        told = len(gateway.lines("is not online"))
        camera.kill()
        e2e.wait_until(lambda: len(gateway.lines("is not online")) >= told + CAMERAS, 30, "every loss is told")
        camera.start()
        came = first_packets(sockets, BACK_LIMIT)
        e2e.check(len(came) == CAMERAS, f"minute {minute}: {len(came)} of {CAMERAS} streams are back")
        while time.monotonic() < end:
            first_packets(sockets, 0.5)
        plays = camera.log.read_text().count("PLAY /cam")
        now = look(gateway.process.pid)
        first = first or now
        print(f"minute {minute}: back after {max(came):.1f} s at the latest, {plays} PLAY at the server, {now}", flush=True)
        e2e.check(plays <= 2 * CAMERAS, "the server is logged in to again and again")
    e2e.check(now["descriptors"] <= first["descriptors"] and now["threads"] <= first["threads"], f"{first} grew to {now}")
    gateway.stop()


if __name__ == "__main__":
    e2e.main(test)
