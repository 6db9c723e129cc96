"""gvx-plugin-check finds nothing to say against the plug-ins that ship, and against four broken ones exactly what each
breaks."""
import json
import pathlib
import subprocess

import gvx_e2e as e2e
from rtsp_camera import PASSWORD, Camera

LIMIT = 300
BROKEN = {
    "breaks_start_codes": {"without a start code of four bytes"},
    "breaks_time": {"the time stamps of video go back"},
    "breaks_deletion": {"calls the send function after its device is deleted"},
    "breaks_limit": {"RequestKeyframe", "its limit is 3.0 s"},
}


def check(options, plugin, *more):
    done = subprocess.run([options.plugin_check, plugin, *more], capture_output=True, text=True, timeout=LIMIT * options.slow,
                          check=False)
    table, _, broken = done.stdout.partition("broken promises: ")
    return done.returncode, table, broken.splitlines()[1:], done.stdout + done.stderr


def keeps_all(options, name, *more):
    code, table, broken, output = check(options, options.plugin_dir / f"gvx_plugin_{name}.so", "--changes", *more)
    e2e.check(code == 0 and not broken and "StopStream of a stopped stream" in table, f"{name}: {code}\n{output}")
    print(table)


def test(options, folder, stack):
    options.plugin_dir = pathlib.Path(options.plugin_dir).absolute()
    video, audio = e2e.make_clip(folder)
    (folder / "file.json").write_text(json.dumps({"media": {"demo": {"video": str(video), "audio": str(audio)}}}))
    keeps_all(options, "file", "--config", folder / "file.json", "--extend", '{"media":"demo"}')
    (folder / "password").write_text(PASSWORD)
    camera = Camera(folder, stack, codec="h264", auth="digest")
    keeps_all(options, "rtsp", "--port", camera.port, "--user", "admin", "--password-file", folder / "password", "--extend",
              '{"main":"/live"}', "--no-search")
    for wrong, said in ((["/nowhere.so"], "/nowhere.so: No such file"), ([video, "--limt", "3"], "--limt")):
        code, _, _, output = check(options, *wrong)
        e2e.check(code == 3 and said in output and output.count("\n") == 1, f"{wrong}: {code}\n{output}")
    for name, reasons in BROKEN.items():
        code, _, broken, output = check(options, options.plugin_dir.parent / f"plugins_bad/gvx_plugin_{name}.so", "--limit", "3000",
                                        "--no-search")
        e2e.check(code == 1 and broken and all(reason in line for line in broken for reason in reasons),
                  f"{name}: {code}\n{output}")


if __name__ == "__main__":
    e2e.main(test, ("plugin-check", "plugin-dir"))
