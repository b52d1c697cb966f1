// Audio files as other programs write them become the engines' 16-bit mono 16 kHz audio: the
// same tone written in each sample format, layout and kind of file must come out as the same
// samples.
#include "audio/AudioRecorder.h"
#include "engines/AudioFile.h"

#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <sndfile.h>

#include <cmath>
#include <cstring>
#include <functional>

using namespace ombry;

namespace {

// A RIFF/WAVE file of `frames` frames, each sample given by sample(frame, channel) in [-1, 1].
QByteArray makeWav(int encoding, int bits, int channels, int rate, int frames,
                   const std::function<double(int, int)>& sample, bool extensible = false,
                   const QByteArray& chunkBefore = {}) {
    QByteArray data;
    for (int i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            const double v = sample(i, c);
            uchar b[4];
            if (encoding == 3) {
                const float f = float(v);
                std::memcpy(b, &f, 4);
            } else if (bits == 8) {
                b[0] = uchar(std::lround(v * 127.0) + 128);
            } else {
                const qint64 max = (qint64(1) << (bits - 1)) - 1;
                qToLittleEndian<qint32>(qint32(std::llround(v * double(max))), b);
            }
            data.append(reinterpret_cast<const char*>(b), bits / 8);
        }
    }
    const auto u16 = [](int v) {
        QByteArray b(2, '\0');
        qToLittleEndian<quint16>(quint16(v), b.data());
        return b;
    };
    const auto u32 = [](quint32 v) {
        QByteArray b(4, '\0');
        qToLittleEndian<quint32>(v, b.data());
        return b;
    };
    QByteArray fmt = u16(extensible ? 0xFFFE : encoding) + u16(channels) + u32(quint32(rate)) +
                     u32(quint32(rate * channels * bits / 8)) + u16(channels * bits / 8) +
                     u16(bits);
    if (extensible) // cbSize, valid bits, channel mask, then the sub-format's identifier
        fmt += u16(22) + u16(bits) + u32(0) + u16(encoding) +
               QByteArray::fromHex("000000001000800000aa00389b71");
    const QByteArray body = "WAVE" + chunkBefore + "fmt " + u32(quint32(fmt.size())) + fmt +
                            "data" + u32(quint32(data.size())) + data;
    return "RIFF" + u32(quint32(body.size())) + body;
}

std::vector<int> samplesOf(const QByteArray& pcm) {
    std::vector<int> out(size_t(pcm.size() / 2));
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = qFromLittleEndian<qint16>(pcm.constData() + 2 * i);
    return out;
}

double rms(const std::vector<int>& s, size_t from = 0) {
    double total = 0;
    for (size_t i = from; i < s.size(); ++i)
        total += double(s[i]) * s[i];
    return s.size() > from ? std::sqrt(total / double(s.size() - from)) / 32768.0 : 0.0;
}

// 440 Hz at half scale, a tenth of a second.
double tone(int frame, int rate) {
    return 0.5 * std::sin(2 * M_PI * 440.0 * frame / rate);
}

QByteArray speech(const QByteArray& file) {
    return AudioFile::speechPcm(file).value_or(QByteArray());
}

// The same tone written by libsndfile in another kind of file (FLAC, Ogg, MP3).
QByteArray encoded(const QString& path, int format, int rate, int frames) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = format;
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!f) return {};
    std::vector<double> samples(static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i)
        samples[size_t(i)] = tone(i, rate);
    sf_writef_double(f, samples.data(), frames);
    sf_close(f);
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TstAudioFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyFormatGivesTheSameSpeech() {
        const auto reference = samplesOf(
            speech(makeWav(1, 16, 1, 16000, 1600, [](int i, int) { return tone(i, 16000); })));
        QCOMPARE(reference.size(), size_t(1600));

        struct Case {
            const char* name;
            int encoding, bits, channels, rate;
            bool extensible;
        };
        for (const Case& c :
             {Case{"8-bit", 1, 8, 1, 16000, false}, Case{"24-bit stereo", 1, 24, 2, 16000, false},
              Case{"32-bit", 1, 32, 1, 16000, false}, Case{"float", 3, 32, 1, 16000, false},
              Case{"float extensible", 3, 32, 2, 16000, true},
              Case{"48 kHz stereo", 1, 16, 2, 48000, false},
              Case{"44.1 kHz", 1, 16, 1, 44100, false}, Case{"8 kHz", 1, 16, 1, 8000, false},
              Case{"11,111 Hz", 1, 16, 1, 11111, false}}) {
            const int frames = c.rate / 10;
            const QByteArray file = makeWav(
                c.encoding, c.bits, c.channels, c.rate, frames,
                [&](int i, int) { return tone(i, c.rate); }, c.extensible);
            QString error;
            const auto pcm = AudioFile::speechPcm(file, &error);
            QVERIFY2(pcm, qPrintable(QString::fromLatin1(c.name) + ": " + error));
            const auto got = samplesOf(*pcm);
            // The same duration, and the same wave within a few percent of full scale (8-bit
            // and rate conversion cost a little precision).
            QVERIFY2(std::abs(int(got.size()) - 1600) <= 2, c.name);
            int worst = 0;
            for (size_t i = 4; i + 4 < got.size(); ++i)
                worst = std::max(worst, std::abs(got[i] - reference[i]));
            QVERIFY2(worst < 1600, qPrintable(QStringLiteral("%1: %2").arg(c.name).arg(worst)));
        }
    }

    void channelsAreAveraged() {
        // Opposite channels cancel out; one silent channel halves the level.
        const auto opposite = makeWav(1, 16, 2, 16000, 1600, [](int i, int ch) {
            return ch == 0 ? tone(i, 16000) : -tone(i, 16000);
        });
        QVERIFY(rms(samplesOf(speech(opposite))) < 0.001);
        const auto oneSided = makeWav(1, 16, 2, 16000, 1600,
                                      [](int i, int ch) { return ch == 0 ? tone(i, 16000) : 0; });
        const double level = rms(samplesOf(speech(oneSided)));
        QVERIFY(std::abs(level - 0.5 / std::sqrt(2.0) / 2) < 0.01);
    }

    void downsamplingKeepsSpeechAndDropsWhatWouldFoldBack() {
        // At 16 kHz a 9 kHz tone would come back as a 7 kHz one; speech frequencies stay whole
        // up to 7.5 kHz (a hand-written filter once lost 4.6 dB at 7 kHz and let 8.5-9 kHz
        // fold back at -25 dB).
        const auto level = [](int rate, double hz) {
            const QByteArray file = makeWav(1, 16, 1, rate, rate / 5, [&](int i, int) {
                return 0.5 * std::sin(2 * M_PI * hz * i / rate);
            });
            // Away from both ends, where the tone starts and stops at once (a click that
            // reaches every frequency).
            auto samples = samplesOf(speech(file));
            samples.resize(samples.size() - 400);
            return rms(samples, 400);
        };
        const double full = 0.5 / std::sqrt(2.0);
        const double halfDecibel = std::pow(10.0, -0.5 / 20);
        for (int rate : {48000, 44100, 22050, 44111}) {
            for (double hz : {300.0, 3000.0, 7000.0, 7500.0})
                QVERIFY2(level(rate, hz) > halfDecibel * full,
                         qPrintable(QStringLiteral("%1 Hz from %2").arg(hz).arg(rate)));
            for (double hz : {8500.0, 9000.0, 10000.0})
                QVERIFY2(level(rate, hz) < 0.001 * full, // -60 dB
                         qPrintable(QStringLiteral("%1 Hz from %2").arg(hz).arg(rate)));
        }
    }

    void otherKindsOfFiles() {
        QTemporaryDir dir;
        const auto reference = samplesOf(
            speech(makeWav(1, 16, 1, 16000, 8000, [](int i, int) { return tone(i, 16000); })));
        struct Case {
            const char* name;
            int format, rate;
        };
        for (const Case& c : {Case{"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100},
                              Case{"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100},
                              Case{"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
                              Case{"mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100}}) {
            const QByteArray file =
                encoded(dir.filePath(QLatin1String(c.name)), c.format, c.rate, c.rate / 2);
            QVERIFY2(!file.isEmpty(), c.name);
            QString error;
            const auto pcm = AudioFile::speechPcm(file, &error);
            QVERIFY2(pcm, qPrintable(QString::fromLatin1(c.name) + ": " + error));
            // Lossy coders add some padding and shift the wave a little: the length within
            // 60 ms and the level within a few percent tell that the tone came through.
            const auto got = samplesOf(*pcm);
            QVERIFY2(std::abs(int(got.size()) - 8000) < 960,
                     qPrintable(QStringLiteral("%1: %2").arg(c.name).arg(got.size())));
            QVERIFY2(std::abs(rms(got, 2000) - rms(reference, 2000)) < 0.05 * rms(reference, 2000),
                     c.name);
            // Cut inside its header.
            QVERIFY2(!AudioFile::speechPcm(file.left(30), &error), c.name);
        }
    }

    void layoutsOfOtherWriters() {
        const auto file = [](const QByteArray& before = {}) {
            return makeWav(
                1, 16, 1, 16000, 100, [](int i, int) { return i / 200.0; }, false, before);
        };
        const QByteArray plain = file();
        // The engines' own format passes through untouched.
        QCOMPARE(speech(plain), plain.mid(44));
        // A chunk of odd size before the format is skipped with its pad byte.
        QCOMPARE(speech(file(QByteArray("LIST\3\0\0\0abc\0", 12))), plain.mid(44));
        // A streaming writer's data size, or one never written (a recording cut short): what
        // is there is taken.
        QByteArray streamed = plain;
        qToLittleEndian<quint32>(0xFFFFFFFF, streamed.data() + 40);
        QCOMPARE(speech(streamed), plain.mid(44));
        QByteArray unsized = plain;
        qToLittleEndian<quint32>(0, unsized.data() + 40);
        qToLittleEndian<quint32>(0, unsized.data() + 4);
        QCOMPARE(speech(unsized), plain.mid(44));
        // A half frame at the end is not a sample.
        QCOMPARE(speech(plain + "\1").size(), 200);
        // AudioRecorder's files are read back as written.
        const QByteArray pcm(640, '\7');
        QCOMPARE(speech(AudioRecorder::wav(pcm)), pcm);
    }

    void refusalsSayWhy() {
        QString error;
        const auto refused = [&](const QByteArray& bytes) {
            error.clear();
            return !AudioFile::speechPcm(bytes, &error) && !error.isEmpty();
        };
        QVERIFY(refused("RIFF\0\0\0\0WAVEdata\0\0\0\0"));
        QVERIFY(refused("ID3 not an audio file at all"));
        QVERIFY(refused(QByteArray()));
        QVERIFY2(error.startsWith("format audio non reconnu"), qPrintable(error));
        QVERIFY(!AudioFile::speechPcm(QStringLiteral("/nonexistent/file.wav"), &error));
    }
};

QTEST_GUILESS_MAIN(TstAudioFile)
#include "tst_audiofile.moc"
