#pragma once

// The engines that run on the user's own machine: offline transcription of a recording
// (AppleSpeech, pocketsphinx), rewriting with a local language model (AppleRewrite, an
// OpenAI-compatible chat server such as llama.cpp or Ollama at Endpoints::localLlm()). The
// running text shown while the user speaks is LivePreview.h. They cost nothing and need no key;
// the pipeline falls back on them when a remote engine can't be used.

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace ombry {

namespace AppleSpeech {

// The service word of its errors, as the user reads it: "Local : erreur 0 langue non disponible".
inline constexpr const char* kService = "Local";

// Transcribes a WAV file (16-bit mono 16 kHz) offline. `language` is a locale code ("fr", "en");
// its model comes from models/<code>/ in the data folder, or from the system for English.
// `grammar`, a JSGF file, pins the words the recognition may give (tests); empty means the
// OMBRY_POCKETSPHINX_JSGF environment variable, or none. `contextualWords` are accepted for
// the callers' sake; this recogniser has no way to favour them.
// Decoding runs on a worker thread; the result comes back on the awaiting thread.
// Throws EngineError::http("Local", 0, "langue non disponible") when no model serves the
// language, and the same error kind with the decoder's words when the model can't be used.
QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList contextualWords,
                                QString grammar = QString());

// The two entry points the pipeline knows; there is one recogniser on this platform.
inline QCoro::Task<QString> transcribeNative(QByteArray wav, QString language,
                                             QStringList contextualWords) {
    return transcribe(std::move(wav), std::move(language), std::move(contextualWords));
}
inline QCoro::Task<QString> transcribeLegacy(QByteArray wav, QString language,
                                             QStringList contextualWords) {
    return transcribe(std::move(wav), std::move(language), std::move(contextualWords));
}

} // namespace AppleSpeech

namespace AppleRewrite {

// The service word and body of the "no local model" error.
inline constexpr const char* kService = "IA locale";
inline constexpr const char* kUnavailable =
    "non disponible sur cet ordinateur (modèle local requis)";

// True when a local model server answers its model list (GET /v1/models) within a few seconds.
QCoro::Task<bool> available();

// One chat turn with the local model: `system` as instructions, `text` as the prompt, default
// generation options. The reply's content, trimmed. Throws EngineError::http("IA locale", 0,
// "non disponible …") when no server answers, EngineError::http("IA locale", status, body) when
// it refuses, DecodeError when its answer is not a chat completion.
QCoro::Task<QString> run(QString system, QString text);

// The same with guided output: the reply must be JSON following `schema` (a JSON Schema object,
// sent as the request's response_format and shown in the prompt). Returns the JSON text.
QCoro::Task<QString> runStructured(QString system, QString text, QJsonObject schema);

} // namespace AppleRewrite

} // namespace ombry
