#pragma once

#include <QString>

namespace ombry {

// One line on standard output, UTF-8, flushed at once: the headless modes are read by scripts
// while they run.
void printLine(const QString& line);

} // namespace ombry
