#pragma once

#include "correction/LanguageTool.h"
#include "data/Records.h"

#include <QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

namespace ombry {

// The rewriting actions of the corrector page.
enum class TextAction { Correct, Formal, Friendly, Concise, Clearer, Email, Summary, Translate };

QString rawValue(TextAction v); // "correct", "formal", ...
template <> std::optional<TextAction> fromRaw<TextAction>(const QString& raw);
template <> QList<TextAction> allCases<TextAction>();

// A corrected text and the single changes that lead to it, in text order.
struct Analysis {
    QString corrected;
    QList<Fix> fixes;
    bool operator==(const Analysis&) const = default;
};

// What the corrector page needs beyond a corrected text: the list of changes, each with a kind
// and a short explanation of its rule, and the rewriting actions. The changes come from a
// word-level diff, since a language model has the last word; LanguageTool's findings label
// them for free, and only what stays unexplained costs a further model call.
namespace Analyzer {

// The kinds of fault, in the order the prompt lists them.
const QStringList& kinds();

// Corrects the text and lists its changes, labelled by the findings. Throws what the
// correction throws.
QCoro::Task<Analysis> analyze(QString text, QString language, QStringList words);

// Asks a model to explain the fixes that have no explanation yet (at most 40 in one request).
// Never throws: what cannot be explained stays as it was.
QCoro::Task<QList<Fix>> explain(QList<Fix> fixes, QString text, QString language);

// Rewrites the text for an action; `target` is the language of a translation (French name,
// "anglais" when absent). Throws the engine's error.
QCoro::Task<QString> rewrite(QString text, TextAction action, QString language,
                             std::optional<QString> target);

// Building blocks, exposed for the page and for tests.

// The word-level changes between two texts, found through their longest common subsequence.
// Empty when the product of the two word counts reaches 4,000,000.
QList<Fix> diff(const QString& before, const QString& after);

// "ponctuation" when the two sides differ only outside letters and numbers, else
// "orthographe".
QString guessKind(const QString& before, const QString& after);

// Gives each fix the kind and message of the first finding that covers it: same words, then
// one of its words, then containment either way.
void label(QList<Fix>& fixes, const QList<LanguageTool::Match>& matches);

// The prompts of an explanation request; `remote` adds the JSON form that the remote model
// must follow (the local model is held to it by a schema).
QString explainInstructions(const QString& language, bool remote);
QString explainRequest(const QString& text, const QList<Fix>& fixes);

// The fixes with a model's explanations laid over them by position, or nothing when the
// answer does not hold an "items" list.
std::optional<QList<Fix>> applyExplanations(const QList<Fix>& fixes, const QString& answer);

// The system prompt of a rewriting action.
QString rewriteInstructions(TextAction action, const QString& language,
                            const std::optional<QString>& target);

// The local model held to a schema: exactly `count` items of kind and explanation. Throws the
// local model's errors.
QCoro::Task<QString> localStructured(QString system, QString text, int count);

} // namespace Analyzer
} // namespace ombry
