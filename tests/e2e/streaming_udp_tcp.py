"""A camera clip with B-frames and four slices a frame, in H.264 and in H.265, arrives whole over UDP and over TCP, by
gvxctl's own script, and the metadata beside it with every byte of its pictures."""
import json

import gvx_e2e as e2e


def write_metadata(folder):
    """A plate and a face in both forms; the pictures by the tag under which they arrive."""
    pictures = {"plate_pic": b"\xff\xd8" + bytes(2047), "face_pic": b"\xff\xd8" + bytes(range(256)) * 90}
    messages = [{"time": 0, "repeat": 0.5, "kind": "heartbeat"}]
    for name, data in pictures.items():
        (folder / f"{name}.jpg").write_bytes(data)
    for form in ("plain", "ex"):
        messages.append({"time": 0.4, "kind": "plate", "form": form, "plate": "AB 1", "plate_picture": "plate_pic.jpg"})
        messages.append({"time": 0.8, "kind": "face", "form": form, "faces": [{"picture": "face_pic.jpg"}]})
    (folder / "metadata.json").write_text(json.dumps({"messages": messages}))
    return pictures


def check_metadata(folder, pictures, outcome):
    for stream in outcome["streams"]:
        metadata = stream["received"]["metadata"]
        kinds = metadata["kinds"]
        e2e.check((kinds["plate"], kinds["face"]) == (2, 2) and kinds["heartbeat"] >= 3, json.dumps(metadata))
        e2e.check(len(metadata["pictures"]) == 4, json.dumps(metadata))
        for picture in metadata["pictures"]:
            came = (folder / f"metadata_{stream['transport']}" / picture["file"]).read_bytes()
            e2e.check(came == pictures[picture["tag"].lower()], f"{picture} is not the original")


def stream_clip(options, folder, stack, codec):
    video, audio = e2e.make_clip(folder, codec)
    metadata = write_metadata(folder)
    pictures = e2e.decoded_pictures(video)
    e2e.check(len(pictures) == 50, f"the clip has {len(pictures)} pictures")
    gateway = e2e.start_gateway(options, folder, stack, {
        "demo": {"video": str(video), "audio": str(audio), "fps": 25, "loop": False,
                 "metadata": str(folder / "metadata.json")}})
    summary = folder / "demo.json"
    done = e2e.run(options.gvxctl, "demo", "--gateway", str(gateway.port), "--mu", "0", "--extend", '{"media":"demo"}',
                   "--out", str(folder), "--summary", str(summary), "--expect-frames", str(len(pictures)), "--codec",
                   codec, "--timeout", "60", "--metadata", seconds=240)
    print(done.stdout)
    outcome = json.loads(summary.read_text())
    e2e.check(outcome["ok"] and outcome["links"] == ["main service", "SCU", "OMU", "MU"], json.dumps(outcome["links"]))
    for name in (f"stream.{codec}", f"stream_tcp.{codec}"):
        e2e.check(e2e.decoded_pictures(folder / name) == pictures, f"{name} decodes to other pictures than the clip")
    sound, clip = (folder / "audio.alaw").read_bytes(), audio.read_bytes()
    e2e.check(len(sound) > 0.9 * len(clip) and clip.startswith(sound), "the audio is not the clip's")
    check_metadata(folder, metadata, outcome)
    gateway.stop()


def stream_both(options, folder, stack):
    for codec in ("h264", "h265"):
        (folder / codec).mkdir()
        stream_clip(options, folder / codec, stack, codec)


if __name__ == "__main__":
    e2e.main(stream_both)
