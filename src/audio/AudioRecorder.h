#pragma once

#include <QByteArray>
#include <cstdint>

namespace ombry {

// The microphone recorder and the pure functions that hold the program's notion of speech,
// silence and level. All audio is PCM: signed 16-bit little-endian mono at 16,000 Hz, raw
// bytes, 32,000 bytes a second. A trailing odd byte is not a sample and is ignored by the
// analysis.
//
// The static functions touch no state and may run on any thread. The capture side (start,
// stop, level, pauses) joins this class later.
class AudioRecorder {
public:
    static constexpr int kSampleRate = 16000;
    static constexpr int kBytesPerSecond = 32000;
    static constexpr int kFrameSamples = 320;        // 20 ms
    static constexpr int kLoudSample = 500;          // trimming: magnitude above this is loud
    static constexpr double kSpeechFrameRms = 600.0; // speech frame: RMS strictly above this
    static constexpr int kTrimMarginSamples = 4000;  // a quarter second kept on each side

    // Seconds of voiced frames (RMS above 600 over 20 ms frames; the last frame may be short).
    static double speechSeconds(const QByteArray& pcm);
    // Cuts leading and trailing silence, keeping a quarter-second margin. A buffer with no
    // loud sample comes back whole.
    static QByteArray trimSilence(const QByteArray& pcm);
    // Brings a quiet recording up (gain 20,000 / peak, at most 8) when peak is 201..11,999;
    // returns the input unchanged otherwise.
    static QByteArray normalize(const QByteArray& pcm, int64_t peak);
    // A complete WAV file: the 44-byte header over the PCM bytes.
    static QByteArray wav(const QByteArray& pcm);
    // The largest sample magnitude (-32768 gives 32768); 0 for an empty buffer.
    static int64_t peak(const QByteArray& pcm);
};

} // namespace ombry
