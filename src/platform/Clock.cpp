#include "platform/Clock.h"

#include <QElapsedTimer>
#include <algorithm>

namespace ombry {

QDateTime SystemClock::now() const {
    return QDateTime::currentDateTimeUtc();
}

int64_t SystemClock::elapsedMs() const {
    static const QElapsedTimer timer = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return timer.elapsed();
}

ManualClock::ManualClock(QDateTime start) : startEpochMs_(start.toMSecsSinceEpoch()) {}

QDateTime ManualClock::now() const {
    return QDateTime::fromMSecsSinceEpoch(startEpochMs_.load() + elapsed_.load(), Qt::UTC);
}

int64_t ManualClock::maxSleepMs(int64_t untilDeadline) const {
    return std::min<int64_t>(untilDeadline, 1);
}

void ManualClock::advance(int64_t ms) {
    elapsed_ += ms;
}

void ManualClock::setNow(const QDateTime& t) {
    startEpochMs_ = t.toMSecsSinceEpoch() - elapsed_.load();
}

} // namespace ombry
