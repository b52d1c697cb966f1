#pragma once

#include <QColor>
#include <QImage>
#include <QString>

// The application icon, drawn in code so that it stays sharp at every size and follows the
// accent colour: a rounded tile with a soft gradient and a white microphone with sound waves.
// Small sizes drop the waves and thicken the strokes so the mark still reads at 16 pixels.
namespace ombry::OmbryIcon {

// The sizes of the icon set, in pixels.
inline constexpr int kSizes[] = {16, 24, 32, 48, 64, 128, 256, 512, 1024};

// glyph 0: a microphone with sound waves; 1: a waveform of five bars.
QImage render(int size, const QColor& accent, int glyph = 0);

// Writes {folder}/hicolor/{n}x{n}/apps/ombry-voice.png for every size, creating the folders.
// On failure returns false and, when error is given, a French sentence naming what failed.
bool writeIconset(const QString& folder, const QColor& accent, int glyph, QString* error = nullptr);

} // namespace ombry::OmbryIcon
