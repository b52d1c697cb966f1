// The recorder, the microphones and the program's sounds against a private sound server:
// speech recorded whole and as loud as played, monitors never taken for microphones, devices
// plugged, unplugged and restarted, and sounds that reach the speakers only.
#include "FakePlatform.h"
#include "SoundServer.h"
#include "audio/AudioRecorder.h"
#include "audio/Microphones.h"
#include "audio/Sounds.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "platform/linux/LinuxPlatform.h"

#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QtEndian>
#include <atomic>
#include <cmath>
#include <csignal>
#include <future>
#include <mutex>

using namespace ombry;
using ombry::test::SoundServer;

namespace {

// Records a source straight from the audio system, for checking what reached it.
class Tap {
public:
    Tap(AudioSystem& audio, const QString& source) {
        stream_ = audio.capture(source,
                                [this](const QByteArray& pcm) {
                                    std::lock_guard guard(mutex_);
                                    pcm_ += pcm;
                                },
                                {});
    }
    ~Tap() { stream_->stop(); }
    QByteArray pcm() {
        std::lock_guard guard(mutex_);
        return pcm_;
    }

private:
    std::mutex mutex_;
    QByteArray pcm_;
    std::unique_ptr<CaptureStream> stream_;
};

QStringList names(const QList<AudioSource>& sources) {
    QStringList out;
    for (const AudioSource& s : sources)
        out << s.name;
    return out;
}

} // namespace

class TstPulse : public QObject {
    Q_OBJECT
    SoundServer server;
    QTemporaryDir dir;
    QString speech; // about 1.5 s of French speech, 16 kHz mono
    QByteArray speechPcm;

    AudioSystem& audio() { return Platform::current().audio(); }
    // Makes a source the default, and waits until the program's own connection names it.
    bool makeDefault(const QString& name) {
        return server.setDefaultSource(name) &&
               QTest::qWaitFor([&] { return audio().defaultSource() == name; }, 5000);
    }
    QString journal() const {
        Log::sync();
        QFile f(dir.filePath(QStringLiteral("journal.log")));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

    // Records the speech: empty when it came from `uid` (nullopt: the default) and was heard.
    QString recordSpeech(AudioRecorder& r, const std::optional<QString>& uid) {
        r.start();
        if (r.currentUID() != uid) return QStringLiteral("source ") + r.currentUID().value_or("-");
        if (!server.play(speech)) return QStringLiteral("paplay");
        const int peak = AudioRecorder::peak(r.stopRaw());
        return peak > 5000 ? QString() : QStringLiteral("crête %1").arg(peak);
    }

private Q_SLOTS:
    void initTestCase() {
        if (!SoundServer::installed()) QSKIP(SoundServer::notInstalled());
        // Before any server: nothing to record from, and saying so is not a crash.
        qputenv("PULSE_SERVER", "unix:/nonexistent/native");
        {
            auto none = linux_platform::makeAudioSystem();
            QVERIFY(!none->serverAvailable());
            QVERIFY(!none->microphoneAvailable());
            QVERIFY(none->microphones().isEmpty());
            QVERIFY(none->defaultSource().isEmpty());
            QVERIFY_THROWS_EXCEPTION(std::runtime_error, none->capture({}, {}, {}));
            none->play(QByteArray(200, '\0'), 16000);
        }
        qunsetenv("PULSE_SERVER");

        QVERIFY2(server.start(), qPrintable(server.error()));
        speech = dir.filePath(QStringLiteral("speech.wav"));
        QVERIFY(SoundServer::makeSpeech(QStringLiteral("Bonjour, ceci est une dictée de test."),
                                        QStringLiteral("fr"), speech));
        speechPcm = SoundServer::wavData(speech);
        QVERIFY(speechPcm.size() > AudioRecorder::kBytesPerSecond);
        // The real services, over whatever an earlier test may have installed.
        Platform::current().setAudio(linux_platform::makeAudioSystem());
        Platform::current().setSpeech(linux_platform::makeSpeechOutput());
        AppSettings::shared().setMicrophoneUID(std::nullopt);
        Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
    }
    void cleanupTestCase() { Log::resetForTests(); }
    // Each test finds the test microphone plugged in, the default, and nothing chosen.
    void cleanup() {
        if (!server.running()) return;
        server.plugTestMic(); // false when it is there already
        QVERIFY(makeDefault(QStringLiteral("testmic")));
        AppSettings::shared().setMicrophoneUID(std::nullopt);
    }

    void speechIsRecordedWhole() {
        AudioRecorder r;
        std::atomic<int> buffers{0};
        std::atomic<int> biggest{0};
        r.onBuffer = [&](const QByteArray& pcm) {
            ++buffers;
            biggest = std::max<int>(biggest, int(pcm.size()));
        };
        QList<double> levels;
        r.onLevel = [&](double v) { levels << v; };
        r.start();
        QTest::qWait(200);
        QVERIFY(server.play(speech));
        QTest::qWait(300);
        const AudioRecorder::Stopped s = r.stop();

        const double spoken = double(speechPcm.size()) / AudioRecorder::kBytesPerSecond;
        // Everything from start to stop: the speech and the silence around it.
        QVERIFY2(s.duration > spoken + 0.2 && s.duration < spoken + 3.0,
                 qPrintable(QString::number(s.duration)));
        // As loud as played: the stereo source's channels are averaged in mono, not summed.
        const double gain =
            double(AudioRecorder::peak(r.lastPCM())) / double(AudioRecorder::peak(speechPcm));
        QVERIFY2(gain > 0.9 && gain < 1.1, qPrintable(QString::number(gain)));
        // Small pieces, as they come: the level and the live preview keep up with the voice.
        QVERIFY(biggest <= 4096);
        QVERIFY(buffers > 20);
        QTRY_VERIFY(!levels.isEmpty());
        QVERIFY(*std::max_element(levels.begin(), levels.end()) > 0.2);
    }

    // Without an input the server makes a monitor its default source: the recorder refuses to
    // start rather than record what the computer plays; a microphone that is there records.
    void monitorIsNoMicrophone() {
        AudioRecorder r;
        QVERIFY(server.unplugTestMic());
        QTRY_VERIFY(audio().microphones().isEmpty());
        QTRY_VERIFY2(audio().defaultSource().endsWith(QStringLiteral(".monitor")),
                     qPrintable(audio().defaultSource()));
        QVERIFY(audio().serverAvailable());
        QVERIFY(!audio().microphoneAvailable());
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        AppSettings::shared().setMicrophoneUID(QStringLiteral("testmic"));
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());

        QVERIFY(server.plugTestMic() && makeDefault(QStringLiteral("testmic")));
        QVERIFY(audio().microphoneAvailable());
        QCOMPARE(recordSpeech(r, QStringLiteral("testmic")), QString());

        // A monitor made the default by hand is no microphone; the chosen one still records.
        QVERIFY(makeDefault(QStringLiteral("speakers.monitor")));
        QVERIFY(!audio().microphoneAvailable());
        QCOMPARE(recordSpeech(r, QStringLiteral("testmic")), QString());
        AppSettings::shared().setMicrophoneUID(std::nullopt);
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());
    }

    // The journal gives the source's own rate and channels, not the 16 kHz mono recorded.
    void sourceFormatInTheJournal() {
        const QList<std::tuple<QString, int, int>> sources{{QStringLiteral("hifimic"), 44100, 2},
                                                           {QStringLiteral("headset"), 48000, 1}};
        for (const auto& [name, rate, channels] : sources) {
            const int module = server.addSource(name, rate, channels);
            QVERIFY(module >= 0);
            QTRY_VERIFY(names(audio().microphones()).contains(name)); // listed in its own time
            AppSettings::shared().setMicrophoneUID(name);
            AudioRecorder r;
            r.start();
            QCOMPARE(r.currentUID(), std::optional<QString>(name));
            QVERIFY(journal().contains(
                QStringLiteral("audio: entrée %1 Hz, %2 canaux\n").arg(rate).arg(channels)));
            QTest::qWait(300);
            r.stop();
            QVERIFY(server.unloadModule(module));
        }
    }

    void hotPlugIsHeard() {
        QCOMPARE(audio().defaultSource(), QStringLiteral("testmic"));
        QCOMPARE(names(audio().microphones()), QStringList{QStringLiteral("testmic")});
        QCOMPARE(Microphones::device(QStringLiteral("testmic"))->name, QStringLiteral("TestMic"));
        QVERIFY(!Microphones::device(QStringLiteral("mic.monitor")));
        QVERIFY(!Microphones::device(QStringLiteral("TestMic"))); // by id, not by name
        Microphones::Watcher watcher;
        QSignalSpy changed(&watcher, &Microphones::Watcher::changed);
        const int module = server.loadModule(
            QStringLiteral("module-remap-source"),
            {QStringLiteral("master=mic.monitor"), QStringLiteral("source_name=plugmic")});
        QVERIFY(module >= 0);
        QTRY_VERIFY(changed.size() >= 1);
        QVERIFY(names(audio().microphones()).contains(QStringLiteral("plugmic")));
        changed.clear();
        QVERIFY(server.unloadModule(module));
        QTRY_VERIFY(changed.size() >= 1);
        QVERIFY(!names(audio().microphones()).contains(QStringLiteral("plugmic")));
        // An output plugged in brings only a monitor: the microphones stay the same.
        const int sink = server.loadModule(QStringLiteral("module-null-sink"),
                                           {QStringLiteral("sink_name=usbheadset")});
        QVERIFY(sink >= 0);
        QCOMPARE(names(audio().microphones()), QStringList{QStringLiteral("testmic")});
        QVERIFY(server.unloadModule(sink));
    }

    void sourceUnpluggedMidRecording() {
        const int module = server.loadModule(
            QStringLiteral("module-remap-source"),
            {QStringLiteral("master=mic.monitor"), QStringLiteral("source_name=gonemic")});
        QVERIFY(module >= 0);
        QTRY_VERIFY(names(audio().microphones()).contains(QStringLiteral("gonemic")));
        AppSettings::shared().setMicrophoneUID(QStringLiteral("gonemic"));
        AudioRecorder r;
        QStringList lost;
        bool lostOnMain = false;
        r.onSourceLost = [&](const QString& why) {
            lost << why;
            lostOnMain = QThread::currentThread() == qApp->thread();
        };
        r.start();
        QCOMPARE(r.currentUID(), std::optional<QString>(QStringLiteral("gonemic")));
        QVERIFY(server.play(speech));
        QVERIFY(server.unloadModule(module));
        QTRY_COMPARE(lost.size(), 1);
        QVERIFY(lostOnMain);
        QVERIFY(r.isRecording());
        // The recording does not move on to another source: nothing more comes in.
        const int64_t heard = r.size();
        QVERIFY(server.play(speech, QStringLiteral("speakers")));
        QCOMPARE(r.size(), heard);
        const AudioRecorder::Stopped s = r.stop();
        QVERIFY(s.duration > double(speechPcm.size()) / AudioRecorder::kBytesPerSecond);
        QVERIFY(AudioRecorder::peak(r.lastPCM()) > 5000);

        // At the next start a monitor as the default is no fallback; the default microphone is.
        QVERIFY(makeDefault(QStringLiteral("speakers.monitor")));
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());
        QVERIFY(makeDefault(QStringLiteral("testmic")));
        QCOMPARE(recordSpeech(r, std::nullopt), QString());
        AppSettings::shared().setMicrophoneUID(std::nullopt);
        QCOMPARE(recordSpeech(r, std::nullopt), QString()); // the next one starts normally
    }

    void soundsReachTheSpeakersOnly() {
        Tap speakers(audio(), QStringLiteral("speakers.monitor"));
        Tap mic(audio(), QStringLiteral("testmic"));
        QTest::qWait(100);
        for (Sound s : {Sound::Tink, Sound::Pop, Sound::Basso})
            playSound(s);
        QTRY_VERIFY(AudioRecorder::peak(speakers.pcm()) > 3000);
        QTest::qWait(500);
        QVERIFY(AudioRecorder::peak(mic.pcm()) < 50);
    }

    // Speech and a long sound are heard on the speakers; once stopped, nothing more is.
    void speechAndPlaybackAreCut() {
        const auto silentAfter = [&] {
            QTest::qWait(200);
            Tap after(audio(), QStringLiteral("speakers.monitor"));
            QTest::qWait(600);
            return AudioRecorder::peak(after.pcm()) < 50;
        };
        SpeechOutput& voice = Platform::current().speech();
        {
            Tap speakers(audio(), QStringLiteral("speakers.monitor"));
            voice.speak(QStringLiteral("Bonjour."), QStringLiteral("fr"));
            QVERIFY(voice.speaking());
            QTRY_VERIFY_WITH_TIMEOUT(!voice.speaking(), 10000);
            QVERIFY(AudioRecorder::peak(speakers.pcm()) > 3000);
        }
        voice.speak(QStringLiteral("Ceci est une longue phrase, lue lentement, qui dure bien "
                                   "plus de quelques secondes avant de finir enfin."),
                    QStringLiteral("fr"));
        QTest::qWait(600);
        QVERIFY(voice.speaking());
        voice.stop();
        QVERIFY(!voice.speaking());
        QVERIFY(silentAfter());
        QVERIFY(!voice.speaking());

        // Four seconds of a tone, cut after a moment.
        QByteArray tone(4 * 32000, Qt::Uninitialized);
        for (int i = 0; i < tone.size() / 2; ++i)
            qToLittleEndian<qint16>(qint16(9000 * std::sin(i * 2 * M_PI * 330 / 16000)),
                                    tone.data() + 2 * i);
        {
            Tap speakers(audio(), QStringLiteral("speakers.monitor"));
            QTest::qWait(100);
            audio().play(tone, 16000);
            QTRY_VERIFY(AudioRecorder::peak(speakers.pcm()) > 3000);
        }
        audio().stopPlaying();
        QVERIFY(silentAfter());
    }

    // A stopped sound server is a microphone that does not record, said within seconds.
    void frozenServerFailsTheCapture() {
        QVERIFY(audio().serverAvailable());
        std::future<QString> started;
        const auto thaw = qScopeGuard([&] { ::kill(pid_t(server.pid()), SIGCONT); });
        QVERIFY(::kill(pid_t(server.pid()), SIGSTOP) == 0);
        started = std::async(std::launch::async, [this] {
            try {
                audio().capture({}, {}, {});
                return QString();
            } catch (const std::runtime_error& e) {
                return QString::fromUtf8(e.what());
            }
        });
        QVERIFY(started.wait_for(std::chrono::seconds(6)) == std::future_status::ready);
        QCOMPARE(started.get(),
                 QStringLiteral("micro indisponible (le serveur de son ne répond pas)"));
    }

    void serverRestart() {
        // The sound server restarts: microphones gone then back, recording works again.
        Microphones::Watcher watcher;
        QSignalSpy changed(&watcher, &Microphones::Watcher::changed);
        QVERIFY(!audio().microphones().isEmpty());
        server.stop();
        QTRY_VERIFY(changed.size() >= 1);
        QTRY_VERIFY(audio().microphones().isEmpty());
        AudioRecorder r;
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, r.start());
        QVERIFY(!r.isRecording());

        QVERIFY2(server.start(), qPrintable(server.error()));
        changed.clear();
        // Noticed without anyone asking: the watcher hears that the microphones are back.
        QTRY_VERIFY_WITH_TIMEOUT(changed.size() >= 1, 20000);
        QCOMPARE(names(audio().microphones()), QStringList{QStringLiteral("testmic")});
        QCOMPARE(recordSpeech(r, std::nullopt), QString());
    }
};

QTEST_MAIN(TstPulse)
#include "tst_pulse.moc"
