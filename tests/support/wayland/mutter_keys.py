#!/usr/bin/python3
# Keys typed by the test's user on a headless mutter, through mutter's own remote desktop
# (no portal, no dialog). usage: mutter_keys.py KEYSYM[+KEYSYM...] ...  e.g. 0xffe9+0x73 (Alt+s)
import sys, time, dbus
bus = dbus.SessionBus()
rd = dbus.Interface(bus.get_object('org.gnome.Mutter.RemoteDesktop', '/org/gnome/Mutter/RemoteDesktop'), 'org.gnome.Mutter.RemoteDesktop')
path = rd.CreateSession()
s = dbus.Interface(bus.get_object('org.gnome.Mutter.RemoteDesktop', path), 'org.gnome.Mutter.RemoteDesktop.Session')
s.Start()
for combo in sys.argv[1:]:
    syms = [int(x, 0) for x in combo.split('+')]
    for k in syms: s.NotifyKeyboardKeysym(dbus.UInt32(k), True); time.sleep(0.03)
    time.sleep(0.1)
    for k in reversed(syms): s.NotifyKeyboardKeysym(dbus.UInt32(k), False); time.sleep(0.03)
    time.sleep(0.2)
print('mutter keys sent', sys.argv[1:]); s.Stop()
