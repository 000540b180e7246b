#!/usr/bin/python3
"""Drives dbusmock's NetworkManager for the dial-up tests.

The bus is the one in DBUS_SYSTEM_BUS_ADDRESS (a private dbus-daemon the test started).

  nm_peer.py add-connection ID          adds a connection profile with that id
  nm_peer.py activate ID                activates it at once (an existing connection)
  nm_peer.py mode hang                  activations stay "activating" for ever
  nm_peer.py mode fail REASON           activations fail shortly after with that reason
  nm_peer.py active-ids                 prints the ids of the active connections
"""
import os
import sys
import uuid

import dbus

NM = "org.freedesktop.NetworkManager"
NM_PATH = "/org/freedesktop/NetworkManager"
SETTINGS_PATH = "/org/freedesktop/NetworkManager/Settings"
ACTIVE = "org.freedesktop.NetworkManager.Connection.Active"

HANG = """
ret = self.activate_connection(self, args[0], args[1], args[2])
import dbusmock
dbusmock.get_object(ret).Set('%(active)s', 'State', dbus.UInt32(1))
""" % {"active": ACTIVE}

FAIL = HANG + """
from gi.repository import GLib
_obj = dbusmock.get_object(ret)
def _fail(_obj=_obj, dbus=dbus):
    _obj.Set('%(active)s', 'State', dbus.UInt32(4))
    _obj.EmitSignal('%(active)s', 'StateChanged', 'uu', [dbus.UInt32(4), dbus.UInt32(%(reason)s)])
    return False
GLib.timeout_add(100, _fail)
"""


def settings_path(bus, conn_id):
    settings = bus.get_object(NM, SETTINGS_PATH)
    for path in settings.ListConnections(dbus_interface=NM + ".Settings"):
        conn = bus.get_object(NM, path)
        s = conn.GetSettings(dbus_interface=NM + ".Settings.Connection")
        if str(s["connection"]["id"]) == conn_id:
            return path
    raise SystemExit("no connection " + conn_id)


def main():
    bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    nm = bus.get_object(NM, NM_PATH)
    cmd = sys.argv[1]
    if cmd == "add-connection":
        settings = bus.get_object(NM, SETTINGS_PATH)
        conf = dbus.Dictionary({
            "connection": dbus.Dictionary({
                "id": sys.argv[2],
                "uuid": str(uuid.uuid4()),
                "type": "gsm",
            }, signature="sv"),
        }, signature="sa{sv}")
        print(settings.AddConnection(conf, dbus_interface=NM + ".Settings"))
    elif cmd == "activate":
        print(nm.ActivateConnection(settings_path(bus, sys.argv[2]), "/", "/", dbus_interface=NM))
    elif cmd == "mode":
        code = HANG if sys.argv[2] == "hang" else FAIL % {"active": ACTIVE, "reason": int(sys.argv[3])}
        nm.AddMethod(NM, "ActivateConnection", "ooo", "o", code, dbus_interface="org.freedesktop.DBus.Mock")
    elif cmd == "active-ids":
        for path in nm.Get(NM, "ActiveConnections", dbus_interface="org.freedesktop.DBus.Properties"):
            obj = bus.get_object(NM, path)
            print(obj.Get(ACTIVE, "Id", dbus_interface="org.freedesktop.DBus.Properties"))
    else:
        raise SystemExit("unknown command " + cmd)


if __name__ == "__main__":
    main()
