#include "app/SpeechModes.h"

#include "app/Output.h"
#include "audio/AudioRecorder.h"
#include "data/Settings.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"

#include <QElapsedTimer>
#include <optional>

namespace ombry {

// Failures after the file is read reach the mode runner, which prints the one error line.

QCoro::Task<void> runFastTestMode(QString wavPath) {
    const std::optional<QByteArray> pcm = readSpeechFile(wavPath);
    if (!pcm) co_return;
    const QByteArray wav = AudioRecorder::wav(*pcm);
    QElapsedTimer timer;
    timer.start();
    const GeminiSpeech::RawAndClean result = co_await GeminiSpeech::transcribeAndClean(
        wav, QStringLiteral("français"), {}, QString(),
        punctuationSentence(AppSettings::shared().punctuation()));
    printLine(QStringLiteral("rapide (%1 s): raw=[%2] clean=[%3]")
                  .arg(secondsSince(timer), result.raw, result.clean));
}

QCoro::Task<void> runCallTestMode(QString wavPath) {
    const std::optional<QByteArray> pcm = readSpeechFile(wavPath);
    if (!pcm) co_return;
    const QByteArray wav = AudioRecorder::wav(*pcm);
    QElapsedTimer timer;
    timer.start();
    const GeminiSpeech::Translation result =
        co_await GeminiSpeech::transcribeAndTranslate(wav, QString());
    printLine(
        QStringLiteral("appel (%1 s): %2 → %3").arg(secondsSince(timer), result.en, result.fr));
}

} // namespace ombry
