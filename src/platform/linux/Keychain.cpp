#include "platform/linux/LinuxPlatform.h"

namespace ombry::linux_platform {
namespace {

// Placeholder until the Secret Service lookup lands.
class NoKeychain final : public Keychain {
public:
    std::optional<QString> genericPassword(const QString&, const QString&) override { return {}; }
};

} // namespace

std::unique_ptr<Keychain> makeKeychain() { return std::make_unique<NoKeychain>(); }

} // namespace ombry::linux_platform
