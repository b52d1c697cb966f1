#pragma once

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <mutex>

namespace ombry::test {

class FakeKeychain final : public Keychain {
public:
    QMap<QPair<QString, QString>, QString> items; // (service, account) -> secret
    std::optional<QString> genericPassword(const QString& service, const QString& account) override;
};

class FakeNotifier final : public Notifier {
public:
    struct Posted {
        QString title, body;
    };
    void post(const QString& title, const QString& body) override;
    QList<Posted> posted() const;

private:
    mutable std::mutex mutex_;
    QList<Posted> posted_;
};

class FakeMachine final : public MachineInfo {
public:
    uint64_t memory = 16ull << 30;
    int cores = 8;
    QString brand = QStringLiteral("AMD Ryzen 7 7840U");
    bool lowPower = false;
    int thermal = 0;
    QString identifier = QStringLiteral("0123456789abcdef0123456789abcdef");

    uint64_t physicalMemoryBytes() override { return memory; }
    int activeProcessorCount() override { return cores; }
    QString cpuBrand() override { return brand; }
    bool lowPowerMode() override { return lowPower; }
    int thermalState() override { return thermal; }
    QString machineIdentifier() override { return identifier; }
};

class FakeBrowser final : public Browser {
public:
    QList<QUrl> opened;
    bool open(const QUrl& url) override {
        opened << url;
        return true;
    }
};

// Installs fakes for every platform service for the life of the object, and gives the test
// direct access to them. The clock starts at 2026-03-14T09:26:53Z and moves only by advance().
class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    ManualClock& clock() { return *clock_; }
    FakeKeychain& keychain() { return *keychain_; }
    FakeNotifier& notifier() { return *notifier_; }
    FakeMachine& machine() { return *machine_; }
    FakeBrowser& browser() { return *browser_; }

private:
    ManualClock* clock_;
    FakeKeychain* keychain_;
    FakeNotifier* notifier_;
    FakeMachine* machine_;
    FakeBrowser* browser_;
};

} // namespace ombry::test
