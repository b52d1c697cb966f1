#include "platform/linux/MachineInfo.h"

#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <optional>
#include <unistd.h>

namespace ombry::linux_platform {
namespace {

QByteArray readFile(const QString& path) {
    QFile f(path);
    // /proc and /sys files report a size of 0 or 4096; readAll reads until the end.
    if (!f.open(QIODevice::ReadOnly)) return {};
    return f.readAll();
}

} // namespace

namespace machine {
namespace {

std::optional<qint64> readNumber(const QString& path) {
    bool ok = false;
    const qint64 v = readFile(path).trimmed().toLongLong(&ok);
    if (!ok) return std::nullopt;
    return v;
}

int levelOfTripType(const QByteArray& type) {
    if (type == "critical" || type == "hot") return 3;
    if (type == "passive") return 2;
    if (type == "active") return 1;
    return 0;
}

} // namespace

uint64_t memTotalBytes(const QByteArray& meminfo) {
    for (const QByteArray& line : meminfo.split('\n')) {
        if (!line.startsWith("MemTotal:")) continue;
        // "MemTotal:       16318480 kB"
        const QList<QByteArray> parts = line.mid(9).simplified().split(' ');
        bool ok = false;
        const uint64_t value = parts.value(0).toULongLong(&ok);
        if (!ok) return 0;
        const QByteArray unit = parts.value(1).toLower();
        if (unit == "kb") return value * 1024;
        if (unit == "mb") return value * 1024 * 1024;
        return value;
    }
    return 0;
}

QString modelName(const QByteArray& cpuinfo) {
    for (const QByteArray& line : cpuinfo.split('\n')) {
        const int colon = line.indexOf(':');
        if (colon < 0 || line.left(colon).trimmed() != "model name") continue;
        return QString::fromUtf8(line.mid(colon + 1)).simplified();
    }
    return {};
}

int thermalState(const QString& root) {
    const QDir dir(root + QStringLiteral("/sys/class/thermal"));
    int worst = 0;
    const QStringList zones =
        dir.entryList({QStringLiteral("thermal_zone*")}, QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& zone : zones) {
        const QString base = dir.filePath(zone) + QLatin1Char('/');
        const std::optional<qint64> temp = readNumber(base + QStringLiteral("temp"));
        if (!temp || *temp <= 0) continue;
        for (int i = 0;; ++i) {
            const QString trip = base + QStringLiteral("trip_point_%1_").arg(i);
            const std::optional<qint64> at = readNumber(trip + QStringLiteral("temp"));
            if (!at) break;
            if (*at <= 0 || *temp < *at) continue; // unset trip points read 0 or less
            worst =
                std::max(worst, levelOfTripType(readFile(trip + QStringLiteral("type")).trimmed()));
        }
    }
    return worst;
}

QString machineId(const QString& root) {
    for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
        const QString id = QString::fromLatin1(readFile(root + QLatin1String(path))).trimmed();
        if (!id.isEmpty()) return id;
    }
    return {};
}

bool acpiLowPower(const QString& root) {
    return readFile(root + QStringLiteral("/sys/firmware/acpi/platform_profile")).trimmed() ==
           "low-power";
}

BackgroundValue::BackgroundValue(std::function<QString()> read, int64_t maxAgeMs)
    : read_(std::move(read)), maxAgeMs_(maxAgeMs) {}

QString BackgroundValue::get() {
    std::unique_lock lock(mutex_);
    const QString value = value_;
    const bool stale = !everRead_ || clock_.elapsedMs() - readAt_ >= maxAgeMs_;
    // A stopped queue (the end of the program) would run the read here: nothing is asked then.
    if (!stale || reading_ || queue_.stopped()) return value;
    reading_ = true;
    lock.unlock(); // a queue stopped meanwhile runs the read in place, and it takes the lock
    queue_.async([this] {
        const QString read = read_();
        std::lock_guard done(mutex_);
        value_ = read;
        readAt_ = clock_.elapsedMs();
        everRead_ = true;
        reading_ = false;
    });
    return value;
}

} // namespace machine

namespace {

// The active profile of power-profiles-daemon, on the system bus under its historical name
// and under the name that newer releases took; empty when neither answers quickly.
QString powerProfile() {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) return {};
    const std::pair<const char*, const char*> services[] = {
        {"net.hadess.PowerProfiles", "/net/hadess/PowerProfiles"},
        {"org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles"},
    };
    for (const auto& [service, path] : services) {
        QDBusMessage get = QDBusMessage::createMethodCall(
            QLatin1String(service), QLatin1String(path),
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << QLatin1String(service) << QStringLiteral("ActiveProfile");
        const QDBusMessage reply = bus.call(get, QDBus::Block, 250);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) continue;
        return reply.arguments().first().value<QDBusVariant>().variant().toString();
    }
    return {};
}

class ProcMachineInfo final : public MachineInfo {
public:
    uint64_t physicalMemoryBytes() override {
        return machine::memTotalBytes(readFile(QStringLiteral("/proc/meminfo")));
    }
    int activeProcessorCount() override {
        const long n = sysconf(_SC_NPROCESSORS_ONLN);
        return n > 0 ? int(n) : 1;
    }
    QString cpuBrand() override {
        return machine::modelName(readFile(QStringLiteral("/proc/cpuinfo")));
    }
    // The bus is asked on a worker thread, at most every 30 seconds: the view that asks never
    // waits on it. The first answer of a run is "not low power" until the bus has replied.
    bool lowPowerMode() override {
        return profile_.get() == QLatin1String("power-saver") || machine::acpiLowPower({});
    }
    int thermalState() override { return machine::thermalState({}); }
    QString machineIdentifier() override { return machine::machineId({}); }

private:
    machine::BackgroundValue profile_{&powerProfile, 30000};
};

} // namespace

std::unique_ptr<MachineInfo> makeMachineInfo() {
    return std::make_unique<ProcMachineInfo>();
}

} // namespace ombry::linux_platform
