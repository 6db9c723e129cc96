"""Devices push alarms to the gateway's intake port: each becomes a frame for the SCU and, where the cloud platform
knows its type, a report for it, in order; half lines, several lines and rubbish do no harm, nor do idle connections by the
hundred; what comes too fast is dropped with one alarm of the gateway."""
import json
import resource
import shutil
import socket
import struct

import gvx_e2e as e2e

ALARM = struct.Struct(">64s32s64s20s20sI32sI32s")
IDLE, RATE = 800, 400


def line(code, action, **more):
    return json.dumps({"device": "CAM001", "channel": 0, "code": code, "action": action, **more}).encode() + b"\n"


def read_alarm(message):
    """An SCU alarm as a dictionary, with its description."""
    code, _, kind, _, _, action, _, number, recorder = ALARM.unpack(message.raw[: ALARM.size])
    tag, length = struct.unpack_from(">HI", message.raw, ALARM.size)
    e2e.check(tag == 4, f"tag {tag} behind the alarm")
    description = message.raw[ALARM.size + 6: ALARM.size + 6 + length].decode()
    return {"code": e2e.text(code), "type": e2e.text(kind), "action": action, "number": number, "recorder": e2e.text(recorder),
            "description": description}


def read_report(message):
    """The type and the identifier of a report to the cloud platform."""
    e2e.check(len(message.raw) == 4544, f"a report of {len(message.raw)} bytes")
    return e2e.text(message.raw[1064:1128]), struct.unpack_from("<Q", message.raw, 32)[0]


def check_short_code(push, peer, seconds):
    """A device of two characters is reported to the cloud platform, with its address."""
    peer.must(e2e.ADD_DEV, e2e.TAG_XML, b"<Content><DevCode>D1</DevCode><PluginName>file</PluginName><IP>192.0.2.7</IP>"
              b'<FormType>1</FormType><Extend>{"media": "clip"}</Extend></Content>')
    push(line("shield", "start", device="D1"))
    raw = peer.receive_kind(e2e.KSP_REPORT, seconds).raw
    location = e2e.text(raw[1132:1388])
    e2e.check(location.endswith(",LocalDesc=D1_0[DevIP:192.0.2.7]") and e2e.text(raw[296:552]) == "D1", f"location {location}")




def check_alarms(push, peer, seconds):
    """What the three lines that push sends must become."""
    push(line("shield", "start") + line("hot", "start") + line("shield", "stop", description="wiped"))
    on = read_alarm(peer.receive_kind(e2e.SCU_ALARM, seconds))
    e2e.check(on == {"code": "CAM001_0", "type": "ALARM_IPC_SHIELD_ON", "action": 1, "number": 1, "recorder": "001",
                     "description": "The picture of the camera is covered."}, f"SCU got {on}")
    report = read_report(peer.receive_kind(e2e.KSP_REPORT, seconds))
    e2e.check(report == ("ALARM_IPC_SHIELD_ON", 308521910), f"the cloud platform got {report}")
    hot = read_alarm(peer.receive_kind(e2e.SCU_ALARM, seconds))
    e2e.check(hot["type"] == "ALARM_IPC_HIGH_TEMPERATURE_ON", f"SCU got {hot}")
    off = read_alarm(peer.receive_kind(e2e.SCU_ALARM, seconds))  # no report stands between: that type is not in the dictionary
    e2e.check((off["type"], off["action"], off["description"]) == ("ALARM_IPC_SHIELD_OFF", 0, "wiped"), f"{off}")
    report = read_report(peer.receive_kind(e2e.KSP_REPORT, seconds))
    e2e.check(report[0] == "ALARM_IPC_SHIELD_OFF", f"the cloud platform got {report}")


def push_alarms(options, folder, stack):
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, min(hard, 4096)), hard))
    clip, _ = e2e.make_clip(folder, seconds=1)
    port = e2e.free_port()
    shutil.copytree(options.conf + "/root", folder / "root")  # the cloud side has taken it over
    gateway = e2e.start_gateway(options, folder, stack, {"clip": {"video": str(clip)}},
                                {"GVX_INTAKE_PORT": port, "GVX_INTAKE_MAX_RATE": RATE})
    platform = e2e.Platform(gateway.port)
    platform.main.add_device("CAM001", {"media": "clip"})
    seconds = 30 * options.slow

    def connect():
        return stack.enter_context(socket.create_connection(("127.0.0.1", port), timeout=seconds))

    device = connect()
    check_alarms(device.sendall, platform.main, seconds)
    check_alarms(lambda data: [device.sendall(data[i: i + 7]) for i in range(0, len(data), 7)], platform.main, seconds)
    check_short_code(device.sendall, platform.main, seconds)
    device.sendall(b"\0\xff rubbish\n" + b"x" * 5000 + b"\n" + line("nonsense", "start"))
    idle = [connect() for _ in range(IDLE)]
    check_alarms(device.sendall, platform.main, seconds)

    senders = [connect() for _ in range(2 * RATE)]
    warning = "On Flux Control Warn Protocal=TCP,Msg Queue=Intake,FlowControlCode=[speed limit exceeded]"

    def flood():
        for sender in senders:
            sender.sendall(line("shield", "start"))
        return gateway.lines(warning)

    e2e.wait_until(flood, seconds, "an alarm of the flow control")
    e2e.check(len(gateway.lines(warning)) == 1, "the flow control raised its alarm more than once")
    platform.omu.keeps_alive(seconds)
    e2e.check(not gateway.lines("devices have to wait"), "descriptors ran out")
    print(f"stopped in {gateway.stop():.2f} s with {len(idle)} idle connections and {len(senders)} that had sent")


if __name__ == "__main__":
    e2e.main(push_alarms)
