// The Linux machine description read from prepared /proc, /sys and /etc trees.
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/MachineInfo.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry::linux_platform;

namespace {

void put(const QString& root, const QString& relative, const QByteArray& content) {
    const QString path = root + QLatin1Char('/') + relative;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(content);
}

// A thermal zone at `temp` (millidegrees) with trip points given as "type=temp" pairs.
void zone(const QString& root, int n, const QByteArray& temp, const QList<QByteArray>& trips) {
    const QString base = QStringLiteral("sys/class/thermal/thermal_zone%1/").arg(n);
    put(root, base + QStringLiteral("temp"), temp + "\n");
    for (int i = 0; i < trips.size(); ++i) {
        const QList<QByteArray> kv = trips[i].split('=');
        put(root, base + QStringLiteral("trip_point_%1_type").arg(i), kv[0] + "\n");
        put(root, base + QStringLiteral("trip_point_%1_temp").arg(i), kv[1] + "\n");
    }
}

} // namespace

class TstMachineInfo : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void procFiles() {
        QCOMPARE(machine::memTotalBytes("MemTotal:       16318480 kB\nMemFree:  1 kB\n"),
                 uint64_t(16318480) * 1024);
        QCOMPARE(machine::memTotalBytes("MemFree:  1 kB\n"), uint64_t(0));
        QCOMPARE(machine::modelName("processor\t: 0\nvendor_id\t: GenuineIntel\n"
                                    "model name\t: Intel(R) Core(TM)  i7-8650U CPU @ 1.90GHz\n"
                                    "processor\t: 1\nmodel name\t: autre\n"),
                 QStringLiteral("Intel(R) Core(TM) i7-8650U CPU @ 1.90GHz"));
        QCOMPARE(machine::modelName("processor\t: 0\nBogoMIPS\t: 48.00\n"), QString());
    }

    void thermalState_data() {
        QTest::addColumn<QByteArray>("temp");
        QTest::addColumn<QList<QByteArray>>("trips");
        QTest::addColumn<int>("state");
        const QList<QByteArray> laptop{"critical=105000", "hot=100000", "passive=95000",
                                       "active=70000"};
        QTest::newRow("cool") << QByteArray("45000") << laptop << 0;
        QTest::newRow("fans") << QByteArray("71000") << laptop << 1;
        QTest::newRow("throttling") << QByteArray("95000") << laptop << 2;
        QTest::newRow("hot") << QByteArray("101000") << laptop << 3;
        QTest::newRow("unset trip points")
            << QByteArray("60000") << QList<QByteArray>{"passive=0", "critical=-273200"} << 0;
        QTest::newRow("unreadable temperature")
            << QByteArray("") << QList<QByteArray>{"passive=1"} << 0;
    }
    void thermalState() {
        QFETCH(QByteArray, temp);
        QFETCH(QList<QByteArray>, trips);
        QFETCH(int, state);
        QTemporaryDir root;
        // A second, cool zone never lowers what the hottest one says.
        zone(root.path(), 0, "30000", {"passive=90000"});
        zone(root.path(), 1, temp, trips);
        QCOMPARE(machine::thermalState(root.path()), state);
    }

    void machineIdentifier() {
        QTemporaryDir root;
        QCOMPARE(machine::machineId(root.path()), QString());
        put(root.path(), QStringLiteral("var/lib/dbus/machine-id"), "dbus0123\n");
        QCOMPARE(machine::machineId(root.path()), QStringLiteral("dbus0123"));
        put(root.path(), QStringLiteral("etc/machine-id"), "etc4567\n");
        QCOMPARE(machine::machineId(root.path()), QStringLiteral("etc4567"));
    }

    void thisMachine() {
        const auto info = makeMachineInfo();
        QVERIFY(info->physicalMemoryBytes() > 0);
        QVERIFY(info->activeProcessorCount() >= 1);
        QVERIFY(info->thermalState() >= 0 && info->thermalState() <= 3);
        info->lowPowerMode(); // answers with or without a system bus
    }
};

QTEST_GUILESS_MAIN(TstMachineInfo)
#include "tst_machineinfo.moc"
