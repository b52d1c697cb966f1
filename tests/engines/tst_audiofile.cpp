// Audio files as other programs write them become the engines' 16-bit mono 16 kHz audio: the
// same tone in each format, layout and kind of file comes out as the same samples.
#include "audio/AudioRecorder.h"
#include "engines/AudioFile.h"

#include <QTemporaryFile>
#include <QTest>
#include <QtEndian>

#include <sndfile.h>

#include <cmath>
#include <functional>

using namespace ombry;

namespace {

using Wave = std::function<double(int frame, int channel)>;

// A file written by libsndfile: `frames` frames of wave(frame, channel) in [-1, 1].
QByteArray written(int format, int rate, int channels, int frames, const Wave& wave) {
    QTemporaryFile file;
    if (!file.open()) return {};
    SF_INFO info{0, rate, channels, format, 0, 0};
    SNDFILE* f = sf_open(QFile::encodeName(file.fileName()).constData(), SFM_WRITE, &info);
    if (!f) return {};
    std::vector<double> samples;
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            samples.push_back(wave(i, c));
    sf_writef_double(f, samples.data(), frames);
    sf_close(f);
    return file.readAll();
}

Wave sine(double hz, int rate) {
    return [=](int i, int) { return 0.5 * std::sin(2 * M_PI * hz * i / rate); };
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

QByteArray speech(const QByteArray& file) {
    return AudioFile::speechPcm(file).value_or(QByteArray());
}

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

} // namespace

class TstAudioFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyFormatGivesTheSameSpeech_data() {
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("lossy");
        const int wav = SF_FORMAT_WAV;
        QTest::newRow("8-bit") << (wav | SF_FORMAT_PCM_U8) << 16000 << 1 << false;
        QTest::newRow("24-bit stereo") << (wav | SF_FORMAT_PCM_24) << 16000 << 2 << false;
        QTest::newRow("32-bit") << (wav | SF_FORMAT_PCM_32) << 16000 << 1 << false;
        QTest::newRow("float") << (wav | SF_FORMAT_FLOAT) << 16000 << 1 << false;
        QTest::newRow("float extensible")
            << (SF_FORMAT_WAVEX | SF_FORMAT_FLOAT) << 16000 << 2 << false;
        QTest::newRow("48 kHz stereo") << kWav16 << 48000 << 2 << false;
        QTest::newRow("44.1 kHz") << kWav16 << 44100 << 1 << false;
        QTest::newRow("8 kHz") << kWav16 << 8000 << 1 << false;
        QTest::newRow("11,111 Hz") << kWav16 << 11111 << 1 << false;
        QTest::newRow("flac") << (SF_FORMAT_FLAC | SF_FORMAT_PCM_16) << 44100 << 1 << false;
        QTest::newRow("ogg") << (SF_FORMAT_OGG | SF_FORMAT_VORBIS) << 44100 << 1 << true;
        QTest::newRow("opus") << (SF_FORMAT_OGG | SF_FORMAT_OPUS) << 48000 << 1 << true;
        QTest::newRow("mp3") << (SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III) << 44100 << 1 << true;
    }
    void everyFormatGivesTheSameSpeech() {
        QFETCH(int, format);
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(bool, lossy);
        const auto reference = samplesOf(speech(written(kWav16, 16000, 1, 8000, sine(440, 16000))));
        QCOMPARE(reference.size(), size_t(8000));
        const QByteArray file = written(format, rate, channels, rate / 2, sine(440, rate));
        QVERIFY(!file.isEmpty());
        QString error;
        const auto pcm = AudioFile::speechPcm(file, &error);
        QVERIFY2(pcm, qPrintable(error));
        const auto got = samplesOf(*pcm);
        if (lossy) {
            // Lossy coders pad and shift the wave a little: the length within 60 ms and the
            // level within a few percent tell that the tone came through.
            QVERIFY2(std::abs(int(got.size()) - 8000) < 960,
                     qPrintable(QString::number(got.size())));
            QVERIFY(std::abs(rms(got, 2000) - rms(reference, 2000)) < 0.05 * rms(reference, 2000));
        } else {
            // The same wave within a few percent of full scale (8-bit and rate conversion cost
            // a little precision).
            QVERIFY2(std::abs(int(got.size()) - 8000) <= 2,
                     qPrintable(QString::number(got.size())));
            int worst = 0;
            for (size_t i = 4; i + 4 < got.size(); ++i)
                worst = std::max(worst, std::abs(got[i] - reference[i]));
            QVERIFY2(worst < 1600, qPrintable(QString::number(worst)));
        }
        QVERIFY(!AudioFile::speechPcm(file.left(30), &error)); // cut inside its header
    }

    void channelsAreAveraged() {
        // Opposite channels cancel out; one silent channel halves the level.
        const Wave tone = sine(440, 16000);
        const auto level = [&](double second) {
            return rms(samplesOf(speech(written(kWav16, 16000, 2, 1600, [&](int i, int ch) {
                return ch == 0 ? tone(i, 0) : second * tone(i, 0);
            }))));
        };
        QVERIFY(level(-1) < 0.001);
        QVERIFY(std::abs(level(0) - 0.5 / std::sqrt(2.0) / 2) < 0.01);
    }

    void downsamplingKeepsSpeechAndDropsWhatWouldFoldBack() {
        // At 16 kHz a 9 kHz tone would come back as a 7 kHz one; speech frequencies stay whole
        // up to 7.5 kHz (a hand-written filter once lost 4.6 dB at 7 kHz and let 8.5-9 kHz
        // fold back at -25 dB).
        const auto level = [](int rate, double hz) {
            // Away from both ends, where the tone starts and stops at once (a click that
            // reaches every frequency).
            auto samples = samplesOf(speech(written(kWav16, rate, 1, rate / 5, sine(hz, rate))));
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

    void layoutsOfOtherWritersAndRefusals() {
        const QByteArray pcm(200, '\7');
        const QByteArray plain = AudioRecorder::wav(pcm);
        QCOMPARE(speech(plain), pcm); // the engines' own format passes through untouched
        // A chunk of odd size before the format is skipped with its pad byte.
        QByteArray listed = plain;
        listed.insert(12, QByteArray("LIST\3\0\0\0abc\0", 12));
        qToLittleEndian<quint32>(quint32(listed.size() - 8), listed.data() + 4);
        QCOMPARE(speech(listed), pcm);
        // A streaming writer's data size, or one never written (a recording cut short): what
        // is there is taken.
        QByteArray streamed = plain;
        qToLittleEndian<quint32>(0xFFFFFFFF, streamed.data() + 40);
        QCOMPARE(speech(streamed), pcm);
        QByteArray unsized = plain;
        qToLittleEndian<quint32>(0, unsized.data() + 40);
        qToLittleEndian<quint32>(0, unsized.data() + 4);
        QCOMPARE(speech(unsized), pcm);
        QCOMPARE(speech(plain + "\1"), pcm); // a half frame at the end is not a sample

        QString error;
        for (const QByteArray& bytes : {QByteArray("RIFF\0\0\0\0WAVEdata\0\0\0\0", 20),
                                        QByteArray("ID3 not an audio file at all"), QByteArray()}) {
            error.clear();
            QVERIFY(!AudioFile::speechPcm(bytes, &error) && !error.isEmpty());
        }
        QVERIFY2(error.startsWith("format audio non reconnu"), qPrintable(error));
        QVERIFY(!AudioFile::speechPcm(QStringLiteral("/nonexistent/file.wav"), &error));
    }
};

QTEST_GUILESS_MAIN(TstAudioFile)
#include "tst_audiofile.moc"
