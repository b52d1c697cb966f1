#pragma once

#include "correction/LanguageTool.h"

#include <QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>

// Corrects a written text: LanguageTool first, then, when the settings allow it, a language
// model that decides what the first pass could not. Only what cannot change the meaning is
// applied blindly; the model's habits that the prompt does not stop (slang put in capitals,
// statements turned into questions, the prompt's own frame echoed) are repaired afterwards.
// Corrector::finish, the last step of every path, lives with the clean-up rules.
namespace ombry::Corrector {

struct Detailed {
    QString text;                       // the corrected text
    QList<LanguageTool::Match> matches; // the findings kept, in the service's order
};

// `language` is the French name that goes into the prompt; `words` the user's dictionary.
// Throws only what the local model throws when it is the last resort.
QCoro::Task<Detailed> correctDetailed(QString text, QString language, QStringList words);

// The system prompt of the correcting model, built from the correction scope.
QString instructions(const QString& language, const QStringList& words);

// Takes back a short lowercase word of the original that the model put in capitals, and
// keeps the sentence type: no question invented, no question lost.
QString guardChanges(const QString& original, const QString& corrected);

// The remote model may be used: rewrite engine OpenRouter, and an own key or credits left.
bool canUseOpenRouter();
// A language model has the last word.
bool wantsModel();

// What the blind pass made of the text: the findings applied from the end of the text to its
// start, and the ones left for the model (in that same order).
struct FirstPass {
    QString text;
    QList<LanguageTool::Match> leftovers;
};
FirstPass applyFindings(const QString& text, const QList<LanguageTool::Match>& matches,
                        bool modelDecides);

// The user message that shows the model the findings it has to judge.
QString findingsFrame(const QString& text, const QList<LanguageTool::Match>& leftovers);

// Removes what a model echoes of the frame: the <<< >>> markers and the "Texte à corriger :"
// heading.
QString stripEcho(const QString& answer);

} // namespace ombry::Corrector
