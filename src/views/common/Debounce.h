#pragma once

#include <QObject>
#include <QTimer>
#include <cstdint>
#include <functional>

namespace ombry {

// A one-shot action that waits a delay on the platform clock, and that each new schedule()
// cancels: only a pause of `delay` reaches the action. The wait is a timer armed for the time
// left on the clock, checked again when it fires, so a test that moves a manual clock needs
// no real waiting; the real clock sleeps once, without polling.
class Debounce : public QObject {
    Q_OBJECT
public:
    explicit Debounce(QObject* parent = nullptr);

    // Cancels what was waiting and runs `action` after `delayMs` (0 runs it on the next turn
    // of the event loop).
    void schedule(int64_t delayMs, std::function<void()> action);
    void cancel();
    bool pending() const { return bool(action_); }

private:
    void check();

    QTimer timer_;
    int64_t deadline_ = 0;
    std::function<void()> action_;
};

} // namespace ombry
