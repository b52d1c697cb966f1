// The call translator against a private sound server: English speech played on the default
// output becomes English and French lines in order; when one application is chosen the
// sound of another one playing at the same time is left out, and all its own streams are
// heard; the program's own sounds are never heard, and a stream that moves to another output
// is heard there.
#include "SoundServer.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "calls/CallTranslator.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"

#include <QJsonArray>
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

// The sum of the squared samples, in units of a second of a full-scale tone: it goes through
// the sound server's resampling nearly unchanged, unlike thresholds on frames.
double energy(const QByteArray& pcm) {
    double sum = 0;
    for (qsizetype i = 0; i + 1 < pcm.size(); i += 2) {
        const double v = qFromLittleEndian<qint16>(pcm.constData() + i) / 32768.0;
        sum += v * v;
    }
    return sum / 16000.0;
}

// The energy of the audio in a speech request, or nothing for another request.
std::optional<double> audioSeconds(const RecordedRequest& r) {
    const QJsonValue content =
        r.json().value("messages").toArray().last().toObject().value("content");
    if (!content.isArray()) return std::nullopt;
    for (const QJsonValue& part : content.toArray()) {
        const QJsonObject audio = part.toObject().value("input_audio").toObject();
        if (audio.isEmpty()) continue;
        const QByteArray wav = QByteArray::fromBase64(audio.value("data").toString().toLatin1());
        return energy(wav.mid(44));
    }
    return std::nullopt;
}

bool near(double heard, double played) {
    return std::abs(heard - played) < 0.05 * played;
}

} // namespace

class TstCallAudio : public QObject {
    Q_OBJECT
    SoundServer sound;
    TestHttpServer server;
    QTemporaryDir dir;
    QString callWav, otherWav, firstWav;
    QByteArray pcm0, pcm1, pcm2;
    double firstSentence = 0, otherSentence = 0;
    QList<double> heard;
    QList<std::shared_ptr<QProcess>> players;

    const QStringList english{QStringLiteral("Hello everyone, thank you for joining the call."),
                              QStringLiteral("Let us look at the budget for next year.")};
    const QStringList french{QStringLiteral("Bonjour à tous, merci d'avoir rejoint l'appel."),
                             QStringLiteral("Regardons le budget de l'année prochaine.")};

    // Plays a file on the default output under an application's name, as a call program would:
    // with a short latency. (A stream that asks for none is rendered up to two seconds ahead of
    // the speaker, and what was rendered before the capture began is not heard again.)
    void play(const QString& wav, const QString& name) {
        auto p = std::make_shared<QProcess>();
        p->setProcessEnvironment(sound.environment());
        p->start(QStringLiteral("paplay"),
                 {QStringLiteral("--property=application.name=%1").arg(name),
                  QStringLiteral("--latency-msec=60"), wav});
        QVERIFY(p->waitForStarted());
        players << p;
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

    // Plays the call and a second stream together (another application's, or a second tab
    // of the same one), with the translator running from the moment both play; stops it once
    // they are over.
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

        // The call: a second of nothing, a sentence, a long gap, a sentence. The other
        // application speaks in the middle of the gap.
        QByteArray pcm[3];
        const QStringList texts{english[0], QStringLiteral("Ceci est une autre application."),
                                english[1]};
        for (int i = 0; i < 3; ++i) {
            const QString path = dir.filePath(QStringLiteral("s%1.wav").arg(i));
            QVERIFY(SoundServer::makeSpeech(texts[i], i == 1 ? "fr" : "en", path));
            pcm[i] = SoundServer::wavData(path);
            QVERIFY(pcm[i].size() > 32000);
        }
        pcm0 = pcm[0];
        pcm1 = pcm[1];
        pcm2 = pcm[2];
        firstSentence = pcm[0].size() / 32000.0;
        otherSentence = pcm[1].size() / 32000.0;
        callWav = dir.filePath(QStringLiteral("call.wav"));
        otherWav = dir.filePath(QStringLiteral("other.wav"));
        firstWav = dir.filePath(QStringLiteral("first.wav"));
        QVERIFY(write(firstWav, silence(0.8) + pcm0 + silence(1.0)));
        QVERIFY(write(callWav, silence(1.0) + pcm[0] + silence(otherSentence + 3.0) + pcm[2] +
                                   silence(1.0)));
        QVERIFY(write(otherWav, silence(1.0 + firstSentence + 1.5) + pcm[1] + silence(0.5)));

        // The model: the n-th sentence heard gets the n-th answer.
        server.setHandler([this](const RecordedRequest& r) {
            const std::optional<double> seconds = audioSeconds(r);
            if (!seconds) return Reply::json(QByteArray("{}"), 400);
            const int n = int(heard.size());
            heard << *seconds;
            const QJsonObject answer{{"en", n < 2 ? english[n] : QStringLiteral("extra")},
                                     {"fr", n < 2 ? french[n] : QStringLiteral("en trop")}};
            Reply reply = chatCompletion(QString::fromUtf8(QJsonDocument(answer).toJson()));
            reply.delayMs = 100 + int(*seconds * 40);
            return reply;
        });
    }
    void cleanupTestCase() {
        waitPlayers();
        Log::resetForTests();
    }

    void oneApplicationGivesItsSentencesInOrder() {
        CallTranslator call;
        call.setTargetBundleID(QStringLiteral("appel"));
        heard.clear();
        runCall(call);
        QTRY_VERIFY_WITH_TIMEOUT(
            call.lines().size() == 2 && call.lines()[0].done && call.lines()[1].done, 15000);
        QCOMPARE(call.lines()[0].en, english[0]);
        QCOMPARE(call.lines()[0].fr, french[0]);
        QCOMPARE(call.lines()[1].en, english[1]);
        QCOMPARE(call.lines()[1].fr, french[1]);
        QVERIFY(call.lines()[0].id < call.lines()[1].id);
        // Two sentences went out, each the whole of its speech: the other application's
        // sentence, played in the gap, is in neither.
        QCOMPARE(heard.size(), 2);
        QVERIFY2(near(heard[0], energy(pcm0)), qPrintable(QString::number(heard[0])));
        QVERIFY2(near(heard[1], energy(pcm2)), qPrintable(QString::number(heard[1])));
        QCOMPARE(call.targetName(), QStringLiteral("Appel"));
    }

    void bothStreamsAreHeardMixed_data() {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("other");
        QTest::newRow("all the audio") << QString() << QStringLiteral("Autre");
        QTest::newRow("a second tab of the application")
            << QStringLiteral("appel") << QStringLiteral("Appel");
    }
    void bothStreamsAreHeardMixed() {
        // Same sound: the second stream's sentence becomes a line of its own, and the call's
        // own sentences are still heard around it.
        QFETCH(QString, target);
        QFETCH(QString, other);
        CallTranslator call;
        call.setTargetBundleID(target);
        heard.clear();
        runCall(call, other);
        QTRY_VERIFY_WITH_TIMEOUT(heard.size() == 3, 15000);
        QVERIFY2(near(heard[0], energy(pcm0)), qPrintable(QString::number(heard[0])));
        QVERIFY2(near(heard[1], energy(pcm1)), qPrintable(QString::number(heard[1])));
        QVERIFY2(near(heard[2], energy(pcm2)), qPrintable(QString::number(heard[2])));
    }

    void ownSoundsAreLeftOutAndAChangeOfOutputIsFollowed() {
        // All the audio: the program itself speaks in the gap of the call, then the default
        // output changes and the call's stream moves there before its second sentence.
        CallTranslator call;
        call.setTargetBundleID(std::nullopt);
        heard.clear();
        play(callWav, QStringLiteral("Appel"));
        QTRY_VERIFY(playing(call, QStringLiteral("appel")));
        call.start();
        QTRY_COMPARE_WITH_TIMEOUT(heard.size(), 1, 10000);
        Platform::current().audio().play(pcm1, 16000);
        QTRY_COMPARE(streams(), 2);
        QTRY_COMPARE(streams(), 1);
        sound.pactl({QStringLiteral("set-default-sink"), QStringLiteral("mic")});
        waitPlayers();
        QTest::qWait(300);
        call.stop();
        sound.pactl({QStringLiteral("set-default-sink"), QStringLiteral("speakers")});
        QTRY_VERIFY_WITH_TIMEOUT(!call.lines().isEmpty() && call.lines().last().done, 15000);
        QCOMPARE(heard.size(), 2);
        QVERIFY2(near(heard[1], energy(pcm2)), qPrintable(QString::number(heard[1])));
    }

    void theCaptureFollowsTheApplicationToItsNextStream() {
        // The first call ends (its stream goes), a second one begins in the same application.
        const QString second = dir.filePath(QStringLiteral("second.wav"));
        QVERIFY(write(second, silence(0.8) + pcm2 + silence(1.0)));
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
        QCOMPARE(heard.size(), 2);
        QVERIFY2(near(heard[0], energy(pcm0)), qPrintable(QString::number(heard[0])));
        QVERIFY2(near(heard[1], energy(pcm2)), qPrintable(QString::number(heard[1])));
    }

    void aChosenApplicationIsWaitedForWhileItRuns() {
        // Not running at all: it is named.
        CallTranslator call;
        call.setTargetBundleID(QStringLiteral("org.example.Visio"));
        call.start();
        QTRY_VERIFY(!call.running());
        QCOMPARE(call.error(), QStringLiteral("Ouvre Visio d'abord, puis démarre les sous-titres"));
        // Running and silent (connected to the sound server, with no stream to play): the
        // capture starts and hears its next stream.
        QProcess silent;
        silent.setProcessEnvironment(sound.environment());
        silent.setStandardOutputFile(QProcess::nullDevice());
        silent.start(QStringLiteral("parec"),
                     {QStringLiteral("--property=application.name=Visio")});
        QTRY_VERIFY(sound.pactl({"list", "clients"}).contains("Visio"));
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
