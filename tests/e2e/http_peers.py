"""What the scripts with web servers share: the driver, servers of Debian on the loopback, files."""
import contextlib
import hashlib
import os
import pathlib
import shutil
import socket
import subprocess

import gvx_e2e as e2e

UNAUTHORIZED = 189108035
BASIC, DIGEST = 0, 1
PROGRAMS = ("driver", "conf")


def sha256(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def make_files(folder, sizes):
    folder.mkdir(parents=True, exist_ok=True)
    for name, size in sizes.items():
        (folder / name).write_bytes(os.urandom(size))


class Server:
    """A server in the foreground; given up unless it listens."""

    def __init__(self, stack, folder, port, *command):
        log = folder / f"{pathlib.Path(command[0]).name}-{port}.log"
        output = stack.enter_context(open(log, "wb"))
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        stack.callback(self.stop)

        def is_open():
            e2e.check(self.process.poll() is None, f"{command[0]} ended: {log.read_text()}")
            with contextlib.closing(socket.socket()) as probe:
                return probe.connect_ex(("127.0.0.1", port)) == 0

        e2e.wait_until(is_open, 60, f"{command[0]} listens")

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Driver:
    """http_driver with a configuration of its own."""

    def __init__(self, options, stack, folder, name="driver", **settings):
        self.log, conf = folder / f"{name}.log", folder / f"{name}-conf"
        shutil.copytree(options.conf, conf)
        e2e.write_settings(conf, settings)
        (conf / "omu_portal").mkdir(exist_ok=True)
        if (folder / "ca.pem").exists():
            shutil.copy(folder / "ca.pem", conf / "omu_portal/cacert.pem")
        environment = dict(os.environ, GVX_CONFIG_DIR=str(conf), GVX_ROOT=str(folder / "root"))
        output = stack.enter_context(open(self.log, "wb"))
        self.process = subprocess.Popen([options.driver], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=output,
                                        text=True, env=environment)
        stack.callback(self.process.kill)

    def ask(self, *words):
        self.process.stdin.write(" ".join(str(word) for word in words) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        e2e.check(line, f"the driver ended: {self.log.read_text(errors='replace')[-3000:]}")
        return line.split()

    def upload(self, threads, *pairs):
        return [int(word) for word in self.ask("upload", threads, *(word for pair in pairs for word in pair))]

    def logged(self, text):
        return self.log.read_text(errors="replace").count(text)

    def close(self):
        self.process.stdin.close()
        e2e.check(self.process.wait(60) == 0, f"the driver failed: {self.log.read_text(errors='replace')[-3000:]}")
