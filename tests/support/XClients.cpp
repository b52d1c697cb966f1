// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include "XClients.h"
#include "DesktopSession.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xfixes.h>
#include <X11/keysym.h>
#include <vector>

namespace ombry::test {

namespace {

Display* dpy(void* display) {
    return static_cast<Display*>(display);
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
    XConvertSelection(display, XInternAtom(display, selection, False),
                      XInternAtom(display, "UTF8_STRING", False),
                      XInternAtom(display, "OMBRY_TEST_READ", False), requestor, CurrentTime);
    XFlush(display);
}

} // namespace

EagerClipboardManager::EagerClipboardManager() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) return;
    int errorBase = 0;
    if (!XFixesQueryExtension(display, &xfixesEvent_, &errorBase)) {
        XCloseDisplay(display);
        return;
    }
    display_ = display;
    window_ = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    XFixesSelectSelectionInput(display, DefaultRootWindow(display),
                               XInternAtom(display, "CLIPBOARD", False),
                               XFixesSetSelectionOwnerNotifyMask);
    XSync(display, False);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] { pump(); });
    timer_.start(2);
}

EagerClipboardManager::~EagerClipboardManager() {
    timer_.stop();
    if (display_) XCloseDisplay(dpy(display_));
}

void EagerClipboardManager::pump() {
    Display* display = dpy(display_);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == xfixesEvent_ + XFixesSelectionNotify) {
            // A new owner: copy its text at once, as the manager keeps every content.
            if (reinterpret_cast<XFixesSelectionNotifyEvent*>(&event)->owner != None)
                convert(display, Window(window_), "CLIPBOARD");
        } else if (event.type == SelectionNotify) {
            if (auto bytes = takeProperty(display, event.xselection)) copies_ << *bytes;
        }
    }
}

FrozenClipboardOwner::FrozenClipboardOwner(int formats) {
    Display* display = XOpenDisplay(nullptr);
    if (!display) return;
    display_ = display;
    window_ = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
    formats_ << XInternAtom(display, "UTF8_STRING", False);
    for (int i = 1; i < formats; ++i)
        formats_ << XInternAtom(display, qPrintable(QStringLiteral("application/x-gel-%1").arg(i)),
                                False);
    XSetSelectionOwner(display, XInternAtom(display, "CLIPBOARD", False), Window(window_),
                       CurrentTime);
    XSync(display, False);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] { pump(); });
    timer_.start(2);
}

FrozenClipboardOwner::~FrozenClipboardOwner() {
    timer_.stop();
    if (display_) XCloseDisplay(dpy(display_));
}

void FrozenClipboardOwner::pump() {
    Display* display = dpy(display_);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type != SelectionRequest) continue;
        const XSelectionRequestEvent& request = event.xselectionrequest;
        if (request.target != XInternAtom(display, "TARGETS", False)) continue; // frozen
        std::vector<Atom> atoms(formats_.begin(), formats_.end());
        XChangeProperty(display, request.requestor, request.property, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<unsigned char*>(atoms.data()), int(atoms.size()));
        XEvent answer{};
        answer.xselection.type = SelectionNotify;
        answer.xselection.requestor = request.requestor;
        answer.xselection.selection = request.selection;
        answer.xselection.target = request.target;
        answer.xselection.property = request.property;
        answer.xselection.time = request.time;
        XSendEvent(display, request.requestor, False, 0, &answer);
        XFlush(display);
    }
}

PasteTarget::PasteTarget(int delayMs) : delayMs_(delayMs) {
    Display* display = XOpenDisplay(nullptr);
    if (!display) return;
    display_ = display;
    const Window root = DefaultRootWindow(display);
    window_ = XCreateSimpleWindow(display, root, 100, 100, 400, 120, 0, 0,
                                  WhitePixel(display, DefaultScreen(display)));
    XClassHint hint{const_cast<char*>("lente"), const_cast<char*>("LenteCible")};
    XSetClassHint(display, Window(window_), &hint);
    XWMHints wmHints{};
    wmHints.flags = InputHint;
    wmHints.input = True;
    XSetWMHints(display, Window(window_), &wmHints);
    XSelectInput(display, Window(window_), KeyPressMask | StructureNotifyMask);
    reader_ = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
    XSync(display, False);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [this] { pump(); });
    timer_.start(2);
}

PasteTarget::~PasteTarget() {
    timer_.stop();
    if (display_) XCloseDisplay(dpy(display_));
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

void PasteTarget::pump() {
    Display* display = dpy(display_);
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        switch (event.type) {
        case MapNotify:
            mapped_ = true;
            break;
        case KeyPress: {
            const KeySym sym = XLookupKeysym(&event.xkey, 0);
            const char* selection = nullptr;
            if (sym == XK_v && (event.xkey.state & ControlMask)) selection = "CLIPBOARD";
            if (sym == XK_Insert && (event.xkey.state & ShiftMask)) selection = "PRIMARY";
            if (!selection) break;
            pasted_.reset();
            QTimer::singleShot(delayMs_, Qt::PreciseTimer, &timer_, [this, selection] {
                pasting_ = true;
                request(selection);
            });
            break;
        }
        case SelectionNotify:
            answer_ = takeProperty(display, event.xselection);
            answered_ = true;
            if (pasting_) {
                pasted_ = answer_.value_or(QByteArray());
                pasting_ = false;
            }
            break;
        default:
            break;
        }
    }
}

} // namespace ombry::test
