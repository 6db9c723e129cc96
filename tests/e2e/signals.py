"""Signals while gvxd serves: SIGHUP in a loop while streams run and edits come reads the configuration again and opens
the log anew, and neither stops a stream; no signal ends the gateway but those that ask for it; the service manager is told."""
import contextlib
import signal
import socket
import threading

import gvx_e2e as e2e

ROUNDS, LIMIT = 40, 30
CONFIG_EDIT = 0x0A11


class Manager:
    """The service manager's end of NOTIFY_SOCKET, which reads all the while."""

    def __init__(self, path, stack):
        self.socket = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        self.socket.bind(str(path))
        self.told = []
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        with contextlib.suppress(OSError):
            while True:
                self.told.append(self.socket.recv(4096).decode())

    def wait_for(self, text, seconds):
        e2e.wait_until(lambda: any(told.startswith(text) for told in self.told), seconds, f"told {text}")


def edit(peer, value):
    body = ("<Content><ConfigInfo><ConfigName>MAX_CAPS</ConfigName><ConfigType>SERVICE_CAPACITY</ConfigType>"
            f"<ConfigValue>{value}</ConfigValue></ConfigInfo></Content>")
    peer.must(CONFIG_EDIT, e2e.TAG_XML, body.encode())


def check_loop(gateway, peer, manager, sinks, seconds):
    for number in range(ROUNDS):
        for extra in (signal.SIGUSR1, signal.SIGUSR2, signal.SIGHUP):
            gateway.process.send_signal(extra)
        edit(peer, 50 + number)
    manager.wait_for("RELOADING=1\nMONOTONIC_USEC=", seconds)
    last = lambda: [told for told in manager.told if told != "WATCHDOG=1"][-1]
    e2e.wait_until(lambda: last() == "READY=1", seconds, "told that the last reload is over")
    e2e.wait_until(lambda: gateway.lines("[Status]", "4 devices"), seconds, "the status in the log")
    e2e.check(f"MAX_CAPS={50 + ROUNDS - 1}\n" in (gateway.conf / "zvs_gvx.conf").read_text(), "the last edit is lost")
    e2e.check(gateway.process.poll() is None, f"gvxd ended with {gateway.process.returncode}")
    for sink in sinks:
        sink.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while sink.recv(4096):
                pass
        e2e.check_media_flows(sink, seconds, "after the signals")
    e2e.check(not gateway.lines("event loop error"), "a signal has ended a wait of an event thread")


def check_reload(gateway, seconds):
    """logrotate's way, and a setting that the operator has written."""
    former = gateway.log_file.with_suffix(".old")
    gateway.log_file.rename(former)
    e2e.write_settings(gateway.conf, {"OTHERS_NSS_TIMEOUT": 31, "GVX_LISTEN_PORT": 1})
    gateway.process.send_signal(signal.SIGHUP)
    e2e.wait_until(lambda: gateway.log_file.exists() and gateway.lines("GVX_LISTEN_PORT"), seconds,
                   "a line in the fresh log that names what waits for a restart")


def run(options, folder, stack):
    seconds = LIMIT * options.slow
    video, _ = e2e.make_clip(folder)
    manager = Manager(folder / "notify", stack)
    gateway = e2e.Gateway(options, folder, {"clip": {"video": str(video), "loop": True}})
    gateway.environment = {"NOTIFY_SOCKET": str(folder / "notify"), "WATCHDOG_USEC": "300000"}
    stack.callback(gateway.kill)
    gateway.start()
    manager.wait_for("READY=1", seconds)
    manager.wait_for("WATCHDOG=1", seconds)
    peer = e2e.Peer.linked(gateway.port, "GVX#900")
    sinks = [stack.enter_context(e2e.udp_sink()) for _ in range(4)]
    for number, sink in enumerate(sinks):
        peer.add_device(f"CAM{number}", {"media": "clip"})
        peer.start_stream(f"CAM{number}", f"live{number}", sink.getsockname()[1])
    check_loop(gateway, peer, manager, sinks, seconds)
    check_reload(gateway, seconds)
    gateway.stop(seconds)
    manager.wait_for("STOPPING=1", seconds)


if __name__ == "__main__":
    e2e.main(run)
