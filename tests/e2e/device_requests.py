"""Requests to a device by gvxctl, against a gateway whose plug-in keeps what it is given: what is not allowed is said
before anything is sent, refusals carry names and reasons, passwords come from standard input."""
import json
import pathlib
import subprocess

import gvx_e2e as e2e

PASSWORD = "pa55-of-the-device"


def test(options, folder, stack):
    options.plugin_dir = pathlib.Path(options.plugin_dir).parent / "plugins_bad"
    gateway = e2e.start_gateway(options, folder, stack, settings={"GVX_PLUGIN_LIST": "keeper"})

    def gvxctl(*arguments, code=0, stdin=""):
        done = subprocess.run([options.gvxctl, *arguments, "--gateway", str(gateway.port)], input=stdin,
                              capture_output=True, text=True, timeout=120, check=False)
        e2e.check(done.returncode == code, f"{arguments}: {done}")
        return done.stdout + done.stderr

    gvxctl("add-device", "--dev", "K", "--plugin", "keeper", "--lens", "K0")
    to = ("--dev", "K", "--lens", "K0")
    rows = [
        (("ptz", "up", "Speed=3", *to), 0, "NSS_PTZ_CONTROL_REQ: done"),
        (("ptz", "up", "Speed=11", *to), 2, "Speed is not one of 1 to 10."),
        (("ptz", "up", "Sped=3", *to), 2, "There is no member Sped."),
        (("ptz", *to), 2, "Command is missing."),
        (("ptz", "absolute-move", "Pan=10", *to), 1, "refused, ZVS_GVX_DEV_UN_SUPPORT: The device or its plug-in"),
        (("preset", "set", "PresetName=door", *to), 0, "PresetName: "),
        (("preset", "del", "--dev", "K", "--lens", "K9", "7"), 1, "refused, ZVS_GVX_LENS_NOT_EXIST: "),
        (("cruise", "set", 'Points=[{"PresetIndex":1},{"PresetIndex":0}]', *to), 2, "Points[1].PresetIndex is not"),
        (("osd", "get", *to), 0, "TimeFormat: 1 mdy"),
        (("nonsense",), 2, ""),
    ]
    for arguments, code, said in rows:
        text = gvxctl(*arguments, code=code)
        e2e.check(said in text, f"{arguments}: {text}")
    answer = json.loads(gvxctl("preset", "list", "--json", *to))
    e2e.check(answer["codeName"] == "ZVS_SUCCEED" and len(answer["body"]["Presets"]) == 2, f"presets: {answer}")
    gvxctl("password", "UserName=admin", "NewPassword=-", "--dev", "K", stdin=PASSWORD + "\n")
    e2e.check(PASSWORD not in gateway.log_file.read_text(), "the password is logged")
    gateway.stop()


if __name__ == "__main__":
    e2e.main(test)
