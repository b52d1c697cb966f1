#pragma once

#include <QString>
#include <cstdint>

// Readers behind the Linux machine description, each taking the file system root so that
// tests can point them at a prepared tree.
namespace ombry::linux_platform::machine {

// MemTotal of /proc/meminfo, in bytes; 0 when absent.
uint64_t memTotalBytes(const QByteArray& meminfo);
// The first "model name" of /proc/cpuinfo, blanks collapsed; empty when absent.
QString modelName(const QByteArray& cpuinfo);
// 0 nominal, 1 fair, 2 serious, 3 critical: the worst state of any thermal zone under
// {root}/sys/class/thermal, judged by the kinds of trip point that its temperature reached
// (active 1, passive 2, hot or critical 3). 0 when nothing is readable.
int thermalState(const QString& root);
// /etc/machine-id, else /var/lib/dbus/machine-id, trimmed; empty when neither is readable.
QString machineId(const QString& root);
// The ACPI platform profile says "low-power".
bool acpiLowPower(const QString& root);

} // namespace ombry::linux_platform::machine
