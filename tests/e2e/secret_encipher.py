"""Passwords enciphered by gvxctl: from standard input alone, under the key of the run mode's folder."""
import subprocess

import gvx_e2e as e2e

SECRET = "S3cr3t-" + "p" * 57


def encipher(options, root, text, *arguments):
    return subprocess.run([options.gvxctl, "secret", "encipher", *arguments], input=text, capture_output=True, text=True,
                          timeout=60, check=False, env={"GVX_ROOT": str(root)})


def test(options, root, _stack):
    first, second = (encipher(options, root, SECRET + end) for end in ("\n", "\r\nnot this line\n"))
    for done in (first, second):
        e2e.check(done.returncode == 0 and len(done.stdout) == 125 and done.stderr == "", f"encipher: {done}")
    e2e.check(first.stdout != second.stdout, "the same text gives the same form twice")
    key = root / "opt/ksp/gvx.key"
    e2e.check(key.stat().st_mode & 0o777 == 0o600, "the key is not its owner's alone")
    given = encipher(options, root, SECRET, SECRET)
    e2e.check(given.returncode == 2 and given.stdout == "", f"a password on the command line is taken: {given}")
    for text, reason in (("", "holds no password"), ("\n", "holds no password"), ("a\tb", "control character"),
                         ("x" * 256, "longer than 255")):
        refused = encipher(options, root, text)
        e2e.check(refused.returncode == 1 and reason in refused.stderr, f"{text!r}: {refused}")
    key.chmod(0o644)
    refused = encipher(options, root, SECRET)
    e2e.check(refused.returncode == 1 and "its mode must be 0600" in refused.stderr and SECRET not in refused.stderr,
              f"open key: {refused}")
    cloud = root / "home/zvs_common/cloudconfig.xml"
    cloud.parent.mkdir(parents=True)
    cloud.write_text("<CloudConfig><RunMode>2</RunMode></CloudConfig>")
    e2e.check(encipher(options, root, SECRET).returncode == 0, "the edge has a key of its own")
    e2e.check((root / "opt/kspedge/gvx.key").exists(), "the edge's key lies elsewhere")


if __name__ == "__main__":
    e2e.main(test)
