#include "platform/Platform.h"

#include "platform/Clock.h"
#include "platform/linux/LinuxPlatform.h"

namespace ombry {

Platform& Platform::current() {
    static Platform instance;
    return instance;
}

Platform::Platform()
    : clock_(std::make_unique<SystemClock>()), keychain_(linux_platform::makeKeychain()),
      notifier_(linux_platform::makeNotifier()), machine_(linux_platform::makeMachineInfo()),
      browser_(linux_platform::makeBrowser()) {}

void Platform::setClock(std::unique_ptr<Clock> c) {
    clock_ = std::move(c);
}
void Platform::setKeychain(std::unique_ptr<Keychain> k) {
    keychain_ = std::move(k);
}
void Platform::setNotifier(std::unique_ptr<Notifier> n) {
    notifier_ = std::move(n);
}
void Platform::setMachine(std::unique_ptr<MachineInfo> m) {
    machine_ = std::move(m);
}
void Platform::setBrowser(std::unique_ptr<Browser> b) {
    browser_ = std::move(b);
}

} // namespace ombry
