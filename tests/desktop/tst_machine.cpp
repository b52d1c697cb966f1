// What the Linux readers take from /proc, /sys and /etc, and when the interface lightens its
// effects on that machine.
#include "FakePlatform.h"
#include "data/Settings.h"
#include "desktop/DeviceProfile.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/MachineInfo.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <mutex>
#include <thread>

using namespace ombry;
using namespace ombry::linux_platform;

namespace {

// A thermal zone at `temp` (millidegrees) with trip points given as "type=temp" words.
void zone(const QString& root, int n, const QByteArray& temp, const QByteArray& trips) {
    const QString base = root + QStringLiteral("/sys/class/thermal/thermal_zone%1/").arg(n);
    QVERIFY(QDir().mkpath(base));
    const auto put = [&](const QString& name, const QByteArray& content) {
        QFile f(base + name);
        QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content + '\n') > 0);
    };
    put(QStringLiteral("temp"), temp);
    const QList<QByteArray> words = trips.split(' ');
    for (int i = 0; i < words.size(); ++i) {
        put(QStringLiteral("trip_point_%1_type").arg(i), words[i].split('=')[0]);
        put(QStringLiteral("trip_point_%1_temp").arg(i), words[i].split('=')[1]);
    }
}

} // namespace

class TstMachine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void procFiles() {
        QCOMPARE(machine::memTotalBytes("MemTotal:  16318480 kB\nMemFree:  1 kB\n"),
                 16318480ull * 1024);
        QCOMPARE(machine::memTotalBytes("MemFree:  1 kB\n"), uint64_t(0));
        QCOMPARE(machine::modelName("processor\t: 0\nvendor_id\t: GenuineIntel\n"
                                    "model name\t: Intel(R) Core(TM)  i7-8650U CPU @ 1.90GHz\n"
                                    "processor\t: 1\nmodel name\t: autre\n"),
                 QStringLiteral("Intel(R) Core(TM) i7-8650U CPU @ 1.90GHz"));
        QCOMPARE(machine::modelName("processor\t: 0\nBogoMIPS\t: 48.00\n"), QString());

        const auto info = makeMachineInfo(); // this machine's own /proc
        QVERIFY(info->physicalMemoryBytes() > 0 && info->activeProcessorCount() >= 1);
    }

    void thermalState() {
        const QByteArray laptop = "critical=105000 hot=100000 passive=95000 active=70000";
        const struct {
            QByteArray temp, trips;
            int state;
        } rows[] = {
            {"71000", laptop, 1},
            {"95000", laptop, 2},                       // from the trip point on
            {"60000", "passive=0 critical=-273200", 0}, // unset trip points
            {"", "passive=1", 0},                       // unreadable temperature
        };
        for (const auto& r : rows) {
            QTemporaryDir root;
            // A second, cool zone never lowers what the hottest one says.
            zone(root.path(), 0, "30000", "passive=90000");
            zone(root.path(), 1, r.temp, r.trips);
            QVERIFY2(machine::thermalState(root.path()) == r.state, r.temp.constData());
        }
    }

    void lightVisualsRule() {
        const auto Auto = PerformanceMode::Auto, Light = PerformanceMode::Light;
        const struct {
            PerformanceMode mode;
            int memory, cores;
            const char* name;
            bool constrained, light, asked; // asked: whether the power state had to be read
        } rows[] = {
            {Light, 64, 16, "chosen light", false, true, false},
            {PerformanceMode::Full, 4, 2, "chosen full", true, false, false},
            {Auto, 8, 32, "8 GB", false, true, false},
            {Auto, 9, 4, "4 cores", false, true, false},
            {Auto, 9, 5, "9 GB, 5 cores", false, false, true},
            {Auto, 32, 16, "large", false, false, true},
            {Auto, 16, 8, "constrained", true, true, true},
        };
        for (const auto& r : rows) {
            bool asked = false;
            const auto power = [&] { return asked = true, r.constrained; };
            const bool light = DeviceProfile::lightVisuals(r.mode, r.memory, r.cores, power);
            QVERIFY2(light == r.light && asked == r.asked, r.name);
        }
    }

    void powerProfileIsReadOffTheAskingThread() {
        std::atomic<int> reads{0};
        std::atomic<bool> onAsker{false};
        const auto asker = std::this_thread::get_id();
        std::mutex gate;
        gate.lock(); // the bus "hangs" until the test lets it answer
        machine::BackgroundValue profile(
            [&] {
                ++reads;
                onAsker = std::this_thread::get_id() == asker;
                std::lock_guard wait(gate);
                return QStringLiteral("power-saver");
            },
            60000);
        QCOMPARE(profile.get(), QString()); // answered at once, while the read hangs
        QCOMPARE(profile.get(), QString());
        gate.unlock();
        QTRY_COMPARE(profile.get(), QStringLiteral("power-saver"));
        QCOMPARE(reads.load(), 1); // one read at a time, then kept while fresh
        QVERIFY(!onAsker);
    }

    void hardwareReadOncePowerStateEachTime() {
        const uint64_t gib = 1ull << 30;
        QCOMPARE(DeviceProfile::roundedGB(8 * gib + gib * 4 / 10), 8);
        QCOMPARE(DeviceProfile::roundedGB(8 * gib + gib / 2), 9);

        test::FakePlatform platform;
        AppSettings::shared().setPerformanceMode(PerformanceMode::Auto);
        QCOMPARE(
            DeviceProfile::launchLine(),
            QStringLiteral("ordinateur: AMD Ryzen 7 7840U · 16 Go · 8 cœurs, effets complets"));
        platform.machine().memory = 4 * gib; // not read again this run
        platform.machine().thermal = 1;
        QVERIFY(!DeviceProfile::lightVisuals());
        platform.machine().thermal = 2;
        QVERIFY(DeviceProfile::lightVisuals());
        platform.machine().thermal = 0;
        platform.machine().lowPower = true;
        QVERIFY(DeviceProfile::lightVisuals());
    }
};

QTEST_GUILESS_MAIN(TstMachine)
#include "tst_machine.moc"
