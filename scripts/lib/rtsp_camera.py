"""A network camera on loopback: GStreamer's RTSP server with a moving picture and a tone, without end.

  rtsp_camera.py [--port N] [--auth digest|basic|none] [--codec h264|h265] [--size WxH] [--kbit N] [--mounts N]

The main stream is /live, the sub stream, half as wide and high, /live2; with --mounts N, N cameras more stand under /cam0
and so on. User "admin"; the password comes in the variable CAMERA_PASSWORD. Prints "port N" when it listens, then one line
for each PLAY and TEARDOWN, with its path. Needs Debian's gir1.2-gst-rtsp-server-1.0 and python3-gi.
"""
import argparse
import os

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
parser.add_argument("--mounts", type=int, default=0)
options = parser.parse_args()

Gst.init(None)
ENCODERS = {"h264": "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=25 bitrate={kbit} ! video/x-h264,profile=main",
            "h265": "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=25 bitrate={kbit}"}
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
        "aggregate-mode=zero-latency audiotestsrc is-live=true ! audio/x-raw,rate=8000,channels=1 ! alawenc ! "
        "rtppcmapay name=pay1 pt=8 )")
    factory.add_role_from_structure(Gst.Structure.new_from_string(
        "user, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
    server.get_mount_points().add_factory(path, factory)


main_width, main_height = (int(side) for side in options.size.split("x"))
mount("/live", main_width, main_height, options.kbit)
mount("/live2", main_width // 4 * 2, main_height // 4 * 2, options.kbit // 4)
for number in range(options.mounts):
    mount(f"/cam{number}", main_width, main_height, options.kbit)


def follow(_, client):
    for method in ("play", "teardown"):
        client.connect(f"{method}-request",
                       lambda _, context, name=method.upper(): print(name, context.uri.abspath, flush=True))


server.connect("client-connected", follow)
if server.attach(None) == 0:
    raise SystemExit("the server does not start")
print("port", server.get_bound_port(), flush=True)
GLib.MainLoop().run()
