#!/usr/bin/python3
'''A keyboard for tests of a Wayland desktop, through its RemoteDesktop portal. Prints "ready"
once its session started, then for each line "down CODE..." or "up CODE..." (Linux evdev codes)
on standard input presses or releases the keys in order and prints "sent MS", the wall-clock
time in milliseconds at which the first went out.'''
import sys, time, dbus, dbus.mainloop.glib
from gi.repository import GLib

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
rd = dbus.Interface(bus.get_object('org.freedesktop.portal.Desktop', '/org/freedesktop/portal/desktop'),
                    'org.freedesktop.portal.RemoteDesktop')
loop = GLib.MainLoop()
sender = bus.get_unique_name()[1:].replace('.', '_')


def request(name, *args, **options):
    token = options['handle_token'] = 'keys_' + name
    answer = {}

    def on_response(code, results):
        answer.update(code=int(code), results=results)
        loop.quit()
    match = bus.add_signal_receiver(on_response, 'Response', 'org.freedesktop.portal.Request',
                                    path=f'/org/freedesktop/portal/desktop/request/{sender}/{token}')
    getattr(rd, name)(*args, options)
    timer = GLib.timeout_add_seconds(20, loop.quit)
    loop.run()
    GLib.source_remove(timer)
    match.remove()
    if answer.get('code') != 0:
        sys.exit(f'{name}: {answer}')
    return answer['results']


session = dbus.ObjectPath(request('CreateSession', session_handle_token='ombry_test_keys')['session_handle'])
request('SelectDevices', session, types=dbus.UInt32(1))
request('Start', session, '')
print('ready', flush=True)


def on_line(source, condition):
    words = sys.stdin.readline().split()
    if not words:
        loop.quit()
        return False
    at = time.time() * 1000
    for code in words[1:]:
        rd.NotifyKeyboardKeycode(session, {}, dbus.Int32(int(code)), dbus.UInt32(words[0] == 'down'))
    print('sent %.1f' % at, flush=True)
    return True


GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, on_line)
loop.run()
