#pragma once

#include <QByteArray>
#include <QString>
#include <X11/Xlib.h>
#include <cstdint>
#include <optional>
#include <vector>

// Small helpers shared by the X11 services: each service opens its own connection to the
// display (the keyboard hook, the key poster and the window queries never share Qt's), and
// every request that may fail on a window that went away is made under an ErrorTrap, since
// Xlib's default error handler would end the process.
namespace ombry::x11 {

// An Xlib connection that closes itself.
class Connection {
public:
    Connection() = default;
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Opens the display named by $DISPLAY. False when there is none or it cannot be reached.
    bool open();
    void close();
    Display* get() const { return display_; }
    explicit operator bool() const { return display_ != nullptr; }
    Window root() const;
    Atom atom(const char* name) const;

private:
    Display* display_ = nullptr;
};

// Catches the protocol errors of the requests made on one connection while it lives; errors of
// other connections go to the handler that was installed before.
class ErrorTrap {
public:
    explicit ErrorTrap(Display* display);
    ~ErrorTrap();
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;
    // Waits for the server's answers to the requests made so far; true when one failed.
    bool failed();

private:
    Display* display_;
    ErrorTrap* outer_;
    int error_ = 0;
    friend int trapHandler(Display*, XErrorEvent*);
};

// Why the session cannot offer an X11 keyboard, or an empty text when it can be tried.
QString waylandSessionReason();
// The display name the services connect to, for messages ("" when $DISPLAY is unset).
QString displayName();

// Window properties. Each answers nothing when the property is absent or of another format.
std::optional<Window> windowProperty(Display* display, Window window, Atom property);
std::optional<uint32_t> cardinalProperty(Display* display, Window window, Atom property);
std::optional<QByteArray> byteProperty(Display* display, Window window, Atom property);
std::vector<Atom> atomListProperty(Display* display, Window window, Atom property);

// Whether two resources (windows) were made by the same client connection: the server gives
// each client its own range of resource ids.
bool sameClient(Display* display, XID a, XID b);

} // namespace ombry::x11
