// The recorder's logic around the capture, driven through the fake audio system: what stop()
// hands back, the level and pause signals and their threads, the start rules, and the choice
// of the microphone, which is never the monitor of an output. The same choice and a source
// that goes away are played on the real sound server too (tst_pulse).
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
        // Nothing recording: no WAV at all, and nothing changes.
        AudioRecorder::Stopped none = r.stop();
        QVERIFY(none.wav.isEmpty());
        QCOMPARE(none.duration, 0.0);
        QVERIFY(r.stopRaw().isEmpty());

        // A recording without audio still gives a (header-only) WAV.
        r.start();
        QVERIFY(r.isRecording());
        AudioRecorder::Stopped empty = r.stop();
        QCOMPARE(empty.wav.size(), 44);
        QCOMPARE(empty.duration, 0.0);
        QVERIFY(!r.isRecording());
        QVERIFY(!audio().capturing());

        // Quiet speech in silence: trimmed to a quarter second around it, raised by 20000/peak,
        // and the duration is the whole time held, silence included.
        const QByteArray pcm = run(16000, 0) + run(8000, 2000) + run(16000, 0);
        r.start();
        audio().feed(pcm.left(30000));
        audio().feed(pcm.mid(30000));
        QCOMPARE(r.pcm(0, 1 << 30), pcm);
        AudioRecorder::Stopped s = r.stop();
        QCOMPARE(s.duration, 40000 / 16000.0);
        QCOMPARE(r.lastPCM(), pcm);
        QCOMPARE(r.lastPeak(), 2000);
        QCOMPARE(s.wav, AudioRecorder::wav(
                            AudioRecorder::normalize(AudioRecorder::trimSilence(pcm), 2000)));
        QCOMPARE(s.wav.size(), 44 + 2 * (8000 + 2 * 4000));
        QCOMPARE(qFromLittleEndian<qint16>(s.wav.constData() + 44 + 2 * 4000), qint16(16000));
        // The buffer stays readable until the next start; stopRaw then leaves the last stop's
        // PCM and peak alone.
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
        // Only the positive side counts: a buffer of negative samples shows no level, though
        // the peak of the recording is its magnitude.
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
        r.start();
        // Leading silence never fires, however long.
        for (int i = 0; i < 30; ++i)
            audio().feed(run(960, 0));
        QVERIFY(pauses.isEmpty());
        // 901 is voice; 900 is not and counts as silence. The pause fires when the silence
        // reaches 9,600 samples, at the byte count of that moment.
        audio().feed(run(960, 901));
        for (int i = 0; i < 9; ++i)
            audio().feed(run(960, 900));
        QVERIFY(pauses.isEmpty());
        audio().feed(run(960, -32000)); // loud, but only on the negative side: silence
        QCOMPARE(pauses, (QList<int64_t>{r.size()}));
        // More silence: no second signal until voice returns.
        for (int i = 0; i < 20; ++i)
            audio().feed(run(960, 0));
        QCOMPARE(pauses.size(), 1);
        // Voice in the middle of a silence starts the count again.
        audio().feed(run(960, 5000));
        for (int i = 0; i < 5; ++i)
            audio().feed(run(960, 0));
        audio().feed(run(960, 5000));
        for (int i = 0; i < 9; ++i)
            audio().feed(run(960, 0));
        QCOMPARE(pauses.size(), 1);
        audio().feed(run(960, 0));
        QCOMPARE(pauses.size(), 2);
        QCOMPARE(pauses[1], r.size());
        QCOMPARE(buffers.size(), 30 + 10 + 1 + 20 + 1 + 5 + 1 + 10);
        QCOMPARE(buffers.first(), 1920);

        // stop() clears the pending voice: a new recording starts without it.
        audio().feed(run(960, 5000));
        r.stop();
        r.start();
        for (int i = 0; i < 12; ++i)
            audio().feed(run(960, 0));
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
        const QStringList two{"usb", "builtin"};
        QTest::newRow("default microphone") << "" << two << "builtin"
                                            << "builtin";
        QTest::newRow("wanted, plugged in") << "usb" << two << "builtin"
                                            << "usb";
        QTest::newRow("wanted, unplugged") << "gone" << two << "builtin"
                                           << "builtin";
        // Without an input the servers make a monitor the default source.
        QTest::newRow("only monitors") << "" << QStringList{} << "speakers.monitor"
                                       << "";
        QTest::newRow("wanted gone, default a monitor")
            << "gone" << QStringList{} << "speakers.monitor"
            << "";
        // A monitor as the default is no microphone, even beside one that is not chosen...
        QTest::newRow("default a monitor") << "" << two << "speakers.monitor"
                                           << "";
        // ...but the one the user chose is taken.
        QTest::newRow("wanted, default a monitor") << "usb" << two << "speakers.monitor"
                                                   << "usb";
        // A monitor's name in the settings is not a microphone either.
        QTest::newRow("wanted a monitor") << "speakers.monitor" << two << "builtin"
                                          << "builtin";
        QTest::newRow("no server") << "usb" << QStringList{} << ""
                                   << "";
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

    // The recorder records a microphone or nothing: when the chosen one is gone and the
    // server's default source is the monitor of an output, start refuses (the controller says
    // "Micro indisponible") and no capture is opened, where it used to record what the
    // computer plays.
    void neverRecordsAMonitor() {
        AudioRecorder r;
        const QList<AudioSource> usb{{"usb-mic", "Micro USB"}};
        audio().mics = usb;
        audio().defaultName = QStringLiteral("speakers.monitor");
        QVERIFY(!audio().microphoneAvailable());
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start()); // none chosen
        AppSettings::shared().setMicrophoneUID(QStringLiteral("usb-mic"));
        r.start(); // the chosen one records
        QCOMPARE(audio().capturedFrom, QStringLiteral("usb-mic"));
        QCOMPARE(r.currentUID(), std::optional<QString>(QStringLiteral("usb-mic")));
        audio().feed(run(100, 3000));
        QCOMPARE(r.stopRaw(), run(100, 3000));

        // Unplugged: the server is left with monitors only.
        audio().mics.clear();
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        AppSettings::shared().setMicrophoneUID(std::nullopt);
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());
        QCOMPARE(audio().captures, 1);

        // Back, as the default this time.
        audio().mics = usb;
        audio().defaultName = QStringLiteral("usb-mic");
        QVERIFY(audio().microphoneAvailable());
        r.start();
        QCOMPARE(audio().capturedFrom, QStringLiteral("usb-mic"));
        QCOMPARE(r.currentUID(), std::nullopt);
        r.stop();
    }

    // The journal gives the rate and channels of the source itself, not those of the 16 kHz
    // mono capture that the server converts them to.
    //
    // The first piece of each capture is noted once, with the length of sound it holds, so
    // that the time from the key press to the first sample can be read from the journal.
    void captureInTheJournal() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("journal.log"));
        Log::resetForTests(path);
        audio().format = {44100, 2};
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
        QVERIFY2(journal.contains(QStringLiteral("audio: entrée 44100 Hz, 2 canaux")),
                 qPrintable(journal));
        QCOMPARE(journal.count(QStringLiteral("audio: premier morceau")), 2);
        QVERIFY2(journal.contains(QStringLiteral("audio: premier morceau, 20 ms de son\n")) &&
                     journal.contains(QStringLiteral("audio: premier morceau, 100 ms de son\n")),
                 qPrintable(journal));
    }

    void sounds() {
        const QByteArray tink = soundPcm(Sound::Tink);
        const QByteArray pop = soundPcm(Sound::Pop);
        const QByteArray basso = soundPcm(Sound::Basso);
        // Three different sounds; the start sound is over well before a first word.
        QVERIFY(tink != pop && pop != basso && tink != basso);
        QVERIFY(tink.size() / 2 < kSoundRate * 80 / 1000);
        QVERIFY(basso.size() > pop.size());
        for (const QByteArray& s : {tink, pop, basso}) {
            QVERIFY(AudioRecorder::peak(s) > 8000);  // audible
            QVERIFY(AudioRecorder::peak(s) < 32767); // not clipped
            // Ends at rest, without a click.
            QVERIFY(std::abs(qFromLittleEndian<qint16>(s.constData() + s.size() - 2)) < 200);
        }
        playSound(Sound::Basso);
        QCOMPARE(audio().played.size(), 1);
        QCOMPARE(audio().played[0], qMakePair(basso, kSoundRate));
    }
};

QTEST_MAIN(TstRecorder)
#include "tst_recorder.moc"
