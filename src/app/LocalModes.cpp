#include "app/LocalModes.h"

#include "app/Output.h"
#include "correction/Translator.h"
#include "correction/VoiceCommand.h"
#include "engines/Cleanup.h"
#include "engines/LocalEngine.h"

#include <QElapsedTimer>
#include <QFile>

#include <exception>

namespace ombry {
namespace {

void printError(const std::exception& e) {
    printLine(QStringLiteral("erreur: ") + QString::fromUtf8(e.what()));
}

QString seconds(const QElapsedTimer& timer) {
    return QString::asprintf("%.1f", double(timer.nsecsElapsed()) / 1e9);
}

} // namespace

QCoro::Task<void> runCommandMode(QString instruction, QString text) {
    try {
        const QString result = co_await VoiceCommand::apply(instruction, text);
        printLine(QStringLiteral("commande: ") + result);
    } catch (const std::exception& e) {
        printError(e);
    }
}

QCoro::Task<void> runTranslateMode(QString text) {
    try {
        const QString result =
            co_await Translator::translate(text, QStringLiteral("anglais"), true);
        printLine(QStringLiteral("traduit: ") + result);
    } catch (const std::exception& e) {
        printError(e);
    }
}

QCoro::Task<void> runTestMode(QString wavPath) {
    QFile file(wavPath);
    if (!file.open(QIODevice::ReadOnly)) {
        printLine(QStringLiteral("erreur: impossible de lire le fichier ") + wavPath);
        co_return;
    }
    const QByteArray wav = file.readAll();
    file.close();

    QString text;
    QElapsedTimer timer;
    timer.start();
    try {
        text = co_await AppleSpeech::transcribe(wav, QStringLiteral("fr"), {});
    } catch (const std::exception& e) {
        printError(e);
        co_return;
    }
    printLine(QStringLiteral("transcription (%1 s): %2").arg(seconds(timer), text));

    const bool available = co_await AppleRewrite::available();
    printLine(QStringLiteral("apple intelligence disponible: ") +
              QLatin1String(available ? "true" : "false"));

    timer.restart();
    try {
        const QString result = co_await AppleRewrite::run(
            OpenRouter::instructions(QStringLiteral("français"), {}), text);
        printLine(QStringLiteral("reformulation (%1 s): %2").arg(seconds(timer), result));
    } catch (const std::exception& e) {
        printError(e);
    }
}

} // namespace ombry
