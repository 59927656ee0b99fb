#!/usr/bin/python3
# Saves the screen of a headless KWin to a PNG through its ScreenShot2 interface
# (scripts/wayland-compositor lets any client take one). Usage: screenshot.py OUT.png
import os, subprocess, sys
import dbus
bus = dbus.SessionBus()
kwin = bus.get_object("org.kde.KWin", "/org/kde/KWin/ScreenShot2")
iface = dbus.Interface(kwin, "org.kde.KWin.ScreenShot2")
r, w = os.pipe()
res = iface.CaptureActiveScreen({"include-cursor": False, "native-resolution": True}, dbus.types.UnixFd(w))
os.close(w)
data = b""
while True:
    chunk = os.read(r, 1 << 20)
    if not chunk:
        break
    data += chunk
width, height, stride, fmt = int(res["width"]), int(res["height"]), int(res["stride"]), int(res["format"])
raw = sys.argv[1] + ".raw"
rows = b"".join(data[y * stride:y * stride + width * 4] for y in range(height))
open(raw, "wb").write(rows)
# QImage::Format_ARGB32(_Premultiplied)/RGB32 are BGRA in memory on little-endian machines.
subprocess.run(["convert", "-size", f"{width}x{height}", "-depth", "8", f"bgra:{raw}", sys.argv[1]], check=True)
os.remove(raw)
print(sys.argv[1], width, height, fmt)
