#include "correction/Graphemes.h"

#include <QTextBoundaryFinder>

namespace ombry::Graphemes {
namespace {

char32_t firstCodePoint(const QString& character) {
    if (character.isEmpty()) return 0;
    const QChar c = character.at(0);
    if (c.isHighSurrogate() && character.size() > 1 && character.at(1).isLowSurrogate())
        return QChar::surrogateToUcs4(c, character.at(1));
    return c.unicode();
}

} // namespace

QStringList split(const QString& text) {
    QStringList out;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype start = 0;
    while (finder.toNextBoundary() != -1) {
        const qsizetype end = finder.position();
        out << text.mid(start, end - start);
        start = end;
    }
    return out;
}

int count(const QString& text) {
    if (text.isEmpty()) return 0;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int n = 0;
    while (finder.toNextBoundary() != -1)
        ++n;
    return n;
}

QString first(const QString& text) {
    if (text.isEmpty()) return {};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    const qsizetype end = finder.toNextBoundary();
    return text.left(end);
}

QString left(const QString& text, int n) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (int i = 0; i < n; ++i)
        if (finder.toNextBoundary() == -1) return text;
    return text.left(finder.position());
}

bool isLetter(const QString& character) {
    return QChar::isLetter(firstCodePoint(character));
}

bool isLetterOrNumber(const QString& character) {
    return QChar::isLetterOrNumber(firstCodePoint(character));
}

bool isUppercase(const QString& character) {
    if (character.isEmpty()) return false;
    return character.toUpper() == character && character.toLower() != character;
}

QString lettersAndNumbers(const QString& text) {
    QString out;
    out.reserve(text.size());
    for (const QString& c : split(text))
        if (isLetterOrNumber(c)) out += c;
    return out;
}

QString fold(const QString& text) {
    const QString decomposed = text.normalized(QString::NormalizationForm_D);
    QString bare;
    bare.reserve(decomposed.size());
    for (qsizetype i = 0; i < decomposed.size(); ++i) {
        char32_t cp = decomposed.at(i).unicode();
        qsizetype width = 1;
        if (decomposed.at(i).isHighSurrogate() && i + 1 < decomposed.size()) {
            cp = QChar::surrogateToUcs4(decomposed.at(i), decomposed.at(i + 1));
            width = 2;
        }
        // Accents are the nonspacing marks that decomposition sets apart.
        if (QChar::category(cp) != QChar::Mark_NonSpacing) bare += decomposed.mid(i, width);
        i += width - 1;
    }
    return lettersAndNumbers(bare.toCaseFolded());
}

QString trimBlanks(const QString& s) {
    qsizetype start = 0;
    qsizetype end = s.size();
    auto blank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    while (start < end && blank(s.at(start)))
        ++start;
    while (end > start && blank(s.at(end - 1)))
        --end;
    return s.mid(start, end - start);
}

} // namespace ombry::Graphemes
