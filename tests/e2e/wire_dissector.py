"""The Wireshark dissector tells of a real session what really went over the wire: every field of every frame, whole
packets or tiny segments. Impossible lengths and garbage are marked as malformed, never an error of the dissector.

With GVX_KEEP_CAPTURE=FILE in the environment the capture of the session is kept there.
"""
import json
import os
import pathlib
import random
import struct
import xml.etree.ElementTree as ElementTree

import gvx_e2e as e2e
import wire_tap

NAMES = {0x0000: "NSS_BP_REGISTER_REQ", 0x9000: "NSS_BP_REGISTER_RSP", 0x0002: "NSS_KEEPALIVE_REQ",
         0x9501: "NSS_START_STREAM_RSP", 0x0C76: "NSS_GVX_PLUGIN_ALARM_REPORT_REQ"}
FORMS = {"xml", "json", "structure"}
# (what is sent behind the registration, what the dissector must call it)
BROKEN = [
    (e2e.frame(e2e.DEL_DEV, 5, length=0), "length"),
    (e2e.frame(e2e.DEL_DEV, 5, length=115), "length"),
    (e2e.frame(e2e.DEL_DEV, 5, length=0xFFFFFFFF) + b"behind it", "length"),
    (b"GET / HTTP/1.1\r\n\r\n", "version"),
    (e2e.HEAD.pack(0x0100, e2e.DEL_DEV, 9, 0, b"", 0, b"", 132) + struct.pack(">HI", 1, 9999) + b"<Content/>", "item"),
]


def dissected(options, gateway_port, capture):
    """(source port, target port) to the frames that tshark found, each a dictionary of field name to element."""
    script = pathlib.Path(options.plugin_dir).parent / "wireshark" / "gvx_nss.lua"
    e2e.check(script.exists(), f"the build made no {script}")
    done = e2e.run("tshark", "-n", "-X", f"lua_script:{script}", "-d", f"tcp.port=={gateway_port},gvxnss", "-r", capture,
                   "-T", "pdml", seconds=300)
    e2e.check("Lua Error" not in done.stdout + done.stderr, f"the dissector failed: {done.stderr[-1000:]}")
    found = {}
    for packet in ElementTree.fromstring(done.stdout).iter("packet"):
        tcp = {field.get("name"): field.get("show") for field in packet.findall("proto[@name='tcp']/field")}
        for proto in packet.findall(".//proto[@name='gvxnss']"):
            found.setdefault((int(tcp["tcp.srcport"]), int(tcp["tcp.dstport"])), []).append(
                {field.get("name"): field for field in proto.iter("field")})
    return found


def cut(stream):
    frames = []
    while stream:
        length = e2e.HEAD.unpack(stream[:e2e.HEAD.size])[7]
        e2e.check(length >= e2e.HEAD.size, f"a frame of {length} bytes")
        frames.append(stream[:length])
        stream = stream[length:]
    return frames


def expected_fields(data):
    head, body = data[:e2e.HEAD.size], data[e2e.HEAD.size:]
    fields = {"version": head[:2], "type": head[2:4], "seq": head[4:8], "trace": head[8:12],
              "transaction": head[12:76].rstrip(b"\0") or head[12:76], "code": head[76:80], "reserve": head[80:112],
              "length": head[112:]}
    if not body:
        return fields
    kind = struct.unpack(">H", head[2:4])[0]
    tag, item_length = struct.unpack(">HI", body[:6])
    if kind == e2e.KSP_REPORT or tag not in (e2e.TAG_XML, e2e.TAG_JSON) or item_length != len(body) - 6:
        return {**fields, "structure": body}
    text = "xml" if tag == e2e.TAG_XML else "json"
    return {**fields, "item.tag": body[:2], "item.length": body[2:6], text: body[6:]}


def compare_frame(data, found, where):
    for name, value in expected_fields(data).items():
        field = found.get(f"gvxnss.{name}")
        e2e.check(field is not None, f"{where}: no field {name}")
        e2e.check(bytes.fromhex(field.get("value")) == value, f"{where}: {name} is {field.get('show')}, not {value!r}")
    kind = struct.unpack(">H", data[2:4])[0]
    shown = found["gvxnss.type"].get("showname")
    e2e.check(NAMES.get(kind, "NSS_") in shown, f"{where}: type 0x{kind:04x} is shown as {shown}")
    if not any(data[76:80]):
        e2e.check("ZVS_SUCCEED" in found["gvxnss.code"].get("showname"), f"{where}: the result has no name")
    forms = {form for form in FORMS if f"gvxnss.{form}" in found}
    e2e.check(len(forms) == (len(data) > e2e.HEAD.size), f"{where}: forms {forms}")
    if kind in (0x0000, 0x9000):
        link_id = json.loads(data[e2e.HEAD.size + 6:])["LinkID"]
        e2e.check(found["gvxnss.link_id"].get("show") == link_id, f"{where}: link identifier")
    return forms


def compare_session(relay, session, found):
    forms, frames = set(), 0
    for number in session:
        ports = (relay.peer_ports[number], relay.gateway_port)
        for direction in (wire_tap.TO_GATEWAY, wire_tap.FROM_GATEWAY):
            sent = cut(relay.bytes_of(number, direction))
            seen = found.get(ports[::-1] if direction else ports, [])
            where = f"connection {number}, direction {direction}"
            e2e.check(len(seen) == len(sent) > 0, f"{where}: {len(seen)} frames decoded, {len(sent)} sent")
            for i, (data, fields) in enumerate(zip(sent, seen)):
                forms |= compare_frame(data, fields, f"{where}, frame {i}")
            frames += len(sent)
    e2e.check(forms == FORMS, f"the session holds {forms} only")
    return frames


def a_session(options, relay):
    """One device by gvxctl and one stream, then a peer that asks for more; every link goes through the relay."""
    def gvxctl(*arguments):
        e2e.run(options.gvxctl, *arguments, "--gateway", f"127.0.0.1:{relay.port}")

    sink = e2e.udp_sink()
    gvxctl("add-device", "--dev", "CAM001", "--plugin", "file", "--extend", '{"media":"clip"}')
    gvxctl("start-stream", "--dev", "CAM001", "--service-id", "live-1", "--dst", f"127.0.0.1:{sink.getsockname()[1]}")
    e2e.check_media_flows(sink, 60 * options.slow, "the stream of the session")
    gvxctl("stop-stream", "--dev", "CAM001", "--service-id", "live-1")
    gvxctl("del-device", "--dev", "CAM001")
    peer = e2e.Peer.linked(relay.port, "GVX#000")
    peer.keeps_alive()
    peer.send(e2e.frame(e2e.KSP_REPORT, 99, trace=3, trans=b"t" * 64, length=e2e.HEAD.size + 256) + bytes(range(256)))
    peer.is_answered()
    peer.sock.close()
    return range(len(relay.peer_ports))


def broken_peers(relay):
    first = len(relay.peer_ports)
    for number, (data, _) in enumerate(BROKEN):
        peer = e2e.Peer.linked(relay.port, f"SCU#1{number}")
        peer.send(data)
        e2e.wait_until(lambda at=first + number, tail=data: relay.bytes_of(at, 0).endswith(tail), 30, "relayed")
        peer.sock.close()
    return first


def check_broken(relay, first, found):
    for number, (data, name) in enumerate(BROKEN):
        seen = found[(relay.peer_ports[first + number], relay.gateway_port)]
        marks = [mark for fields in seen for mark in fields if mark.startswith("gvxnss.malformed.")]
        e2e.check(marks == [f"gvxnss.malformed.{name}"], f"{data[:12]!r} is marked {marks}")


def check_noise(options, capture, port):
    """Frames with bytes changed at random, and cut anywhere: whatever it is, the dissector has no fault."""
    noise = random.Random(11)
    chunks = []
    for number in range(300):
        data = bytearray(e2e.frame(0x0109, 1, noise.choice((1, 7, 2)), b"<Content/>{}" * noise.randrange(20)) * 2)
        for _ in range(noise.randrange(1, 12)):
            data[noise.randrange(len(data))] = noise.randrange(256)
        end = noise.randrange(1, len(data))
        chunks += [(number, 0, 1.0, bytes(data[:end])), (number, 0, 1.0, bytes(data[end:]))]
    wire_tap.write_capture(capture, chunks, range(20000, 20300), port)
    e2e.check(len(dissected(options, port, capture)) > 200, "of the changed frames nothing was decoded")


def dissect_session(options, folder, stack):
    video, _ = e2e.make_clip(folder)
    gateway = e2e.start_gateway(options, folder, stack, {"clip": {"video": str(video)}})
    relay = stack.enter_context(wire_tap.Relay(gateway.port))
    session = a_session(options, relay)
    if "GVX_KEEP_CAPTURE" in os.environ:
        wire_tap.write_capture(os.environ["GVX_KEEP_CAPTURE"], relay.chunks, relay.peer_ports, gateway.port)
    first = broken_peers(relay)
    gateway.stop()

    for segment in (None, 61):
        capture = folder / f"session_{segment}.pcap"
        wire_tap.write_capture(capture, relay.chunks, relay.peer_ports, gateway.port, segment)
        found = dissected(options, gateway.port, capture)
        print(f"{compare_session(relay, session, found)} frames compared, segments of {segment or 'any number of'} bytes")
        if segment is None:
            check_broken(relay, first, found)
    check_noise(options, folder / "noise.pcap", gateway.port)


if __name__ == "__main__":
    e2e.main(dissect_session)
