#include "dictation/Chunker.h"

#include "audio/AudioRecorder.h"
#include "data/Records.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"
#include "online/OpenRouterComplete.h"

#include <QCoroFuture>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <coroutine>
#include <exception>
#include <vector>

namespace ombry {

// One piece on its way: its result once known, and whoever waits for it.
struct Chunker::Piece {
    bool done = false;
    bool cancelled = false;
    Result result;
    std::vector<std::coroutine_handle<>> waiters;

    void complete(Result r) {
        result = cancelled ? std::nullopt : std::move(r);
        done = true;
        // Waiters go on at the next turn of the event loop, once this piece's own coroutine
        // has ended, and never from inside the network reply that finished it.
        for (auto h : std::exchange(waiters, {}))
            QTimer::singleShot(0, [h] { h.resume(); });
    }
};

namespace {

// co_await on a piece: its result, at once when it is already there.
struct PieceAwaiter {
    std::shared_ptr<Chunker::Piece> piece;
    bool await_ready() const noexcept { return piece->done; }
    void await_suspend(std::coroutine_handle<> h) { piece->waiters.push_back(h); }
    Chunker::Result await_resume() const { return piece->result; }
};

constexpr int64_t kSilentPeak = 1500;
constexpr double kMinSpeechSeconds = 0.4;
constexpr int64_t kLoudEnoughPeak = 12000;
constexpr int kRewriteAboveWords = 3;

// The transcription requests of a piece; nothing for a silent one.
using Requests = std::optional<QList<Http::JsonBody>>;

// Everything of a piece that needs no network: the silence checks, the trim, the level, the
// WAV and the base64 of its request bodies. Touches no shared state.
Requests requestsFor(const QByteArray& pcm, const QString& prompt, bool sliced) {
    const int64_t peak = AudioRecorder::peak(pcm);
    if (peak <= kSilentPeak) return std::nullopt;
    if (AudioRecorder::speechSeconds(pcm) <= kMinSpeechSeconds) return std::nullopt;
    QByteArray trimmed = AudioRecorder::trimSilence(pcm);
    if (peak < kLoudEnoughPeak) trimmed = AudioRecorder::normalize(trimmed, peak);
    return GeminiSpeech::transcribeBodies(prompt, AudioRecorder::wav(trimmed), sliced);
}

} // namespace

Chunker::Chunker(QString tone) : tone_(std::move(tone)), abort_(std::make_shared<Http::Abort>()) {}

// Pieces still running finish on their own; their results are dropped.
Chunker::~Chunker() = default;

void Chunker::cut(int64_t offset, const AudioRecorder& recorder) {
    cut(offset, [&recorder](int64_t from, int64_t to) { return recorder.pcm(from, to); });
}

void Chunker::cut(int64_t offset, std::function<QByteArray(int64_t, int64_t)> slice) {
    // A phrase shorter than the minimum is not lost: it starts the next piece.
    if (offset - lastCut_ < kMinPieceBytes) return;
    QByteArray bytes = slice(lastCut_, offset);
    lastCut_ = offset;
    launch(std::move(bytes));
}

void Chunker::launch(QByteArray pcm) {
    auto piece = std::make_shared<Piece>();
    pieces_ << piece;
    if (abort_->aborted()) {
        piece->cancelled = true;
        piece->complete(std::nullopt);
        return;
    }
    // Runs by itself; the piece, shared with the list, outlives the chunker if need be.
    [](std::shared_ptr<Piece> p, QByteArray bytes, QString tone,
       std::shared_ptr<Http::Abort> abort) -> QCoro::Task<void> {
        Result r;
        try {
            r = co_await handle(std::move(bytes), std::move(tone), abort);
        } catch (const std::exception& e) {
            if (!abort->aborted()) Log::write(QStringLiteral("morceau: ") + describe(e));
            r = std::nullopt;
        }
        p->complete(std::move(r));
    }(piece, std::move(pcm), tone_, abort_);
}

QCoro::Task<Chunker::Result> Chunker::handle(QByteArray pcm, QString tone,
                                             std::shared_ptr<Http::Abort> abort) {
    const std::pair<QString, QString> nothing;
    const QString language = promptName(AppSettings::shared().language());
    const QStringList words = Store::shared().words();
    // On Qt's thread pool, so that a long piece never holds up the main thread while the user
    // speaks; the main thread only sends.
    QFuture<Requests> prepared =
        QtConcurrent::run(requestsFor, std::move(pcm),
                          GeminiSpeech::transcribePrompt(language, words), OmbryAI::usesCredits());
    Requests requests = co_await prepared;
    if (!requests) co_return nothing;
    // A cancel is what stops a piece here; its own failures are worth a line of the journal.
    const auto failed = [&abort](const std::exception& e) {
        if (!abort->aborted()) Log::write(QStringLiteral("morceau: ") + describe(e));
    };
    QString raw;
    try {
        raw = co_await GeminiSpeech::transcribe(std::move(*requests), abort);
    } catch (const std::exception& e) {
        failed(e);
        co_return std::nullopt;
    }
    if (raw.trimmed().isEmpty()) co_return nothing;

    if (wordCount(raw) <= kRewriteAboveWords)
        co_return std::pair{raw, OpenRouter::basicCleanup(raw)};
    // No local fallback here: the whole recording gets one if a piece fails.
    OpenRouter::setToneHint(tone);
    try {
        QString clean =
            co_await OpenRouter::complete(OpenRouter::instructions(language, words), raw,
                                          AppSettings::shared().openRouterModel(), abort);
        co_return std::pair{raw, clean};
    } catch (const std::exception& e) {
        failed(e);
        co_return std::nullopt;
    }
}

QCoro::Task<Chunker::Result> Chunker::finish(QByteArray pcm) {
    // The end of the recording is one more piece, whatever its length.
    if (lastCut_ < pcm.size()) {
        launch(pcm.mid(lastCut_));
        lastCut_ = pcm.size();
    }
    const auto pieces = pieces_; // the chunker may go away while this waits
    QStringList raws, cleans;
    for (const auto& piece : pieces) {
        PieceAwaiter awaiter{piece}; // named: the awaiter must outlive the suspension
        const Result r = co_await awaiter;
        // One failed piece fails the whole: the caller sends the full recording instead.
        if (!r) co_return std::nullopt;
        if (r->first.isEmpty()) continue;
        raws << r->first;
        cleans << r->second;
    }
    co_return std::pair{raws.join(QLatin1Char(' ')), cleans.join(QLatin1Char(' '))};
}

QCoro::Task<void> Chunker::awaitAll() {
    const auto pieces = pieces_;
    for (const auto& piece : pieces) {
        PieceAwaiter awaiter{piece};
        co_await awaiter;
    }
}

int Chunker::taskCount() const {
    return int(pieces_.size());
}

void Chunker::cancelAll() {
    for (const auto& piece : pieces_) {
        piece->cancelled = true;
        piece->result.reset();
    }
    abort_->abort();
}

} // namespace ombry
