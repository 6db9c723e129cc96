"""What the scripts with web servers share: the driver, servers of Debian on the loopback, certificates, files."""
import argparse
import contextlib
import hashlib
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile

import gvx_e2e as e2e

UNAUTHORIZED = 189108035
BASIC, DIGEST, NO_CHALLENGE = 0, 1, 2


def sha256(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def make_files(folder, sizes):
    folder.mkdir(parents=True, exist_ok=True)
    for name, size in sizes.items():
        (folder / name).write_bytes(os.urandom(size))


class Server:
    """A server in the foreground; given up unless it listens."""

    def __init__(self, stack, folder, port, *command):
        self.port = port
        self.log = open(folder / f"{pathlib.Path(command[0]).name}-{port}.log", "wb")
        stack.callback(self.log.close)
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)
        stack.callback(self.stop)
        e2e.wait_until(self.listens, 60, f"{command[0]} listens")

    def listens(self):
        e2e.check(self.process.poll() is None, f"{self.log.name}: {pathlib.Path(self.log.name).read_text()}")
        with contextlib.closing(socket.socket()) as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Driver:
    """http_driver with a configuration of its own."""

    def __init__(self, options, stack, folder, settings="", name="driver"):
        self.log = folder / f"{name}.log"
        conf = folder / f"{name}-conf"
        shutil.copytree(options.conf, conf)
        (conf / "omu_portal").mkdir(exist_ok=True)
        if (folder / "ca.pem").exists():
            shutil.copy(folder / "ca.pem", conf / "omu_portal/cacert.pem")
        for line in settings.split():
            key = line.split("=")[0]
            text = (conf / "zvs_gvx.conf").read_text().splitlines()
            text = [line if old.startswith(key + "=") else old for old in text]
            e2e.check(line in text, f"{key} is no setting")
            (conf / "zvs_gvx.conf").write_text("\n".join(text) + "\n")
        environment = dict(os.environ, GVX_CONFIG_DIR=str(conf), GVX_ROOT=str(folder / "root"))
        output = open(self.log, "wb")
        stack.callback(output.close)
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


def main(test):
    parser = argparse.ArgumentParser()
    for name in ("driver", "conf"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--slow", type=float, default=1)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="gvx_e2e_") as name, contextlib.ExitStack() as stack:
        folder = pathlib.Path(name)
        folder.chmod(0o755)  # servers read it as a user of their own
        try:
            test(options, folder, stack)
        except (e2e.Failure, OSError, subprocess.SubprocessError) as fault:
            print(f"FAILED: {fault}", file=sys.stderr)
            sys.exit(1)
    print("passed")
