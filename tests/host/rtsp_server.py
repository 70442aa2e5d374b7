"""rtsp_server.py FILE [PORT]: a camera. Serves a moving picture at rtsp://127.0.0.1:PORT/camera until FILE is removed.

Creates FILE, with the port, as soon as clients can connect; takes a free port without an argument.
"""

import os
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

file = sys.argv[1]
Gst.init(None)
server = GstRtspServer.RTSPServer()
server.set_address("127.0.0.1")
server.set_service(sys.argv[2] if len(sys.argv) > 2 else "0")
camera = GstRtspServer.RTSPMediaFactory()
camera.set_launch("( videotestsrc is-live=true pattern=ball ! video/x-raw,format=I420,width=64,height=48,framerate=25/1 ! jpegenc"
                  " ! rtpjpegpay name=pay0 )")
camera.set_shared(True)
server.get_mount_points().add_factory("/camera", camera)
if server.attach(None) == 0:
    sys.exit("cannot listen")
with open(file + ".new", "w") as ready:
    print(server.get_bound_port(), file=ready)
os.rename(file + ".new", file)
loop = GLib.MainLoop()
GLib.timeout_add(20, lambda: os.path.exists(file) or loop.quit())
# A test that was killed removes nothing.
GLib.timeout_add_seconds(300, loop.quit)
loop.run()
