"""A network camera on loopback: GStreamer's RTSP server with a moving picture and a tone, without end.

  rtsp_camera.py [--port N] [--auth digest|basic|none] [--codec h264|h265] [--audio alaw|aac] [--size WxH] [--kbit N]
                 [--mounts N] [--clip FILE] [--picture FILE [--http-port N]]

The main stream is /live, the sub stream, half as wide and high, /live2; with --mounts N, N cameras more stand under /cam0
and so on, which send FILE of H.264 in MPEG-TS without sound where --clip names one. User "admin"; the password comes in the
variable CAMERA_PASSWORD. With --picture it makes a JPEG, FILE, and its web server gives it as /snapshot.jpg in the same way
of authentication. Prints "port N" when it listens, in front of it "http N" of the web server, then one line for each PLAY,
TEARDOWN and PICTURE, with its path. Needs Debian's gir1.2-gst-rtsp-server-1.0 and python3-gi.
"""
import argparse
import base64
import hashlib
import http.server
import os
import pathlib
import re
import threading

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--port", default="0")
parser.add_argument("--auth", choices=("digest", "basic", "none"), default="digest")
parser.add_argument("--codec", choices=("h264", "h265"), default="h264")
parser.add_argument("--size", default="640x360")
parser.add_argument("--kbit", type=int, default=1000)
parser.add_argument("--audio", choices=("alaw", "aac"), default="alaw")
parser.add_argument("--mounts", type=int, default=0)
parser.add_argument("--clip")
parser.add_argument("--picture")
parser.add_argument("--http-port", type=int, default=0)
options = parser.parse_args()

Gst.init(None)
ENCODERS = {"h264": "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=25 bitrate={kbit} ! video/x-h264,profile=main",
            "h265": "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=25 bitrate={kbit}"}
SOUND = {"alaw": "audio/x-raw,rate=8000,channels=1 ! alawenc ! rtppcmapay name=pay1 pt=8",
         "aac": "audio/x-raw,rate=16000,channels=1 ! avenc_aac ! rtpmp4gpay name=pay1 pt=97"}
server = GstRtspServer.RTSPServer(address="127.0.0.1", service=options.port)
if options.auth != "none":
    token = GstRtspServer.RTSPToken()
    token.set_string(GstRtspServer.RTSP_TOKEN_MEDIA_FACTORY_ROLE, "user")
    auth = GstRtspServer.RTSPAuth()
    auth.set_realm("camera")
    password = os.environ["CAMERA_PASSWORD"]
    if options.auth == "digest":
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
        auth.add_digest("admin", password, token)
    else:
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.BASIC)
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic("admin", password), token)
    server.set_auth(auth)


def mount(path, width, height, kbit):
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_shared(True)
    factory.set_launch(
        f"( videotestsrc is-live=true pattern=ball ! video/x-raw,width={width},height={height},framerate=25/1 ! "
        f"{ENCODERS[options.codec].format(kbit=kbit)} ! {options.codec}parse ! rtp{options.codec}pay name=pay0 pt=96 "
        f"aggregate-mode=zero-latency audiotestsrc is-live=true ! {SOUND[options.audio]} )")
    add(path, factory)


def mount_clip(path):
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_shared(True)
    factory.set_launch(f"( filesrc location={options.clip} ! tsdemux ! h264parse ! rtph264pay name=pay0 pt=96 "
                       "aggregate-mode=zero-latency )")
    add(path, factory)


def add(path, factory):
    factory.add_role_from_structure(Gst.Structure.new_from_string(
        "user, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
    server.get_mount_points().add_factory(path, factory)


main_width, main_height = (int(side) for side in options.size.split("x"))
mount("/live", main_width, main_height, options.kbit)
mount("/live2", main_width // 4 * 2, main_height // 4 * 2, options.kbit // 4)
for number in range(options.mounts):
    if options.clip:
        mount_clip(f"/cam{number}")
    else:
        mount(f"/cam{number}", main_width, main_height, options.kbit)


class Pictures(http.server.BaseHTTPRequestHandler):
    """Digest without qop (RFC 2617) or Basic, as the streams have it."""

    def do_GET(self):
        if not self.is_allowed(self.headers.get("Authorization", "")):
            asked = 'Digest realm="camera", nonce="5ca1ab1e", algorithm=MD5' if options.auth == "digest" else 'Basic realm="camera"'
            self.answer(401, b"", [("WWW-Authenticate", asked)])
        elif self.path != "/snapshot.jpg":
            self.answer(404, b"no such picture", [])
        else:
            print("PICTURE", self.path, flush=True)
            self.answer(200, pathlib.Path(options.picture).read_bytes(), [("Content-Type", "image/jpeg")])

    def is_allowed(self, given):
        if options.auth == "none":
            return True
        if options.auth == "basic":
            return given == "Basic " + base64.b64encode(f"admin:{password}".encode()).decode()
        value = dict(re.findall(r'(\w+)="([^"]*)"', given))
        half = [hashlib.md5(text.encode()).hexdigest() for text in (f"admin:camera:{password}", f"GET:{self.path}")]
        return value.get("uri") == self.path and \
            value.get("response") == hashlib.md5(f"{half[0]}:5ca1ab1e:{half[1]}".encode()).hexdigest()

    def answer(self, status, body, heads):
        self.send_response(status)
        for name, value in [*heads, ("Content-Length", str(len(body)))]:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def serve_picture():
    make = Gst.parse_launch(f"videotestsrc num-buffers=1 pattern=smpte ! video/x-raw,width={main_width},height={main_height} "
                            f"! jpegenc ! filesink location={options.picture}")
    make.set_state(Gst.State.PLAYING)
    make.get_bus().timed_pop_filtered(10 * Gst.SECOND, Gst.MessageType.EOS | Gst.MessageType.ERROR)
    make.set_state(Gst.State.NULL)
    web = http.server.ThreadingHTTPServer(("127.0.0.1", options.http_port), Pictures)
    web.daemon_threads = True
    threading.Thread(target=web.serve_forever, daemon=True).start()
    print("http", web.server_address[1], flush=True)


def follow(_, client):
    for method in ("play", "teardown"):
        client.connect(f"{method}-request",
                       lambda _, context, name=method.upper(): print(name, context.uri.abspath, flush=True))


if options.picture:
    serve_picture()
server.connect("client-connected", follow)
if server.attach(None) == 0:
    raise SystemExit("the server does not start")
print("port", server.get_bound_port(), flush=True)
GLib.MainLoop().run()
