// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include "XClients.h"
#include "DesktopSession.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xfixes.h>
#include <X11/keysym.h>
#include <utility>
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

EagerClipboardManager::EagerClipboardManager() {
    int errorBase = 0;
    if (!display_ || !XFixesQueryExtension(dpy(display_), &xfixesEvent_, &errorBase)) return;
    XFixesSelectSelectionInput(dpy(display_), DefaultRootWindow(dpy(display_)),
                               atom(dpy(display_), "CLIPBOARD"), XFixesSetSelectionOwnerNotifyMask);
    XSync(dpy(display_), False);
}

void EagerClipboardManager::handle(XEvent& event) {
    // A new owner: copy its text at once, as the manager keeps every content.
    if (event.type == xfixesEvent_ + XFixesSelectionNotify &&
        reinterpret_cast<XFixesSelectionNotifyEvent*>(&event)->owner != None)
        convert(dpy(display_), Window(window_), "CLIPBOARD");
    if (event.type == SelectionNotify)
        if (auto bytes = takeProperty(dpy(display_), event.xselection)) copies_ << *bytes;
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

PasteTarget::PasteTarget(int delayMs) : delayMs_(delayMs) {
    if (!display_) return;
    Display* display = dpy(display_);
    XMoveResizeWindow(display, Window(window_), 100, 100, 400, 120);
    XSetWindowBackground(display, Window(window_), WhitePixel(display, DefaultScreen(display)));
    XClassHint hint{const_cast<char*>("lente"), const_cast<char*>("LenteCible")};
    XSetClassHint(display, Window(window_), &hint);
    XWMHints wmHints{};
    wmHints.flags = InputHint;
    wmHints.input = True;
    XSetWMHints(display, Window(window_), &wmHints);
    XSelectInput(display, Window(window_), KeyPressMask | StructureNotifyMask);
    reader_ = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    XSync(display, False);
}

bool PasteTarget::show(DesktopSession& session, const QString& title) {
    if (!display_) return false;
    Display* display = dpy(display_);
    XStoreName(display, Window(window_), title.toUtf8().constData());
    XMapWindow(display, Window(window_));
    XFlush(display);
    if (!DesktopSession::waitUntil([&] { return mapped_; })) return false;
    if (!session.activateWindow(window_)) return false;
    return DesktopSession::waitUntil([&] {
        Window focus = None;
        int revert = 0;
        XGetInputFocus(display, &focus, &revert);
        return focus == Window(window_);
    });
}

void PasteTarget::request(const char* selection) {
    answered_ = false;
    answer_.reset();
    convert(dpy(display_), Window(reader_), selection);
}

std::optional<QByteArray> PasteTarget::read(const char* selection, int timeoutMs) {
    if (!display_) return std::nullopt;
    request(selection);
    if (!DesktopSession::waitUntil([&] { return answered_; }, timeoutMs)) return std::nullopt;
    return answer_;
}

void PasteTarget::handle(XEvent& event) {
    if (event.type == MapNotify) mapped_ = true;
    if (event.type == KeyPress) {
        const KeySym sym = XLookupKeysym(&event.xkey, 0);
        const char* selection = nullptr;
        if (sym == XK_v && (event.xkey.state & ControlMask)) selection = "CLIPBOARD";
        if (sym == XK_Insert && (event.xkey.state & ShiftMask)) selection = "PRIMARY";
        if (!selection) return;
        pasted_.reset();
        QTimer::singleShot(delayMs_, Qt::PreciseTimer, &timer_, [this, selection] {
            pasting_ = true;
            request(selection);
        });
    }
    if (event.type == SelectionNotify) {
        answer_ = takeProperty(dpy(display_), event.xselection);
        answered_ = true;
        if (std::exchange(pasting_, false)) pasted_ = answer_.value_or(QByteArray());
    }
}

} // namespace ombry::test
