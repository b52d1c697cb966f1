#pragma once

#include "data/Settings.h"

#include <QByteArray>
#include <QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// The outside grammar service and the rules that turn its findings into decisions: which
// findings the user wants (allowed), which may be applied without a language model (isSafe),
// and which proposal to apply when no model looks at them (bestReplacement).
namespace ombry::LanguageTool {

// A half-open range of the checked text, in UTF-16 code units (QString indices). Both ends
// always lie on grapheme-cluster boundaries, so replacing the range never splits a character.
struct Range {
    qsizetype start = 0;
    qsizetype end = 0;
    qsizetype length() const { return end - start; }
    bool operator==(const Range&) const = default;
};

// One finding, tied to the text that was checked.
struct Match {
    Range range;
    QString original;         // the text that range covers
    QStringList replacements; // at most three, in the service's order
    QString message;          // the service's explanation
    QString category;         // rule.category.name
    QString kind;             // the program's own class, see kind()
    bool operator==(const Match&) const = default;
};

// One request to `{endpoint}/v2/check`; `language` is "auto", "fr", "en", "es", "de" or "it".
// Throws EngineError::http for a status other than 200, DecodeError for an answer that does
// not decode, and the transport's error as it comes.
QCoro::Task<QList<Match>> check(QString text, QString language);

// The form body of a check: text, language and level=picky, percent-encoded as query items,
// with every "+" sent as "%2B" (the service reads a bare plus as a blank).
QByteArray requestBody(const QString& text, const QString& language);

// Decodes the service's JSON answer against the text that was sent. Matches whose UTF-16
// offsets run past the text or split a character are dropped. Throws DecodeError when a
// required key is missing or mistyped.
QList<Match> decode(const QByteArray& json, const QString& text);

// The program's class of a service category id: "orthographe", "accord", "grammaire",
// "ponctuation", "typographie", or "style" for every other id.
QString kind(const QString& categoryId);

// Whether the user's settings want this finding at all.
bool allowed(const Match& match, int scope, PunctuationLevel punctuation);

// Whether `replacement` may be applied blindly: typography, homonym spelling fixes, and
// spelling fixes that change only accents, case or inner punctuation of a word.
bool isSafe(const Match& match, const QString& replacement);

// The proposal to apply when no language model decides, or nothing.
std::optional<QString> bestReplacement(const Match& match);

// Matches in the order of application: by start, from the end of the text, keeping the
// service's order for equal starts, so that each replacement leaves the ranges still to come
// in place.
QList<Match> applicationOrder(QList<Match> matches);

// `text` with `range` replaced by `replacement`.
QString apply(const QString& text, const Range& range, const QString& replacement);

} // namespace ombry::LanguageTool
