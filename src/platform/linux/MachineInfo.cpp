#include "platform/linux/LinuxPlatform.h"

#include <QThread>

namespace ombry::linux_platform {
namespace {

// Placeholder until the /proc reader lands.
class BasicMachineInfo final : public MachineInfo {
public:
    uint64_t physicalMemoryBytes() override { return 0; }
    int activeProcessorCount() override { return QThread::idealThreadCount(); }
    QString cpuBrand() override { return {}; }
    bool lowPowerMode() override { return false; }
    int thermalState() override { return 0; }
    QString machineIdentifier() override { return {}; }
};

} // namespace

std::unique_ptr<MachineInfo> makeMachineInfo() { return std::make_unique<BasicMachineInfo>(); }

} // namespace ombry::linux_platform
