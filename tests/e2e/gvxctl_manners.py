"""How gvxctl speaks with those who type: wrong words get near ones, nothing is sent for what cannot be meant, results have
names, a recording ends when it was told to, a player is opened, and progress goes to terminals alone."""
import json
import os
import pty
import re
import subprocess

import gvx_e2e as e2e

PICTURES = 10


def fake_player(folder):
    """Takes what ffplay is given and decodes some pictures without a window."""
    player = folder / "player"
    player.mkdir()
    (player / "ffplay").write_text(f'#!/bin/sh\nexec ffmpeg -nostdin -v error -protocol_whitelist file,udp,rtp -i "$6" '
                                   f'-map 0:v -frames:v {PICTURES} -f framemd5 "{folder}/pictures"\n')
    (player / "ffplay").chmod(0o755)
    return player


def on_terminal(command, seconds):
    """What the command writes to a terminal that is its standard error."""
    here, there = pty.openpty()
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=there) as process:
        os.close(there)
        process.communicate(timeout=seconds)
    said = os.read(here, 65536).decode()
    os.close(here)
    return said


def test(options, folder, stack):
    video, _ = e2e.make_clip(folder)
    gateway = e2e.start_gateway(options, folder, stack, {"clip": {"video": str(video), "fps": 25, "loop": True}})
    at = ("--gateway", f"localhost:{gateway.port}")

    def gvxctl(*arguments, code=0, environment=None):
        done = subprocess.run([options.gvxctl, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=120, check=False, env={**os.environ, **(environment or {})})
        e2e.check(done.returncode == code, f"{arguments}: {done}")
        return done

    wrong = [
        (("strat-stream",), "strat-stream is no command of gvxctl; near: start-stream"),
        (("stream",), "near: streams, start-stream"),
        (("alarm", "triger"), "triger is no command of gvxctl alarm; near: trigger"),
        (("add-device", "--plugn", "file"), "--plugn is no option of gvxctl add-device; near: --plugin"),
        (("add-device", "file"), "file is not expected by gvxctl add-device"),
        (("config",), "gvxctl config needs a command: get, set"),
        (("start-stream", "--dev", "CAM1", *at), "--dst has to name the host and the port"),
        (("start-stream", "--dev", "CAM1", "--dst", "0", *at), "--dst has to name the host and the port"),
        (("start-stream", "--dst", "camera.invalid:20000", *at), 'no address of the host "camera.invalid"'),
        (("start-stream", "--dst", "127.0.0.1:70000", *at), "127.0.0.1:70000 is neither HOST:PORT nor PORT"),
        (("receive", "--ip", "camera.invalid"), 'no address of the host "camera.invalid"'),
        (("peer", "--refuse", "2987=ZVS_NONSENSE", *at), "2987=ZVS_NONSENSE"),
    ]
    for arguments, said in wrong:
        done = gvxctl(*arguments, code=2)
        e2e.check(said in done.stderr and done.stderr.count("\n") == 1 and not done.stdout, f"{arguments}: {done}")
    e2e.check(not gateway.lines("Link opened"), "something was sent for a wrong use")

    e2e.check(re.fullmatch(r"gvxctl \d+\.\d+\.\d+\n", gvxctl("--version").stdout), "the version")
    for arguments in ((), ("start-stream",), ("ptz", "up")):
        e2e.check("Exit codes:\n  0  " in gvxctl(*arguments, "--help").stdout, f"{arguments}: help without exit codes")
    completed = e2e.run("bash", "-c", f"source <({options.gvxctl} completion bash); COMP_WORDS=(gvxctl config set --gat); "
                        "COMP_CWORD=3; _gvxctl; echo ${COMPREPLY[@]}; COMP_WORDS=(gvxctl start); COMP_CWORD=1; _gvxctl; "
                        "echo ${COMPREPLY[@]}").stdout
    e2e.check(completed == "--gateway\nstart-stream\n", f"completed: {completed!r}")

    e2e.check("ZVS_GVX_DEV_NOT_EXIST: " in gvxctl("del-device", "--dev", "NOBODY", *at, code=1).stderr, "no name")
    e2e.check("ZVS_SUCCEED" in gvxctl("add-device", "--dev", "CAM1", "--extend", '{"media":"clip"}', *at).stdout, "no name")

    port = e2e.free_port()
    record = folder / "ten.h264"
    with subprocess.Popen([options.gvxctl, "receive", "--video-port", str(port), "--video", record, "--frames",
                           str(PICTURES), "--json"], stdout=subprocess.PIPE, text=True) as receiving:
        e2e.wait_until(lambda: e2e.listens(port, "udp"), 30, "receive listens")
        gvxctl("start-stream", "--dev", "CAM1", "--dst", f"localhost:{port}", *at)
        received, _ = receiving.communicate(timeout=60 * options.slow)
    stats = json.loads(received)
    e2e.check((receiving.returncode, stats["video"]["frames"]) == (0, PICTURES), f"received: {received}")
    e2e.check(len(e2e.decoded_pictures(record)) == PICTURES, "the recording holds other pictures")
    gvxctl("stop-stream", "--dev", "CAM1", *at)

    play = ("start-stream", "--dev", "CAM1", "--service-id", "watched", "--play", *at)
    said = gvxctl(*play, code=2, environment={"PATH": str(folder)}).stderr
    e2e.check(said.startswith("gvxctl: ffplay is not installed"), f"without a player: {said}")
    said = gvxctl(*play, environment={"PATH": f"{fake_player(folder)}:{os.environ['PATH']}"}).stdout
    shown = [line for line in (folder / "pictures").read_text().splitlines() if not line.startswith("#")]
    e2e.check(len(shown) == PICTURES and "NSS_STOP_STREAM_RSP" in said, f"{len(shown)} pictures were played: {said}")

    with open("/dev/full", "wb") as full:
        lost = subprocess.run([options.gvxctl, "config", "get", *at], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
    e2e.check(lost.returncode == 1 and "standard output" in lost.stderr, f"lost output: {lost}")
    unread, output = os.pipe()
    os.close(unread)
    with subprocess.Popen([options.gvxctl, "top", "--socket", folder / "root/run/gvx/control.sock"], stdout=output) as endless:
        e2e.check(endless.wait(60) == 0, "nobody reads, and it goes on")
    os.close(output)

    waiting = [options.gvxctl, "alarm", "watch", "--seconds", "4", *at]
    e2e.check("waiting for alarms, 2 s: 0 have come" in on_terminal(waiting, 60), "no progress on a terminal")
    e2e.check(gvxctl(*waiting[1:]).stderr == "", "progress without a terminal")
    gateway.stop()


if __name__ == "__main__":
    e2e.main(test)
