// Reading a user's audio file into the engines' 16 kHz mono speech: a 30-minute 44.1 kHz
// stereo WAV read and converted (time, peak memory), and the conversion's frequency response
// from 44.1 and 48 kHz (a sweep of tones: the level each keeps, in dB).
#include "engines/AudioFile.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>
#include <cstdio>
#include <sys/resource.h>

using namespace ombry;

namespace {

long peakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A stereo 16-bit WAV of `seconds` at `rate`, written in blocks (a voice-like mix of tones).
bool writeLongWav(const QString& path, int rate, int seconds) {
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly)) return false;
    const quint32 bytes = quint32(rate) * 4u * quint32(seconds);
    QByteArray header(44, '\0');
    auto* h = reinterpret_cast<uchar*>(header.data());
    std::memcpy(h, "RIFF", 4);
    qToLittleEndian<quint32>(36 + bytes, h + 4);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    qToLittleEndian<quint32>(16, h + 16);
    qToLittleEndian<quint16>(1, h + 20);
    qToLittleEndian<quint16>(2, h + 22);
    qToLittleEndian<quint32>(quint32(rate), h + 24);
    qToLittleEndian<quint32>(quint32(rate) * 4, h + 28);
    qToLittleEndian<quint16>(4, h + 32);
    qToLittleEndian<quint16>(16, h + 34);
    std::memcpy(h + 36, "data", 4);
    qToLittleEndian<quint32>(bytes, h + 40);
    f.write(header);
    QByteArray block(rate * 4, '\0');
    for (int s = 0; s < seconds; ++s) {
        auto* p = reinterpret_cast<uchar*>(block.data());
        for (int i = 0; i < rate; ++i) {
            const double t = double(s * rate + i) / rate;
            const double v =
                0.3 * std::sin(2 * M_PI * 220 * t) + 0.1 * std::sin(2 * M_PI * 2500 * t);
            const qint16 sample = qint16(v * 32767);
            qToLittleEndian<qint16>(sample, p + 4 * i);
            qToLittleEndian<qint16>(sample, p + 4 * i + 2);
        }
        if (f.write(block) != block.size()) return false;
    }
    return true;
}

double levelDb(int rate, double hz) {
    std::vector<float> in(size_t(rate / 2));
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = float(0.5 * std::sin(2 * M_PI * hz * double(i) / rate));
    const std::vector<float> out = AudioFile::resample(in, rate, 16000);
    double total = 0;
    size_t n = 0;
    for (size_t i = 800; i + 800 < out.size(); ++i, ++n)
        total += double(out[i]) * out[i];
    const double rms = n ? std::sqrt(total / double(n)) : 0;
    return 20 * std::log10(std::max(rms, 1e-12) / (0.5 / std::sqrt(2.0)));
}

} // namespace

int main() {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("long.wav"));
    if (!writeLongWav(path, 44100, 30 * 60)) {
        std::printf("could not write the test file\n");
        return 1;
    }
    const long before = peakKilobytes();
    QElapsedTimer t;
    t.start();
    QString error;
    const auto pcm = AudioFile::speechPcm(path, &error);
    const double ms = double(t.nsecsElapsed()) / 1e6;
    std::printf("30 min of 44.1 kHz stereo 16-bit (%lld MB): %s in %.0f ms, %lld MB out, "
                "peak memory %+ld MB\n",
                qlonglong(QFile(path).size() >> 20), pcm ? "read" : qPrintable(error), ms,
                qlonglong(pcm ? pcm->size() >> 20 : 0), (peakKilobytes() - before) / 1024);

    std::printf("frequency response to 16 kHz (dB kept; above 8 kHz, what folds back):\n");
    std::printf("   Hz   from 44.1k  from 48k\n");
    for (double hz = 1000; hz <= 10000; hz += 500)
        std::printf("%6.0f  %9.1f  %8.1f\n", hz, levelDb(44100, hz), levelDb(48000, hz));
    return 0;
}
