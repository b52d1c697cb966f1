#pragma once

// Language detection and translation of a text through a language model: the remote model when
// a key or credits allow it, the local model otherwise or when the remote call fails.

#include <QCoroTask>
#include <QList>
#include <QPair>
#include <QString>
#include <optional>

namespace ombry {

// Whether translation, voice commands and meetings may use the remote model: the user's own
// key is in use, or the hosted service is and its balance has not run out. Unlike correction,
// the rewrite engine setting plays no part.
bool hasRemote();

namespace Translator {

// The languages the program speaks of, by their French names, with their ISO 639-1 codes, in
// the order pickers list them: anglais, français, espagnol, allemand, italien, portugais,
// néerlandais, japonais, chinois.
const QList<QPair<QString, QString>>& codes();

// The model used for translation when the user's rewrite engine is not OpenRouter.
inline constexpr const char* kDefaultModel = "google/gemini-2.5-flash-lite";

// The French name of the text's dominant language, or none when the text is too short to tell
// or its language is not one of codes(). Traditional Chinese counts as "chinois".
std::optional<QString> detect(const QString& text);

// The instructions of a translation into `to` (a French language name).
QString systemPrompt(const QString& to);

// Translates `text` into `target`. With `autoReverse`, a text already in the target language
// goes the other way: into "anglais" when the target is "français", else into "français".
// Remote model when hasRemote(), with the local model as fallback (the remote error is
// dropped); a failure of the local model reaches the caller. The answer comes back as given.
QCoro::Task<QString> translate(QString text, QString target, bool autoReverse);

} // namespace Translator

} // namespace ombry
