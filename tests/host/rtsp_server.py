"""rtsp_server.py [PORT]: a camera. Serves a moving picture at rtsp://127.0.0.1:PORT/camera until it is killed.

Prints the port on a line of its own as soon as clients can connect; takes a free one without an argument.
"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

Gst.init(None)
server = GstRtspServer.RTSPServer()
server.set_address("127.0.0.1")
server.set_service(sys.argv[1] if len(sys.argv) > 1 else "0")
camera = GstRtspServer.RTSPMediaFactory()
camera.set_launch("( videotestsrc is-live=true pattern=ball ! video/x-raw,format=I420,width=64,height=48,framerate=25/1 ! jpegenc"
                  " ! rtpjpegpay name=pay0 )")
camera.set_shared(True)
server.get_mount_points().add_factory("/camera", camera)
if server.attach(None) == 0:
    sys.exit("cannot listen")
print(server.get_bound_port(), flush=True)
GLib.MainLoop().run()
