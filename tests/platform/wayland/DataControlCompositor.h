#pragma once

#include <QString>
#include <QTemporaryDir>
#include <atomic>
#include <memory>
#include <thread>

struct wl_display;

namespace ombry::test {

// A compositor of the test's own for the clipboard's protocol where no real one has it: a seat
// and ext data-control, nothing else, with the selections of one seat (CLIPBOARD and PRIMARY)
// held as a compositor holds them. It listens in a private XDG_RUNTIME_DIR and points
// WAYLAND_DISPLAY at itself; a thread of its own serves the clients.
class DataControlCompositor {
public:
    DataControlCompositor();
    ~DataControlCompositor();
    bool listening() const { return !socket_.isEmpty(); }

    struct Seat;

private:
    QTemporaryDir runtime_;
    std::unique_ptr<Seat> seat_;
    wl_display* display_ = nullptr;
    QString socket_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

} // namespace ombry::test
