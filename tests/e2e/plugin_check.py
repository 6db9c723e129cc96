"""gvx-plugin-check finds nothing to say against the file plug-in, and against four broken ones exactly what each breaks."""
import json
import pathlib
import subprocess

import gvx_e2e as e2e

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


def test(options, folder, _):
    video, audio = e2e.make_clip(folder)
    (folder / "file.json").write_text(json.dumps({"media": {"demo": {"video": str(video), "audio": str(audio)}}}))
    plugins = pathlib.Path(options.plugin_dir).absolute()
    code, table, broken, output = check(options, plugins / "gvx_plugin_file.so", "--changes", "--config",
                                        folder / "file.json", "--extend", '{"media":"demo"}')
    e2e.check(code == 0 and not broken and "StopStream of a stopped stream" in table, f"file: {code}\n{output}")
    print(table)
    for name, reasons in BROKEN.items():
        code, _, broken, output = check(options, plugins.parent / f"plugins_bad/gvx_plugin_{name}.so", "--limit", "3000",
                                        "--no-search")
        e2e.check(code == 1 and broken and all(reason in line for line in broken for reason in reasons),
                  f"{name}: {code}\n{output}")


if __name__ == "__main__":
    e2e.main(test, ("plugin-check", "plugin-dir"))
