#include "app/ChunkMode.h"

#include "app/Output.h"
#include "dictation/Chunker.h"

#include <QElapsedTimer>
#include <QtEndian>
#include <cstdlib>
#include <optional>

namespace ombry {
namespace {

constexpr int kBlockSamples = 1024;
constexpr int kSpeechPeak = 900;
constexpr double kPauseSeconds = 0.6;

} // namespace

QCoro::Task<void> runChunkTestMode(QString wavPath) {
    const std::optional<QByteArray> speech = readSpeechFile(wavPath);
    if (!speech) co_return;
    const QByteArray pcm = *speech;
    Chunker chunker{QString()};
    auto slice = [&pcm](int64_t from, int64_t to) { return pcm.mid(from, to - from); };

    // The recorder's live pause detection, replayed: a cut after 0.6 s of quiet that follows
    // speech. The quiet count is not reset by a cut, only by speech.
    const auto* samples = reinterpret_cast<const uchar*>(pcm.constData());
    const int64_t count = pcm.size() / 2;
    int64_t silent = 0;
    bool spoke = false;
    for (int64_t start = 0; start < count; start += kBlockSamples) {
        const int64_t end = std::min(count, start + kBlockSamples);
        int peak = 0;
        for (int64_t i = start; i < end; ++i)
            peak = std::max(peak, std::abs(int(qFromLittleEndian<qint16>(samples + 2 * i))));
        if (peak > kSpeechPeak) {
            silent = 0;
            spoke = true;
            continue;
        }
        silent += end - start;
        if (!spoke) continue;
        if (double(silent) / 16000.0 >= kPauseSeconds) {
            chunker.cut(end * 2, slice);
            spoke = false;
        }
    }

    co_await chunker.awaitAll();
    QElapsedTimer timer;
    timer.start();
    const Chunker::Result result = co_await chunker.finish(pcm);
    printLine(QStringLiteral("morceaux: %1, attente après la fin: %2 s")
                  .arg(chunker.taskCount())
                  .arg(QString::asprintf("%.2f", double(timer.elapsed()) / 1000.0)));
    printLine(QStringLiteral("texte: ") + (result ? result->second : QStringLiteral("échec")));
}

} // namespace ombry
