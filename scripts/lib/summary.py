#!/usr/bin/env python3
"""Judges a run: reads what its steps left in DIR, prints the table, writes DIR/summary.json.

Exits 0 when every row is right. A figure that is missing makes its row wrong.
"""
import hashlib
import json
import pathlib
import sys

STOP_LIMIT_MS = 2000
LINKS = ["main service", "SCU", "OMU", "MU"]
# The pictures of metadata by their tag: the originals in the clip's folder, and how many the script sends.
PICTURES = {"PLATE_PIC": ("plate.jpg", 2), "FACE_PIC": ("face.jpg", 2), "PANORAMA_PIC": ("scene.jpg", 2),
            "FACE_PANORAMA": ("scene.jpg", 2)}
# Alarms by what they are: the words of the type before ON and OFF, where it comes from, and for whom it is.
ALARMS = (("device alarm", "ALARM_IPC_SHIELD", "CAM_alarm_0", {"SCU", "KSP"}),
          ("gateway alarm", "ALARM_GVX_LOG_RECORD_FAIL", "GVX#001", {"OMU", "KSP"}))
REQUESTS = {
    "NSS_ADD_MAIN_DEV_REQ": ("device added", 1),
    "NSS_START_STREAM_REQ": ("streams started", 2),
    "NSS_GET_IFRAME_REQ": ("key frame asked for", 2),
    "NSS_STOP_STREAM_REQ": ("streams stopped", 2),
    "NSS_DEL_MAIN_DEV_REQ": ("device deleted", 1),
}


def read_json(path):
    try:
        return json.loads(path.read_text())
    except (OSError, ValueError):
        return {}


def read_facts(path):
    facts = {}
    for line in path.read_text().splitlines():
        name, _, value = line.partition("=")
        facts[name] = int(value) if value.lstrip("-").isdigit() else value
    return facts


class Table:
    """Rows of (what, figure, right or wrong)."""

    def __init__(self):
        self.rows = []

    def add(self, what, figure, good):
        self.rows.append({"what": what, "figure": str(figure), "ok": bool(good)})

    def show(self):
        widths = [max(len(row[key]) for row in self.rows) for key in ("what", "figure")]
        for row in self.rows:
            verdict = "ok" if row["ok"] else "WRONG"
            print(f"{row['what']:<{widths[0]}}  {row['figure']:<{widths[1]}}  {verdict}")

    def good(self):
        return all(row["ok"] for row in self.rows)


def pictures(path):
    """The checksums of decoded pictures, in order."""
    if not path.is_file():
        return []
    return [line.split()[-1] for line in path.read_text().splitlines() if not line.startswith("#")]


def add_camera(table, out, facts):
    found = [f"{device['IP']}:{device['Port']} {device['Maker']}" for device in read_json(out / "camera_found.json").get("devices", [])]
    table.add("camera: discovered", ", ".join(found) or "not found", len(found) == 1)
    table.add("camera: driven by gvx-plugin-check", f"exit {facts.get('camera_check')}", facts.get("camera_check") == 0)
    added = read_json(out / "camera_added.json")
    table.add("camera: added", f"{added.get('codeName')}, password enciphered, {facts.get('camera_log_secrets')} times in the log",
              added.get("code") == 0 and facts.get("camera_log_secrets") == 0)
    direct = pictures(out / "camera_direct.md5")
    for name in ("udp", "tcp"):
        came = pictures(out / f"camera_{name}.md5")
        same = any(direct[at:at + len(came)] == came for at in range(len(direct)))
        table.add(f"camera: over {name.upper()}", f"{len(came)} frames, "
                  f"{'same pictures as' if same else 'pictures differ from'} a direct connection", len(came) > 25 and same)
    if (out / "pictures").is_dir():
        add_snapshot(table, out, facts)
    if "camera_start_ms" in facts:
        back = facts.get("camera_back_ms")
        table.add("camera: back again", f"after {back / 1000:.1f} s" if back else "never", back)
        for verb, end in (("raised", "ON"), ("cleared", "OFF")):
            came = facts.get(f"camera_alarm_{verb}") == 1
            table.add(f"camera: alarm {verb}", f"ALARM_IPC_NETWORK_INTERRUPT_{end} to SCU, KSP" if came else "none came", came)


def add_snapshot(table, out, facts):
    """The reader's own camera gives another picture each time, so that one has to be a picture alone."""
    came, source = out / "pictures" / "picture_1", out / "camera_picture.jpg"
    size = (out / "camera_snapshot_size.log").read_text().strip().replace(",", "x")
    same = checksum(came) == checksum(source) if source.is_file() else None
    figure = f"{size}, sha256 {checksum(came)[:16]}" + ("" if same is None else " as the camera has it" if same else " is another one")
    table.add("camera: snapshot", figure, facts.get("camera_snapshot_sent") == 1 and came.is_file() and same in (None, True)
              and len(size.split("x")) == 2)


def add_answers(table, demo):
    links = demo.get("links", [])
    table.add("links", ", ".join(links) or "none", links == LINKS)
    for request, (what, count) in REQUESTS.items():
        answers = [answer for answer in demo.get("answers", []) if answer["request"] == request]
        codes = [answer["code"] for answer in answers]
        text = ", ".join(f"{answer['codeName']} in {answer['elapsedMs']:.1f} ms" for answer in answers)
        table.add(what, text or "no answer", len(codes) == count and not any(codes))


def add_stream(table, stream, name, facts):
    got, sent = stream.get("received", {}), stream.get("sent") or {}
    video, audio = got.get("video", {}), got.get("audio", {})
    for media, counts, key in (("video", video, "VideoPackets"), ("audio", audio, "AudioPackets")):
        packets, expected = counts.get("packets"), sent.get(key)
        table.add(f"{name}: {media} packets", f"{packets} of {expected} sent", packets and packets == expected)
    lost = [video.get("lost"), audio.get("lost"), sent.get("Dropped")]
    wrong = [video.get(key) for key in ("late", "restarts", "droppedUnits", "badPayloads")] + [got.get("malformed")]
    table.add(f"{name}: loss", f"{lost[0]} video, {lost[1]} audio, {lost[2]} dropped by gvxd", lost + wrong == [0] * 8)
    frames, clip = video.get("frames"), facts.get("clip_frames")
    table.add(f"{name}: frames", f"{frames} of {sent.get('VideoFrames')} sent, clip {clip}",
              frames and frames == clip == sent.get("VideoFrames"))
    add_decoded(table, f"{name}: decoded by ffmpeg", name.lower(), facts)


def checksum(path):
    return hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else "missing"


def add_metadata(table, stream, name, out):
    got = (stream.get("received") or {}).get("metadata", {})
    packets, expected = got.get("packets"), (stream.get("sent") or {}).get("MetadataPackets")
    kinds = got.get("kinds", {})
    wrong = [got.get(key) for key in ("lost", "late", "restarts", "incomplete", "broken", "badPayloads")]
    table.add(f"{name}: metadata packets", f"{packets} of {expected} sent", packets and packets == expected)
    table.add(f"{name}: metadata", f"{kinds.get('plate')} plates, {kinds.get('face')} faces, "
              f"{kinds.get('heartbeat')} heartbeats, {wrong[0]} packets lost",
              (kinds.get("plate"), kinds.get("face")) == (2, 2) and kinds.get("heartbeat") and wrong == [0] * 6)
    for tag, (original, count) in PICTURES.items():
        files = [picture["file"] for picture in got.get("pictures", []) if picture["tag"] == tag]
        sums = {checksum(out / f"metadata_{name.lower()}" / file) for file in files}
        source = out / "clip" / original
        same = source.is_file() and sums == {checksum(source)}
        figure = f"{len(files)} of {source.stat().st_size if source.is_file() else 0} bytes, " \
                 f"{'sha256 ' + checksum(source)[:16] + ' as the original' if same else 'NOT the original'}"
        table.add(f"{name}: {tag}", figure, same and len(files) == count)


def add_decoded(table, what, name, facts):
    decoded, errors = facts.get(f"{name}_decoded"), facts.get(f"{name}_decode_errors")
    same = facts.get(f"{name}_same_pictures")
    figure = f"{decoded} frames, {errors} errors"
    if same is not None:
        figure += ", same pictures as the clip" if same else ", pictures differ from the clip"
    table.add(what, figure, decoded == facts.get("clip_frames") and errors == 0 and same in (None, 1))


def add_foreign_receivers(table, out, facts):
    for name, title in (("ffmpeg", "ffmpeg receives by itself"), ("gstreamer", "GStreamer receives by itself")):
        sent = (read_json(out / f"{name}_sent.json").get("body") or {}).get("VideoFrames")
        table.add(f"{title}: sent", f"{sent} frames",
                  sent == facts.get("clip_frames") and facts.get(f"{name}_commands_failed") == 0)
        add_decoded(table, f"{title}: decoded", name, facts)


def add_files(table, out):
    clip, heard = (out / "clip" / "clip.alaw"), (out / "audio.alaw")
    audio = heard.read_bytes() if heard.exists() else b""
    # The stream ends with the video, so the last fraction of a second of audio may be missing.
    whole = clip.stat().st_size
    table.add("audio over UDP", f"{len(audio)} of {whole} bytes, unchanged",
              len(audio) >= 0.9 * whole and clip.read_bytes().startswith(audio))
    picture = out / "frame.png"
    size = picture.stat().st_size if picture.exists() else 0
    table.add("frame.png", f"{size} bytes", size > 1000)


def read_alarms(path):
    """Who gets it, "began" or "ended", the type and the source of each alarm, in the order of their arrival."""
    if not path.is_file():
        return []
    rows = [line.split("  ", 3) for line in path.read_text(errors="replace").splitlines()]
    return [(row[0], row[1], row[2].split()[0], row[3].removeprefix("from ").split()[0].rstrip(":"))
            for row in rows if len(row) == 4]


def add_alarms(table, out, facts):
    came = read_alarms(out / "gvxctl_alarms.log")
    asked = (facts.get("alarms_exit"), facts.get("alarm_commands_failed")) == (0, 0)
    for what, words, source, targets in ALARMS:
        places = {}
        for verb, action, kind in (("raised", "began", f"{words}_ON"), ("cleared", "ended", f"{words}_OFF")):
            places[verb] = {target: place for place, (target, *alarm) in enumerate(came)
                            if alarm == [action, kind, source]}
            times = sum(alarm[1:] == (action, kind, source) for alarm in came)
            # Once for each target, and its end behind its beginning.
            good = asked and set(places[verb]) == targets and times == len(targets) and \
                all(places["raised"].get(target, len(came)) <= place for target, place in places[verb].items())
            figure = f"{kind} from {source} to {', '.join(places[verb])}" if times else "none came"
            table.add(f"{what} {verb}", figure, good)


def main():
    out = pathlib.Path(sys.argv[1])
    facts, demo = read_facts(out / "run.facts"), read_json(out / "demo.json")
    table = Table()
    add_camera(table, out, facts)
    add_answers(table, demo)
    streams = {stream["transport"]: stream for stream in demo.get("streams", [])}
    for transport in ("udp", "tcp"):
        add_stream(table, streams.get(transport, {}), transport.upper(), facts)
        add_metadata(table, streams.get(transport, {}), transport.upper(), out)
    add_foreign_receivers(table, out, facts)
    add_alarms(table, out, facts)
    add_files(table, out)
    stop_ms = facts.get("gateway_stop_ms")
    table.add("gvxd stopped by SIGTERM", f"exit {facts.get('gateway_exit')} after {stop_ms} ms",
              facts.get("gateway_exit") == 0 and isinstance(stop_ms, int) and stop_ms <= STOP_LIMIT_MS)
    good = table.good() and demo.get("ok") is True and not {"demo_failed", "keep_failed"} & facts.keys()
    summary = {"ok": good, "table": table.rows, "facts": facts, "demo": demo}
    (out / "summary.json").write_text(json.dumps(summary, indent=2) + "\n")
    for fault in demo.get("faults", []):
        print(f"fault: {fault}")
    print()
    table.show()
    print(f"{'all right' if good else 'NOT all right'}; files in {out}")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
