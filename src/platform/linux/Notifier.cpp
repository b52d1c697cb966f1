#include "platform/linux/LinuxPlatform.h"

namespace ombry::linux_platform {
namespace {

// Placeholder until the D-Bus notifier lands.
class SilentNotifier final : public Notifier {
public:
    void post(const QString&, const QString&) override {}
};

} // namespace

std::unique_ptr<Notifier> makeNotifier() { return std::make_unique<SilentNotifier>(); }

} // namespace ombry::linux_platform
