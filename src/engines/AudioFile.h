#pragma once

// Reading an audio file of any kind the user has into the audio the speech engines take:
// signed 16-bit little-endian mono at 16 kHz. libsndfile decodes the file (WAV of every
// layout, FLAC, Ogg Vorbis and Opus, MP3, AIFF…), channels are averaged, and libsoxr changes
// the rate. The file is read and converted in blocks: memory holds the result, never the whole
// decoded file.

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

class QIODevice;

namespace ombry::AudioFile {

// The speech PCM of a file on disk, or of its bytes in memory. None, with the reason in French
// in `error`, when the bytes are no audio file libsndfile knows or are damaged beyond reading.
// A WAV whose data size was never written (a recording cut short: 0, or the streaming value
// 0xFFFFFFFF) is read to the end of the file.
std::optional<QByteArray> speechPcm(const QString& path, QString* error = nullptr);
std::optional<QByteArray> speechPcm(const QByteArray& bytes, QString* error = nullptr);

// A mono signal in [-1, 1] from `from` Hz to `to` Hz, through libsoxr's high-quality filter:
// flat to 7.5 kHz when going to 16 kHz, and nothing above the new limit folds back.
std::vector<float> resample(const std::vector<float>& mono, int from, int to);

} // namespace ombry::AudioFile
