// The call translator on a private sound server: one application's sentences in order, other
// streams left out or mixed in, the program's own sounds never heard, streams followed.
#include "SentAudio.h"
#include "SoundServer.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "calls/CallTranslator.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"

#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <memory>

using namespace ombry;
using namespace ombry::test;

namespace {

QByteArray silence(double seconds) {
    return QByteArray(int(seconds * 16000) * 2, '\0');
}

// The sum of the squared samples, which the server's resampling leaves nearly unchanged.
double energy(const QByteArray& pcm) {
    double sum = 0;
    for (qsizetype i = 0; i + 1 < pcm.size(); i += 2) {
        const double v = qFromLittleEndian<qint16>(pcm.constData() + i) / 32768.0;
        sum += v * v;
    }
    return sum / 16000.0;
}

} // namespace

class TstCallAudio : public QObject {
    Q_OBJECT
    SoundServer sound;
    TestHttpServer server;
    QTemporaryDir dir;
    QString callWav, otherWav, firstWav;
    QByteArray pcm[3]; // the call's first sentence, the other application's, the call's second
    QList<double> heard;
    QList<std::shared_ptr<QProcess>> players;

    const QStringList english{QStringLiteral("Hello everyone, thank you for joining the call."),
                              QStringLiteral("Let us look at the budget for next year.")};
    const QStringList french{QStringLiteral("Bonjour à tous, merci d'avoir rejoint l'appel."),
                             QStringLiteral("Regardons le budget de l'année prochaine.")};

    // Plays a file under an application's name with a short latency, as a call program does
    // (without one, up to two seconds are rendered before the capture can hear them).
    void play(const QString& wav, const QString& name) {
        auto p = std::make_shared<QProcess>();
        p->setProcessEnvironment(sound.environment());
        p->start(QStringLiteral("paplay"),
                 {QStringLiteral("--property=application.name=%1").arg(name),
                  QStringLiteral("--latency-msec=60"), wav});
        QVERIFY(p->waitForStarted());
        players << p;
    }
    // The sentences sent to the model were these, each heard whole (within 5% of its energy).
    bool heardWhole(const QList<int>& sentences) {
        if (heard.size() != sentences.size()) return false;
        for (qsizetype i = 0; i < heard.size(); ++i)
            if (std::abs(heard[i] - energy(pcm[sentences[i]])) > 0.05 * energy(pcm[sentences[i]]))
                return false;
        return true;
    }
    bool playing(CallTranslator& call, const QString& id) {
        const QList<PlayingApp> apps = call.playingApps();
        return std::any_of(apps.begin(), apps.end(),
                           [&](const PlayingApp& a) { return a.id == id; });
    }
    static bool write(const QString& path, const QByteArray& pcm) {
        QFile f(path);
        return f.open(QIODevice::WriteOnly) && f.write(AudioRecorder::wav(pcm)) > 0;
    }
    // The streams that play (PulseAudio's keeper of the test microphone left out).
    qsizetype streams() {
        return sound.pactl({"list", "short", "sink-inputs"})
                   .split(QLatin1Char('\n'), Qt::SkipEmptyParts)
                   .size() -
               (SoundServer::pipeWire() ? 0 : 1);
    }
    void waitPlayers() {
        for (const auto& p : players)
            QTRY_VERIFY_WITH_TIMEOUT(p->state() == QProcess::NotRunning, 30000);
        players.clear();
    }

    // Plays the call and a second stream together, the translator running while they play.
    void runCall(CallTranslator& call, const QString& other = QStringLiteral("Autre")) {
        play(callWav, QStringLiteral("Appel"));
        play(otherWav, other);
        QTRY_COMPARE(streams(), 2);
        call.start();
        QVERIFY(call.running());
        QVERIFY(!call.error());
        waitPlayers();
        QTest::qWait(300);
        call.stop();
    }

private Q_SLOTS:
    void initTestCase() {
        if (!SoundServer::installed()) QSKIP(SoundServer::notInstalled());
        QVERIFY2(sound.start(), qPrintable(sound.error()));
        Platform::current().setAudio(linux_platform::makeAudioSystem());
        QVERIFY(Platform::current().audio().outputCaptureAvailable());
        Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
        qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);

        // The call: silence, a sentence, a long gap (the other application's sentence), a sentence.
        const QStringList texts{english[0], QStringLiteral("Ceci est une autre application."),
                                english[1]};
        for (int i = 0; i < 3; ++i) {
            const QString path = dir.filePath(QStringLiteral("s%1.wav").arg(i));
            QVERIFY(SoundServer::makeSpeech(texts[i], i == 1 ? "fr" : "en", path));
            pcm[i] = SoundServer::wavData(path);
            QVERIFY(pcm[i].size() > 32000);
        }
        const double firstSentence = pcm[0].size() / 32000.0,
                     otherSentence = pcm[1].size() / 32000.0;
        callWav = dir.filePath(QStringLiteral("call.wav"));
        otherWav = dir.filePath(QStringLiteral("other.wav"));
        firstWav = dir.filePath(QStringLiteral("first.wav"));
        QVERIFY(write(firstWav, silence(0.8) + pcm[0] + silence(1.0)));
        QVERIFY(write(callWav, silence(1.0) + pcm[0] + silence(otherSentence + 3.0) + pcm[2] +
                                   silence(1.0)));
        QVERIFY(write(otherWav, silence(1.0 + firstSentence + 1.5) + pcm[1] + silence(0.5)));

        // The model: the n-th sentence heard gets the n-th answer.
        server.setHandler([this](const RecordedRequest& r) {
            const std::optional<QByteArray> wav = sentAudio(r);
            if (!wav) return Reply::json(QByteArray("{}"), 400);
            const int n = int(heard.size());
            heard << energy(wav->mid(44));
            const QJsonObject answer{{"en", n < 2 ? english[n] : QStringLiteral("extra")},
                                     {"fr", n < 2 ? french[n] : QStringLiteral("en trop")}};
            Reply reply = chatCompletion(QString::fromUtf8(QJsonDocument(answer).toJson()));
            reply.delayMs = 100 + int(heard.last() * 40);
            return reply;
        });
    }
    void cleanupTestCase() {
        waitPlayers();
        Log::resetForTests();
    }

    // One application chosen: its two sentences, the other application's left out. All the
    // audio, or a second tab of the chosen application: the other sentence too, in between.
    void sentencesOfTheChosenStreams_data() {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("other");
        QTest::addColumn<QList<int>>("sentences");
        QTest::newRow("one application") << "appel"
                                         << "Autre" << QList<int>{0, 2};
        QTest::newRow("all the audio") << QString() << "Autre" << QList<int>{0, 1, 2};
        QTest::newRow("a second tab") << "appel"
                                      << "Appel" << QList<int>{0, 1, 2};
    }
    void sentencesOfTheChosenStreams() {
        QFETCH(QString, target);
        QFETCH(QString, other);
        QFETCH(QList<int>, sentences);
        CallTranslator call;
        call.setTargetBundleID(target);
        heard.clear();
        runCall(call, other);
        QTRY_VERIFY_WITH_TIMEOUT(heard.size() == sentences.size(), 15000);
        QVERIFY2(heardWhole(sentences), qPrintable(QString::number(heard.size())));
        if (sentences.size() != 2) return;
        QTRY_VERIFY_WITH_TIMEOUT(
            call.lines().size() == 2 && call.lines()[0].done && call.lines()[1].done, 15000);
        for (int i : {0, 1}) {
            QCOMPARE(call.lines()[i].en, english[i]);
            QCOMPARE(call.lines()[i].fr, french[i]);
        }
        QVERIFY(call.lines()[0].id < call.lines()[1].id);
        QCOMPARE(call.targetName(), QStringLiteral("Appel"));
    }

    void ownSoundsAreLeftOutAndAChangeOfOutputIsFollowed() {
        // The program speaks in the call's gap; then the call's stream moves to another output.
        CallTranslator call;
        call.setTargetBundleID(std::nullopt);
        heard.clear();
        play(callWav, QStringLiteral("Appel"));
        QTRY_VERIFY(playing(call, QStringLiteral("appel")));
        call.start();
        QTRY_COMPARE_WITH_TIMEOUT(heard.size(), 1, 10000);
        Platform::current().audio().play(pcm[1], 16000);
        QTRY_COMPARE(streams(), 2);
        QTRY_COMPARE(streams(), 1);
        sound.pactl({QStringLiteral("set-default-sink"), QStringLiteral("mic")});
        waitPlayers();
        QTest::qWait(300);
        call.stop();
        sound.pactl({QStringLiteral("set-default-sink"), QStringLiteral("speakers")});
        QTRY_VERIFY_WITH_TIMEOUT(!call.lines().isEmpty() && call.lines().last().done, 15000);
        QVERIFY(heardWhole({0, 2}));
    }

    void theCaptureFollowsTheApplicationToItsNextStream() {
        // The first call ends (its stream goes), a second one begins in the same application.
        const QString second = dir.filePath(QStringLiteral("second.wav"));
        QVERIFY(write(second, silence(0.8) + pcm[2] + silence(1.0)));
        CallTranslator call;
        call.setTargetBundleID(QStringLiteral("appel"));
        heard.clear();
        play(firstWav, QStringLiteral("Appel"));
        QTRY_VERIFY(playing(call, QStringLiteral("appel")));
        call.start();
        QVERIFY(call.running());
        waitPlayers();
        QTRY_VERIFY(!playing(call, QStringLiteral("appel")));
        QTest::qWait(500);
        play(second, QStringLiteral("Appel"));
        waitPlayers();
        QTest::qWait(300);
        call.stop();
        QTRY_VERIFY_WITH_TIMEOUT(call.lines().size() == 2 && call.lines()[1].done, 15000);
        QCOMPARE(call.lines()[1].fr, french[1]);
        QVERIFY(heardWhole({0, 2}));
    }

    void aChosenApplicationIsWaitedForWhileItRuns() {
        // Running without a stream: the capture starts and hears its next stream.
        QProcess silent;
        silent.setProcessEnvironment(sound.environment());
        silent.setStandardOutputFile(QProcess::nullDevice());
        silent.start(QStringLiteral("parec"),
                     {QStringLiteral("--property=application.name=Visio")});
        QTRY_VERIFY(sound.pactl({"list", "clients"}).contains("Visio"));
        CallTranslator call;
        call.setTargetBundleID(QStringLiteral("visio"));
        heard.clear();
        call.start();
        call.drainQueue(); // the capture is open
        play(firstWav, QStringLiteral("Visio"));
        waitPlayers();
        QTest::qWait(300);
        QVERIFY(call.running());
        call.stop();
        QTRY_VERIFY_WITH_TIMEOUT(call.lines().size() == 1 && call.lines()[0].done, 15000);
        QCOMPARE(call.lines()[0].fr, french[0]);
        silent.kill();
        silent.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TstCallAudio)
#include "tst_callaudio.moc"
