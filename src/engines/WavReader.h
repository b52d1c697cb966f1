#pragma once

// Reading a WAV file made by any program into the audio the engines of this machine take:
// signed 16-bit little-endian mono at 16 kHz. Integer PCM of 8, 16, 24 or 32 bits and 32-bit
// float, at any rate and with any number of channels, are converted; channels are averaged and
// the rate is changed through a low-pass filter (no aliasing from 44.1 or 48 kHz).

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace ombry::WavReader {

struct Format {
    int encoding = 0; // 1 integer PCM, 3 IEEE float (the extensible layout's sub-format)
    int channels = 0;
    int rate = 0;
    int bits = 0;
};

struct Audio {
    Format format;
    QByteArray data; // the bytes of the "data" chunk
};

// The format and samples of a RIFF/WAVE file. None, with the reason in French in `error`, when
// the bytes are no WAV file or the format is not one of the above.
std::optional<Audio> parse(const QByteArray& wav, QString* error = nullptr);

// The samples as 16-bit mono 16 kHz PCM.
QByteArray toSpeechPcm(const Audio& audio);

// A mono signal in [-1, 1] from `from` Hz to `to` Hz, through a windowed-sinc low-pass whose
// cut-off sits just under the lower rate's limit: nothing above it folds back into speech.
std::vector<float> resample(const std::vector<float>& mono, int from, int to);

} // namespace ombry::WavReader
