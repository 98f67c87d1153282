#!/usr/bin/python3
"""A polkit authority for the D-Bus tests that answers per subject.

Owns org.freedesktop.PolicyKit1 on the system bus (DBUS_SYSTEM_BUS_ADDRESS) and authorises only
the bus names it was told to allow, so a helper that asked about the wrong subject (its own name,
say) is refused. It can also answer late, as a person typing a password does, or answer that the
prompt was dismissed. Controlled through the interface com.kestrune.test.Polkit on the same object.
"""

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

AUTHORITY = "org.freedesktop.PolicyKit1.Authority"
CONTROL = "com.kestrune.test.Polkit"
PATH = "/org/freedesktop/PolicyKit1/Authority"


class Authority(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.allowed = set()
        self.delay_ms = 0
        self.dismissed = False
        self.asked = []

    @dbus.service.method(AUTHORITY, in_signature="(sa{sv})sa{ss}us", out_signature="(bba{ss})",
                         async_callbacks=("reply", "error"))
    def CheckAuthorization(self, subject, action, details, flags, cancellation, reply, error):
        kind, subject_details = subject
        name = str(subject_details.get("name", "")) if kind == "system-bus-name" else ""
        self.asked.append(name)
        if self.dismissed:
            answer = (False, False, {"polkit.dismissed": "true"})
        else:
            answer = (name in self.allowed, False, {})

        def send():
            reply(dbus.Struct(answer, signature="bba{ss}"))
            return False

        GLib.timeout_add(self.delay_ms, send)

    @dbus.service.method(CONTROL, in_signature="s")
    def Allow(self, name):
        self.allowed.add(str(name))

    @dbus.service.method(CONTROL, in_signature="u")
    def SetDelay(self, milliseconds):
        self.delay_ms = int(milliseconds)

    @dbus.service.method(CONTROL, in_signature="b")
    def SetDismissed(self, dismissed):
        self.dismissed = bool(dismissed)

    @dbus.service.method(CONTROL, out_signature="as")
    def Asked(self):
        return self.asked


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SystemBus()
    authority = Authority(bus)  # noqa: F841 (exported while referenced)
    name = dbus.service.BusName("org.freedesktop.PolicyKit1", bus)  # noqa: F841
    GLib.MainLoop().run()


if __name__ == "__main__":
    main()
