// When the interface lightens its effects, and what the profile reads of the machine.
#include "FakePlatform.h"
#include "data/Settings.h"
#include "desktop/DeviceProfile.h"

#include <QTest>

using namespace ombry;

Q_DECLARE_METATYPE(ombry::PerformanceMode)

class TstDeviceProfile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rule_data() {
        QTest::addColumn<PerformanceMode>("mode");
        QTest::addColumn<int>("memory");
        QTest::addColumn<int>("cores");
        QTest::addColumn<QString>("chip");
        QTest::addColumn<bool>("constrained");
        QTest::addColumn<bool>("light");
        QTest::addColumn<bool>("asked"); // whether the power state had to be read
        const QString amd = QStringLiteral("AMD Ryzen 7 7840U");
        const auto Auto = PerformanceMode::Auto;
        QTest::newRow("light setting")
            << PerformanceMode::Light << 64 << 16 << amd << false << true << false;
        QTest::newRow("full setting")
            << PerformanceMode::Full << 4 << 2 << QStringLiteral("Intel") << true << false << false;
        QTest::newRow("8 GB whatever the cpu") << Auto << 8 << 32 << amd << false << true << false;
        QTest::newRow("9 GB and 4 cores") << Auto << 9 << 4 << amd << false << true << false;
        QTest::newRow("9 GB and 5 cores") << Auto << 9 << 5 << amd << false << false << true;
        QTest::newRow("Intel chip")
            << Auto << 32 << 16 << QStringLiteral("Intel(R) Core(TM) i9-13900H") << false << true
            << false;
        QTest::newRow("strong and calm") << Auto << 16 << 8 << amd << false << false << true;
        QTest::newRow("strong but constrained") << Auto << 16 << 8 << amd << true << true << true;
    }
    void rule() {
        QFETCH(PerformanceMode, mode);
        QFETCH(int, memory);
        QFETCH(int, cores);
        QFETCH(QString, chip);
        QFETCH(bool, constrained);
        QFETCH(bool, light);
        QFETCH(bool, asked);
        bool wasAsked = false;
        QCOMPARE(DeviceProfile::lightVisuals(mode, memory, cores, chip,
                                             [&] {
                                                 wasAsked = true;
                                                 return constrained;
                                             }),
                 light);
        QCOMPARE(wasAsked, asked);
    }

    void memoryRoundsToNearest() {
        const uint64_t gib = 1ull << 30;
        QCOMPARE(DeviceProfile::roundedGB(8 * gib + gib * 4 / 10), 8);
        QCOMPARE(DeviceProfile::roundedGB(8 * gib + gib / 2), 9);
    }

    void machineReadOnceStateReadEachTime() {
        test::FakePlatform platform;
        platform.machine().memory = (16ull << 30) - (100ull << 20);
        QCOMPARE(DeviceProfile::summary(), QStringLiteral("AMD Ryzen 7 7840U · 16 Go · 8 cœurs"));

        // The hardware is read once per run...
        platform.machine().memory = 4ull << 30;
        platform.machine().cores = 2;
        platform.machine().brand = QStringLiteral("autre");
        QCOMPARE(DeviceProfile::memoryGB(), 16);
        QCOMPARE(DeviceProfile::cores(), 8);
        QCOMPARE(DeviceProfile::chip(), QStringLiteral("AMD Ryzen 7 7840U"));

        // ...the power state and the setting at each ask.
        AppSettings::shared().setPerformanceMode(PerformanceMode::Auto);
        QVERIFY(!DeviceProfile::isConstrained());
        QVERIFY(!DeviceProfile::lightVisuals());
        QCOMPARE(
            DeviceProfile::launchLine(),
            QStringLiteral("ordinateur: AMD Ryzen 7 7840U · 16 Go · 8 cœurs, effets complets"));
        platform.machine().lowPower = true;
        QVERIFY(DeviceProfile::lightVisuals());
        platform.machine().lowPower = false;
        platform.machine().thermal = 1;
        QVERIFY(!DeviceProfile::isConstrained());
        platform.machine().thermal = 2;
        QVERIFY(DeviceProfile::isConstrained());
        platform.machine().thermal = 0;
        QVERIFY(!DeviceProfile::lightVisuals());
        AppSettings::shared().setPerformanceMode(PerformanceMode::Light);
        QVERIFY(DeviceProfile::lightVisuals());
        QVERIFY(DeviceProfile::launchLine().endsWith(QStringLiteral(", effets légers")));
    }
};

QTEST_GUILESS_MAIN(TstDeviceProfile)
#include "tst_deviceprofile.moc"
