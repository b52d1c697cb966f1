#include "platform/wayland/WaylandConnection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/mman.h>
#include <wayland-client.h>

namespace ombry::wayland {

namespace {

int64_t nowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void onGlobal(void* data, wl_registry*, uint32_t name, const char* interface, uint32_t version) {
    static_cast<QList<Connection::Global>*>(data)->append({name, QByteArray(interface), version});
}

void onGlobalRemove(void* data, wl_registry*, uint32_t name) {
    static_cast<QList<Connection::Global>*>(data)->removeIf(
        [name](const Connection::Global& g) { return g.name == name; });
}

const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};

void onSyncDone(void* data, wl_callback*, uint32_t) {
    *static_cast<bool*>(data) = true;
}

const wl_callback_listener syncListener = {onSyncDone};

} // namespace

Deadline::Deadline(int ms) : end_(nowMs() + ms) {}

int Deadline::remaining() const {
    const int64_t left = end_ - nowMs();
    return left > 0 ? int(left) : 0;
}

Connection::~Connection() {
    close();
}

bool Connection::open(int timeoutMs) {
    close();
    display_ = wl_display_connect(nullptr);
    if (!display_) return false;
    registry_ = wl_display_get_registry(display_);
    wl_registry_add_listener(registry_, &registryListener, &globals_);
    if (!roundtrip(timeoutMs)) {
        close();
        return false;
    }
    return true;
}

void Connection::close() {
    if (registry_) wl_registry_destroy(registry_);
    registry_ = nullptr;
    if (display_) wl_display_disconnect(display_);
    display_ = nullptr;
    globals_.clear();
}

int Connection::fd() const {
    return display_ ? wl_display_get_fd(display_) : -1;
}

const Connection::Global* Connection::global(const char* interface) const {
    for (const Global& g : globals_)
        if (g.interface == interface) return &g;
    return nullptr;
}

void* Connection::bind(const wl_interface* interface, uint32_t maxVersion, uint32_t* version) {
    const Global* g = global(interface->name);
    if (!g || !registry_) return nullptr;
    const uint32_t v = std::min({g->version, maxVersion, uint32_t(interface->version)});
    if (version) *version = v;
    return wl_registry_bind(registry_, g->name, interface, v);
}

bool Connection::failed() const {
    return !display_ || wl_display_get_error(display_) != 0;
}

void Connection::flush() {
    if (!failed()) wl_display_flush(display_);
}

bool Connection::dispatch(int timeoutMs) {
    if (failed()) return false;
    while (wl_display_prepare_read(display_) != 0) {
        if (wl_display_dispatch_pending(display_) < 0) return false;
    }
    // A full socket buffer (EAGAIN) is sent later; the wait below still reads meanwhile.
    if (wl_display_flush(display_) < 0 && errno != EAGAIN) {
        wl_display_cancel_read(display_);
        return false;
    }
    pollfd p{wl_display_get_fd(display_), POLLIN, 0};
    int ready = 0;
    Deadline deadline(timeoutMs);
    do {
        ready = poll(&p, 1, deadline.remaining());
    } while (ready < 0 && errno == EINTR);
    if (ready > 0) {
        if (wl_display_read_events(display_) < 0) return false;
    } else {
        wl_display_cancel_read(display_);
    }
    return wl_display_dispatch_pending(display_) >= 0;
}

bool Connection::roundtrip(int timeoutMs) {
    if (failed()) return false;
    bool done = false;
    wl_callback* callback = wl_display_sync(display_);
    wl_callback_add_listener(callback, &syncListener, &done);
    const Deadline deadline(timeoutMs);
    while (!done) {
        if (!dispatch(deadline.remaining())) break;
        if (deadline.passed()) break;
    }
    // A late answer finds no listener data: the callback object is gone.
    wl_callback_destroy(callback);
    return done;
}

QByteArray readShared(int fd, uint32_t size) {
    QByteArray out;
    void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (map != MAP_FAILED) {
        out = QByteArray(static_cast<const char*>(map), qsizetype(size));
        munmap(map, size);
    }
    return out;
}

} // namespace ombry::wayland
