#include "FakePlatform.h"

namespace ombry::test {

std::optional<QString> FakeKeychain::genericPassword(const QString& service,
                                                     const QString& account) {
    const auto it = items.constFind({service, account});
    if (it == items.constEnd()) return std::nullopt;
    return *it;
}

void FakeNotifier::post(const QString& title, const QString& body) {
    std::lock_guard lock(mutex_);
    posted_.append({title, body});
}

QList<FakeNotifier::Posted> FakeNotifier::posted() const {
    std::lock_guard lock(mutex_);
    return posted_;
}

FakePlatform::FakePlatform() {
    auto clock = std::make_unique<ManualClock>();
    auto keychain = std::make_unique<FakeKeychain>();
    auto notifier = std::make_unique<FakeNotifier>();
    auto machine = std::make_unique<FakeMachine>();
    auto browser = std::make_unique<FakeBrowser>();
    clock_ = clock.get();
    keychain_ = keychain.get();
    notifier_ = notifier.get();
    machine_ = machine.get();
    browser_ = browser.get();
    Platform& p = Platform::current();
    p.setClock(std::move(clock));
    p.setKeychain(std::move(keychain));
    p.setNotifier(std::move(notifier));
    p.setMachine(std::move(machine));
    p.setBrowser(std::move(browser));
}

FakePlatform::~FakePlatform() {
    // The fakes stay installed: shared objects made during the test may still hold on to them
    // until the process ends. Only the clock goes back to the system's.
    Platform::current().setClock(std::make_unique<SystemClock>());
}

} // namespace ombry::test
