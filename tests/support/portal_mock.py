'''python-dbusmock template: the XDG desktop portal's GlobalShortcuts and RemoteDesktop
interfaces, answering every request at once, as a desktop without dialogs does.

Run: /usr/bin/python3 -m dbusmock --session --template portal_mock.py
The tests steer it through org.ombry.test.PortalMock on the main object:
  Configure(a{sv})      start_response (u): Start's response code (0 granted, 1 refused)
                        rd_version (u): the RemoteDesktop interface's version
                        restore_token (s): given back by Start (version 2 and later)
                        bind_empty (b): BindShortcuts answers with no shortcut (Plasma 5.27),
                                        which ListShortcuts then gives
  Press(s id, b down)   Activated (down) or Deactivated for the last shortcut session
  ChangeTrigger(s id, s trigger)  ShortcutsChanged with that trigger
  CloseSessions()       Closed on every RemoteDesktop session
  Keysyms() -> a(iu)    every NotifyKeyboardKeysym: (keysym, state)
  LastOptions(s name) -> a{sv}  the options of the last call, name being
                        "GlobalShortcuts.CreateSession", "RemoteDesktop.SelectDevices", ...
'''
import dbus
from gi.repository import GLib
from dbusmock import mockobject

BUS_NAME = 'org.freedesktop.portal.Desktop'
MAIN_OBJ = '/org/freedesktop/portal/desktop'
MAIN_IFACE = 'org.freedesktop.portal.GlobalShortcuts'
SYSTEM_BUS = False
GS, RD = MAIN_IFACE, 'org.freedesktop.portal.RemoteDesktop'
REQ, SESSION = 'org.freedesktop.portal.Request', 'org.freedesktop.portal.Session'
CTL = 'org.ombry.test.PortalMock'


def _path(kind, sender, token):
    return f'{MAIN_OBJ}/{kind}/{sender[1:].replace(".", "_")}/{token}'


def _object(mock, path, iface, methods):
    if path not in mockobject.objects:
        mock.AddObject(path, iface, {}, methods)
    return mockobject.objects[path]


def _request(mock, sender, options, results, code=0):
    path = _path('request', sender, options.get('handle_token', 'h%d' % GLib.get_monotonic_time()))
    request = _object(mock, path, REQ, [('Close', '', '', '')])

    def respond():
        request.EmitSignal(REQ, 'Response', 'ua{sv}', [dbus.UInt32(code), results])
        return False
    # The answer comes after the method's reply, as the real portal's does.
    GLib.timeout_add(10, respond)
    return dbus.ObjectPath(path)


def _remember(mock, name, options):
    mock.options[name] = dbus.Dictionary(options, signature='sv')


def _session(mock, sender, options, kind):
    path = _path('session', sender, options.get('session_handle_token', 's'))
    _object(mock, path, SESSION, [('Close', '', '', '')])
    mock.sessions[kind].append(path)
    return path


def _shortcuts(items, trigger=None):
    out = []
    for sid, props in items:
        given = dict(props)
        given['trigger_description'] = trigger.get(sid, '') if trigger else \
            str(props.get('preferred_trigger', '')).title()
        out.append((sid, dbus.Dictionary(given, signature='sv')))
    return dbus.Array(out, signature='(sa{sv})')


def gs_create(self, options, sender):
    _remember(self, 'GlobalShortcuts.CreateSession', options)
    path = _session(self, sender, options, 'gs')
    return _request(self, sender, options, {'session_handle': dbus.ObjectPath(path)})


def gs_bind(self, session, shortcuts, parent, options, sender):
    _remember(self, 'GlobalShortcuts.BindShortcuts', options)
    self.bound[str(session)] = shortcuts
    given = [] if self.config.get('bind_empty') else shortcuts
    return _request(self, sender, options, {'shortcuts': _shortcuts(given)})


def gs_list(self, session, options, sender):
    return _request(self, sender, options, {'shortcuts': _shortcuts(self.bound.get(str(session), []))})


def rd_create(self, options, sender):
    _remember(self, 'RemoteDesktop.CreateSession', options)
    path = _session(self, sender, options, 'rd')
    return _request(self, sender, options, {'session_handle': path})


def rd_select(self, session, options, sender):
    _remember(self, 'RemoteDesktop.SelectDevices', options)
    return _request(self, sender, options, {})


def rd_start(self, session, parent, options, sender):
    _remember(self, 'RemoteDesktop.Start', options)
    results = {'devices': dbus.UInt32(1)}
    if self.config.get('restore_token') and self.config.get('rd_version', 1) >= 2:
        results['restore_token'] = self.config['restore_token']
    return _request(self, sender, options, results, int(self.config.get('start_response', 0)))


def rd_keysym(self, session, options, keysym, state):
    self.keysyms.append((dbus.Int32(keysym), dbus.UInt32(state)))


def ctl_configure(self, settings):
    self.config.update({str(k): v for k, v in settings.items()})
    if 'rd_version' in settings:
        self.props[RD]['version'] = dbus.UInt32(settings['rd_version'])


def ctl_press(self, sid, down):
    session = dbus.ObjectPath(self.sessions['gs'][-1])
    self.EmitSignal(GS, 'Activated' if down else 'Deactivated', 'osta{sv}',
                    [session, sid, dbus.UInt64(GLib.get_monotonic_time() // 1000),
                     dbus.Dictionary({}, signature='sv')])


def ctl_change_trigger(self, sid, trigger):
    session = self.sessions['gs'][-1]
    self.EmitSignal(GS, 'ShortcutsChanged', 'oa(sa{sv})',
                    [dbus.ObjectPath(session), _shortcuts(self.bound.get(session, []), {sid: trigger})])


def ctl_close_sessions(self):
    for path in self.sessions['rd']:
        mockobject.objects[path].EmitSignal(SESSION, 'Closed', 'a{sv}', [dbus.Dictionary({}, signature='sv')])
    self.sessions['rd'] = []


def ctl_keysyms(self):
    return dbus.Array(self.keysyms, signature='(iu)')


def ctl_last_options(self, name):
    return self.options.get(name, dbus.Dictionary({}, signature='sv'))


def _add(mock, iface, fn, in_sig, out_sig='o', sender=True):
    kw = {'sender_keyword': 'sender'} if sender else {}
    f = dbus.service.method(iface, in_signature=in_sig, out_signature=out_sig, **kw)(fn)
    mock.methods.setdefault(iface, {})[fn.__name__] = (in_sig, out_sig, '', mockobject.loggedmethod(mock, f))


def load(mock, parameters):
    mock.bound, mock.options, mock.keysyms = {}, {}, []
    mock.sessions = {'gs': [], 'rd': []}
    mock.config = dict(parameters)
    mock.AddProperties(GS, {'version': dbus.UInt32(1)})
    mock.AddProperties(RD, {'version': dbus.UInt32(mock.config.get('rd_version', 1)),
                            'AvailableDeviceTypes': dbus.UInt32(7)})
    for fn, name, sig in ((gs_create, 'CreateSession', 'a{sv}'), (gs_bind, 'BindShortcuts', 'oa(sa{sv})sa{sv}'),
                          (gs_list, 'ListShortcuts', 'oa{sv}')):
        fn.__name__ = name
        _add(mock, GS, fn, sig)
    for fn, name, sig in ((rd_create, 'CreateSession', 'a{sv}'), (rd_select, 'SelectDevices', 'oa{sv}'),
                          (rd_start, 'Start', 'osa{sv}')):
        fn.__name__ = name
        _add(mock, RD, fn, sig)
    rd_keysym.__name__ = 'NotifyKeyboardKeysym'
    _add(mock, RD, rd_keysym, 'oa{sv}iu', '', sender=False)
    for fn, name, sig, out in ((ctl_configure, 'Configure', 'a{sv}', ''), (ctl_press, 'Press', 'sb', ''),
                               (ctl_change_trigger, 'ChangeTrigger', 'ss', ''),
                               (ctl_close_sessions, 'CloseSessions', '', ''), (ctl_keysyms, 'Keysyms', '', 'a(iu)'),
                               (ctl_last_options, 'LastOptions', 's', 'a{sv}')):
        fn.__name__ = name
        _add(mock, CTL, fn, sig, out, sender=False)
