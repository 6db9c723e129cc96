#!/usr/bin/env python3
"""Installs the build into a folder of its own, builds a plug-in outside the tree against it, and streams from that.

usage: installed_package.py BUILD_DIR PLUGIN_SOURCE_DIR
"""
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

FRAMES = 200  # what the plug-in sends, see beacon.cpp
LIMIT = 60  # seconds for any one step


def run(*command, **kwargs):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=LIMIT * 3,
                            **kwargs)
    if result.returncode != 0:
        sys.exit("failed (%d): %s\n%s" % (result.returncode, " ".join(command), result.stdout))
    return result.stdout


def free_port(kind):
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def build_outside(prefix, source, build):
    run("cmake", "-S", source, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_PREFIX_PATH=" + prefix)
    run("cmake", "--build", build)


def compile_by_pkg_config(prefix, folder):
    """The same package as seen by pkg-config: the header that includes every public one, compiled, linked and run."""
    libdirs = [root for root, _, files in os.walk(prefix) if "gvx_common.pc" in files]
    assert len(libdirs) == 1, libdirs
    env = dict(os.environ, PKG_CONFIG_PATH=libdirs[0])
    flags = run("pkg-config", "--cflags", "--libs", "gvx_common", env=env).split()
    source = os.path.join(folder, "use.cpp")
    with open(source, "w") as out:
        out.write('#include "gvx_common/gvx_common.h"\n#include "base/json_io.h"\n#include <json/value.h>\n'
                  'int main() { CRtpPacket packet; char head[12]; packet.GeneratePacket(head, 12, false);\n'
                  '  return packet.GetVersion() == 2 && gvx::JsonText(Json::Value(Json::objectValue), "a", "x") == "x" ? 0 : 1; }\n')
    program = os.path.join(folder, "use")
    libdir = os.path.dirname(libdirs[0])
    run("g++", source, "-o", program, *flags, "-Wl,-rpath," + libdir)
    run(program, env=dict(env, LD_LIBRARY_PATH=libdir))


def check_umbrella(prefix):
    """Every public header of the core stands in the one that includes them all, and no other is installed."""
    include = os.path.join(prefix, "include", "gvx")
    installed = {os.path.relpath(os.path.join(root, name), include)
                 for root, _, names in os.walk(include) for name in names}
    with open(os.path.join(include, "gvx_common", "gvx_common.h")) as text:
        named = set(re.findall(r'#include "([^"]+)"', text.read()))
    core = {name for name in installed if name.startswith("gvx_common/")} - {"gvx_common/gvx_common.h"}
    if core != named:
        sys.exit("gvx_common.h and the installed headers differ: %s" % sorted(core ^ named))


def write_config(prefix, folder, port, plugins):
    config = os.path.join(folder, "conf")
    shutil.copytree(os.path.join(prefix, "etc", "gvx"), config)
    path = os.path.join(config, "zvs_gvx.conf")
    with open(path) as source:
        lines = source.readlines()
    values = {"GVX_LISTEN_IP": "127.0.0.1", "GVX_LISTEN_PORT": str(port), "GVX_PLUGIN_DIR": plugins,
              "GVX_PLUGIN_LIST": "beacon"}
    with open(path, "w") as out:
        for line in lines:
            key = line.split("=")[0].strip()
            out.write("%s=%s\n" % (key, values[key]) if key in values else line)
    return config


def wait_until_ready(gateway, log):
    deadline = time.monotonic() + LIMIT
    while time.monotonic() < deadline:
        if gateway.poll() is not None:
            break
        with open(log) as text:
            if "gvxd ready" in text.read():
                return
        time.sleep(0.05)
    with open(log) as text:
        sys.exit("gvxd did not become ready:\n" + text.read())


def stream(gvxctl, port):
    video = free_port(socket.SOCK_DGRAM)
    receiver = subprocess.Popen([gvxctl, "receive", "--video-port", str(video), "--frames", str(FRAMES), "--seconds",
                                 str(LIMIT), "--json"], stdout=subprocess.PIPE, text=True)
    gateway = ["--gateway", "127.0.0.1:%d" % port]
    try:
        time.sleep(0.5)  # the receiver's socket is made before anything is sent to it
        run(gvxctl, "add-device", *gateway, "--dev", "BEACON1", "--plugin", "beacon")
        run(gvxctl, "start-stream", *gateway, "--dev", "BEACON1", "--service-id", "s1", "--dst", "127.0.0.1:%d" % video,
            "--no-audio")
        output, _ = receiver.communicate(timeout=LIMIT * 2)
        run(gvxctl, "stop-stream", *gateway, "--dev", "BEACON1", "--service-id", "s1")
        run(gvxctl, "del-device", *gateway, "--dev", "BEACON1")
    finally:
        receiver.kill()
    return json.loads(output)


def main():
    build, source = sys.argv[1:3]
    with tempfile.TemporaryDirectory(prefix="gvx-install-") as folder:
        prefix = os.path.join(folder, "prefix")
        run("cmake", "--install", build, "--prefix", prefix)
        check_umbrella(prefix)
        plugins = os.path.join(folder, "plugin")
        build_outside(prefix, source, plugins)
        if "--no-pkg-config" not in sys.argv:
            compile_by_pkg_config(prefix, folder)
        port = free_port(socket.SOCK_STREAM)
        config = write_config(prefix, folder, port, plugins)
        log = os.path.join(folder, "gvxd.log")
        with open(log, "w") as out:
            gateway = subprocess.Popen([os.path.join(prefix, "bin", "gvxd"), "--config-dir", config], stderr=out,
                                       stdout=out)
        try:
            wait_until_ready(gateway, log)
            figures = stream(os.path.join(prefix, "bin", "gvxctl"), port)
            gateway.send_signal(signal.SIGTERM)
            code = gateway.wait(timeout=LIMIT)
        finally:
            gateway.kill()
            gateway.wait()
        print(json.dumps(figures))
        if code != 0:
            with open(log) as text:
                sys.exit("gvxd ended with %d\n%s" % (code, text.read()))
        frames = figures["video"]["frames"]
        if frames != FRAMES:
            sys.exit("received %s frames of %d" % (frames, FRAMES))


if __name__ == "__main__":
    main()
