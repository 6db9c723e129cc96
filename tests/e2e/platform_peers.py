"""gvxctl plays the platform: the scenario of all link events, and an alarm from a device's word to its decoded record."""
import json
import pathlib
import shutil
import subprocess

import gvx_e2e as e2e

SCENARIO = pathlib.Path(__file__).resolve().parents[2] / "tools/gvxctl/scenarios/link-events.json"


def walk_link_events(options, gateway, sink):
    done = e2e.run(options.gvxctl, "scenario", str(SCENARIO), "--log", str(gateway.log_file), "--set",
                   f"video_port={sink.getsockname()[1]}", "--gateway", str(gateway.port), seconds=200)
    print(done.stdout)
    lines = done.stdout.splitlines()
    e2e.check(lines[-1].endswith(" passed"), f"the transcript ends with {lines[-1]}")
    e2e.check(sum(" step " in line for line in lines) == len(json.loads(SCENARIO.read_text())["steps"]),
              "a step has no line")


def alarm_of_a_device(options, gateway, intake):
    e2e.run(options.gvxctl, "add-device", "--dev", "CAM001", "--extend", '{"media":"demo"}', "--gateway",
            str(gateway.port))
    opened = len(gateway.lines("Link opened", "link:OMU#001"))
    with subprocess.Popen([options.gvxctl, "alarm", "watch", "--gateway", str(gateway.port), "--json", "--count", "2",
                           "--seconds", "60"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as alarms:
        e2e.wait_until(lambda: len(gateway.lines("Link opened", "link:OMU#001")) > opened, 30 * options.slow,
                       "gvxctl alarm watch links as OMU")
        e2e.run(options.gvxctl, "alarm", "trigger", "--intake", str(intake), "--device", "CAM001", "--channel", "0",
                "--code", "shield", "--action", "start", "--description", "Paint on the dome.")
        text, _ = alarms.communicate(timeout=100)
    e2e.check(alarms.returncode == 0, f"alarms ended with {alarms.returncode}: {text}")
    scu, ksp = (json.loads(line) for line in text.splitlines())
    for alarm, target in ((scu, "SCU"), (ksp, "KSP")):
        e2e.check((alarm["target"], alarm["action"]) == (target, "began"), f"{target} got {alarm}")
        e2e.check(alarm["fields"]["cAlarmType"] == "ALARM_IPC_SHIELD_ON", f"{target} got {alarm}")
        e2e.check(alarm["fields"]["cAlarmDesc"] == "Paint on the dome.", f"{target} got {alarm}")
    e2e.check(ksp["fields"]["ulAlarmID"] == 308521910, f"the identifier is {ksp['fields']['ulAlarmID']}")
    print(text)


def play(options, folder, stack):
    video, _ = e2e.make_clip(folder)
    intake = e2e.free_port()
    shutil.copytree(options.conf + "/root", folder / "root")  # the cloud side has taken it over
    gateway = e2e.start_gateway(options, folder, stack, {"demo": {"video": str(video), "fps": 25, "loop": True}},
                                {"GVX_MEDIA_PORT_EXCHANGE": "1", "GVX_INTAKE_PORT": str(intake),
                                 "GVX_LOG_LEVEL": "7", "LogLevel": "7"})
    sink = stack.enter_context(e2e.udp_sink())
    walk_link_events(options, gateway, sink)
    alarm_of_a_device(options, gateway, intake)
    gateway.stop()


if __name__ == "__main__":
    e2e.main(play)
