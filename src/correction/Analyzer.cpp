#include "correction/Analyzer.h"

#include "correction/Corrector.h"
#include "correction/Graphemes.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/LocalEngine.h"
#include "net/OpenRouter.h"
#include "online/OpenRouterComplete.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <cstdint>
#include <vector>

namespace ombry {
namespace {

struct ActionName {
    TextAction action;
    const char* raw;
};
constexpr ActionName kActions[] = {
    {TextAction::Correct, "correct"},   {TextAction::Formal, "formal"},
    {TextAction::Friendly, "friendly"}, {TextAction::Concise, "concise"},
    {TextAction::Clearer, "clearer"},   {TextAction::Email, "email"},
    {TextAction::Summary, "summary"},   {TextAction::Translate, "translate"},
};

} // namespace

QString rawValue(TextAction v) {
    for (const ActionName& a : kActions)
        if (a.action == v) return QLatin1String(a.raw);
    return {};
}

template <> std::optional<TextAction> fromRaw<TextAction>(const QString& raw) {
    for (const ActionName& a : kActions)
        if (raw == QLatin1String(a.raw)) return a.action;
    return std::nullopt;
}

template <> QList<TextAction> allCases<TextAction>() {
    QList<TextAction> out;
    for (const ActionName& a : kActions)
        out << a.action;
    return out;
}

namespace Analyzer {
namespace {

const QString kNothing = QStringLiteral("∅");
constexpr qint64 kDiffCellLimit = 4'000'000;
constexpr int kExplainLimit = 40;
const QString kExplainModel = QStringLiteral("google/gemini-2.5-flash");

// Words at whitespace, newlines included; empty pieces dropped.
QStringList words(const QString& text) {
    QStringList out;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const bool space = i == text.size() || text.at(i).isSpace();
        if (space && start >= 0) {
            out << text.mid(start, i - start);
            start = -1;
        } else if (!space && start < 0) {
            start = i;
        }
    }
    return out;
}

} // namespace

const QStringList& kinds() {
    static const QStringList list = {
        QStringLiteral("orthographe"), QStringLiteral("grammaire"),   QStringLiteral("conjugaison"),
        QStringLiteral("accord"),      QStringLiteral("ponctuation"), QStringLiteral("typographie"),
        QStringLiteral("style"),
    };
    return list;
}

QString guessKind(const QString& before, const QString& after) {
    const QString a = Graphemes::canonical(Graphemes::lettersAndNumbers(before));
    const QString b = Graphemes::canonical(Graphemes::lettersAndNumbers(after));
    return a == b ? QStringLiteral("ponctuation") : QStringLiteral("orthographe");
}

QList<Fix> diff(const QString& before, const QString& after) {
    const QStringList a = words(before);
    const QStringList b = words(after);
    const qsizetype n = a.size();
    const qsizetype m = b.size();
    if (qint64(n) * qint64(m) >= kDiffCellLimit) return {};

    // Words are compared by canonical equivalence, through one small number per distinct word.
    QHash<QString, int> ids;
    auto idsOf = [&ids](const QStringList& list) {
        std::vector<int> out;
        out.reserve(list.size());
        for (const QString& w : list) {
            const QString key = Graphemes::canonical(w);
            auto it = ids.constFind(key);
            if (it == ids.constEnd()) it = ids.insert(key, int(ids.size()));
            out.push_back(it.value());
        }
        return out;
    };
    const std::vector<int> x = idsOf(a);
    const std::vector<int> y = idsOf(b);

    // Under the cell limit the shorter side has fewer than 2,000 words, so a common
    // subsequence length always fits 16 bits.
    const qsizetype width = m + 1;
    std::vector<uint16_t> lcs(size_t(n + 1) * size_t(width), 0);
    auto at = [&](qsizetype i, qsizetype j) -> uint16_t& { return lcs[size_t(i * width + j)]; };
    for (qsizetype i = n - 1; i >= 0; --i) {
        for (qsizetype j = m - 1; j >= 0; --j) {
            at(i, j) = x[size_t(i)] == y[size_t(j)] ? uint16_t(at(i + 1, j + 1) + 1)
                                                    : std::max(at(i + 1, j), at(i, j + 1));
        }
    }

    QList<Fix> fixes;
    QStringList removed;
    QStringList added;
    auto flush = [&] {
        if (removed.isEmpty() && added.isEmpty()) return;
        const QString from = removed.join(QLatin1Char(' '));
        const QString to = added.join(QLatin1Char(' '));
        Fix fix;
        fix.original = from.isEmpty() ? kNothing : from;
        fix.correction = to.isEmpty() ? kNothing : to;
        fix.kind = guessKind(from, to);
        fixes << fix;
        removed.clear();
        added.clear();
    };
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < n || j < m) {
        if (i < n && j < m && x[size_t(i)] == y[size_t(j)]) {
            flush();
            ++i;
            ++j;
        } else if (i == n) {
            added << b.at(j++);
        } else if (j == m) {
            removed << a.at(i++);
        } else if (at(i, j + 1) >= at(i + 1, j)) {
            added << b.at(j++); // a tie takes the added side first
        } else {
            removed << a.at(i++);
        }
    }
    flush();
    return fixes;
}

void label(QList<Fix>& fixes, const QList<LanguageTool::Match>& matches) {
    if (matches.isEmpty()) return;
    QStringList found;
    for (const LanguageTool::Match& m : matches)
        found << Graphemes::canonical(Graphemes::trimBlanks(m.original.toLower()));

    for (Fix& fix : fixes) {
        const QString lowered = Graphemes::canonical(fix.original.toLower());
        const QStringList split = lowered.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const QSet<QString> tokens(split.begin(), split.end());
        qsizetype hit = found.indexOf(lowered);
        for (qsizetype k = 0; hit < 0 && k < found.size(); ++k)
            if (tokens.contains(found.at(k))) hit = k;
        for (qsizetype k = 0; hit < 0 && k < found.size(); ++k) {
            const QString& o = found.at(k);
            if (!o.isEmpty() && (lowered.contains(o) || o.contains(lowered))) hit = k;
        }
        if (hit < 0) continue;
        fix.kind = matches.at(hit).kind;
        fix.explanation = matches.at(hit).message;
    }
}

QCoro::Task<Analysis> analyze(QString text, QString language, QStringList words) {
    const Corrector::Detailed corrected =
        co_await Corrector::correctDetailed(text, language, words);
    Analysis analysis{corrected.text, diff(text, corrected.text)};
    label(analysis.fixes, corrected.matches);
    co_return analysis;
}

QString explainInstructions(const QString& language, bool remote) {
    QString core =
        QStringLiteral(
            "Tu es professeur de %1. Pour chaque correction listée, dans l'ordre, donne le type "
            "de faute\net une explication très courte (une phrase) de la règle appliquée, en "
            "%1.\nExplique la règle qui s'applique vraiment dans cette phrase, sans en inventer "
            "une autre :\n- un infinitif remplacé par un participe passé après « avoir » ou « être "
            "» : c'est le participe passé\n  qui suit l'auxiliaire dans un temps composé (« j'ai "
            "acheté », pas « j'ai acheter ») ;\n- ne parle d'accord avec le complément d'objet "
            "direct que s'il est placé avant le verbe dans le texte ;\n- une majuscule ajoutée en "
            "début de phrase : une phrase commence toujours par une majuscule.")
            .arg(language);
    if (remote)
        core += QStringLiteral("\nRéponds uniquement en JSON : {\"items\": [{\"kind\": \"%1\", "
                               "\"explanation\": \"...\"}]}")
                    .arg(kinds().join(QLatin1Char('|')));
    return core;
}

QString explainRequest(const QString& text, const QList<Fix>& fixes) {
    QStringList lines;
    for (qsizetype i = 0; i < fixes.size(); ++i)
        lines << QStringLiteral("%1. « %2 » → « %3 »")
                     .arg(i + 1)
                     .arg(fixes.at(i).original, fixes.at(i).correction);
    return QStringLiteral("Texte d'origine :\n%1\n\nCorrections :\n%2")
        .arg(text, lines.join(QLatin1Char('\n')));
}

std::optional<QList<Fix>> applyExplanations(const QList<Fix>& fixes, const QString& answer) {
    QString body = answer;
    const qsizetype open = answer.indexOf(QLatin1Char('{'));
    const qsizetype close = answer.lastIndexOf(QLatin1Char('}'));
    if (open >= 0 && close > open) body = answer.mid(open, close - open + 1);

    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(body.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return std::nullopt;
    const QJsonValue items = doc.object().value(QLatin1String("items"));
    if (!items.isArray()) return std::nullopt;

    struct Item {
        std::optional<QString> kind;
        std::optional<QString> explanation;
    };
    // An optional text is absent or null; any other type makes the whole answer unreadable.
    auto optionalText = [](const QJsonObject& o, const char* key, std::optional<QString>& out) {
        const QJsonValue v = o.value(QLatin1String(key));
        if (v.isUndefined() || v.isNull()) return true;
        if (!v.isString()) return false;
        out = v.toString();
        return true;
    };
    QList<Item> parsed;
    for (const QJsonValue& v : items.toArray()) {
        if (!v.isObject()) return std::nullopt;
        Item item;
        if (!optionalText(v.toObject(), "kind", item.kind) ||
            !optionalText(v.toObject(), "explanation", item.explanation))
            return std::nullopt;
        parsed << item;
    }

    QList<Fix> out = fixes;
    for (qsizetype i = 0; i < out.size() && i < parsed.size(); ++i) {
        const Item& item = parsed.at(i);
        if (item.kind && kinds().contains(*item.kind)) out[i].kind = *item.kind;
        out[i].explanation = item.explanation.value_or(QString());
    }
    return out;
}

QCoro::Task<QList<Fix>> explain(QList<Fix> fixes, QString text, QString language) {
    QList<qsizetype> missing;
    for (qsizetype i = 0; i < fixes.size(); ++i)
        if (fixes.at(i).explanation.isEmpty()) missing << i;
    if (missing.isEmpty()) co_return fixes;

    if (missing.size() < fixes.size()) {
        QList<Fix> sub;
        for (qsizetype i : missing)
            sub << fixes.at(i);
        const QList<Fix> explained = co_await explain(sub, text, language);
        for (qsizetype k = 0; k < missing.size() && k < explained.size(); ++k)
            fixes[missing.at(k)] = explained.at(k);
        co_return fixes;
    }

    if (fixes.size() > kExplainLimit) co_return fixes;

    const QString user = explainRequest(text, fixes);
    QString answer;
    QString failure;
    try {
        if (Corrector::canUseOpenRouter())
            answer = co_await OpenRouter::complete(explainInstructions(language, true), user,
                                                   kExplainModel);
        else
            answer = co_await localStructured(explainInstructions(language, false), user,
                                              int(fixes.size()));
    } catch (const std::exception& e) {
        failure = QString::fromUtf8(e.what());
    }
    if (!failure.isNull()) {
        Log::write(QStringLiteral("explications: ") + failure);
        co_return fixes;
    }
    if (std::optional<QList<Fix>> explained = applyExplanations(fixes, answer))
        co_return *explained;
    Log::write(QStringLiteral("explications: réponse illisible"));
    co_return fixes;
}

QString rewriteInstructions(TextAction action, const QString& language,
                            const std::optional<QString>& target) {
    if (action == TextAction::Translate)
        return QStringLiteral("Traduis ce texte en %1, de façon naturelle et fidèle, en gardant le "
                              "ton et la mise en forme.\nRenvoie uniquement la traduction, sans "
                              "guillemets ni commentaire.")
            .arg(target.value_or(QStringLiteral("anglais")));
    QString sentence;
    switch (action) {
    case TextAction::Correct:
        break;
    case TextAction::Formal:
        sentence = QStringLiteral(
            "Réécris ce texte dans un registre plus formel et professionnel, sans fautes.");
        break;
    case TextAction::Friendly:
        sentence =
            QStringLiteral("Réécris ce texte sur un ton plus chaleureux et amical, sans fautes.");
        break;
    case TextAction::Concise:
        sentence = QStringLiteral("Réécris ce texte de façon plus courte et directe, en gardant "
                                  "toutes les informations, sans fautes.");
        break;
    case TextAction::Clearer:
        sentence = QStringLiteral(
            "Réécris ce texte pour qu'il soit plus clair et plus facile à lire, sans fautes.");
        break;
    case TextAction::Email:
        sentence = QStringLiteral("Transforme ce texte en un email professionnel bien structuré "
                                  "(formule d'appel, corps, formule de politesse), sans fautes.");
        break;
    case TextAction::Summary:
        sentence = QStringLiteral("Résume ce texte en quelques phrases courtes, ou en points si "
                                  "c'est plus clair, en gardant l'essentiel.");
        break;
    case TextAction::Translate:
        break;
    }
    QString system = sentence + QStringLiteral(" Écris en %1. Garde le sens").arg(language);
    if (action != TextAction::Summary) system += QStringLiteral(" et toutes les informations");
    system += QStringLiteral(".\nRenvoie uniquement le texte, sans guillemets ni commentaire.");
    return system;
}

QCoro::Task<QString> rewrite(QString text, TextAction action, QString language,
                             std::optional<QString> target) {
    const QString system = rewriteInstructions(action, language, target);
    // No fallback here: the engine the settings chose answers, or its error reaches the page.
    if (Corrector::canUseOpenRouter())
        co_return co_await OpenRouter::complete(system, text,
                                                AppSettings::shared().openRouterModel());
    co_return co_await LocalModel::run(system, text);
}

QCoro::Task<QString> localStructured(QString system, QString text, int count) {
    QJsonObject kind{{QStringLiteral("type"), QStringLiteral("string")},
                     {QStringLiteral("title"), QStringLiteral("Kind")},
                     {QStringLiteral("description"), QStringLiteral("Type de faute")},
                     {QStringLiteral("enum"), QJsonArray::fromStringList(kinds())}};
    QJsonObject item{
        {QStringLiteral("type"), QStringLiteral("object")},
        {QStringLiteral("title"), QStringLiteral("Item")},
        {QStringLiteral("properties"),
         QJsonObject{{QStringLiteral("kind"), kind},
                     {QStringLiteral("explanation"),
                      QJsonObject{{QStringLiteral("type"), QStringLiteral("string")},
                                  {QStringLiteral("description"),
                                   QStringLiteral("Règle appliquée, en une phrase courte")}}}}},
        {QStringLiteral("required"),
         QJsonArray{QStringLiteral("kind"), QStringLiteral("explanation")}}};
    QJsonObject schema{
        {QStringLiteral("type"), QStringLiteral("object")},
        {QStringLiteral("title"), QStringLiteral("Result")},
        {QStringLiteral("properties"),
         QJsonObject{{QStringLiteral("items"),
                      QJsonObject{{QStringLiteral("type"), QStringLiteral("array")},
                                  {QStringLiteral("description"),
                                   QStringLiteral("Une entrée par correction, dans l'ordre")},
                                  {QStringLiteral("items"), item},
                                  {QStringLiteral("minItems"), count},
                                  {QStringLiteral("maxItems"), count}}}}},
        {QStringLiteral("required"), QJsonArray{QStringLiteral("items")}}};
    co_return co_await LocalModel::runStructured(system, text, schema);
}

} // namespace Analyzer
} // namespace ombry
