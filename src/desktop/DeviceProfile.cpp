#include "desktop/DeviceProfile.h"

#include "platform/Platform.h"

#include <cmath>

namespace ombry::DeviceProfile {
namespace {

struct Fixed {
    int memoryGB;
    int cores;
    QString chip;
};

const Fixed& fixed() {
    static const Fixed f = [] {
        MachineInfo& m = Platform::current().machine();
        return Fixed{roundedGB(m.physicalMemoryBytes()), m.activeProcessorCount(), m.cpuBrand()};
    }();
    return f;
}

} // namespace

int roundedGB(uint64_t bytes) {
    return int(std::llround(double(bytes) / double(1ull << 30)));
}

bool isConstrained(bool lowPower, int thermalState) {
    return lowPower || thermalState >= 2;
}

bool lightVisuals(PerformanceMode mode, int memoryGB, int cores,
                  const std::function<bool()>& constrained) {
    switch (mode) {
    case PerformanceMode::Light:
        return true;
    case PerformanceMode::Full:
        return false;
    case PerformanceMode::Auto:
        break;
    }
    if (memoryGB < 9) return true;
    if (cores < 5) return true;
    return constrained();
}

QString summary(const QString& chip, int memoryGB, int cores) {
    return QStringLiteral("%1 · %2 Go · %3 cœurs").arg(chip).arg(memoryGB).arg(cores);
}

int memoryGB() {
    return fixed().memoryGB;
}
int cores() {
    return fixed().cores;
}
QString chip() {
    return fixed().chip;
}

bool isConstrained() {
    MachineInfo& m = Platform::current().machine();
    // The thermal state is read only when the power mode did not decide.
    return m.lowPowerMode() || isConstrained(false, m.thermalState());
}

bool lightVisuals() {
    return lightVisuals(AppSettings::shared().performanceMode(), memoryGB(), cores(),
                        [] { return isConstrained(); });
}

QString summary() {
    return summary(chip(), memoryGB(), cores());
}

QString launchLine() {
    return QStringLiteral("ordinateur: %1, effets %2")
        .arg(summary(), lightVisuals() ? QStringLiteral("légers") : QStringLiteral("complets"));
}

} // namespace ombry::DeviceProfile
