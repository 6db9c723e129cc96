"""What the tests share that end a process at any moment and look at what it left on the disk."""
import contextlib
import subprocess


@contextlib.contextmanager
def mounted(what, *arguments, at):
    """Whether the mount was made, with a line that says so where not; it is undone at the end."""
    done = subprocess.run(["mount", *arguments, str(at)], capture_output=True, check=False)
    if done.returncode != 0:
        print(f"{what}: passed over, mount is not permitted")
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
