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

// The text on one line: line breaks, with the blanks around them, become one space.
QString oneLine(const QString& text);

// The one failure line of a headless mode: "erreur: " and the error's description, whose line
// breaks (an HTML page of an error, say) are folded into that one line.
void printError(const std::exception& e);
void printError(const QString& description);

// A mode's audio file as the 16-bit mono 16 kHz PCM the engines take, whatever its kind (WAV,
// FLAC, Ogg, Opus, MP3…: engines/AudioFile.h). Only a regular file is read (a pipe or a device
// is refused without waiting on it); the path is taken as given, bytes that are not UTF-8
// included (see Paths::fromNative). When it cannot be read, the failure line is printed and
// nothing is returned.
std::optional<QByteArray> readSpeechFile(const QString& path);

// Seconds since the timer started, as the modes print them ("%.1f").
QString secondsSince(const QElapsedTimer& timer);

} // namespace ombry
