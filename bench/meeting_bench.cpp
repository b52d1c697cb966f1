// How long the user waits for a meeting after pressing stop, against its length. Meetings of
// several lengths (square waves for speech, with pauses) go through the meeting recorder's
// own recorder at a fixed number of times real time, against a loopback server whose answer
// time grows with the length of the audio, scaled by the same factor. Prints, in meeting time,
// the wait after the stop and its share of the recording, beside the wait that transcribing
// everything after the stop would cost.
#include "../tests/dictation/SpeechServer.h"
#include "FakePlatform.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "meetings/MeetingRecorder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>

using namespace ombry;
using namespace ombry::test;

namespace {

constexpr double kSpeedUp = 60.0;         // a minute of meeting per second
constexpr double kAnswerBaseS = 1.0;      // the model's answer time, in meeting seconds
constexpr double kAnswerPerAudioS = 0.25; // ... and per second of audio
constexpr int kTickMs = 50;

QByteArray meeting(double seconds) {
    QByteArray pcm;
    while (pcm.size() < int64_t(seconds * 32000))
        pcm += squareWave(4.0, 9000) + silence(1.0);
    pcm.truncate(int64_t(seconds * 32000));
    return pcm;
}

// The wait after the stop, in meeting seconds.
double waitAfterStop(MeetingRecorder& r, FakeAudio& audio, const QByteArray& pcm) {
    QEventLoop loop;
    r.start();
    while (r.state().kind != MeetingRecorder::State::Kind::Recording)
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    const qsizetype perTick = qsizetype(kTickMs / 1000.0 * kSpeedUp * 32000) & ~qsizetype(1);
    qsizetype at = 0;
    QTimer feeder;
    feeder.setTimerType(Qt::PreciseTimer);
    QObject::connect(&feeder, &QTimer::timeout, [&] {
        for (qsizetype end = std::min(at + perTick, pcm.size()); at < end; at += 2048)
            audio.feed(pcm.mid(at, std::min<qsizetype>(2048, end - at)));
        r.checkpoint();
        if (at >= pcm.size()) loop.quit();
    });
    feeder.start(kTickMs);
    loop.exec();
    feeder.stop();
    QElapsedTimer t;
    t.start();
    r.stop();
    QObject::connect(&r, &MeetingRecorder::meetingStored, &loop, &QEventLoop::quit);
    loop.exec();
    return double(t.nsecsElapsed()) / 1e9 * kSpeedUp;
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    qputenv("XDG_CACHE_HOME", home.filePath("cache").toUtf8());
    qputenv("OMBRY_SITE_URL", "");
    QCoreApplication app(argc, argv);
    FakePlatform platform;
    KeyStore::shared().save(QStringLiteral("sk-or-bench"), APIService::OpenRouter);
    AppSettings::shared().setOwnKeyMode(true);

    TestHttpServer server;
    qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
    SpeechServer speech;
    speech.transcribeBaseMs = int(kAnswerBaseS * 1000 / kSpeedUp);
    speech.transcribeMsPerSecond = int(kAnswerPerAudioS * 1000 / kSpeedUp);
    speech.rewriteBaseMs = int(kAnswerBaseS * 1000 / kSpeedUp);
    speech.rewriteMsPerWord = 0;
    speech.transcript = [](double) { return chatCompletion(QStringLiteral("on avance bien")); };
    speech.rewrite = [](const QString&) {
        return QStringLiteral(R"({"title": "Point", "summary": "Un point.", "tasks": []})");
    };
    speech.install(server);

    std::printf(
        "réponse du modèle: %.1f s + %.2f s par seconde d'audio; temps accéléré %.0f fois\n",
        kAnswerBaseS, kAnswerPerAudioS, kSpeedUp);
    for (double minutes : {5.0, 20.0, 60.0}) {
        MeetingRecorder recorder;
        const QByteArray pcm = meeting(minutes * 60);
        const double wait = waitAfterStop(recorder, platform.audio(), pcm);
        // Everything after the stop: every piece one after the other, then the summary.
        const int pieces = PendingMeeting::pieceCount(pcm.size());
        const double afterOnly =
            pieces * kAnswerBaseS + minutes * 60 * kAnswerPerAudioS + kAnswerBaseS;
        std::printf("réunion de %.0f min: attente après l'arrêt %.1f s (%.2f %% de la durée); "
                    "tout transcrire après l'arrêt: %.0f s (%.1f %%)\n",
                    minutes, wait, 100 * wait / (minutes * 60), afterOnly,
                    100 * afterOnly / (minutes * 60));
    }
    return 0;
}
