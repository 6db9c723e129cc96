"""A camera clip with B-frames and four slices a frame arrives whole over UDP and over TCP, by gvxctl's own script."""
import json
import sys

import gvx_e2e as e2e


def stream_clip(options, folder, stack, codec):
    video, audio = e2e.make_clip(folder, codec)
    pictures = e2e.decoded_pictures(video)
    e2e.check(len(pictures) == 50, f"the clip has {len(pictures)} pictures")
    gateway = e2e.Gateway(options, folder, {"demo": {"video": str(video), "audio": str(audio), "fps": 25,
                                                     "loop": False}})
    stack.callback(gateway.kill)
    gateway.start()
    summary = folder / "demo.json"
    done = e2e.run(options.gvxctl, "demo", "--gateway", str(gateway.port), "--mu", "0", "--extend", '{"media":"demo"}',
                   "--out", str(folder), "--summary", str(summary), "--expect-frames", str(len(pictures)), "--codec",
                   codec, "--timeout", "60", seconds=240)
    print(done.stdout)
    outcome = json.loads(summary.read_text())
    e2e.check(outcome["ok"] and outcome["links"] == ["main service", "SCU", "OMU", "MU"], json.dumps(outcome["links"]))
    for name in (f"stream.{codec}", f"stream_tcp.{codec}"):
        e2e.check(e2e.decoded_pictures(folder / name) == pictures, f"{name} decodes to other pictures than the clip")
    sound, clip = (folder / "audio.alaw").read_bytes(), audio.read_bytes()
    e2e.check(len(sound) > 0.9 * len(clip) and clip.startswith(sound), "the audio is not the clip's")
    gateway.stop()


def main(codec):
    e2e.main(lambda options, folder, stack: stream_clip(options, folder, stack, codec))


if __name__ == "__main__":
    sys.exit(main("h264"))
