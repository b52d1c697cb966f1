// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include "ClipboardWatch.h"
#include "DesktopSession.h"

#include <X11/Xlib.h>
#include <X11/Xlibint.h> // the connection's resource mask
#include <X11/extensions/Xfixes.h>

namespace ombry::test {

namespace {
Display* dpy(void* display) {
    return static_cast<Display*>(display);
}
} // namespace

ClipboardWatch::ClipboardWatch() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) return;
    int errorBase = 0;
    if (!XFixesQueryExtension(display, &eventBase_, &errorBase)) {
        XCloseDisplay(display);
        return;
    }
    display_ = display;
    XFixesSelectSelectionInput(
        display, DefaultRootWindow(display), XInternAtom(display, "CLIPBOARD", False),
        XFixesSetSelectionOwnerNotifyMask | XFixesSelectionWindowDestroyNotifyMask |
            XFixesSelectionClientCloseNotifyMask);
    XSync(display, False);
}

ClipboardWatch::~ClipboardWatch() {
    if (display_) XCloseDisplay(dpy(display_));
}

int ClipboardWatch::changes(qulonglong notByClientOf) {
    if (!display_) return 0;
    Display* display = dpy(display_);
    XSync(display, False);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == eventBase_ + XFixesSelectionNotify)
            owners_ << reinterpret_cast<XFixesSelectionNotifyEvent*>(&event)->owner;
    }
    if (!notByClientOf) return int(owners_.size());
    // The resources of one client share the bits above the server's resource mask.
    const XID mask = display->resource_mask;
    int count = 0;
    for (const qulonglong owner : std::as_const(owners_))
        if (owner == None || (owner & ~mask) != (notByClientOf & ~mask)) ++count;
    return count;
}

bool ClipboardWatch::waitForChanges(int count, qulonglong notByClientOf, int timeoutMs) {
    return DesktopSession::waitUntil([&] { return changes(notByClientOf) >= count; }, timeoutMs);
}

QList<int> keysHeldDown() {
    QList<int> held;
    Display* display = XOpenDisplay(nullptr);
    if (!display) return held;
    char keymap[32] = {};
    XQueryKeymap(display, keymap);
    for (int kc = 0; kc < 256; ++kc)
        if (keymap[kc / 8] & (1 << (kc % 8))) held << kc;
    XCloseDisplay(display);
    return held;
}

} // namespace ombry::test
