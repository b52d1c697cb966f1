'''python-dbusmock template: the desktop portal's GlobalShortcuts and RemoteDesktop, answering
every request at once. Steered through org.ombry.test.PortalMock:
  Configure(a{sv})  start_response (u, Start's answer: 1 refused), rd_version (u),
                    restore_token (s, given by Start from version 2), bind_empty (b: BindShortcuts
                    answers with no shortcut, as Plasma 5.27 does)
  Press(s id, b down), ChangeTrigger(s id, s trigger)   on the last shortcut session
  CloseSessions()   Closed on every RemoteDesktop session
  Keysyms() -> ai   every NotifyKeyboardKeysym: keysym, state, keysym, state...
  LastOptions(s) -> a{sv}   the options of the last "RemoteDesktop.SelectDevices" (...) call
The Clipboard interface, offered once configured with clipboard (b); Start answers
clipboard_enabled (b, configured, true by default) on a session that called RequestClipboard:
  Paste(s mime) -> ay   an application pasting: SelectionTransfer to the owning session, the
                        bytes it wrote through SelectionWrite (or the copied ones, see Copy)
  Copy(a{sv} mime: ay)  another application copying: SelectionOwnerChanged to every clipboard
                        session, the bytes served to SelectionRead (small ones: one pipe's worth)
  Calls() -> as         the mock's calls in order, "Method /session/path" where a session leads'''
import os
import fcntl
import dbus
from gi.repository import GLib
from dbusmock import mockobject

BUS_NAME = 'org.freedesktop.portal.Desktop'
MAIN_OBJ = '/org/freedesktop/portal/desktop'
MAIN_IFACE = GS = 'org.freedesktop.portal.GlobalShortcuts'
SYSTEM_BUS = False
RD, REQ, SESSION = 'org.freedesktop.portal.RemoteDesktop', 'org.freedesktop.portal.Request', 'org.freedesktop.portal.Session'
CB = 'org.freedesktop.portal.Clipboard'


def _object(mock, kind, sender, token, iface):
    path = f'{MAIN_OBJ}/{kind}/{sender[1:].replace(".", "_")}/{token}'
    if path not in mockobject.objects:
        mock.AddObject(path, iface, {}, [('Close', '', '', '')])
    return path


def _request(mock, sender, options, results, code=0):
    path = _object(mock, 'request', sender, options['handle_token'], REQ)
    # The answer follows the method's reply, as the real portal's does.
    GLib.timeout_add(10, lambda: mockobject.objects[path].EmitSignal(
        REQ, 'Response', 'ua{sv}', [dbus.UInt32(code), results]) and False)
    return dbus.ObjectPath(path)


def _shortcuts(items, triggers=None):
    triggers = triggers or {}
    return dbus.Array([(sid, dbus.Dictionary(dict(props, trigger_description=triggers.get(
        sid, str(props.get('preferred_trigger', '')).title())), signature='sv')) for sid, props in items],
        signature='(sa{sv})')


def _create(kind):
    def create(self, options, sender):
        self.options[kind + '.CreateSession'] = options
        path = _object(self, 'session', sender, options['session_handle_token'], SESSION)
        self.sessions[kind].append(path)
        return _request(self, sender, options, {'session_handle': dbus.ObjectPath(path)})
    return create


def gs_bind(self, session, shortcuts, parent, options, sender):
    self.bound[str(session)] = shortcuts
    return _request(self, sender, options, {'shortcuts': _shortcuts([] if self.config.get('bind_empty') else shortcuts)})


def gs_list(self, session, options, sender):
    return _request(self, sender, options, {'shortcuts': _shortcuts(self.bound.get(str(session), []))})


def rd_select(self, session, options, sender):
    self.options['RemoteDesktop.SelectDevices'] = options
    return _request(self, sender, options, {})


def rd_start(self, session, parent, options, sender):
    results = {'devices': dbus.UInt32(1)}
    if self.config.get('restore_token') and self.props[RD]['version'] >= 2:
        results['restore_token'] = self.config['restore_token']
    if str(session) in self.clipboard_sessions:
        results['clipboard_enabled'] = dbus.Boolean(self.config.get('clipboard_enabled', True))
    return _request(self, sender, options, results, int(self.config.get('start_response', 0)))


def rd_keysym(self, session, options, keysym, state):
    self.keysyms += [int(keysym), int(state)]


def configure(self, settings):
    self.config.update(settings)
    if 'rd_version' in settings:
        self.props[RD]['version'] = dbus.UInt32(settings['rd_version'])
    if settings.get('clipboard'):
        self.AddProperties(CB, {'version': dbus.UInt32(1)})


def press(self, sid, down):
    self.EmitSignal(GS, 'Activated' if down else 'Deactivated', 'osta{sv}',
                    [dbus.ObjectPath(self.sessions['GlobalShortcuts'][-1]), sid, dbus.UInt64(0), dbus.Dictionary({}, signature='sv')])


def change_trigger(self, sid, trigger):
    session = self.sessions['GlobalShortcuts'][-1]
    self.EmitSignal(GS, 'ShortcutsChanged', 'oa(sa{sv})',
                    [dbus.ObjectPath(session), _shortcuts(self.bound.get(session, []), {sid: trigger})])


def close_sessions(self):
    for path in self.sessions['RemoteDesktop']:
        mockobject.objects[path].EmitSignal(SESSION, 'Closed', 'a{sv}', [dbus.Dictionary({}, signature='sv')])
    self.sessions['RemoteDesktop'] = []


def _owner_changed(mock, session, types, is_owner):
    mock.EmitSignal(CB, 'SelectionOwnerChanged', 'oa{sv}', [dbus.ObjectPath(session), dbus.Dictionary(
        {'mime_types': dbus.Array(types, signature='s'), 'session_is_owner': dbus.Boolean(is_owner)}, signature='sv')])


def cb_request(self, session, options, sender):
    self.clipboard_sessions.append(str(session))


def cb_set_selection(self, session, options, sender):
    self.options['Clipboard.SetSelection'] = options
    self.owner = str(session)
    _owner_changed(self, session, options.get('mime_types', []), True)


def _fd(ends, keep):
    fd = dbus.types.UnixFd(ends[keep])
    os.close(ends[keep])
    return fd


def cb_write(self, session, serial, sender):
    ends = os.pipe()
    self.transfers[int(serial)] = ends[0]
    return _fd(ends, 1)


def cb_write_done(self, session, serial, success, sender):
    data, r = b'', self.transfers.pop(int(serial), None)
    if r is not None:
        fcntl.fcntl(r, fcntl.F_SETFL, os.O_NONBLOCK)
        try:
            while chunk := os.read(r, 65536):
                data += chunk
        except BlockingIOError:
            pass
        os.close(r)
    ok, err = self.pastes.pop(int(serial))
    if success:
        ok(dbus.ByteArray(data))
    else:
        err(dbus.exceptions.DBusException('the session did not write', name='org.ombry.test.WriteFailed'))


def cb_read(self, session, mime, sender):
    ends = os.pipe()
    os.write(ends[1], self.copied.get(str(mime), b''))
    os.close(ends[1])
    return _fd(ends, 0)


def paste(self, mime, ok, err):
    if self.owner is None:
        return ok(dbus.ByteArray(self.copied.get(str(mime), b'')))
    self.serial += 1
    self.pastes[self.serial] = (ok, err)
    self.EmitSignal(CB, 'SelectionTransfer', 'osu', [dbus.ObjectPath(self.owner), mime, dbus.UInt32(self.serial)])


def copy(self, formats):
    self.copied = {str(k): bytes(v) for k, v in formats.items()}
    self.owner = None
    for session in self.clipboard_sessions:
        _owner_changed(self, session, list(self.copied), False)


def calls(self):
    return dbus.Array([name + (f' {args[0]}' if args and isinstance(args[0], dbus.ObjectPath) else '')
                       for _, name, args in self.call_log], signature='s')


def _add(mock, iface, name, fn, in_sig, out_sig='o', sender=True, **keywords):
    f = dbus.service.method(iface, in_signature=in_sig, out_signature=out_sig,
                            **({'sender_keyword': 'sender'} if sender else {}), **keywords)(fn)
    f.__name__ = name
    mock.methods.setdefault(iface, {})[name] = (in_sig, out_sig, '', mockobject.loggedmethod(mock, f))


def load(mock, parameters):
    mock.bound, mock.options, mock.keysyms, mock.config = {}, {}, [], dict(parameters)
    mock.sessions = {'GlobalShortcuts': [], 'RemoteDesktop': []}
    mock.clipboard_sessions, mock.transfers, mock.pastes, mock.copied, mock.owner, mock.serial = [], {}, {}, {}, None, 0
    mock.AddProperties(GS, {'version': dbus.UInt32(1)})
    mock.AddProperties(RD, {'version': dbus.UInt32(1), 'AvailableDeviceTypes': dbus.UInt32(7)})
    _add(mock, GS, 'CreateSession', _create('GlobalShortcuts'), 'a{sv}')
    _add(mock, GS, 'BindShortcuts', gs_bind, 'oa(sa{sv})sa{sv}')
    _add(mock, GS, 'ListShortcuts', gs_list, 'oa{sv}')
    _add(mock, RD, 'CreateSession', _create('RemoteDesktop'), 'a{sv}')
    _add(mock, RD, 'SelectDevices', rd_select, 'oa{sv}')
    _add(mock, RD, 'Start', rd_start, 'osa{sv}')
    _add(mock, RD, 'NotifyKeyboardKeysym', rd_keysym, 'oa{sv}iu', '', sender=False)
    ctl = 'org.ombry.test.PortalMock'
    _add(mock, ctl, 'Configure', configure, 'a{sv}', '', sender=False)
    _add(mock, ctl, 'Press', press, 'sb', '', sender=False)
    _add(mock, ctl, 'ChangeTrigger', change_trigger, 'ss', '', sender=False)
    _add(mock, ctl, 'CloseSessions', close_sessions, '', '', sender=False)
    _add(mock, ctl, 'Keysyms', lambda self: dbus.Array(self.keysyms, signature='i'), '', 'ai', sender=False)
    _add(mock, CB, 'RequestClipboard', cb_request, 'oa{sv}', '')
    _add(mock, CB, 'SetSelection', cb_set_selection, 'oa{sv}', '')
    _add(mock, CB, 'SelectionWrite', cb_write, 'ou', 'h')
    _add(mock, CB, 'SelectionWriteDone', cb_write_done, 'oub', '')
    _add(mock, CB, 'SelectionRead', cb_read, 'os', 'h')
    _add(mock, ctl, 'Paste', paste, 's', 'ay', sender=False, async_callbacks=('ok', 'err'))
    _add(mock, ctl, 'Copy', copy, 'a{sv}', '', sender=False)
    _add(mock, ctl, 'Calls', calls, '', 'as', sender=False)
    _add(mock, ctl, 'LastOptions', lambda self, name: dbus.Dictionary(self.options.get(name, {}), signature='sv'),
         's', 'a{sv}', sender=False)
