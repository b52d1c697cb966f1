// The costs of transcription on this machine: converting a minute of WAV from a recorder's
// usual formats, and pocketsphinx keeping up with speech as the live preview feeds it (one
// hypothesis per 64 ms buffer) against one pass over the whole recording. The speech is
// espeak-ng's, converted by sox, repeated to about twenty seconds.
#include "engines/AudioFile.h"
#include "engines/OfflineSpeech.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

#include <cmath>
#include <cstdio>

using namespace ombry;

namespace {

QByteArray wavFile(int rate, int channels, int bits, int seconds) {
    const int frames = rate * seconds;
    QByteArray data(qsizetype(frames) * channels * (bits / 8), '\0');
    uchar* out = reinterpret_cast<uchar*>(data.data());
    for (int i = 0; i < frames; ++i) {
        const double v = 0.3 * std::sin(2 * M_PI * 220.0 * i / rate);
        for (int c = 0; c < channels; ++c) {
            const qint32 s = qint32(std::lround(v * ((1 << (bits - 1)) - 1)));
            for (int b = 0; b < bits / 8; ++b)
                *out++ = uchar((s >> (8 * b)) & 0xFF);
        }
    }
    QByteArray header = "RIFF" + QByteArray(4, '\0') + "WAVEfmt " + QByteArray(20, '\0');
    qToLittleEndian<quint32>(16, header.data() + 16);
    qToLittleEndian<quint16>(1, header.data() + 20);
    qToLittleEndian<quint16>(quint16(channels), header.data() + 22);
    qToLittleEndian<quint32>(quint32(rate), header.data() + 24);
    qToLittleEndian<quint32>(quint32(rate * channels * bits / 8), header.data() + 28);
    qToLittleEndian<quint16>(quint16(channels * bits / 8), header.data() + 32);
    qToLittleEndian<quint16>(quint16(bits), header.data() + 34);
    QByteArray size(4, '\0');
    qToLittleEndian<quint32>(quint32(data.size()), size.data());
    return header + "data" + size + data;
}

void conversion(int rate, int channels, int bits) {
    const QByteArray file = wavFile(rate, channels, bits, 60);
    QElapsedTimer t;
    t.start();
    const QByteArray pcm = AudioFile::speechPcm(file).value_or(QByteArray());
    std::printf("60 s of %d Hz, %d channel(s), %d-bit: converted in %.1f ms (%lld bytes out)\n",
                rate, channels, bits, double(t.nsecsElapsed()) / 1e6, qlonglong(pcm.size()));
}

} // namespace

int main() {
    conversion(48000, 2, 16);
    conversion(44100, 2, 24);
    conversion(16000, 1, 16);

    const auto model = OfflineSpeech::modelFor(QStringLiteral("en"), QString());
    QTemporaryDir dir;
    const QString raw = dir.filePath("raw.wav"), wav = dir.filePath("speech.wav");
    const QString words = QStringLiteral("the quick brown fox jumps over the lazy dog while "
                                         "the children play in the garden next to the river");
    if (!model || QProcess::execute("espeak-ng", {"-v", "en", "-w", raw, words}) != 0 ||
        QProcess::execute("sox", {raw, "-r", "16000", "-c", "1", "-b", "16", wav}) != 0) {
        std::printf("pocketsphinx: espeak-ng, sox and the English model are needed\n");
        return 0;
    }
    QFile f(wav);
    f.open(QIODevice::ReadOnly);
    const QByteArray once = AudioFile::speechPcm(f.readAll()).value_or(QByteArray());
    QByteArray pcm;
    while (pcm.size() < 20 * 32000)
        pcm += once;
    const double seconds = double(pcm.size()) / 32000;

    for (const bool streaming : {false, true}) {
        QElapsedTimer t;
        t.start();
        auto decoder = OfflineSpeech::Decoder::open(*model, QString(), nullptr, streaming);
        std::printf("pocketsphinx%s: model loaded in %.0f ms\n", streaming ? " (streaming)" : "",
                    double(t.nsecsElapsed()) / 1e6);

        t.restart();
        decoder->startUtterance();
        for (qsizetype at = 0; at < pcm.size(); at += 2048) {
            decoder->process(pcm.mid(at, 2048));
            decoder->hypothesis();
        }
        const QString fed = decoder->endUtterance();
        const double streamed = double(t.nsecsElapsed()) / 1e9;

        t.restart();
        decoder->startUtterance();
        decoder->process(pcm);
        decoder->endUtterance();
        const double whole = double(t.nsecsElapsed()) / 1e9;
        std::printf("  %.1f s of speech: fed as the preview does %.2f s (%.2fx real time), in "
                    "one pass %.2f s (%.2fx)\n  \"%s\"\n",
                    seconds, streamed, streamed / seconds, whole, whole / seconds,
                    qPrintable(fed.left(100)));
    }
    return 0;
}
