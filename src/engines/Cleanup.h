#pragma once

// The small rules between the speech engine and the text the user gets: what the rewriting
// model is told, when the paid rewrite can be skipped, the local clean-up that replaces it, and
// how to spot a transcript that is in truth the model's apology for having heard nothing.
// All pure functions on text, but for the tone hint, which the pipeline sets per dictation.

#include "data/Settings.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace ombry {

// The text without the blanks at its two ends: spaces of any width and tabs, never line breaks.
QString trimBlanks(const QString& text);

// The French name of a language as prompts say it ("français", "anglais", ...).
QString promptName(Language language);

// The sentence that tells the rewriting model how much punctuation to add.
QString punctuationSentence(PunctuationLevel level);

namespace OpenRouter {

// The tone hint of the dictation under way, empty at start. Written by the pipeline (and the
// chunker) before asking for `instructions`; the last write wins. Safe from any thread.
QString toneHint();
void setToneHint(const QString& hint);

// The system prompt of the rewriting call. `language` is a promptName; `words` the user's
// dictionary words. Reads the punctuation setting and the tone hint at the time of the call.
QString instructions(const QString& language, const QStringList& words);

// True when the transcript shows none of the marks of raw speech (fillers, stammered
// repetitions), so the paid rewrite can be skipped. Errs on the side of the paid call.
bool alreadyClean(const QString& text);

// The local clean-up used where the rewriting model is not called: fillers removed, double
// blanks folded, ends trimmed, first character in upper case.
QString basicCleanup(const QString& text);

} // namespace OpenRouter

namespace Tone {

// The hint for the application that will receive the text, by its id (macOS bundle id or
// Linux desktop-file / WM_CLASS id). Empty when tone adaptation is off, the id is absent or
// the application is in no group.
QString hint(const std::optional<QString>& appID);

} // namespace Tone

namespace Hallucination {

// True when the text speaks of audio/recording and of failing or refusing in the same breath:
// the speech model's excuse for having heard nothing.
bool isFake(const QString& text);

// The text without its excuse sentences, trimmed; a text that is no excuse as a whole comes
// back unchanged (not even trimmed).
QString clean(const QString& text);

} // namespace Hallucination

namespace Corrector {

// Sentence hygiene done last: trimmed; with Typography a lowercase first character is raised;
// with Punctuation a final letter or digit gets a full stop. `scope` is a CorrectionScope set.
QString finish(const QString& text, int scope);

} // namespace Corrector

} // namespace ombry
