#!/usr/bin/python3
'''A keyboard for tests of a Wayland desktop, through its RemoteDesktop portal (keyboard only).
Prints "ready" once the session started, then reads lines on standard input:
  down CODE...   presses these keys (Linux evdev codes) in order
  up CODE...     releases them in order
and prints "sent MS" after each line, MS being the wall-clock time in milliseconds at which
the first key went out.'''
import sys, time, dbus, dbus.mainloop.glib
from gi.repository import GLib

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
portal = bus.get_object('org.freedesktop.portal.Desktop', '/org/freedesktop/portal/desktop')
rd = dbus.Interface(portal, 'org.freedesktop.portal.RemoteDesktop')
loop = GLib.MainLoop()
sender = bus.get_unique_name()[1:].replace('.', '_')


def request(method, *args, token):
    path = f'/org/freedesktop/portal/desktop/request/{sender}/{token}'
    answer = {'code': -1}

    def on_response(code, results):
        answer.update(code=int(code), results=dict(results))
        loop.quit()
    match = bus.add_signal_receiver(on_response, 'Response', 'org.freedesktop.portal.Request', path=path)
    method(*args)
    timer = GLib.timeout_add_seconds(20, loop.quit)
    loop.run()
    GLib.source_remove(timer)
    match.remove()
    return answer


r = request(rd.CreateSession, {'handle_token': 'k1', 'session_handle_token': 'ombry_test_keys'}, token='k1')
if r['code'] != 0:
    sys.exit('CreateSession: %s' % r)
session = dbus.ObjectPath(r['results']['session_handle'])
r = request(rd.SelectDevices, session, {'handle_token': 'k2', 'types': dbus.UInt32(1)}, token='k2')
r = request(rd.Start, session, '', {'handle_token': 'k3'}, token='k3')
if r['code'] != 0:
    sys.exit('Start: %s' % r)
print('ready', flush=True)


def on_line(source, condition):
    line = sys.stdin.readline()
    if not line:
        loop.quit()
        return False
    words = line.split()
    if len(words) > 1 and words[0] in ('down', 'up'):
        at = time.time() * 1000
        for code in words[1:]:
            rd.NotifyKeyboardKeycode(session, {}, dbus.Int32(int(code)), dbus.UInt32(words[0] == 'down'))
        print('sent %.1f' % at, flush=True)
    return True


GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, on_line)
loop.run()
