#pragma once

// The engines that run on the user's own machine: transcription of a recording (LocalSpeech,
// LocalSpeech.h: a local speech server, else pocketsphinx) and rewriting with a local language
// model (LocalModel, an OpenAI-compatible chat server such as llama.cpp or Ollama at
// LocalServers::model()). The running text shown while the user speaks is LivePreview.h. They
// cost nothing and need no key; the pipeline falls back on them when a remote engine can't be
// used.

#include "engines/LocalSpeech.h"

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace ombry {

namespace LocalModel {

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

} // namespace LocalModel

} // namespace ombry
