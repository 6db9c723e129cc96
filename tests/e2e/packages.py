#!/usr/bin/env python3
"""The Debian packages of a build, installed by dpkg itself into an empty root: what they bring, a gateway that serves from
there, an upgrade over an edited configuration, removal, and a purge. The maintainers' scripts run without chroot, since an
empty root holds no shell. Then the service under a systemd, where this system allows one (systemd_root.sh).

usage: packages.py BUILD_DIR
"""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import gvx_e2e as e2e

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PACKAGES = ("gvxd", "libgvx-common", "libgvx-common-dev", "gvx-tools")
AS_ROOT = [] if os.geteuid() == 0 else ["fakeroot"]


def run(*command, code=0, **more):
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=400, check=False, **more)
    e2e.check(done.returncode == code, f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def dpkg(root, *arguments):
    return run(*AS_ROOT, "dpkg", f"--root={root}", "--force-depends", "--force-script-chrootless", "--force-not-root",
               "--force-confdef", "--force-confold", "--log=/dev/null", *arguments)


def files_below(folder):
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file()}


def check_fields(debs):
    depends = {name: run("dpkg-deb", "-f", deb, "Depends") for name, deb in debs.items()}
    for name, wanted in (("gvxd", ("libc6", "libssl3", "libgvx-common (= ", "systemd")), ("libgvx-common", ("libace", "libsqlite3")),
                         ("gvx-tools", ("libgvx-common (= ",)), ("libgvx-common-dev", ("libace-dev", "libgvx-common (= "))):
        e2e.check(all(package in depends[name] for package in wanted), f"{name} depends on {depends[name]}")
    conffiles = run("dpkg-deb", "-I", debs["gvxd"], "conffiles").split()
    shipped = {f"/etc/gvx/{name}" for name in files_below(SOURCE / "conf")} | {"/etc/default/gvxd"}
    e2e.check(set(conffiles) == shipped, f"conffiles: {sorted(set(conffiles) ^ shipped)}")


def check_system(root):
    e2e.check(re.search(r"^gvx:", (root / "etc/passwd").read_text(), flags=re.M), "there is no user gvx")
    e2e.check((root / "var/lib/gvx/root/home/zvs_common/cloudconfig.xml").exists(), "the root prefix is empty")
    for name in ("usr/share/man/man8/gvxd.8.gz", "usr/share/man/man1/gvxctl.1.gz", "usr/share/man/man5/zvs_gvx.conf.5.gz"):
        said = run("bash", "-c", 'man --warnings -l "$0" >/dev/null', root / name)
        e2e.check(not said, f"{name}: {said}")
    run("bash", "-n", root / "usr/share/bash-completion/completions/gvxctl")
    unit = root / "lib/systemd/system/gvxd.service"
    unit = unit if unit.exists() else root / "usr/lib/systemd/system/gvxd.service"
    there = root.parent / unit.name  # beside the units of this system, which it builds on
    there.write_text(unit.read_text().replace("ExecStart=", f"ExecStart={root}"))
    said = run("systemd-analyze", "verify", "--man=no", there)
    e2e.check("gvxd.service" not in said, f"the unit: {said}")
    codes = set(re.search(r"^RestartPreventExitStatus=(.*)$", unit.read_text(), flags=re.M)[1].split())
    known = set(re.findall(r"^ +(\d+)  ", run(root / "usr/bin/gvxd", "--help", env=loader(root)), flags=re.M))
    e2e.check(codes <= known, f"the unit names exit codes that there are not: {codes - known}")


def loader(root):
    """The libraries lie where the loader would look if the root were the system's."""
    found = ":".join(str(path.parent) for path in root.glob("usr/lib/**/libgvx_base.so.0"))
    return {**os.environ, "LD_LIBRARY_PATH": found}


def service_environment(root, folder):
    """What the unit and the file beside it give the service, with this root ahead of their paths."""
    said = next(root.glob("**/system/gvxd.service")).read_text() + (root / "etc/default/gvxd").read_text()
    given = re.findall(r"^(?:Environment=)?(GVX_\w+)=(\S+)$", said, flags=re.M)
    return {**loader(root), **{name: f"{root}{value}" for name, value in given},
            "GVX_CONTROL_SOCKET": str(folder / "control.sock")}


def check_serves(root, folder, stack):
    """The service as the unit begins it, but for the port and the log."""
    port, log = e2e.free_port(), folder / "gvxd.log"
    environment = service_environment(root, folder)
    gateway = subprocess.Popen([root / "usr/bin/gvxd", "--listen-port", str(port), "--log-file", log],
                               env=environment, stdin=subprocess.DEVNULL)
    stack.callback(gateway.kill)
    e2e.wait_until(lambda: gateway.poll() is not None or e2e.listens(port), 60, "the installed gvxd listens")
    e2e.check(gateway.poll() is None, f"gvxd ended with {gateway.returncode}")
    said = run(root / "usr/bin/gvxctl", "add-device", "--extend", '{"media":"demo"}', "--gateway", str(port), env=environment)
    e2e.check("ZVS_SUCCEED" in said, f"add-device: {said}")
    gateway.send_signal(signal.SIGTERM)
    e2e.check(gateway.wait(60) == 0, f"gvxd ended with {gateway.returncode}")


def newer(deb, folder):
    """The same package with a higher version that ships another net.xml and another rtsp.json."""
    unpacked = folder / "newer"
    run(*AS_ROOT, "dpkg-deb", "-R", deb, unpacked)
    control = unpacked / "DEBIAN/control"
    control.write_text(re.sub(r"^(Version: .*)$", r"\1+next", control.read_text(), flags=re.M))
    for name in ("net.xml", "plugins/rtsp.json"):
        with open(unpacked / "etc/gvx" / name, "a", encoding="utf-8") as file:
            file.write("\n")
    (unpacked / "DEBIAN/md5sums").unlink(missing_ok=True)
    run(*AS_ROOT, "dpkg-deb", "-Zgzip", "-b", unpacked, folder / "newer.deb")
    return folder / "newer.deb"


def check_upgrade(root, deb, folder):
    edited, untouched = root / "etc/gvx/net.xml", root / "etc/gvx/plugins/rtsp.json"
    edited.write_text(edited.read_text().replace("GVX#001", "GVX#002"))
    before = untouched.read_text()
    dpkg(root, "-i", newer(deb, folder))
    e2e.check("GVX#002" in edited.read_text(), "the upgrade has overwritten an edited file")
    e2e.check("GVX#001" in edited.with_name("net.xml.dpkg-dist").read_text(), "the shipped file is not laid beside it")
    e2e.check(untouched.read_text() == before + "\n", "a file that nobody edited has not been upgraded")
    e2e.check(not list(root.rglob("*.new")), "the rule of cmake --install has run inside the package")


def check_removal(root):
    dpkg(root, "-r", *PACKAGES)
    left = files_below(root)
    e2e.check("etc/gvx/net.xml" in left and not any("gvxd" in name for name in left if name.startswith("usr/")),
              f"a removal leaves {sorted(left)}")
    dpkg(root, "-P", "gvxd")
    left = {name for name in files_below(root) if "gvx" in name and not name.startswith("var/lib/dpkg/")}
    e2e.check(not left, f"a purge leaves {sorted(left)}")


PREPARE = """#!/bin/sh -e
dpkg --root="$1" --force-depends --log=/dev/null -i {debs} >/dev/null
cd "$1/etc/systemd/system"
mkdir gvxd.service.d
printf '[Service]\\nWatchdogSec=6\\n' >gvxd.service.d/soon.conf
printf '[Unit]\\nWants=basic.target gvxd.service\\nAfter=basic.target\\n' >default.target
"""


def only_child(pid):
    children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return children[0] if children else None


def check_service(debs, folder, stack):
    """The unit as packaged, but for the time of its watchdog: start, edit, reload, a gateway that stands still, stop."""
    prepare, place = folder / "prepare.sh", folder / "systemd"
    place.mkdir()
    prepare.write_text(PREPARE.format(debs=" ".join(map(str, debs.values()))))
    prepare.chmod(0o755)
    manager = subprocess.Popen([SOURCE / "tests/e2e/systemd_root.sh", place, prepare], stdin=subprocess.DEVNULL)
    stack.callback(manager.wait)
    stack.callback(manager.terminate)
    e2e.wait_until(lambda: manager.poll() is not None or (only_child(manager.pid) and only_child(only_child(manager.pid)) and
                   "systemd" in pathlib.Path(f"/proc/{only_child(only_child(manager.pid))}/comm").read_text()), 120, "systemd")
    if manager.poll() is not None:
        e2e.check(manager.returncode == 77, f"systemd_root.sh ended with {manager.returncode}")
        print("no systemd of its own can be had here: the unit has not been started")
        return
    inside = ["nsenter", "-t", only_child(only_child(manager.pid)), "--all"]

    def show():
        said = run(*inside, "systemctl", "show", "gvxd")
        return dict(line.split("=", 1) for line in said.splitlines() if "=" in line)

    def journal():
        return run(*inside, "journalctl", "-u", "gvxd", "--no-pager")

    def settled(state, restarts):
        e2e.wait_until(lambda: ((now := show())["ActiveState"], now["NRestarts"]) == (state, restarts), 60,
                       f"{state} after {restarts} restarts")
        return show()

    e2e.wait_until(lambda: subprocess.run([*inside, "systemctl", "show"], capture_output=True, check=False).returncode == 0, 60,
                   "systemd answers")
    began = settled("active", "0")
    e2e.check(began["UnitFileState"] == "enabled" and began["Type"] == "notify", f"{began['UnitFileState']}")
    status = run(*inside, "cat", f"/proc/{began['MainPID']}/status")
    for name, value in (("NoNewPrivs", "1"), ("Seccomp", "2"), ("CapEff", "0000000000000000")):
        e2e.check(re.search(rf"^{name}:\s+{value}$", status, flags=re.M), f"{name} is not {value}: {status}")
    e2e.check(not re.search(r"^Uid:\s+0\s", status, flags=re.M), "gvxd runs as root")
    said = run(*inside, "gvxctl", "add-device", "--extend", '{"media":"demo"}')
    e2e.check("ZVS_SUCCEED" in said, f"add-device: {said}")
    e2e.check("CAM001" in run(*inside, "gvxctl", "devices"), "gvxctl finds the service's socket")
    run(*inside, "systemctl", "reload", "gvxd")
    e2e.wait_until(lambda: int(show()["WatchdogTimestampMonotonic"]) > int(began["WatchdogTimestampMonotonic"]), 30,
                   "the watchdog is fed")
    e2e.check(settled("active", "0")["MainPID"] == began["MainPID"], "a reload has begun another process")
    run(*inside, "kill", "-STOP", began["MainPID"])
    again = settled("active", "1")
    e2e.check("Watchdog timeout" in journal(), journal())
    e2e.check(again["MainPID"] != began["MainPID"], "the same process")
    run(*inside, "systemctl", "stop", "gvxd")
    ended = settled("inactive", "1")
    e2e.check((ended["Result"], ended["ExecMainStatus"]) == ("success", "0"), f"{ended['Result']}: {journal()}")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    times = [time.monotonic()]
    with tempfile.TemporaryDirectory(prefix="gvx_packages_") as name, contextlib.ExitStack() as stack:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        print(run(SOURCE / "scripts/package.sh", folder / "debs", env={**os.environ, "GVX_BUILD_DIR": str(build)}))
        debs = {package: next((folder / "debs").glob(f"{package}_*.deb")) for package in PACKAGES}
        times.append(time.monotonic())
        root = folder / "root"
        (root / "var/lib/dpkg").mkdir(parents=True)
        check_fields(debs)
        dpkg(root, "-i", *debs.values())
        check_system(root)
        check_serves(root, folder, stack)
        check_upgrade(root, debs["gvxd"], folder)
        check_removal(root)
        shutil.rmtree(root)
        check_service(debs, folder, stack)
    times.append(time.monotonic())
    print("seconds for making and for trying them:", *(f"{end - begin:.0f}" for begin, end in zip(times, times[1:])))


if __name__ == "__main__":
    try:
        main()
    except e2e.Failure as failure:
        sys.exit(f"FAILED: {failure}")
