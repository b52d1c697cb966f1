#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "net/Http.h"

// The speech engine of the default configuration: the WAV file travels in a chat message to a
// multimodal model, through OmbryAI::chat like every other text call, and the transcript is
// read out of the model's reply. No retry: callers fall back on another engine.
namespace ombry::GeminiSpeech {

inline constexpr const char* kModel = "google/gemini-2.5-flash-lite";
inline constexpr const char* kLabel = "Gemini";
// On the hosted road one request holds at most 70 seconds of PCM.
inline constexpr qsizetype kHostedSliceBytes = 2240000;

struct RawAndClean {
    QString raw;
    QString clean;
};
struct Translation {
    QString en;
    QString fr;
};

// The plain transcript of a whole WAV file (header included). `language` is a promptName;
// `words` the dictionary words to spell as given. Excuses of the model ("je n'ai pas pu
// entendre l'audio") are removed. Empty when nothing was said. Time-out 30 s.
QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList words);

// The same in two halves, for a caller that makes the requests off the main thread. The
// bodies of one transcription with this prompt (transcribePrompt): one, or with `sliced` (the
// hosted road) one per kHostedSliceBytes of PCM; the audio already in base64. Callable on any
// thread.
QList<Http::JsonBody> transcribeBodies(const QString& prompt, const QByteArray& wav, bool sliced);
// Sends them in order and joins what each transcript says with one blank. `abort` lets the
// caller give the requests up.
QCoro::Task<QString> transcribe(QList<Http::JsonBody> bodies, std::shared_ptr<Http::Abort> abort);

// The raw and the cleaned transcript in one request; `tone` is a Tone hint, `punctuation` the
// sentence of the punctuation level. A reply that is not the JSON asked for fails with
// DecodeError. Time-out 20 s.
QCoro::Task<RawAndClean> transcribeAndClean(QByteArray wav, QString language, QStringList words,
                                            QString tone, QString punctuation);

// The English words of a call excerpt and their French translation; `context` holds the
// preceding sentences. A reply that is not JSON is read field by field. Time-out 20 s.
QCoro::Task<Translation> transcribeAndTranslate(QByteArray wav, QString context);

// The prompts, exactly as sent.
QString transcribePrompt(const QString& language, const QStringList& words);
QString cleanPrompt(const QString& language, const QStringList& words, const QString& tone,
                    const QString& punctuation);
QString translatePrompt(const QString& context);

// The request body: the fixed model, temperature 0, the system prompt, and the audio as one
// base64 `input_audio` part; with `json`, a response_format of type json_object. The audio
// stays bytes until the body is written (Http::JsonBody::serialized).
Http::JsonBody requestBody(const QString& prompt, const QByteArray& wav, bool json);

// From the first "{" to the last "}", both kept; the text whole when either is missing.
QString jsonCut(const QString& content);

// The fallback reader of one JSON string value in a text that may be broken: the value after
// `"name" :` up to an unescaped quote or the end, with \n read as a newline and any other
// escaped character as itself; trimmed. Empty when the key is not found.
QString field(const QString& name, const QString& text);

} // namespace ombry::GeminiSpeech
