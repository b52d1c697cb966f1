// The PCM functions decide what counts as speech and what reaches the recogniser: their
// frame grids, margins and rounding are pinned here sample by sample.
#include "audio/AudioRecorder.h"

#include <QTest>
#include <QtEndian>

using ombry::AudioRecorder;

namespace {

QByteArray run(int count, int16_t value) {
    QByteArray out(2 * count, '\0');
    for (int i = 0; i < count; ++i)
        qToLittleEndian<qint16>(value, out.data() + 2 * i);
    return out;
}

// Silence of `count` samples with one sample set.
QByteArray withOne(int count, int at, int16_t value) {
    QByteArray out = run(count, 0);
    qToLittleEndian<qint16>(value, out.data() + 2 * at);
    return out;
}

} // namespace

class TstPcm : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void speechSeconds_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<double>("seconds");
        QTest::newRow("one byte, no sample") << QByteArray(1, char(0x7f)) << 0.0;
        QTest::newRow("RMS 600 is not speech") << run(50 * 320, 600) << 0.0;
        QTest::newRow("RMS 601 is speech") << run(50 * 320, -601) << 1.0;
        // A short last frame is averaged over its own length and counts a whole 20 ms.
        QTest::newRow("short last frame") << run(320, 0) + run(10, 700) << 0.02;
        // Voiced frames are counted, not the span between them; the odd byte is no sample.
        QTest::newRow("frames not span")
            << run(320, 700) + run(32000, 0) + run(320, -700) + QByteArray(1, 'x') << 0.04;
        // Root mean square, not mean: half at 1000, half silent is ~707.
        QTest::newRow("rms within frame") << run(160, 1000) + run(160, 0) << 0.02;
    }
    void speechSeconds() {
        QFETCH(QByteArray, input);
        QFETCH(double, seconds);
        QCOMPARE(AudioRecorder::speechSeconds(input), seconds);
    }

    void trimSilence_data() {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<int>("from"); // first sample kept; -1: the input comes back whole
        QTest::addColumn<int>("to");   // one past the last sample kept
        QTest::newRow("one byte") << QByteArray(1, char(0x55)) << -1 << 0;
        QTest::newRow("-500 is not loud, odd byte kept")
            << withOne(20000, 9000, -500) + "z" << -1 << 0;
        // Head on the grid from 0 (9,920), tail on the grid from the end (frame 9,760..10,079).
        QTest::newRow("two grids") << withOne(100000, 10000, -501) << 5920 << 14080;
        QTest::newRow("loud near start") << withOne(100000, 3999, 2000) << 0 << 8000;
        QTest::newRow("loud near end") << withOne(100000, 96500, 2000) << 92320 << 100000;
        // The odd trailing byte is not carried into a trimmed result.
        QTest::newRow("odd byte dropped") << withOne(30000, 15000, 900) + "q" << 10720 << 19280;
    }
    void trimSilence() {
        QFETCH(QByteArray, input);
        QFETCH(int, from);
        QFETCH(int, to);
        const QByteArray expected = from < 0 ? input : input.mid(2 * from, 2 * (to - from));
        QCOMPARE(AudioRecorder::trimSilence(input), expected);
    }

    void normalize_data() {
        QTest::addColumn<qint64>("peak");
        QTest::addColumn<int>("in");
        QTest::addColumn<int>("out");
        QTest::newRow("peak 200 untouched") << qint64(200) << 100 << 100;
        QTest::newRow("peak 12000 untouched") << qint64(12000) << 100 << 100;
        QTest::newRow("peak 201 gain capped at 8") << qint64(201) << 201 << 1608;
        QTest::newRow("peak 11999") << qint64(11999) << 1000 << 1666;
        QTest::newRow("clamped") << qint64(2500) << 5000 << 32767;
        QTest::newRow("never -32768") << qint64(2500) << -32768 << -32767;
        // 20,000 / 10,526 is 1.90006: truncation toward zero on both sides.
        QTest::newRow("truncate positive") << qint64(10526) << 3 << 5;
        QTest::newRow("truncate negative") << qint64(10526) << -3 << -5;
    }
    void normalize() {
        QFETCH(qint64, peak);
        QFETCH(int, in);
        QFETCH(int, out);
        const QByteArray input = run(1, int16_t(in)) + "\xAB";
        const QByteArray result = AudioRecorder::normalize(input, peak);
        QCOMPARE(qFromLittleEndian<qint16>(result.constData()), out);
        QCOMPARE(result.mid(2), QByteArray("\xAB")); // the odd byte rides along unchanged
    }

    void wav() {
        for (const QByteArray& pcm : {QByteArray(), QByteArray("\x01\x02\x03", 3)}) {
            const QByteArray w = AudioRecorder::wav(pcm);
            QCOMPARE(w.size(), 44 + pcm.size()); // no padding byte for an odd count
            QCOMPARE(w.left(4) + w.mid(8, 8), QByteArray("RIFFWAVEfmt "));
            QCOMPARE(qFromLittleEndian<quint32>(w.constData() + 4), quint32(pcm.size() + 36));
            QCOMPARE(w.mid(16, 24), QByteArray("\x10\0\0\0\x01\0\x01\0\x80\x3e\0\0"
                                               "\0\x7d\0\0\x02\0\x10\0data",
                                               24));
            QCOMPARE(qFromLittleEndian<quint32>(w.constData() + 40), quint32(pcm.size()));
            QCOMPARE(w.mid(44), pcm);
        }
    }

    void peak() {
        QCOMPARE(AudioRecorder::peak(run(1, 5) + run(1, -32768) + run(1, 32767)), 32768);
        QCOMPARE(AudioRecorder::peak(QByteArray("\x00\x01\x7f", 3)), 256); // odd byte ignored
    }
};

QTEST_APPLESS_MAIN(TstPcm)
#include "tst_pcm.moc"
