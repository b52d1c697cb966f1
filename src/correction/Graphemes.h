#pragma once

#include <QString>
#include <QStringList>

// Text seen as the user sees it: a character is a grapheme cluster (a letter with its accents,
// an emoji with its modifiers), and two texts are equal when they are canonically equivalent.
namespace ombry::Graphemes {

// The text split into its characters.
QStringList split(const QString& text);
int count(const QString& text);
QString first(const QString& text); // empty for an empty text
// The first n characters; the text whole when it has no more.
QString left(const QString& text, int n);

// Whether a character reads as a letter / a number: decided by its first code point, so a
// letter keeps its combining accents.
bool isLetter(const QString& character);
bool isLetterOrNumber(const QString& character);

// Upper case: the character has a case and equals its own upper-case form.
bool isUppercase(const QString& character);

// The characters of `text` that are letters or numbers, in order.
QString lettersAndNumbers(const QString& text);

// Case and accents folded away, then only letters and numbers kept: "Ça-va" and "cava" fold
// alike.
QString fold(const QString& text);

// Spaces and tabs removed at both ends; newlines stay.
QString trimBlanks(const QString& text);

// The canonical composed form, for comparisons by canonical equivalence.
inline QString canonical(const QString& text) {
    return text.normalized(QString::NormalizationForm_C);
}

} // namespace ombry::Graphemes
