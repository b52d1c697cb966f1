#include "app/SpeechModes.h"

#include "app/Output.h"
#include "data/Settings.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"

#include <QElapsedTimer>
#include <QFile>
#include <exception>
#include <optional>

namespace ombry {

namespace {

std::optional<QByteArray> readWav(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        printLine(QStringLiteral("erreur: impossible de lire le fichier ") + path);
        return std::nullopt;
    }
    return file.readAll();
}

QString seconds(const QElapsedTimer& timer) {
    return QString::asprintf("%.1f", double(timer.nsecsElapsed()) / 1e9);
}

void printError(const std::exception& e) {
    printLine(QStringLiteral("erreur: ") + QString::fromUtf8(e.what()));
}

} // namespace

QCoro::Task<void> runFastTestMode(QString wavPath) {
    const std::optional<QByteArray> wav = readWav(wavPath);
    if (!wav) co_return;
    QElapsedTimer timer;
    timer.start();
    try {
        const GeminiSpeech::RawAndClean result = co_await GeminiSpeech::transcribeAndClean(
            *wav, QStringLiteral("français"), {}, QString(),
            punctuationSentence(AppSettings::shared().punctuation()));
        printLine(QStringLiteral("rapide (%1 s): raw=[%2] clean=[%3]")
                      .arg(seconds(timer), result.raw, result.clean));
    } catch (const std::exception& e) {
        printError(e);
    }
}

QCoro::Task<void> runCallTestMode(QString wavPath) {
    const std::optional<QByteArray> wav = readWav(wavPath);
    if (!wav) co_return;
    QElapsedTimer timer;
    timer.start();
    try {
        const GeminiSpeech::Translation result =
            co_await GeminiSpeech::transcribeAndTranslate(*wav, QString());
        printLine(
            QStringLiteral("appel (%1 s): %2 → %3").arg(seconds(timer), result.en, result.fr));
    } catch (const std::exception& e) {
        printError(e);
    }
}

} // namespace ombry
