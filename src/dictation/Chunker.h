#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <QCoroTask>

namespace ombry {

class AudioRecorder;
namespace Http {
class Abort;
}

// Transcribes a dictation while it goes on: at each pause, the sound since the last cut goes
// off as a piece of its own to the speech engine and then to the rewriting model, so that when
// the key goes up only the last stretch is left to wait for. Lives for one dictation. cut() and
// finish() run on the main thread; the pieces run in parallel, each making its audio and its
// request on a worker thread and sending it from the main thread.
class Chunker {
public:
    using Result = std::optional<std::pair<QString, QString>>; // (raw, clean); nullopt: failed

    static constexpr int64_t kMinPieceBytes = 96000; // 3 seconds

    explicit Chunker(QString tone);
    ~Chunker();
    Chunker(const Chunker&) = delete;
    Chunker& operator=(const Chunker&) = delete;

    // Makes a piece ending at this byte offset of the recorder's buffer, unless it would be
    // shorter than 3 s since the last cut.
    void cut(int64_t offset, const AudioRecorder& recorder);
    // The same with any source of bytes: slice(from, to).
    void cut(int64_t offset, std::function<QByteArray(int64_t, int64_t)> slice);

    // Sends what is left after the last cut and puts the pieces together in order: nullopt as
    // soon as one piece failed, else the raw and clean texts joined with one blank.
    QCoro::Task<Result> finish(QByteArray pcm);

    // Waits for every piece cut so far (for the headless chunk test).
    QCoro::Task<void> awaitAll();

    int taskCount() const;
    // Drops every piece: their requests in flight are aborted, none is sent any more, and
    // they give nullopt.
    void cancelAll();

    // One piece on its way (defined in the source file).
    struct Piece;

private:
    void launch(QByteArray pcm);
    // The treatment of one piece: silence checks, trim, level, transcription, clean-up.
    static QCoro::Task<Result> handle(QByteArray pcm, QString tone,
                                      std::shared_ptr<Http::Abort> abort);

    QString tone_;
    int64_t lastCut_ = 0;
    QList<std::shared_ptr<Piece>> pieces_;
    std::shared_ptr<Http::Abort> abort_; // every request of every piece
};

} // namespace ombry
