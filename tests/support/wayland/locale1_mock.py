#!/usr/bin/python3
# The system's keyboard settings (org.freedesktop.locale1) of a French user, which a plain
# mutter reads once at start to pick its keymap. Run on the test's private bus, which mutter
# is told is the system bus.
import dbus, dbus.service, dbus.mainloop.glib
from gi.repository import GLib

PROPS = {'X11Layout': 'fr', 'X11Variant': '', 'X11Options': '', 'X11Model': 'pc105',
         'Locale': dbus.Array(['LANG=fr_FR.UTF-8'], signature='s'), 'VConsoleKeymap': 'fr'}

class Locale1(dbus.service.Object):
    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='ss', out_signature='v')
    def Get(self, interface, name):
        return PROPS[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='s', out_signature='a{sv}')
    def GetAll(self, interface):
        return PROPS

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
name = dbus.service.BusName('org.freedesktop.locale1', bus)
Locale1(bus, '/org/freedesktop/locale1')
GLib.MainLoop().run()
