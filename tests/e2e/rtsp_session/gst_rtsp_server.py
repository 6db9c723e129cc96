"""GStreamer's RTSP server on 127.0.0.1 as a camera with password: it plays two clips, each once for a session.

  gst_rtsp_server.py basic|digest CLIP.h264 CLIP.h265 CLIP.alaw

/h264 and /h265 have the picture at 25 frames a second and the tone beside it. What is played of a picture, access unit
delimiters of GStreamer's included, is left in CLIP.played. Needs Debian's gir1.2-gst-rtsp-server-1.0 and python3-gi. Prints
"port N" when it listens, then the method of each request that a client makes.
"""
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstApp, GstRtsp, GstRtspServer  # noqa: E402, F401

Gst.init(None)
auth_method, *clips, alaw = sys.argv[1:]
server = GstRtspServer.RTSPServer(address="127.0.0.1", service="0")
token = GstRtspServer.RTSPToken()
token.set_string(GstRtspServer.RTSP_TOKEN_MEDIA_FACTORY_ROLE, "user")
auth = GstRtspServer.RTSPAuth()
auth.set_realm("gvx camera")
if auth_method == "digest":
    auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
    auth.add_digest("admin", "Camera-123", token)
else:
    auth.set_supported_methods(GstRtsp.RTSPAuthMethod.BASIC)
    auth.add_basic(GstRtspServer.RTSPAuth.make_basic("admin", "Camera-123"), token)
server.set_auth(auth)


def access_units(codec, clip):
    pipeline = Gst.parse_launch(f"filesrc location={clip} ! {codec}parse ! video/x-{codec},stream-format=byte-stream,"
                                "alignment=au ! appsink name=units sync=false")
    pipeline.set_state(Gst.State.PLAYING)
    units = pipeline.get_by_name("units")
    while sample := units.pull_sample():
        buffer = sample.get_buffer()
        yield buffer.extract_dup(0, buffer.get_size())
    pipeline.set_state(Gst.State.NULL)


def feed(_, media, parts):
    for name, (pieces, milliseconds) in parts.items():
        source = media.get_element().get_by_name(name)
        for number, piece in enumerate(pieces):
            buffer = Gst.Buffer.new_wrapped(piece)
            buffer.pts = buffer.dts = number * milliseconds * Gst.MSECOND
            buffer.duration = milliseconds * Gst.MSECOND
            source.push_buffer(buffer)
        source.end_of_stream()


with open(alaw, "rb") as file:
    samples = file.read()
tone = [samples[at:at + 160] for at in range(0, len(samples), 160)]
for name, clip in zip(("h264", "h265"), clips):
    units = list(access_units(name, clip))
    with open(clip + ".played", "wb") as file:
        file.write(b"".join(units))
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch(
        f"( appsrc name=video format=time max-bytes=0 caps=video/x-{name},stream-format=byte-stream,alignment=au,"
        f"framerate=25/1 ! rtp{name}pay name=pay0 pt=96 aggregate-mode=zero-latency "
        "appsrc name=audio format=time max-bytes=0 caps=audio/x-alaw,rate=8000,channels=1 ! rtppcmapay name=pay1 pt=8 )")
    factory.add_role_from_structure(Gst.Structure.new_from_string(
        "user, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
    factory.connect("media-configure", feed, {"video": (units, 40), "audio": (tone, 20)})
    server.get_mount_points().add_factory("/" + name, factory)


def follow(_, client):
    for method in ("options", "describe", "setup", "play", "teardown"):
        client.connect(f"{method}-request", lambda _, context, name=method.upper(): print(name, flush=True))


server.connect("client-connected", follow)
if server.attach(None) == 0:
    raise SystemExit("the server does not start")
print("port", server.get_bound_port(), flush=True)
GLib.MainLoop().run()
