#!/usr/bin/python3
# Selects the whole text of the first editable text in APP over the accessibility bus.
import sys
import dbus
session = dbus.SessionBus()
addr = session.get_object("org.a11y.Bus", "/org/a11y/bus").GetAddress(dbus_interface="org.a11y.Bus")
bus = dbus.bus.BusConnection(str(addr))
ACC = "org.a11y.atspi.Accessible"
def children(name, path):
    obj = bus.get_object(name, path)
    return [(str(n), str(p)) for n, p in obj.GetChildren(dbus_interface=ACC)]
def find_text(name, path, depth=0):
    if depth > 12:
        return None
    obj = bus.get_object(name, path)
    ifaces = obj.GetInterfaces(dbus_interface=ACC)
    if "org.a11y.atspi.EditableText" in ifaces:
        return path
    for n, p in children(name, path):
        found = find_text(n, p, depth + 1)
        if found:
            return found
    return None
for n, p in children("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"):
    app = bus.get_object(n, p)
    if str(app.Get(ACC, "Name", dbus_interface="org.freedesktop.DBus.Properties")) != sys.argv[1]:
        continue
    text = find_text(n, p)
    obj = bus.get_object(n, text)
    count = int(obj.Get("org.a11y.atspi.Text", "CharacterCount", dbus_interface="org.freedesktop.DBus.Properties"))
    ok = obj.AddSelection(0, count, dbus_interface="org.a11y.atspi.Text")
    print("selected", count, ok)
    sys.exit(0)
print("no such application")
sys.exit(1)
