#include "ChunkWaits.h"

#include "../tests/dictation/SpeechServer.h"

#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "dictation/Chunker.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"
#include "net/OpenRouter.h"
#include "online/OpenRouterComplete.h"

#include <QCoroTask>
#include <QElapsedTimer>
#include <cstdio>

namespace ombry::bench {

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

double chunkedWaitMs(const Recording& rec, ChunkWait& out) {
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
    out.pieces = chunker.taskCount();
    out.succeeded = result.has_value();
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

QList<ChunkWait> measureChunkWaits() {
    const QByteArray formerUrl = qgetenv("OMBRY_OPENROUTER_URL");
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
    QList<ChunkWait> waits;
    for (const auto& phrases : cases) {
        const Recording rec = makeRecording(phrases);
        ChunkWait w;
        w.seconds = double(rec.pcm.size()) / 32000.0;
        w.chunkedMs = chunkedWaitMs(rec, w);
        w.wholeMs = oneCallWaitMs(rec);
        std::printf("dictée de %.1f s: attente après la fin %.0f ms avec morceaux, %.0f ms en un "
                    "appel, rapport %.2f\n",
                    w.seconds, w.chunkedMs, w.wholeMs, w.ratio());
        waits << w;
    }
    qputenv("OMBRY_OPENROUTER_URL", formerUrl);
    return waits;
}

} // namespace ombry::bench
