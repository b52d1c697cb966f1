// Times the PCM chain that runs after every dictation (peak, trim, normalise, WAV) and the
// speech measure, on a minute of synthetic audio: bursts of tone between silences.
#include "audio/AudioRecorder.h"

#include <QElapsedTimer>
#include <QtEndian>
#include <cmath>
#include <cstdio>

using ombry::AudioRecorder;

int main() {
    constexpr int kSeconds = 60;
    QByteArray pcm(kSeconds * AudioRecorder::kBytesPerSecond, '\0');
    for (int i = 0; i < kSeconds * AudioRecorder::kSampleRate; ++i) {
        const bool voiced = (i / 8000) % 3 != 0; // half-second bursts, a quarter silent
        const double v = voiced ? 3000 * std::sin(i * 0.07) : 0;
        qToLittleEndian<qint16>(qint16(v), pcm.data() + 2 * i);
    }
    constexpr int kRounds = 20;
    QElapsedTimer t;
    t.start();
    qsizetype sink = 0;
    for (int r = 0; r < kRounds; ++r) {
        const int64_t peak = AudioRecorder::peak(pcm);
        sink += AudioRecorder::wav(AudioRecorder::normalize(AudioRecorder::trimSilence(pcm), peak))
                    .size();
    }
    const double chainMs = double(t.nsecsElapsed()) / 1e6 / kRounds;
    t.restart();
    double seconds = 0;
    for (int r = 0; r < kRounds; ++r)
        seconds += AudioRecorder::speechSeconds(pcm);
    const double speechMs = double(t.nsecsElapsed()) / 1e6 / kRounds;
    std::printf("%d s of PCM: peak+trim+normalize+wav %.2f ms, speechSeconds %.2f ms "
                "(%.2f s voiced, %lld)\n",
                kSeconds, chainMs, speechMs, seconds / kRounds, qlonglong(sink % 7));
    return 0;
}
