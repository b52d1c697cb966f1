#pragma once

#include "platform/Clock.h"
#include "platform/SerialQueue.h"

#include <QString>
#include <cstdint>
#include <functional>
#include <mutex>

// Readers behind the Linux machine description, each taking the file system root so that
// tests can point them at a prepared tree.
namespace ombry::linux_platform::machine {

// MemTotal of /proc/meminfo, in bytes; 0 when absent.
uint64_t memTotalBytes(const QByteArray& meminfo);
// The first "model name" of /proc/cpuinfo, blanks collapsed; empty when absent.
QString modelName(const QByteArray& cpuinfo);
// 0 nominal, 1 fair, 2 serious, 3 critical: the worst state of any thermal zone under
// {root}/sys/class/thermal, judged by the kinds of trip point that its temperature reached
// (active 1, passive 2, hot or critical 3). 0 when nothing is readable.
int thermalState(const QString& root);
// /etc/machine-id, else /var/lib/dbus/machine-id, trimmed; empty when neither is readable.
QString machineId(const QString& root);
// The ACPI platform profile says "low-power".
bool acpiLowPower(const QString& root);

// A value that is slow to read (a call on the system bus), read off the asking thread: get()
// answers at once with the last value read (empty before the first) and, when that is older
// than maxAgeMs or was never read, has it read again on a worker thread of its own. The asking
// thread never waits, and nothing is read while nobody asks.
class BackgroundValue {
public:
    BackgroundValue(std::function<QString()> read, int64_t maxAgeMs);
    QString get();

private:
    std::function<QString()> read_;
    int64_t maxAgeMs_;
    SystemClock clock_;
    std::mutex mutex_;
    QString value_;
    int64_t readAt_ = 0;
    bool everRead_ = false;
    bool reading_ = false;
    SerialQueue queue_{QStringLiteral("machine.power"), &clock_};
};

} // namespace ombry::linux_platform::machine
