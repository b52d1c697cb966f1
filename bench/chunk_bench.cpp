// How much of the wait after the key goes up the chunker saves. A minute of dictation (square
// waves for speech, with pauses) goes once through the chunker, cut at its pauses as the
// recorder would, and once as one call on the whole recording, both against a loopback server
// whose answer time grows with the length of the audio (and of the text to rewrite). Prints
// the two waits after the release and their ratio (chunker / one call).
#include "../tests/dictation/SpeechServer.h"

#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "dictation/Chunker.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"
#include "engines/client/OpenRouter.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <cstdio>

using namespace ombry;
using namespace ombry::test;

namespace {

struct Recording {
    QByteArray pcm;
    QList<int64_t> pauses; // byte offsets where the recorder reports a pause
};

// Phrases of the given lengths, each followed by 0.8 s of quiet; the recorder reports the
// pause 0.6 s into it.
Recording makeRecording(const QList<double>& phrases) {
    Recording r;
    for (double seconds : phrases) {
        r.pcm += squareWave(seconds, 9000);
        r.pauses << r.pcm.size() + int64_t(0.6 * 32000);
        r.pcm += silence(0.8);
    }
    return r;
}

double chunkedWaitMs(const Recording& rec) {
    Chunker chunker{QString()};
    auto slice = [&rec](int64_t from, int64_t to) { return rec.pcm.mid(from, to - from); };
    // Every pause but the last comes while the user still speaks; the pieces have the rest of
    // the dictation to be answered.
    for (int i = 0; i + 1 < rec.pauses.size(); ++i)
        chunker.cut(rec.pauses[i], slice);
    QCoro::waitFor(chunker.awaitAll());
    QElapsedTimer t;
    t.start();
    const Chunker::Result result = QCoro::waitFor(chunker.finish(rec.pcm));
    const double ms = double(t.nsecsElapsed()) / 1e6;
    std::printf("chunker: %d morceaux, %s\n", chunker.taskCount(), result ? "réussi" : "échec");
    return ms;
}

// The road without the chunker: the whole recording trimmed and levelled, transcribed, and
// the transcript rewritten.
QCoro::Task<void> oneCall(QByteArray pcm) {
    const QByteArray trimmed = AudioRecorder::trimSilence(pcm);
    const QByteArray wav =
        AudioRecorder::wav(AudioRecorder::normalize(trimmed, AudioRecorder::peak(trimmed)));
    const QString raw = co_await GeminiSpeech::transcribe(wav, QStringLiteral("français"), {});
    co_await OpenRouter::complete(OpenRouter::instructions(QStringLiteral("français"), {}), raw,
                                  AppSettings::shared().openRouterModel());
}

double oneCallWaitMs(const Recording& rec) {
    QElapsedTimer t;
    t.start();
    QCoro::waitFor(oneCall(rec.pcm));
    return double(t.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    qputenv("XDG_CACHE_HOME", home.filePath("cache").toUtf8());
    qputenv("OMBRY_SITE_URL", "");
    qputenv("OPENROUTER_API_KEY", "sk-or-bench");
    QCoreApplication app(argc, argv);

    TestHttpServer server;
    qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
    SpeechServer speech;
    speech.transcribeBaseMs = 300;
    speech.transcribeMsPerSecond = 50;
    speech.rewriteBaseMs = 200;
    speech.rewriteMsPerWord = 3;
    // About two and a half words a second of speech.
    speech.transcript = [](double seconds) {
        QStringList words;
        for (int i = 0; i < int(seconds * 2.5); ++i)
            words << QStringLiteral("mot");
        return chatCompletion(words.join(' '));
    };
    speech.rewrite = [](const QString& text) { return text; };
    speech.install(server);

    std::printf("réponse du modèle: %d ms + %d ms par seconde d'audio\n", speech.transcribeBaseMs,
                speech.transcribeMsPerSecond);
    const QList<QList<double>> cases{
        {6, 5, 7, 4, 6, 5, 6, 4, 5, 2.5}, // a minute, short last phrase
        {6, 5, 7, 4, 6, 5, 6, 4, 5, 6.0}, // a minute, long last phrase
        {12, 11, 13, 14},                 // long phrases, few pauses
    };
    for (const auto& phrases : cases) {
        const Recording rec = makeRecording(phrases);
        const double seconds = double(rec.pcm.size()) / 32000.0;
        const double chunked = chunkedWaitMs(rec);
        const double whole = oneCallWaitMs(rec);
        std::printf("dictée de %.1f s: attente après la fin %.0f ms avec morceaux, %.0f ms en un "
                    "appel, rapport %.2f\n",
                    seconds, chunked, whole, chunked / whole);
    }
    return 0;
}
