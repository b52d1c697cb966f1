#pragma once

#include <QDateTime>
#include <atomic>
#include <cstdint>

namespace ombry {

// The time source of every rule that compares durations or stamps records. The real clock
// reads the system; tests install a ManualClock and move time forward by hand, so debounces
// and time-outs are tested without waiting.
class Clock {
public:
    virtual ~Clock() = default;
    // Wall-clock time, UTC.
    virtual QDateTime now() const = 0;
    // Monotonic milliseconds, for deadlines.
    virtual int64_t elapsedMs() const = 0;
    // How long a worker may sleep before it must look at this clock again. A real clock lets it
    // sleep until its deadline; a manual clock moves by jumps, so workers re-check it often.
    virtual int64_t maxSleepMs(int64_t untilDeadline) const { return untilDeadline; }
};

class SystemClock final : public Clock {
public:
    QDateTime now() const override;
    int64_t elapsedMs() const override;
};

// A clock that stands still until advance() is called. Thread-safe.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime start = QDateTime::fromSecsSinceEpoch(1773480413, Qt::UTC));
    QDateTime now() const override;
    int64_t elapsedMs() const override { return elapsed_.load(); }
    int64_t maxSleepMs(int64_t untilDeadline) const override;
    void advance(int64_t ms);
    void setNow(const QDateTime& t);

private:
    std::atomic<int64_t> startEpochMs_;
    std::atomic<int64_t> elapsed_{0};
};

} // namespace ombry
