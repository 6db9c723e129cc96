"""What a disk does to saved settings. A record of 100 edits is replayed event by event with unsynced data dropped, as at
a power loss: every file is the old one or the new one whole, and a save that is answered has reached the disk. Then each
read of a start and an edit is failed once: nothing is lost, and a line tells of it. A save whose folder cannot be synced
says what is in force."""
import os
import shutil
import subprocess

from gvx_e2e import check, main

EDITS = 100
FILES = ("zvs_gvx.conf", "log.xml", "zvs_gvx_nat.conf", "log_sftp.conf", "log_sftp.key")


def edit(options, folder, edits, log, **environment):
    return subprocess.run([options.saver, "edits", folder, str(edits)], capture_output=True, text=True, timeout=240,
                          check=False, env={**os.environ, "GVX_ROOT": str(folder / "root"), "LD_PRELOAD": options.shim,
                                            "DISK_SHIM_DIR": str(folder), "DISK_SHIM_LOG": str(log), **environment})


def contents(folder):
    return {name: (folder / name).read_bytes() for name in FILES if (folder / name).exists()}


def replay(log):
    """Gives the number of states looked at. A file's bytes are safe from its fsync on, its name from the folder's on."""
    on_disk, named, open_renames, states = {}, {}, 0, 0
    for event, *words in (line.split() for line in log.read_text().splitlines()):
        if event == "truncate":
            check(words[0] not in named.values(), "a live file is emptied in its place")
            on_disk[words[0]] = b""
        elif event == "fsync":
            with open(words[1], "rb") as copy:
                on_disk[words[0]] = copy.read()
        elif event == "rename":
            inode, name, copy = words
            with open(copy, "rb") as whole:
                check(on_disk.get(inode, b"") == whole.read() != b"", f"{name} may be torn after a power loss")
            check(open_renames == 0, f"a save was answered before its name was on the disk: {name}")
            named[name] = inode
            open_renames += 1
        elif event == "folder":
            open_renames = 0
        states += 1
    check(open_renames == 0, "the last name is not on the disk")
    return states


def power_loss(options, folder):
    shutil.copytree(options.conf, folder)
    log = folder.with_name("power.log")
    done = edit(options, folder, EDITS, log)
    check(done.returncode == 0, f"the edits end with {done}")
    renames = log.read_text().count("rename ")
    check(renames >= 4 * EDITS, f"only {renames} saves are recorded")
    print(f"{EDITS} edits, {renames} saves, {replay(log)} states after a power loss: damaged 0")


def failed_reads(options, folder):
    before = contents(options.conf_edited)
    failed = 0
    for number in range(1, 200):
        at = folder.with_name(f"read_{number}")
        shutil.copytree(options.conf_edited, at)
        log = at.with_name(at.name + ".log")
        done = edit(options, at, 1, log, DISK_SHIM_FAIL_READ=str(number))
        if not log.exists() or "failed" not in log.read_text():
            check(done.returncode == 0 and failed > 10, f"the edit ends with {done} after {failed} reads")
            print(f"{failed} reads failed once each: lost 0")
            return
        failed += 1
        after = contents(at)
        for name, content in before.items():
            whole = after.get(name) == content or (len(after.get(name, b"")) > len(content) * 3 // 4)
            check(whole, f"read {number} takes from {name}: {done}")
        check(done.returncode == 0 or "ERR" in done.stderr, f"no line tells of read {number}: {done}")
    check(False, "the reads have no end")


def failed_folder(options, folder):
    """A name that does not reach the disk: the new file stands, the value is in force, and the edit is no success."""
    shutil.copytree(options.conf, folder)

    def save(*what):
        return subprocess.run([options.saver, what[0], folder, *what[1:]], capture_output=True, text=True, timeout=60,
                              check=False, env={**os.environ, "GVX_ROOT": str(folder / "root"), "LD_PRELOAD": options.shim,
                                                "DISK_SHIM_DIR": str(folder), "DISK_SHIM_FAIL_FOLDER": "1"})

    reach, file = save("reach", "10.1.2.3", "34777"), (folder / "zvs_gvx.conf").read_text()
    check(reach.stdout == "stands stands stands 10.1.2.3\n" and file.count("_IP=10.1.2.3\n") == 2
          and "GVX_LISTEN_PORT=34777\n" in file, f"addresses and a port that are not on the disk: {reach}")
    done = save("edit", "77")
    check(done.returncode == 1 and done.stdout == "77\n" and "MAX_CAPS=77" in (folder / "zvs_gvx.conf").read_text()
          and "a power loss may bring the old file back" in done.stderr, f"a folder that cannot be synced: {done}")


def test(options, folder, _stack):
    failed_folder(options, folder / "folder")
    power_loss(options, folder / "power")
    options.conf_edited = folder / "power"
    failed_reads(options, folder / "read")


if __name__ == "__main__":
    main(test, ["saver", "shim", "conf"])
