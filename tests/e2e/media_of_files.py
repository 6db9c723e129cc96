"""The file plug-in over whole links: a search, snapshots to an HTTPS server, playback over UDP and TCP, talk."""
import hashlib
import json
import pathlib
import subprocess
import sys
import threading

import gvx_e2e as e2e

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "scripts" / "lib"))
import picture_server  # noqa: E402


def make_server(folder, stack):
    """Keeps each body that is sent to it."""
    bodies = []
    server = picture_server.make_server(folder, bodies.append)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    stack.callback(server.shutdown)
    return f"https://localhost:{server.server_address[1]}/pictures?FILESESSIONID=s1", bodies


class Ctl:
    """gvxctl, each command a process of its own."""

    def __init__(self, options, gateway):
        self.options, self.gateway = options, gateway

    def run(self, command, *arguments):
        return subprocess.run([self.options.gvxctl, command, "--gateway", str(self.gateway.port), *map(str, arguments),
                               "--json"], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300, check=False)

    def __call__(self, command, *arguments):
        done = self.run(command, *arguments)
        e2e.check(done.returncode == 0, f"{command} ended with {done.returncode}: {done.stderr} {done.stdout}")
        return json.loads(done.stdout)

    def refused(self, command, *arguments):
        """What it says; the exit code must be that of a refusal."""
        done = self.run(command, *arguments)
        e2e.check(done.returncode == 1, f"{command} {arguments} ended with {done.returncode}")
        return done.stderr + done.stdout


def search(ctl):
    known = [f"127.0.7.{n}" for n in range(2, 201, 2)]
    options = [part for address in known for part in ("--added", address)]
    found = [device["IP"] for device in ctl("search", "--range", "127.0.7.1-127.0.7.254", *options)["devices"]]
    e2e.check(sorted(found) == sorted(f"127.0.7.{n}" for n in range(1, 200, 2)), f"the search found {found}")
    e2e.check("There is no plug-in 'onvif', but file" in ctl.refused("search", "--plugin", "onvif"), "a plug-in")


def snapshots(ctl, folder, stack, picture):
    url, bodies = make_server(folder, stack)
    ctl("snapshot", "--lens", "CAM001_1", "--count", 2, "--url", url)
    sums = {hashlib.sha256(body).hexdigest() for body in bodies}
    e2e.check(len(bodies) == 2 and sums == {hashlib.sha256(picture.read_bytes()).hexdigest()}, "the picture differs")
    ctl("snapshot", "--lens", "CAM001_0", "--url", url)
    (folder / "still.jpg").write_bytes(bodies[-1])
    e2e.check(len(e2e.decoded_pictures(folder / "still.jpg")) == 1, "what ffmpeg made of the clip is no picture")


def playback(ctl, folder, pictures):
    span = ("--from", "20260101000001", "--to", "20260101000003")
    for name, more in (("udp", ()), ("tcp", ("--tcp",)), ("fast", ("--speed", 2)), ("download", ("--download",)),
                       ("paused", ("--pause", 500))):
        video, sdp = folder / f"{name}.h264", folder / f"{name}.sdp"
        outcome = ctl("playback", *span, "--video", video, "--sdp", sdp, *more)
        e2e.check(e2e.decoded_pictures(video) == pictures[25:75], f"{name}: other pictures than those of the range")
        kind = "Download" if name == "download" else "Playback"
        e2e.check(f"\r\ns={kind}\r\n" in sdp.read_bytes().decode(), f"{name}: {sdp.read_text()}")
        if name == "paused":
            e2e.check(outcome["packetsBeforePause"] == outcome["packetsAfterPause"], json.dumps(outcome))
    e2e.check("Nothing was recorded" in ctl.refused("playback", "--from", "20250101000000", "--to", "20250101000001"),
              "a range in which nothing was recorded")


def talk(ctl, folder, audio):
    heard, said = folder / "heard.alaw", folder / "said.alaw"
    outcome = ctl("talk", "--send", audio, "--audio", heard, "--sdp", folder / "talk.sdp")
    e2e.check(said.read_bytes() == audio.read_bytes(), f"what was said is not what the lens wrote: {json.dumps(outcome)}")
    e2e.check(outcome["received"]["audio"]["packets"] > 100 and heard.read_bytes()[:8000] == audio.read_bytes()[:8000],
              json.dumps(outcome))
    sdp = (folder / "talk.sdp").read_text()
    e2e.check(f"m=audio {outcome['started']['VoicePort']} RTP/AVP 8" in sdp, sdp)
    ctl("broadcast", "--send", audio)
    e2e.check(said.read_bytes() == 2 * audio.read_bytes(), "a broadcast is written behind the talk")
    outcome = ctl("talk", "--tcp", "--send", audio, "--audio", heard, "--sdp", folder / "talk.sdp")
    e2e.check(said.read_bytes() == 3 * audio.read_bytes(), f"what was said over TCP: {json.dumps(outcome)}")
    e2e.check(outcome["received"]["audio"]["packets"] > 100 and heard.read_bytes()[:8000] == audio.read_bytes()[:8000],
              json.dumps(outcome))
    e2e.check("names no file" in ctl.refused("talk", "--lens", "CAM001_1", "--send", audio), "a lens without talk")


def media_of_files(options, folder, stack):
    picture_server.make_certificates(folder)
    video, audio = e2e.make_clip(folder, seconds=4)
    picture = folder / "scene.jpg"
    e2e.run("ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=640x360", "-frames:v", "1", str(picture))
    gateway = e2e.Gateway(options, folder)
    stack.callback(gateway.kill)
    (gateway.conf / "omu_portal").mkdir()
    (gateway.conf / "omu_portal" / "cacert.pem").write_bytes((folder / "ca.pem").read_bytes())
    common = {"video": str(video), "fps": 25, "recorded": "20260101000000"}
    (gateway.conf / "plugins" / "file.json").write_text(json.dumps({
        "media": {"demo": {**common, "audio": str(audio), "talk": str(folder / "said.alaw")},
                  "still": {**common, "picture": str(picture)}},
        "discovery": {"first": "127.0.7.1", "count": 200}}))
    gateway.start()
    ctl = Ctl(options, gateway)
    ctl("add-device", "--extend", '{"media": ["demo", "still"]}')
    search(ctl)
    snapshots(ctl, folder, stack, picture)
    playback(ctl, folder, e2e.decoded_pictures(video))
    talk(ctl, folder, audio)
    e2e.check("no medium 'nobody'" in ctl.refused("add-device", "--dev", "CAM002", "--extend", '{"media": "nobody"}'),
              "the plug-in's reason")
    gateway.stop()


if __name__ == "__main__":
    e2e.main(media_of_files)
