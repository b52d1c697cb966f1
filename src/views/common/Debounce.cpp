#include "views/common/Debounce.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <algorithm>

namespace ombry {

Debounce::Debounce(QObject* parent) : QObject(parent) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &Debounce::check);
}

void Debounce::schedule(int64_t delayMs, std::function<void()> action) {
    deadline_ = Platform::current().clock().elapsedMs() + std::max<int64_t>(delayMs, 0);
    action_ = std::move(action);
    // A real clock sleeps the whole delay; a manual one is looked at again as it moves.
    timer_.start(int(Platform::current().clock().maxSleepMs(std::max<int64_t>(delayMs, 0))));
}

void Debounce::cancel() {
    timer_.stop();
    action_ = {};
}

void Debounce::check() {
    if (!action_) return;
    const Clock& clock = Platform::current().clock();
    const int64_t left = deadline_ - clock.elapsedMs();
    if (left > 0) {
        timer_.start(int(std::max<int64_t>(clock.maxSleepMs(left), 1)));
        return;
    }
    std::function<void()> action = std::move(action_);
    action_ = {};
    action();
}

} // namespace ombry
