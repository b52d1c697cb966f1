// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include <QSocketNotifier>
#include <optional>

#include "platform/x11/X11Platform.h"

#include "platform/x11/X11Display.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

namespace ombry::x11 {

namespace {

class X11InputWatch final : public InputWatch {
public:
    ~X11InputWatch() override { stop(); }

    bool start(Handler handler) override {
        stop();
        if (!connection_.open()) return false;
        Display* display = connection_.get();
        int event = 0, error = 0;
        int major = 2, minor = 1;
        if (!XQueryExtension(display, "XInputExtension", &opcode_, &event, &error) ||
            XIQueryVersion(display, &major, &minor) != Success) {
            connection_.close();
            return false;
        }
        // The master devices only: selecting the slaves too would bring each event twice.
        unsigned char mask[XIMaskLen(XI_LASTEVENT)] = {};
        XISetMask(mask, XI_RawButtonPress);
        XISetMask(mask, XI_RawKeyPress);
        XIEventMask masks{XIAllMasterDevices, sizeof mask, mask};
        XISelectEvents(display, connection_.root(), &masks, 1);
        escape_ = XKeysymToKeycode(display, XK_Escape);
        XSync(display, False);

        handler_ = std::move(handler);
        notifier_ =
            std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read);
        QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                         [this] { readEvents(); });
        readEvents();
        return true;
    }

    void stop() override {
        notifier_.reset();
        connection_.close();
        handler_ = {};
    }

    bool running() const override { return bool(connection_); }

private:
    void readEvents() {
        Display* display = connection_.get();
        if (!display) return;
        std::optional<bool> seen; // the first event of this batch: escape or click
        while (XPending(display)) {
            XEvent e;
            XNextEvent(display, &e);
            XGenericEventCookie* cookie = &e.xcookie;
            if (cookie->type != GenericEvent || cookie->extension != opcode_ ||
                !XGetEventData(display, cookie))
                continue;
            const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
            if (!seen) {
                if (cookie->evtype == XI_RawButtonPress && raw->detail == Button1) seen = false;
                if (cookie->evtype == XI_RawKeyPress && raw->detail == int(escape_)) seen = true;
            }
            XFreeEventData(display, cookie);
        }
        // The handler may stop the watch (the card closes): it runs last, on a copy.
        if (seen && handler_) {
            const Handler handler = handler_;
            handler(*seen);
        }
    }

    x11::Connection connection_;
    std::unique_ptr<QSocketNotifier> notifier_;
    Handler handler_;
    int opcode_ = 0;
    KeyCode escape_ = 0;
};

} // namespace

std::unique_ptr<InputWatch> makeInputWatch() {
    return std::make_unique<X11InputWatch>();
}

} // namespace ombry::x11
