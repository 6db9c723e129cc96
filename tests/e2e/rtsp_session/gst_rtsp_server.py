"""GStreamer's RTSP server on 127.0.0.1 as a camera with password: a picture and a tone under /live, without end.

  gst_rtsp_server.py none|basic|digest

Needs Debian's gir1.2-gst-rtsp-server-1.0 and python3-gi. Prints "port N" when it listens, then the method of each request
that a client makes.
"""
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402

Gst.init(None)
server = GstRtspServer.RTSPServer(address="127.0.0.1", service="0")
factory = GstRtspServer.RTSPMediaFactory()
factory.set_shared(True)
factory.set_launch(
    "( videotestsrc is-live=true pattern=ball ! video/x-raw,width=320,height=240,framerate=25/1 ! openh264enc gop-size=25 ! "
    "h264parse config-interval=1 ! rtph264pay name=pay0 pt=96 audiotestsrc is-live=true ! audio/x-raw,rate=8000,channels=1 ! "
    "alawenc ! rtppcmapay name=pay1 pt=8 )")
if sys.argv[1] != "none":
    token = GstRtspServer.RTSPToken()
    token.set_string(GstRtspServer.RTSP_TOKEN_MEDIA_FACTORY_ROLE, "user")
    auth = GstRtspServer.RTSPAuth()
    auth.set_realm("gvx camera")
    if sys.argv[1] == "digest":
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
        auth.add_digest("admin", "Camera-123", token)
    else:
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.BASIC)
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic("admin", "Camera-123"), token)
    server.set_auth(auth)
    factory.add_role_from_structure(Gst.Structure.new_from_string(
        "user, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
server.get_mount_points().add_factory("/live", factory)


def follow(_, client):
    for method in ("options", "describe", "setup", "play", "teardown"):
        client.connect(f"{method}-request", lambda _, context, name=method.upper(): print(name, flush=True))


server.connect("client-connected", follow)
if server.attach(None) == 0:
    raise SystemExit("the server does not start")
print("port", server.get_bound_port(), flush=True)
GLib.MainLoop().run()
