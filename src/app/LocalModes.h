#pragma once

#include <QCoroTask>
#include <QString>

// The headless modes of the voice command, the translation and the local engines. Each prints
// its lines and catches its own failures as one "erreur: …" line.
namespace ombry {

// `--command {instruction} {text}`: "commande: {result}".
QCoro::Task<void> runCommandMode(QString instruction, QString text);

// `--translate {text}`: into English, or back into French for an English text:
// "traduit: {result}".
QCoro::Task<void> runTranslateMode(QString text);

// `--test {wav}`: offline transcription in French, whether the local model answers, and the
// local rewrite of the transcript, each timed.
QCoro::Task<void> runTestMode(QString wavPath);

} // namespace ombry
