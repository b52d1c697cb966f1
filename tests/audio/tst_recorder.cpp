// The recorder on the fake audio system: what stop() hands back, the level and pause signals and
// their threads, the start rules, the choice of the microphone (on a real server: tst_pulse).
#include "FakePlatform.h"
#include "audio/AudioRecorder.h"
#include "audio/Microphones.h"
#include "audio/Sounds.h"
#include "data/Settings.h"
#include "desktop/Log.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtEndian>
#include <thread>

using namespace ombry;
using ombry::test::FakeAudio;
using ombry::test::FakePlatform;

namespace {

QByteArray run(int count, int16_t value) {
    QByteArray out(2 * count, '\0');
    for (int i = 0; i < count; ++i)
        qToLittleEndian<qint16>(value, out.data() + 2 * i);
    return out;
}

// Feeds from another thread, as the capture thread does, and waits for it.
void feedFromThread(FakeAudio& audio, const QByteArray& pcm) {
    std::thread t([&] { audio.feed(pcm); });
    t.join();
}

} // namespace

class TstRecorder : public QObject {
    Q_OBJECT
    std::unique_ptr<FakePlatform> platform;
    FakeAudio& audio() { return platform->audio(); }

private Q_SLOTS:
    void init() {
        platform = std::make_unique<FakePlatform>();
        AppSettings::shared().setMicrophoneUID(std::nullopt);
    }
    void cleanup() { platform.reset(); }

    void stopResults() {
        AudioRecorder r;
        // Nothing recording: no WAV at all; a recording without audio: a header-only WAV.
        QCOMPARE(r.stop().wav, QByteArray());
        QVERIFY(r.stopRaw().isEmpty());
        r.start();
        AudioRecorder::Stopped empty = r.stop();
        QCOMPARE(empty.wav.size(), 44);
        QCOMPARE(empty.duration, 0.0);
        QVERIFY(!r.isRecording() && !audio().capturing());

        // Quiet speech in silence: trimmed to a quarter second around it, raised by 20000/peak.
        const QByteArray pcm = run(16000, 0) + run(8000, 2000) + run(16000, 0);
        r.start();
        audio().feed(pcm.left(30000));
        audio().feed(pcm.mid(30000));
        AudioRecorder::Stopped s = r.stop();
        QCOMPARE(s.duration, 40000 / 16000.0);
        QCOMPARE(r.lastPCM(), pcm);
        QCOMPARE(r.lastPeak(), 2000);
        QCOMPARE(s.wav.size(), 44 + 2 * (8000 + 2 * 4000));
        QCOMPARE(qFromLittleEndian<qint16>(s.wav.constData() + 44 + 2 * 4000), qint16(16000));
        // The buffer stays readable until the next start; stopRaw leaves the last PCM and peak.
        QCOMPARE(r.pcm(16000 * 2, 16000 * 2 + 4).size(), 4);
        r.start();
        QCOMPARE(r.size(), 0);
        audio().feed(run(100, -30000));
        QCOMPARE(r.stopRaw(), run(100, -30000));
        QCOMPARE(r.lastPCM(), pcm);
        QCOMPARE(r.lastPeak(), 2000);
    }

    void sliceOfTheGrowingBuffer() {
        AudioRecorder r;
        r.start();
        QByteArray pcm;
        for (int i = 0; i < 10; ++i)
            pcm += run(100, int16_t(i * 100));
        audio().feed(pcm);
        QCOMPARE(r.pcm(200, 400), pcm.mid(200, 200));
        QCOMPARE(r.pcm(1900, 5000), pcm.mid(1900)); // the end is cut to what exists
        QVERIFY(r.pcm(2000, 5000).isEmpty());       // from at the end: nothing
        QVERIFY(r.pcm(300, 300).isEmpty());
        // An odd-sized piece is not a split sample: the next piece completes it.
        audio().feed(run(1, 0x1234).left(1));
        QCOMPARE(r.size(), 2000);
        audio().feed(run(1, 0x1234).right(1));
        QCOMPARE(r.pcm(2000, 2002), run(1, 0x1234));
        r.stop();
    }

    void levelsOnTheMainThread() {
        AudioRecorder r;
        QList<double> levels;
        QList<bool> onMain;
        r.onLevel = [&](double v) {
            levels << v;
            onMain << (QThread::currentThread() == qApp->thread());
        };
        r.start();
        feedFromThread(audio(), run(100, 6000));
        // Only the positive side counts for the level, not for the peak.
        feedFromThread(audio(), run(100, -20000));
        feedFromThread(audio(), run(50, 30000) + run(50, -100));
        QVERIFY(levels.isEmpty()); // posted, not called on the capture thread
        QTRY_COMPARE(levels.size(), 3);
        QCOMPARE(levels, (QList<double>{0.5, 0.0, 1.0}));
        QVERIFY(!onMain.contains(false));
        r.stop();
        QCOMPARE(r.lastPeak(), 30000);

        // A recorder that is gone drops the levels it had already posted.
        auto gone = std::make_unique<AudioRecorder>();
        int late = 0;
        gone->onLevel = [&](double) { ++late; };
        gone->start();
        audio().feed(run(100, 6000));
        gone.reset(); // ends the capture too
        QVERIFY(!audio().capturing());
        QTest::qWait(20);
        QCOMPARE(late, 0);
    }

    void pauses() {
        AudioRecorder r;
        QList<int64_t> pauses;
        QList<int> buffers;
        r.onPause = [&](int64_t offset) { pauses << offset; };
        r.onBuffer = [&](const QByteArray& pcm) { buffers << int(pcm.size()); };
        const auto feed = [&](int times, int16_t value) { // buffers of 960 samples
            for (int i = 0; i < times; ++i)
                audio().feed(run(960, value));
        };
        r.start();
        feed(30, 0); // leading silence never fires, however long
        QVERIFY(pauses.isEmpty());
        // 901 is voice; 900 is not and counts as silence. The pause fires when the silence
        // reaches 9,600 samples, at the byte count of that moment.
        feed(1, 901);
        feed(9, 900);
        QVERIFY(pauses.isEmpty());
        feed(1, -32000); // loud, but only on the negative side: silence
        QCOMPARE(pauses, (QList<int64_t>{r.size()}));
        feed(20, 0); // no second signal until voice returns
        QCOMPARE(pauses.size(), 1);
        // Voice in the middle of a silence starts the count again.
        feed(1, 5000);
        feed(5, 0);
        feed(1, 5000);
        feed(9, 0);
        QCOMPARE(pauses.size(), 1);
        feed(1, 0);
        QCOMPARE(pauses, (QList<int64_t>{pauses[0], r.size()}));
        QCOMPARE(buffers.size(), 78);
        QCOMPARE(buffers.first(), 1920);
        // stop() clears the pending voice: a new recording starts without it.
        feed(1, 5000);
        r.stop();
        r.start();
        feed(12, 0);
        QCOMPARE(pauses.size(), 2);
        r.stop();
    }

    void startRules() {
        AudioRecorder r;
        r.start();
        r.start(); // already recording: nothing happens
        QCOMPARE(audio().captures, 1);
        QCOMPARE(audio().capturedFrom, QStringLiteral("test-mic")); // the default, by its name
        QCOMPARE(r.currentUID(), std::nullopt);
        r.stop();

        // A capture that cannot start leaves the recorder idle and says so.
        audio().available = false;
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());
        QCOMPARE(r.stop().wav, QByteArray());
    }

    void choice_data() {
        QTest::addColumn<QString>("wanted");          // empty: none chosen
        QTest::addColumn<QStringList>("microphones"); // what the server lists as microphones
        QTest::addColumn<QString>("defaultSource");
        QTest::addColumn<QString>("chosen"); // empty: no microphone
        const QStringList two{"usb", "builtin"}, none;
        const auto row = [](const char* name, const char* wanted, const QStringList& mics,
                            const char* def, const char* chosen) {
            QTest::newRow(name) << wanted << mics << def << chosen;
        };
        row("default microphone", "", two, "builtin", "builtin");
        row("wanted, plugged in", "usb", two, "builtin", "usb");
        row("wanted, unplugged", "gone", two, "builtin", "builtin");
        // Without an input the servers make a monitor the default source.
        row("only monitors", "", none, "speakers.monitor", "");
        row("wanted gone, default a monitor", "gone", none, "speakers.monitor", "");
        row("default a monitor", "", two, "speakers.monitor", "");
        row("wanted, default a monitor", "usb", two, "speakers.monitor", "usb");
        row("wanted a monitor", "speakers.monitor", two, "builtin", "builtin");
        row("no server", "usb", none, "", "");
    }
    void choice() {
        QFETCH(QString, wanted);
        QFETCH(QStringList, microphones);
        QFETCH(QString, defaultSource);
        QFETCH(QString, chosen);
        QList<Microphones::Device> devices;
        for (const QString& uid : microphones)
            devices << Microphones::Device{uid, uid.toUpper()};
        const std::optional<QString> got = Microphones::choose(
            wanted.isEmpty() ? std::nullopt : std::optional(wanted), devices, defaultSource);
        QCOMPARE(got.value_or(QString()), chosen);
    }

    // The first piece of each capture is journaled once, with the sound it holds.
    void captureInTheJournal() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("journal.log"));
        Log::resetForTests(path);
        AudioRecorder r;
        r.start();
        feedFromThread(audio(), run(320, 100)); // 20 ms
        feedFromThread(audio(), run(320, 100));
        r.stop();
        r.start(); // nothing arrives
        r.stop();
        r.start();
        feedFromThread(audio(), run(1600, 100)); // 100 ms
        r.stop();
        Log::sync();
        Log::resetForTests();
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QString journal = QString::fromUtf8(f.readAll());
        QCOMPARE(journal.count(QStringLiteral("audio: premier morceau")), 2);
        QVERIFY2(journal.contains(QStringLiteral("audio: premier morceau, 20 ms de son\n")) &&
                     journal.contains(QStringLiteral("audio: premier morceau, 100 ms de son\n")),
                 qPrintable(journal));
    }

    void sounds() {
        const QByteArray tink = soundPcm(Sound::Tink), pop = soundPcm(Sound::Pop),
                         basso = soundPcm(Sound::Basso);
        // Three different sounds; the start sound is over well before a first word.
        QVERIFY(tink != pop && pop != basso && tink != basso);
        QVERIFY(tink.size() / 2 < kSoundRate * 80 / 1000);
        for (const QByteArray& s : {tink, pop, basso}) {
            // Audible, not clipped, and ends at rest, without a click.
            QVERIFY(AudioRecorder::peak(s) > 8000 && AudioRecorder::peak(s) < 32767);
            QVERIFY(std::abs(qFromLittleEndian<qint16>(s.constData() + s.size() - 2)) < 200);
        }
        playSound(Sound::Basso);
        QCOMPARE(audio().played, (QList<QPair<QByteArray, int>>{{basso, kSoundRate}}));
    }
};

QTEST_MAIN(TstRecorder)
#include "tst_recorder.moc"
