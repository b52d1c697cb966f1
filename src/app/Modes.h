#pragma once

#include "app/Switches.h"

#include <QCoroTask>

namespace ombry {

// Runs one headless mode to its end, printing its lines. It never throws: a failure is printed
// as one "erreur: …" line. The caller then ends the process with status 0.
QCoro::Task<void> runMode(CommandLineSwitch sw);

} // namespace ombry
