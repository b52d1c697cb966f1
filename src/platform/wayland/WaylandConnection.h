#pragma once

#include <QByteArray>
#include <QList>
#include <cstdint>

struct wl_display;
struct wl_registry;
struct wl_interface;

namespace ombry::wayland {

// One client connection to the compositor of WAYLAND_DISPLAY, with the globals its registry
// announced. Every wait on it has a deadline: a compositor that hangs costs the caller that
// long at most, one that goes away leaves the connection failed (and closed by its owner).
class Connection {
public:
    struct Global {
        uint32_t name = 0;
        QByteArray interface;
        uint32_t version = 0;
    };

    Connection() = default;
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects and reads the registry; false when no compositor answers within timeoutMs.
    bool open(int timeoutMs);
    // Disconnects. The owner destroys its own objects of the connection first.
    void close();
    bool isOpen() const { return display_ != nullptr; }
    wl_display* display() const { return display_; }
    int fd() const;

    const QList<Global>& globals() const { return globals_; }
    const Global* global(const char* interface) const;
    // Binds the global of this interface at the highest version both sides know (at most
    // maxVersion); null when the compositor has none. version receives the bound version.
    void* bind(const wl_interface* interface, uint32_t maxVersion, uint32_t* version = nullptr);

    // Sends the requests queued without waiting (what the socket does not take goes later).
    void flush();
    // Sends the requests queued, then reads and dispatches what has arrived, waiting at most
    // timeoutMs for something to arrive (0: no wait). False once the connection has failed.
    bool dispatch(int timeoutMs);
    // Waits until the compositor has handled every request sent before, dispatching the
    // events it sends meanwhile. False on a failed connection or when timeoutMs passed.
    bool roundtrip(int timeoutMs);
    // The connection broke: the compositor went away or refused a request.
    bool failed() const;

private:
    wl_display* display_ = nullptr;
    wl_registry* registry_ = nullptr;
    QList<Global> globals_;
};

// The bytes of a file the compositor shares (a keymap): mapped, copied, unmapped.
QByteArray readShared(int fd, uint32_t size);

// Milliseconds left until a deadline of the monotonic clock (never negative).
class Deadline {
public:
    explicit Deadline(int ms);
    int remaining() const;
    bool passed() const { return remaining() == 0; }

private:
    int64_t end_;
};

} // namespace ombry::wayland
