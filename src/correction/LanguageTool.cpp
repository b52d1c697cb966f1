#include "correction/LanguageTool.h"

#include "correction/Graphemes.h"
#include "net/Endpoints.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/Json.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTextBoundaryFinder>
#include <QUrl>
#include <algorithm>

namespace ombry::LanguageTool {
namespace {

constexpr int kMaxReplacements = 3;
constexpr double kTimeoutSeconds = 10.0;

[[noreturn]] void badAnswer(const QString& what) {
    Json::unreadable(QStringLiteral("LanguageTool"), what);
}

QJsonObject objectAt(const QJsonObject& o, const char* key) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (!v.isObject()) badAnswer(QLatin1String(key));
    return v.toObject();
}

QString stringAt(const QJsonObject& o, const char* key) {
    const QJsonValue v = o.value(QLatin1String(key));
    if (!v.isString()) badAnswer(QLatin1String(key));
    return v.toString();
}

qint64 integerAt(const QJsonObject& o, const char* key) {
    const std::optional<int> v = Json::integer(o.value(QLatin1String(key)));
    if (!v) badAnswer(QLatin1String(key));
    return *v;
}

// The first blank-separated word, lowercased, or nothing.
std::optional<QString> firstWordLowered(const QString& s) {
    const QStringList words = s.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.isEmpty()) return std::nullopt;
    return words.first().toLower();
}

bool isAllCapitals(const QString& s) {
    return s == s.toUpper();
}

} // namespace

QByteArray requestBody(const QString& text, const QString& language) {
    // The query character set, less the "&" and "=" that separate the fields.
    static const QByteArray kept = QByteArrayLiteral("!$'()*+,;:@/?");
    auto field = [](const char* name, const QString& value) {
        return QByteArray(name) + '=' + QUrl::toPercentEncoding(value, kept);
    };
    QByteArray body = field("text", text) + '&' + field("language", language) + '&' +
                      field("level", QStringLiteral("picky"));
    return body.replace('+', QByteArrayLiteral("%2B"));
}

QList<Match> decode(const QByteArray& json, const QString& text) {
    const QJsonValue list =
        Json::object(json, QStringLiteral("LanguageTool")).value(QLatin1String("matches"));
    if (!list.isArray()) badAnswer(QStringLiteral("matches"));

    QTextBoundaryFinder boundaries(QTextBoundaryFinder::Grapheme, text);
    auto onBoundary = [&](qsizetype position) {
        if (position == 0 || position == text.size()) return true;
        boundaries.setPosition(position);
        return boundaries.isAtBoundary();
    };

    QList<Match> out;
    for (const QJsonValue& element : list.toArray()) {
        if (!element.isObject()) badAnswer(QStringLiteral("matches[]"));
        const QJsonObject m = element.toObject();
        // Every element must decode, also one whose offsets are then found unusable.
        const qint64 offset = integerAt(m, "offset");
        const qint64 length = integerAt(m, "length");
        const QString message = stringAt(m, "message");
        const QJsonValue proposals = m.value(QLatin1String("replacements"));
        if (!proposals.isArray()) badAnswer(QStringLiteral("replacements"));
        QStringList replacements;
        for (const QJsonValue& r : proposals.toArray()) {
            if (!r.isObject()) badAnswer(QStringLiteral("replacements[]"));
            const QString value = stringAt(r.toObject(), "value");
            if (replacements.size() < kMaxReplacements) replacements << value;
        }
        const QJsonObject category = objectAt(objectAt(m, "rule"), "category");
        const QString categoryId = stringAt(category, "id");
        const QString categoryName = stringAt(category, "name");

        if (offset < 0 || length < 0 || offset > text.size() || length > text.size() - offset)
            continue;
        const Range range{offset, offset + length};
        if (!onBoundary(range.start) || !onBoundary(range.end)) continue;

        out << Match{range,        text.mid(range.start, range.length()),
                     replacements, message,
                     categoryName, kind(categoryId)};
    }
    return out;
}

QCoro::Task<QList<Match>> check(QString text, QString language) {
    const QUrl url(Endpoints::languageTool() + QStringLiteral("/v2/check"));
    Http::Headers headers;
    headers.append({QByteArrayLiteral("Content-Type"),
                    QByteArrayLiteral("application/x-www-form-urlencoded")});
    const Http::Reply reply =
        co_await Http::post(url, requestBody(text, language), headers, kTimeoutSeconds);
    if (reply.status != 200)
        throw EngineError::http(QStringLiteral("LanguageTool"), reply.status, reply.bodyText());
    co_return decode(reply.body, text);
}

QString kind(const QString& categoryId) {
    static const QHash<QString, QString> kinds = {
        {QStringLiteral("TYPOS"), QStringLiteral("orthographe")},
        {QStringLiteral("MISSPELLING"), QStringLiteral("orthographe")},
        {QStringLiteral("CAT_HOMONYMES_PARONYMES"), QStringLiteral("orthographe")},
        {QStringLiteral("CONFUSED_WORDS"), QStringLiteral("orthographe")},
        {QStringLiteral("AGREEMENT"), QStringLiteral("accord")},
        {QStringLiteral("CONCORDANCES"), QStringLiteral("accord")},
        {QStringLiteral("CAT_GRAMMAIRE"), QStringLiteral("grammaire")},
        {QStringLiteral("GRAMMAR"), QStringLiteral("grammaire")},
        {QStringLiteral("PONCTUATION_VIRGULE"), QStringLiteral("ponctuation")},
        {QStringLiteral("PUNCTUATION"), QStringLiteral("ponctuation")},
        {QStringLiteral("CAT_PONCTUATION"), QStringLiteral("ponctuation")},
        {QStringLiteral("CAT_TYPOGRAPHIE"), QStringLiteral("typographie")},
        {QStringLiteral("TYPOGRAPHY"), QStringLiteral("typographie")},
        {QStringLiteral("CASING"), QStringLiteral("typographie")},
    };
    return kinds.value(categoryId, QStringLiteral("style"));
}

bool allowed(const Match& match, int scope, PunctuationLevel punctuation) {
    const QString& k = match.kind;
    if (k == QLatin1String("orthographe")) return scope & CorrectionScope::Spelling;
    if (k == QLatin1String("accord") || k == QLatin1String("grammaire") ||
        k == QLatin1String("conjugaison"))
        return scope & CorrectionScope::Grammar;
    if (k == QLatin1String("ponctuation"))
        return (scope & CorrectionScope::Punctuation) && punctuation != PunctuationLevel::Light;
    if (k == QLatin1String("typographie")) return scope & CorrectionScope::Typography;
    if (k == QLatin1String("style")) return scope & CorrectionScope::Style;
    return true; // a kind added later is wanted until the settings learn about it
}

bool isSafe(const Match& match, const QString& replacement) {
    if (match.kind == QLatin1String("typographie")) return true;
    if (match.kind != QLatin1String("orthographe")) return false;
    // Homonyms are decided by the service from the context; the name is compared as sent.
    if (match.category.contains(QLatin1String("homonymes"))) return true;
    if (Graphemes::fold(match.original) != Graphemes::fold(replacement)) return false;
    if (Graphemes::isUppercase(Graphemes::first(match.original)) !=
        Graphemes::isUppercase(Graphemes::first(replacement)))
        return false;
    // All capitals (or no lowercase letter at all): an invented acronym, or not a word.
    if (isAllCapitals(replacement)) return false;
    return true;
}

std::optional<QString> bestReplacement(const Match& match) {
    if (match.replacements.isEmpty() || match.replacements.first().isEmpty()) return std::nullopt;
    const QString& first = match.replacements.first();
    if (match.kind == QLatin1String("accord")) {
        if (const std::optional<QString> head = firstWordLowered(match.original)) {
            // An agreement fix should keep the word the speaker started with.
            for (const QString& r : match.replacements) {
                if (r.isEmpty()) continue;
                if (firstWordLowered(r) == head) return r;
            }
            return first;
        }
    }
    if (!isAllCapitals(first)) return first;
    if (isAllCapitals(match.original)) return first;
    if (Graphemes::count(first) >= 6) return first;
    return std::nullopt; // a short all-capitals proposal for a word that was not in capitals
}

QList<Match> applicationOrder(QList<Match> matches) {
    std::stable_sort(matches.begin(), matches.end(),
                     [](const Match& a, const Match& b) { return a.range.start > b.range.start; });
    return matches;
}

QString apply(const QString& text, const Range& range, const QString& replacement) {
    QString out = text;
    return out.replace(range.start, range.length(), replacement);
}

} // namespace ombry::LanguageTool
