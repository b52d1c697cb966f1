#pragma once

#include "data/Settings.h"

#include <QString>
#include <cstdint>
#include <functional>

// What the machine is, and whether the interface should lighten its visual effects.
namespace ombry::DeviceProfile {

// Read once from the platform on first use, then kept for the run.
int memoryGB(); // physical memory in GiB, rounded to the nearest integer
int cores();    // online processors
QString chip(); // CPU model; empty when unknown

// Low-power mode, or a thermal state of 2 (serious) or 3 (critical). Asked afresh each time.
bool isConstrained();

// By the performance setting: light true, full false, auto by the machine. Asked afresh each
// time, so a change of setting or power state shows at the next view that asks.
bool lightVisuals();

// "{chip} · {memoryGB} Go · {cores} cœurs".
QString summary();

// The line written to the journal at start-up: "ordinateur: {summary}, effets légers|complets".
QString launchLine();

// The rules above as functions of their inputs.
int roundedGB(uint64_t bytes);
bool isConstrained(bool lowPower, int thermalState);
// auto, judged by what the machine is: memory under 9, cores under 5, then constrained (power
// saving or heat), tested in that order; constrained is asked only when nothing before it
// decided. The make of the processor plays no part.
bool lightVisuals(PerformanceMode mode, int memoryGB, int cores,
                  const std::function<bool()>& constrained);
QString summary(const QString& chip, int memoryGB, int cores);

} // namespace ombry::DeviceProfile
