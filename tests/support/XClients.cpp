// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include "XClients.h"
#include "DesktopSession.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <vector>

namespace ombry::test {

namespace {

Display* dpy(void* display) {
    return static_cast<Display*>(display);
}

Atom atom(Display* display, const char* name) {
    return XInternAtom(display, name, False);
}

// The text a SelectionNotify brought to the window's property (deleted once read).
std::optional<QByteArray> takeProperty(Display* display, const XSelectionEvent& event) {
    if (event.property == None) return std::nullopt;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, event.requestor, event.property, 0, 1 << 20, True,
                           AnyPropertyType, &type, &format, &count, &after, &data) != Success)
        return std::nullopt;
    QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(count));
    if (data) XFree(data);
    return bytes;
}

void convert(Display* display, Window requestor, const char* selection) {
    XConvertSelection(display, atom(display, selection), atom(display, "UTF8_STRING"),
                      atom(display, "OMBRY_TEST_READ"), requestor, CurrentTime);
    XFlush(display);
}

} // namespace

XClient::XClient() : display_(XOpenDisplay(nullptr)) {
    if (!display_) return;
    window_ =
        XCreateSimpleWindow(dpy(display_), DefaultRootWindow(dpy(display_)), 0, 0, 1, 1, 0, 0, 0);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] {
        while (XPending(dpy(display_)) > 0) {
            XEvent event;
            XNextEvent(dpy(display_), &event);
            handle(event);
        }
    });
    timer_.start(2);
}

XClient::~XClient() {
    timer_.stop();
    if (display_) XCloseDisplay(dpy(display_));
}

FrozenClipboardOwner::FrozenClipboardOwner(int formats) {
    if (!display_) return;
    formats_ << atom(dpy(display_), "UTF8_STRING");
    for (int i = 1; i < formats; ++i)
        formats_ << atom(dpy(display_), ("application/x-gel-" + QByteArray::number(i)).constData());
    XSetSelectionOwner(dpy(display_), atom(dpy(display_), "CLIPBOARD"), Window(window_),
                       CurrentTime);
    XSync(dpy(display_), False);
}

void FrozenClipboardOwner::handle(XEvent& event) {
    const XSelectionRequestEvent& request = event.xselectionrequest;
    // Frozen: it answers the list of its formats, and no format.
    if (event.type != SelectionRequest || request.target != atom(dpy(display_), "TARGETS")) return;
    std::vector<Atom> atoms(formats_.begin(), formats_.end());
    XChangeProperty(dpy(display_), request.requestor, request.property, XA_ATOM, 32,
                    PropModeReplace, reinterpret_cast<unsigned char*>(atoms.data()),
                    int(atoms.size()));
    XEvent answer{};
    answer.xselection = {SelectionNotify,
                         0,
                         True,
                         dpy(display_),
                         request.requestor,
                         request.selection,
                         request.target,
                         request.property,
                         request.time};
    XSendEvent(dpy(display_), request.requestor, False, 0, &answer);
    XFlush(dpy(display_));
}

PasteTarget::PasteTarget() {
    if (display_)
        reader_ = XCreateSimpleWindow(dpy(display_), DefaultRootWindow(dpy(display_)), 0, 0, 1, 1,
                                      0, 0, 0);
}

std::optional<QByteArray> PasteTarget::read(const char* selection, int timeoutMs) {
    if (!display_) return std::nullopt;
    answered_ = false;
    answer_.reset();
    convert(dpy(display_), Window(reader_), selection);
    if (!DesktopSession::waitUntil([&] { return answered_; }, timeoutMs)) return std::nullopt;
    return answer_;
}

void PasteTarget::handle(XEvent& event) {
    if (event.type != SelectionNotify) return;
    answer_ = takeProperty(dpy(display_), event.xselection);
    answered_ = true;
}

} // namespace ombry::test
