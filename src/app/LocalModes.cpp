#include "app/LocalModes.h"

#include "app/Output.h"
#include "audio/AudioRecorder.h"
#include "correction/Translator.h"
#include "correction/VoiceCommand.h"
#include "engines/Cleanup.h"
#include "engines/LocalEngine.h"
#include "net/Errors.h"

#include <QElapsedTimer>

namespace ombry {

// Failures that end a mode reach the mode runner, which prints the one error line.

QCoro::Task<void> runCommandMode(QString instruction, QString text) {
    const QString result = co_await VoiceCommand::apply(instruction, text);
    printLine(QStringLiteral("commande: ") + result);
}

QCoro::Task<void> runTranslateMode(QString text) {
    const QString result = co_await Translator::translate(text, QStringLiteral("anglais"), true);
    printLine(QStringLiteral("traduit: ") + result);
}

QCoro::Task<void> runTestMode(QString wavPath) {
    const std::optional<QByteArray> pcm = readSpeechFile(wavPath);
    if (!pcm) co_return;

    QElapsedTimer timer;
    timer.start();
    const QString text =
        co_await LocalSpeech::transcribe(AudioRecorder::wav(*pcm), QStringLiteral("fr"), {});
    printLine(QStringLiteral("transcription (%1 s): %2").arg(secondsSince(timer), text));

    const bool available = co_await LocalModel::available();
    printLine(QStringLiteral("apple intelligence disponible: ") +
              QLatin1String(available ? "true" : "false"));

    timer.restart();
    const QString result =
        co_await LocalModel::run(OpenRouter::instructions(QStringLiteral("français"), {}), text);
    printLine(QStringLiteral("reformulation (%1 s): %2").arg(secondsSince(timer), result));
}

} // namespace ombry
