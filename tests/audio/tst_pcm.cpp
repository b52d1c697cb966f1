// The PCM functions decide what counts as speech and what reaches the recogniser: their
// frame grids, margins and rounding are pinned here sample by sample.
#include "audio/AudioRecorder.h"

#include <QTest>
#include <QtEndian>
#include <vector>

using ombry::AudioRecorder;

namespace {

QByteArray pcm(const std::vector<int16_t>& samples) {
    QByteArray out(qsizetype(samples.size() * 2), '\0');
    for (size_t i = 0; i < samples.size(); ++i)
        qToLittleEndian<qint16>(samples[i], out.data() + 2 * i);
    return out;
}

QByteArray constant(int count, int16_t value) {
    return pcm(std::vector<int16_t>(size_t(count), value));
}

int16_t sampleAt(const QByteArray& bytes, int i) {
    return qFromLittleEndian<qint16>(bytes.constData() + 2 * i);
}

// A silent buffer of `count` samples with one sample set.
QByteArray withOne(int count, int at, int16_t value) {
    std::vector<int16_t> s(size_t(count), 0);
    s[size_t(at)] = value;
    return pcm(s);
}

} // namespace

class TstPcm : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void speechSeconds_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<double>("seconds");
        QTest::newRow("empty") << QByteArray() << 0.0;
        QTest::newRow("one byte") << QByteArray(1, char(0x7f)) << 0.0;
        QTest::newRow("RMS 600 is not speech") << constant(50 * 320, 600) << 0.0;
        QTest::newRow("RMS 601 is speech") << constant(50 * 320, 601) << 1.0;
        QTest::newRow("negative samples count too") << constant(50 * 320, -601) << 1.0;
        // A short last frame is averaged over its own length and counts a whole 20 ms.
        QTest::newRow("short last frame") << constant(320, 0) + constant(10, 700) << 0.02;
        QTest::newRow("odd trailing byte ignored")
            << constant(320, 700) + QByteArray(1, 'x') << 0.02;
        // Voiced frames are counted, not the span between them.
        QTest::newRow("frames not span")
            << constant(320, 700) + constant(320 * 100, 0) + constant(320, -700) << 0.04;
        // Per-frame RMS: half a frame loud (1000) and half silent gives RMS ~707.
        QTest::newRow("rms within frame") << constant(160, 1000) + constant(160, 0) << 0.02;
        QTest::newRow("rms below within frame") << constant(160, 840) + constant(160, 0) << 0.0;
    }
    void speechSeconds() {
        QFETCH(QByteArray, input);
        QFETCH(double, seconds);
        QCOMPARE(AudioRecorder::speechSeconds(input), seconds);
    }

    void trimSilence_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("from"); // first sample kept
        QTest::addColumn<int>("to");   // one past the last sample kept
        // -1 in `from`: the input comes back whole, byte for byte.
        QTest::newRow("empty") << QByteArray() << -1 << 0;
        QTest::newRow("one byte") << QByteArray(1, char(0x55)) << -1 << 0;
        QTest::newRow("all zeros") << constant(20000, 0) << -1 << 0;
        QTest::newRow("500 is not loud") << withOne(20000, 9000, 500) << -1 << 0;
        QTest::newRow("-500 is not loud")
            << withOne(20000, 9000, -500) + QByteArray(1, 'z') << -1 << 0;
        // Head on the grid from 0 (9,920), tail on the grid from the end (frame 9,760..10,079).
        QTest::newRow("two grids") << withOne(100000, 10000, 501) << 5920 << 14080;
        QTest::newRow("negative loud") << withOne(100000, 10000, -501) << 5920 << 14080;
        QTest::newRow("loud near start") << withOne(100000, 3999, 2000) << 0 << 8000;
        QTest::newRow("loud near end") << withOne(100000, 96500, 2000) << 92320 << 100000;
        QTest::newRow("loud at very end") << withOne(100000, 99999, 2000) << 95840 << 100000;
        QTest::newRow("short buffer") << withOne(700, 350, 2000) << 0 << 700;
        // The trailing odd byte is not a sample and is not carried into the trimmed result.
        QTest::newRow("odd byte dropped")
            << withOne(30000, 15000, 900) + QByteArray(1, 'q') << 10720 << 19280;
    }
    void trimSilence() {
        QFETCH(QByteArray, input);
        QFETCH(int, from);
        QFETCH(int, to);
        const QByteArray out = AudioRecorder::trimSilence(input);
        if (from < 0) {
            QCOMPARE(out, input);
            return;
        }
        QCOMPARE(out, input.mid(2 * from, 2 * (to - from)));
    }

    void trimKeepsBothLoudRegions() {
        std::vector<int16_t> s(64000, 0);
        s[20000] = 3000;
        s[40000] = -3000;
        const QByteArray out = AudioRecorder::trimSilence(pcm(s));
        // Head frame 19,840..20,159; the sample at 40,000 opens the tail frame ending 40,320.
        QCOMPARE(out.size(), 2 * (44320 - 15840));
        QCOMPARE(sampleAt(out, 20000 - 15840), int16_t(3000));
    }

    void normalize_data() {
        QTest::addColumn<qint64>("peak");
        QTest::addColumn<int>("in");
        QTest::addColumn<int>("out"); // -99999: the buffer comes back unchanged
        QTest::newRow("peak 200 untouched") << qint64(200) << 100 << -99999;
        QTest::newRow("peak 12000 untouched") << qint64(12000) << 100 << -99999;
        QTest::newRow("peak 0 untouched") << qint64(0) << 100 << -99999;
        QTest::newRow("negative peak untouched") << qint64(-5000) << 100 << -99999;
        QTest::newRow("peak 201 gain 8") << qint64(201) << 201 << 1608;
        QTest::newRow("gain at most 8") << qint64(1000) << 100 << 800;
        QTest::newRow("peak 5000 gain 4") << qint64(5000) << -1234 << -4936;
        QTest::newRow("peak 11999") << qint64(11999) << 1000 << 1666;
        QTest::newRow("clamped high") << qint64(2500) << 5000 << 32767;
        QTest::newRow("clamped low") << qint64(2500) << -5000 << -32767;
        QTest::newRow("never -32768") << qint64(2500) << -32768 << -32767;
        // 20,000 / 10,526 is 1.90006: truncation toward zero on both sides.
        QTest::newRow("truncate positive") << qint64(10526) << 3 << 5;
        QTest::newRow("truncate negative") << qint64(10526) << -3 << -5;
    }
    void normalize() {
        QFETCH(qint64, peak);
        QFETCH(int, in);
        QFETCH(int, out);
        const QByteArray input = pcm({int16_t(in), 0}) + QByteArray(1, char(0xAB));
        const QByteArray copy = input;
        const QByteArray result = AudioRecorder::normalize(input, peak);
        QCOMPARE(input, copy); // the caller's buffer is left alone
        QCOMPARE(result.size(), input.size());
        QCOMPARE(result.back(), char(0xAB)); // the odd byte rides along unchanged
        QCOMPARE(int(sampleAt(result, 0)), out == -99999 ? in : out);
    }

    void wav_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("odd size, no padding") << QByteArray("\x01\x02\x03", 3);
        QTest::newRow("one second") << constant(16000, -7);
    }
    void wav() {
        QFETCH(QByteArray, input);
        const QByteArray w = AudioRecorder::wav(input);
        QCOMPARE(w.size(), 44 + input.size());
        const char* h = w.constData();
        auto u32 = [&](int at) { return qFromLittleEndian<quint32>(h + at); };
        auto u16 = [&](int at) { return qFromLittleEndian<quint16>(h + at); };
        QCOMPARE(w.left(4), QByteArray("RIFF"));
        QCOMPARE(u32(4), quint32(input.size() + 36));
        QCOMPARE(w.mid(8, 8), QByteArray("WAVEfmt "));
        QCOMPARE(u32(16), 16u);
        QCOMPARE(u16(20), quint16(1));
        QCOMPARE(u16(22), quint16(1));
        QCOMPARE(u32(24), 16000u);
        QCOMPARE(u32(28), 32000u);
        QCOMPARE(u16(32), quint16(2));
        QCOMPARE(u16(34), quint16(16));
        QCOMPARE(w.mid(36, 4), QByteArray("data"));
        QCOMPARE(u32(40), quint32(input.size()));
        QCOMPARE(w.mid(44), input);
    }

    void peak_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<qint64>("peak");
        QTest::newRow("empty") << QByteArray() << qint64(0);
        QTest::newRow("-32768 is 32768") << pcm({5, -32768, 32767}) << qint64(32768);
        QTest::newRow("odd byte ignored") << pcm({3}) + QByteArray(1, char(0x7f)) << qint64(3);
        QTest::newRow("little endian") << QByteArray("\x00\x01", 2) << qint64(256);
    }
    void peak() {
        QFETCH(QByteArray, input);
        QFETCH(qint64, peak);
        QCOMPARE(AudioRecorder::peak(input), peak);
    }
};

QTEST_APPLESS_MAIN(TstPcm)
#include "tst_pcm.moc"
