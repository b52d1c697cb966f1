#include "platform/x11/X11Display.h"

#include <QtGlobal>
#include <X11/Xatom.h>
#include <algorithm>
#include <mutex>

// The display structure, for the resource-id mask of the connection; last, since it defines
// min and max as macros.
#include <X11/Xlibint.h>
#undef min
#undef max

namespace ombry::x11 {

namespace {

// The connections this process's services opened, and the innermost trap in force. Xlib has one
// error handler for the whole process: ours takes the errors of our connections and passes the
// others on to the handler found when the first connection was opened.
std::mutex registryMutex;
std::vector<Display*> ownDisplays;
ErrorTrap* innermostTrap = nullptr;
XErrorHandler previousHandler = nullptr;
bool handlerInstalled = false;

} // namespace

int trapHandler(Display* display, XErrorEvent* event) {
    for (ErrorTrap* trap = innermostTrap; trap; trap = trap->outer_) {
        if (trap->display_ == display) {
            if (!trap->error_) trap->error_ = event->error_code;
            return 0;
        }
    }
    {
        std::lock_guard lock(registryMutex);
        if (std::find(ownDisplays.begin(), ownDisplays.end(), display) != ownDisplays.end()) {
            char text[160] = {};
            XGetErrorText(display, event->error_code, text, sizeof text);
            qWarning("X11: requête %d refusée: %s", int(event->request_code), text);
            return 0;
        }
    }
    return previousHandler ? previousHandler(display, event) : 0;
}

bool Connection::open() {
    if (display_) return true;
    display_ = XOpenDisplay(nullptr);
    if (!display_) return false;
    std::lock_guard lock(registryMutex);
    if (!handlerInstalled) {
        previousHandler = XSetErrorHandler(trapHandler);
        handlerInstalled = true;
    }
    ownDisplays.push_back(display_);
    return true;
}

void Connection::close() {
    if (!display_) return;
    {
        std::lock_guard lock(registryMutex);
        std::erase(ownDisplays, display_);
    }
    XCloseDisplay(display_);
    display_ = nullptr;
}

Window Connection::root() const {
    return display_ ? DefaultRootWindow(display_) : None;
}

Atom Connection::atom(const char* name) const {
    return display_ ? XInternAtom(display_, name, False) : None;
}

ErrorTrap::ErrorTrap(Display* display) : display_(display), outer_(innermostTrap) {
    innermostTrap = this;
}

ErrorTrap::~ErrorTrap() {
    if (display_) XSync(display_, False);
    innermostTrap = outer_;
}

bool ErrorTrap::failed() {
    if (display_) XSync(display_, False);
    return error_ != 0;
}

QString waylandSessionReason() {
    const bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
                         qEnvironmentVariable("XDG_SESSION_TYPE")
                                 .compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0;
    if (!wayland) return {};
    return QStringLiteral("Session Wayland : le clavier global passe par X11, qui n'entend que "
                          "les fenêtres X11 (XWayland) et pas les applications Wayland.");
}

QString displayName() {
    return qEnvironmentVariable("DISPLAY");
}

namespace {

// Reads a whole property of 32-bit items (returned by Xlib as longs) or 8-bit bytes.
struct PropertyData {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned char* data = nullptr;
    ~PropertyData() {
        if (data) XFree(data);
    }
};

bool readProperty(Display* display, Window window, Atom property, PropertyData& out) {
    if (!display || window == None || property == None) return false;
    ErrorTrap trap(display);
    unsigned long after = 0;
    const int status =
        XGetWindowProperty(display, window, property, 0, 1 << 20, False, AnyPropertyType, &out.type,
                           &out.format, &out.count, &after, &out.data);
    if (trap.failed() || status != Success || out.type == None) return false;
    return true;
}

} // namespace

std::optional<Window> windowProperty(Display* display, Window window, Atom property) {
    PropertyData p;
    if (!readProperty(display, window, property, p) || p.format != 32 || p.count < 1)
        return std::nullopt;
    return Window(reinterpret_cast<unsigned long*>(p.data)[0]);
}

std::optional<uint32_t> cardinalProperty(Display* display, Window window, Atom property) {
    PropertyData p;
    if (!readProperty(display, window, property, p) || p.format != 32 || p.count < 1)
        return std::nullopt;
    return uint32_t(reinterpret_cast<unsigned long*>(p.data)[0]);
}

std::optional<QByteArray> byteProperty(Display* display, Window window, Atom property) {
    PropertyData p;
    if (!readProperty(display, window, property, p) || p.format != 8) return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(p.data), qsizetype(p.count));
}

std::vector<Atom> atomListProperty(Display* display, Window window, Atom property) {
    PropertyData p;
    if (!readProperty(display, window, property, p) || p.format != 32) return {};
    const auto* items = reinterpret_cast<unsigned long*>(p.data);
    return std::vector<Atom>(items, items + p.count);
}

bool sameClient(Display* display, XID a, XID b) {
    // Every client's ids share the base outside the mask, which is the same for all clients.
    const XID mask = display->resource_mask;
    return (a & ~mask) == (b & ~mask);
}

} // namespace ombry::x11
