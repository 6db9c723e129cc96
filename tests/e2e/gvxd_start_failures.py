#!/usr/bin/env python3
"""Starts gvxd where it cannot start, and checks that it ends with the documented code and one line that names the fault.
Then stops it, also where a plug-in's call does not return.

The plug-ins that misbehave stand in the folder plugins_bad beside that of the others. Prints what fails; the exit code
is 0 when nothing does.
"""

import argparse
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import gvx_e2e as e2e

LIMIT = 60
CONFIGURATION = ("alarm/gvx_nvt_alarm_description.xml", "zvs_gvx.conf", "zvs_gvx_nat.conf", "net.xml")


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


class Checker:
    def __init__(self, gvxd, conf, plugins, root, slow):
        self.gvxd = gvxd
        self.conf = conf
        self.root = root
        self.plugins = plugins
        self.env = dict(os.environ, GVX_ROOT=root)
        self.env.pop("GVX_CONFIG_DIR", None)
        self.slow = slow
        self.failures = 0

    def make_config(self, name, settings, without=None):
        """A copy of the shipped configuration, with other settings and perhaps without a file."""
        folder = os.path.join(self.root, name)
        shutil.copytree(self.conf, folder)
        with open(os.path.join(folder, "zvs_gvx.conf"), "w", encoding="utf-8") as file:
            file.write("; test\nGVX_LISTEN_IP=127.0.0.1\n" + settings)
        if without is not None:
            os.remove(os.path.join(folder, without))
        return folder

    def fail(self, name, text):
        self.failures += 1
        print(f"{name}: {text}")

    def arguments(self, config, port=0):
        return ["--config-dir", config, "--plugin-dir", self.plugins, "--listen-port", str(port)]

    def expect(self, name, arguments, code, named):
        run = subprocess.run([self.gvxd, *arguments], env=self.env, capture_output=True, text=True,
                             timeout=LIMIT * self.slow, check=False)
        lines = run.stderr.splitlines()
        if run.returncode != code:
            self.fail(name, f"exit code {run.returncode}, not {code}: {run.stderr!r}")
        elif len(lines) != 1 or named not in lines[0]:
            self.fail(name, f"standard error is not one line that names {named!r}: {run.stderr!r}")

    def expect_stop(self, name, arguments, number):
        """A start that succeeds, and a stop by signal: code 0 within two seconds, whatever stands on standard error."""
        process = subprocess.Popen([self.gvxd, *arguments], env=self.env, stderr=subprocess.PIPE, text=True)
        try:
            for line in process.stderr:
                if "gvxd ready, listening on" in line:
                    break
            begin = time.monotonic()
            process.send_signal(number)
            rest = process.communicate(timeout=LIMIT * self.slow)[1]
            seconds = time.monotonic() - begin
            if process.returncode != 0:
                self.fail(name, f"exit code {process.returncode}: {rest}")
            if seconds > 2 * self.slow:
                self.fail(name, f"the stop took {seconds:.2f} s")
        finally:
            process.kill()
            process.wait()

    def check_stop_with_hanging_plugin(self, folder):
        """One device hangs in StopStream, another streams: code 0 in time, and the log names plug-in and device."""
        log = os.path.join(self.root, "gvxd.log")
        port = e2e.free_port()
        process = subprocess.Popen([self.gvxd, *self.arguments(folder, port), "--log-file", log], env=self.env)
        try:
            e2e.wait_until(lambda: process.poll() is not None or (os.path.exists(log) and "gvxd ready" in read(log)),
                           LIMIT * self.slow, "gvxd ready")
            e2e.check(process.poll() is None, f"gvxd ended with {process.returncode}")
            peer = e2e.Peer.linked(port, "GVX#900")
            for device, moods in (("STUCK", "StopStream=hang"), ("GOOD", "")):
                body = (f"<Content><DevCode>{device}</DevCode><PluginName>moody</PluginName>"
                        f"<Extend>{moods}</Extend></Content>")
                peer.must(e2e.ADD_DEV, e2e.TAG_XML, body.encode())
                peer.start_stream(device, "live-" + device, 9)
            begin = time.monotonic()
            process.send_signal(signal.SIGTERM)
            code = process.wait(LIMIT * self.slow)
            seconds = time.monotonic() - begin
        finally:
            process.kill()
            process.wait()
        if code != 0 or seconds > 2 * self.slow:
            self.fail("hanging plug-in", f"exit code {code} after {seconds:.2f} s")
        if "plug-in moody: StopStream of device STUCK has not returned" not in read(log):
            self.fail("hanging plug-in", "the log does not name it:\n" + read(log))

    def check_signal_during_hanging_start(self):
        """SIGTERM while a plug-in's Init does not return: the documented code in time, and one line that names it."""
        config = self.make_config("plugin_hangs", "GVX_PLUGIN_LIST=hangs\n")
        process = subprocess.Popen([self.gvxd, *self.arguments(config)], env=self.env, stderr=subprocess.PIPE, text=True)
        try:
            e2e.wait_until(lambda: process.poll() is not None or "gvx_plugin_hangs" in read(f"/proc/{process.pid}/maps"),
                           LIMIT * self.slow, "the plug-in's loading")
            begin = time.monotonic()
            process.send_signal(signal.SIGTERM)
            lines = process.communicate(timeout=LIMIT * self.slow)[1].splitlines()
            seconds = time.monotonic() - begin
        finally:
            process.kill()
            process.wait()
        if process.returncode != 16 or seconds > 2 * self.slow:
            self.fail("hanging start", f"exit code {process.returncode} after {seconds:.2f} s")
        if len(lines) != 1 or "plug-in hangs: " not in lines[0]:
            self.fail("hanging start", f"standard error is not one line that names the plug-in: {lines!r}")

    def check_configuration(self):
        self.expect("no folder", self.arguments(self.root + "/missing"), 10, self.root + "/missing")
        for number, missing in enumerate(CONFIGURATION):
            folder = self.make_config(f"without_{number}", "GVX_PLUGIN_LIST=\n", missing)
            self.expect("without " + missing, self.arguments(folder), 11, missing)
        folder = self.make_config("bad_port", "GVX_PLUGIN_LIST=\nGVX_LISTEN_PORT=many\n")
        self.expect("no port", self.arguments(folder)[:4], 14, "GVX_LISTEN_PORT")

    def check_plugins(self):
        for plugin, code, named in (
            ("nowhere", 12, "gvx_plugin_nowhere.so"),
            ("empty", 12, "gvx_plugin_empty.so"),
            ("wrong_abi", 12, "wrong_abi"),
            ("unresolved", 12, "gvx_plugin_unresolved.so"),
            ("refuses", 13, "/nowhere/clip.h264"),
            ("throws", 13, "throws"),
        ):
            folder = self.make_config("plugin_" + plugin, f"GVX_PLUGIN_LIST={plugin}\n")
            self.expect("plug-in " + plugin, self.arguments(folder), code, named)

    def check_port(self, folder):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = taken.getsockname()[1]
            self.expect("port in use", self.arguments(folder, port), 14, f":{port}")

    def run(self):
        good = self.make_config("good", "GVX_PLUGIN_LIST=moody\n")
        self.expect("usage", ["--no-such-option"], 2, "--no-such-option")
        self.expect("log file", ["--log-file", self.root + "/good/net.xml/gvxd.log", *self.arguments(good)], 15,
                    "/good/net.xml/gvxd.log")
        self.check_configuration()
        self.check_plugins()
        self.check_port(good)
        self.expect_stop("SIGTERM", self.arguments(good), signal.SIGTERM)
        self.expect_stop("SIGINT", self.arguments(good), signal.SIGINT)
        self.check_stop_with_hanging_plugin(good)
        self.check_signal_during_hanging_start()


def read_options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--gvxd", required=True)
    parser.add_argument("--plugin-dir", required=True)
    parser.add_argument("--conf", required=True)
    parser.add_argument("--slow", type=float, default=1, help="factor of every limit")
    return parser.parse_known_args()[0]  # the other scripts' options are no concern of this one


def main():
    options = read_options()
    bad_plugins = os.path.join(os.path.dirname(os.path.abspath(options.plugin_dir)), "plugins_bad")
    with tempfile.TemporaryDirectory(prefix="gvx_start_") as root:
        checker = Checker(os.path.abspath(options.gvxd), options.conf, bad_plugins, root, options.slow)
        try:
            checker.run()
        except e2e.Failure as fault:
            checker.fail("hanging plug-in", str(fault))
    print(f"{checker.failures} failures")
    return 1 if checker.failures else 0


if __name__ == "__main__":
    sys.exit(main())
