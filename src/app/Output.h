#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QString>
#include <exception>
#include <optional>

namespace ombry {

// One line on standard output, UTF-8, flushed at once: the headless modes are read by scripts
// while they run.
void printLine(const QString& line);

// The one failure line of a headless mode: "erreur: " and the error's description.
void printError(const std::exception& e);

// A mode's input file read whole; when it cannot be read, the failure line is printed and
// nothing is returned.
std::optional<QByteArray> readInputFile(const QString& path);

// Seconds since the timer started, as the modes print them ("%.1f").
QString secondsSince(const QElapsedTimer& timer);

} // namespace ombry
