"""What the tests share that end a process at any moment and look at what it left on the disk."""

import argparse
import contextlib
import pathlib
import subprocess
import sys
import tempfile


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


@contextlib.contextmanager
def mounted(*arguments, at):
    """Whether the mount was made; it is undone at the end."""
    done = subprocess.run(["mount", *arguments, str(at)], capture_output=True, check=False)
    try:
        yield done.returncode == 0
    finally:
        if done.returncode == 0:
            subprocess.run(["umount", str(at)], check=False)


def fill(path):
    """Writes until the file system is full."""
    with contextlib.suppress(OSError), open(path, "wb", buffering=0) as file:
        while True:
            file.write(b"x" * 4096)


def main(description, names, kills, tests):
    """Runs the tests, each with the options --<name> and a folder, and returns the exit code."""
    parser = argparse.ArgumentParser(description=description)
    for name in names:
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--kills", type=int, default=kills)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="gvx_kill_") as folder:
        try:
            for test in tests:
                test(options, pathlib.Path(folder))
        except Failure as failure:
            print(f"FAILED: {failure}", file=sys.stderr)
            return 1
    return 0
