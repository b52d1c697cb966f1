// Qt's headers before Xlib's, whose macros (Status, Bool) would break them.
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <xcb/xcb.h>

#include "platform/x11/X11Windows.h"

#include <X11/Xutil.h>

namespace ombry::x11 {

bool X11Windows::ensureConnected() {
    return connection_ || connection_.open();
}

namespace {

struct ClassHint {
    QString instance, windowClass;
};

std::optional<ClassHint> classOf(Display* display, Window window) {
    x11::ErrorTrap trap(display);
    XClassHint hint{nullptr, nullptr};
    const Status ok = XGetClassHint(display, window, &hint);
    std::optional<ClassHint> out;
    if (ok && !trap.failed()) {
        out = ClassHint{QString::fromLocal8Bit(hint.res_name ? hint.res_name : ""),
                        QString::fromLocal8Bit(hint.res_class ? hint.res_class : "")};
    }
    if (hint.res_name) XFree(hint.res_name);
    if (hint.res_class) XFree(hint.res_class);
    return out;
}

// The top-level client window of a window that may be one of its children (the focus without
// a window manager is often a child): the first ancestor that has a WM_CLASS.
Window clientOf(Display* display, Window window, Window root) {
    while (window != None && window != root) {
        if (classOf(display, window)) return window;
        x11::ErrorTrap trap(display);
        Window rootReturn = None, parent = None;
        Window* children = nullptr;
        unsigned count = 0;
        const Status ok = XQueryTree(display, window, &rootReturn, &parent, &children, &count);
        if (children) XFree(children);
        if (!ok || trap.failed()) return None;
        window = parent;
    }
    return None;
}

} // namespace

std::optional<AppWindow> X11Windows::frontmost() {
    if (!ensureConnected()) return std::nullopt;
    Display* display = connection_.get();
    const Window root = connection_.root();
    Window active =
        x11::windowProperty(display, root, connection_.atom("_NET_ACTIVE_WINDOW")).value_or(None);
    if (active == None) {
        // No window manager that says which window is active: the window with the focus.
        int revert = 0;
        Window focus = None;
        XGetInputFocus(display, &focus, &revert);
        if (focus == PointerRoot) focus = None;
        active = focus;
    }
    active = clientOf(display, active, root);
    if (active == None) return std::nullopt;

    AppWindow out;
    out.id = active;
    const ClassHint hint = classOf(display, active).value_or(ClassHint{});
    out.windowClass = hint.windowClass;
    out.pid = x11::cardinalProperty(display, active, connection_.atom("_NET_WM_PID")).value_or(0);
    const QByteArray gtkId =
        x11::byteProperty(display, active, connection_.atom("_GTK_APPLICATION_ID"))
            .value_or(QByteArray());
    std::optional<linux_platform::DesktopEntry> entry;
    if (!gtkId.isEmpty()) {
        out.appId = QString::fromUtf8(gtkId);
        entry = desktopFiles_.forId(out.appId);
    } else {
        entry = desktopFiles_.forWindowClass(hint.windowClass, hint.instance);
        out.appId =
            entry ? entry->id
                  : (!hint.windowClass.isEmpty() ? hint.windowClass : hint.instance).toLower();
    }
    out.name = entry && !entry->name.isEmpty()
                   ? entry->name
                   : (!hint.windowClass.isEmpty() ? hint.windowClass : hint.instance);
    return out;
}

bool X11Windows::activate(const AppWindow& window) {
    if (window.id == 0 || !ensureConnected()) return false;
    Display* display = connection_.get();
    const Window root = connection_.root();
    const Window target = Window(window.id);
    {
        x11::ErrorTrap trap(display);
        XWindowAttributes attributes;
        if (!XGetWindowAttributes(display, target, &attributes) || trap.failed())
            return false; // the window is gone
    }
    x11::ErrorTrap trap(display);
    const bool managed =
        x11::windowProperty(display, root, connection_.atom("_NET_SUPPORTING_WM_CHECK"))
            .has_value();
    if (managed) {
        // Asking the window manager, as a pager does (source indication 2), so that it raises
        // and focuses the window whatever its focus-stealing rules.
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = target;
        event.xclient.message_type = connection_.atom("_NET_ACTIVE_WINDOW");
        event.xclient.format = 32;
        event.xclient.data.l[0] = 2;
        event.xclient.data.l[1] = CurrentTime;
        event.xclient.data.l[2] = 0;
        XSendEvent(display, root, False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
    } else {
        XRaiseWindow(display, target);
        XSetInputFocus(display, target, RevertToParent, CurrentTime);
    }
    return !trap.failed();
}

QString X11Windows::applicationName(int64_t pid) {
    QString processName;
    if (const auto entry = desktopFiles_.forProcess(pid, &processName);
        entry && !entry->name.isEmpty())
        return entry->name;
    return processName;
}

void X11Windows::keepOnAllWorkspaces(uint64_t window) {
    // On Qt's own connection, where the window was made: the property then reaches the server
    // before the map that the window manager reads it at. For a window already mapped, the
    // window manager is asked as well.
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || window == 0) return;
    xcb_connection_t* c = x11->connection();
    const QByteArray name("_NET_WM_DESKTOP");
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, uint16_t(name.size()), name.constData()), nullptr);
    if (!atom) return;
    const uint32_t all = 0xFFFFFFFF;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, xcb_window_t(window), atom->atom,
                        XCB_ATOM_CARDINAL, 32, 1, &all);
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = xcb_window_t(window);
    event.type = atom->atom;
    event.data.data32[0] = all;
    event.data.data32[1] = 2; // asked on the user's behalf
    xcb_send_event(c, 0, xcb_setup_roots_iterator(xcb_get_setup(c)).data->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(c);
    free(atom);
}

} // namespace ombry::x11
