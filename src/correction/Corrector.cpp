#include "correction/Corrector.h"

#include "correction/Graphemes.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/Cleanup.h"
#include "engines/LocalEngine.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"
#include "online/OpenRouterComplete.h"

#include <QRegularExpression>
#include <QSet>

namespace ombry::Corrector {
namespace {

const QString kFrameHeading = QStringLiteral("Texte à corriger :");

// The runs of letters of a text; every other character separates.
QStringList letterRuns(const QString& text) {
    QStringList runs;
    QString run;
    for (const QString& c : Graphemes::split(text)) {
        if (Graphemes::isLetter(c)) {
            run += c;
        } else if (!run.isEmpty()) {
            runs << run;
            run.clear();
        }
    }
    if (!run.isEmpty()) runs << run;
    return runs;
}

// The set bits of the scope, each with its place in the allowed or the forbidden list.
struct ScopeRow {
    int bit;
    const char* allowed;
    const char* forbidden;
};
constexpr ScopeRow kScopeRows[] = {
    {CorrectionScope::Spelling, "l'orthographe", "l'orthographe des mots"},
    {CorrectionScope::Grammar, "la grammaire, la conjugaison et les accords", "la grammaire"},
    {CorrectionScope::Punctuation, "la ponctuation", "la ponctuation exactement telle quelle"},
    {CorrectionScope::Typography, "les majuscules et les espaces", "les majuscules et les espaces"},
};

} // namespace

bool canUseOpenRouter() {
    if (AppSettings::shared().rewriteEngine() != RewriteEngine::OpenRouter) return false;
    return OmbryAI::canReachRemote();
}

bool wantsModel() {
    const AppSettings& settings = AppSettings::shared();
    return canUseOpenRouter() || settings.correctorUsesLocalModel() || !settings.useLanguageTool();
}

QString instructions(const QString& language, const QStringList& words) {
    const AppSettings& settings = AppSettings::shared();
    const int scope = settings.correctionScope();
    QStringList allowed;
    QStringList forbidden;
    for (const ScopeRow& row : kScopeRows) {
        if (scope & row.bit)
            allowed << QString::fromUtf8(row.allowed);
        else
            forbidden << QString::fromUtf8(row.forbidden);
    }
    QString prompt = QStringLiteral("Corrige ce texte en %1. Corrige uniquement : %2.")
                         .arg(language, allowed.join(QStringLiteral(", ")));
    if (!forbidden.isEmpty())
        prompt +=
            QStringLiteral(" Ne touche pas à : %1.").arg(forbidden.join(QStringLiteral(", ")));
    if (scope & CorrectionScope::Punctuation)
        prompt += QLatin1Char(' ') + punctuationSentence(settings.punctuation());
    if (scope & CorrectionScope::Style)
        prompt += QStringLiteral(
            " Tu peux rendre les phrases un peu plus fluides, sans changer le sens ni le ton.");
    else
        prompt += QStringLiteral(" Ne change ni le sens, ni le ton, ni la structure, ni les mots "
                                 "justes. Ne reformule pas.");
    prompt += QStringLiteral(
        "\nGarde tels quels les abréviations, le langage familier et l'argot (jsp, mdr, ptdr, "
        "tkt, stp…),\nles noms propres et les mots que tu ne connais pas. Ne change pas le type "
        "de phrase (n'ajoute pas de « ? »).\nNe raccourcis pas, n'ajoute rien, garde les retours "
        "à la ligne.\nRenvoie uniquement le texte corrigé, sans guillemets ni commentaire.");
    QStringList kept;
    for (const QString& w : words)
        if (!Graphemes::trimBlanks(w).isEmpty()) kept << w;
    if (!kept.isEmpty())
        prompt += QStringLiteral("\nOrthographe à respecter pour ces mots : %1.")
                      .arg(kept.join(QStringLiteral(", ")));
    return prompt;
}

QString guardChanges(const QString& original, const QString& corrected) {
    QString out = corrected.trimmed();

    // Short lowercase words of the speaker (jsp, tkt, mdr) that the model put in capitals.
    QSet<QString> seen;
    for (const QString& w : letterRuns(original)) {
        if (seen.contains(w)) continue;
        seen.insert(w);
        const int length = Graphemes::count(w);
        if (length >= 6 || length < 2 || w != w.toLower()) continue;
        const QRegularExpression shouted(QStringLiteral("(?<![\\p{L}])") +
                                         QRegularExpression::escape(w.toUpper()) +
                                         QStringLiteral("(?![\\p{L}])"));
        if (!shouted.isValid()) continue;
        out.replace(shouted, w);
    }

    const QString o = original.trimmed();
    const QLatin1Char mark('?');
    if (out.endsWith(mark) && !o.endsWith(mark))
        out = Graphemes::trimBlanks(out.chopped(1)) + QLatin1Char('.');
    if (o.endsWith(mark) && !out.endsWith(mark)) {
        while (!out.isEmpty() && (out.endsWith(QLatin1Char('.')) || out.endsWith(QLatin1Char(' '))))
            out.chop(1);
        out += QStringLiteral(" ?");
    }
    return out;
}

FirstPass applyFindings(const QString& text, const QList<LanguageTool::Match>& matches,
                        bool modelDecides) {
    FirstPass pass{text, {}};
    for (const LanguageTool::Match& m : LanguageTool::applicationOrder(matches)) {
        const bool hasFirst = !m.replacements.isEmpty() && !m.replacements.first().isEmpty();
        if (hasFirst && LanguageTool::isSafe(m, m.replacements.first())) {
            pass.text = LanguageTool::apply(pass.text, m.range, m.replacements.first());
        } else if (modelDecides) {
            pass.leftovers << m;
        } else if (const std::optional<QString> best = LanguageTool::bestReplacement(m)) {
            pass.text = LanguageTool::apply(pass.text, m.range, *best);
        } else {
            pass.leftovers << m;
        }
    }
    return pass;
}

QString findingsFrame(const QString& text, const QList<LanguageTool::Match>& leftovers) {
    QStringList lines;
    for (const LanguageTool::Match& m : leftovers) {
        QString line = QStringLiteral("- « %1 » : %2").arg(m.original, m.message);
        if (!m.replacements.isEmpty())
            line += QStringLiteral(" (propositions : %1)")
                        .arg(m.replacements.join(QStringLiteral(" / ")));
        lines << line;
    }
    return kFrameHeading + QStringLiteral("\n<<<\n") + text +
           QStringLiteral("\n>>>\n\nFautes repérées :\n") + lines.join(QLatin1Char('\n'));
}

QString stripEcho(const QString& answer) {
    QString out = answer;
    out.remove(QStringLiteral("<<<"));
    out.remove(QStringLiteral(">>>"));
    if (out.startsWith(kFrameHeading)) out.remove(0, kFrameHeading.size());
    return out;
}

QCoro::Task<Detailed> correctDetailed(QString text, QString language, QStringList words) {
    const AppSettings& settings = AppSettings::shared();
    Detailed result;

    if (settings.useLanguageTool()) {
        QSet<QString> dictionary;
        for (const QString& w : words)
            dictionary.insert(Graphemes::canonical(w.toLower()));
        try {
            const QList<LanguageTool::Match> found =
                co_await LanguageTool::check(text, rawValue(settings.language()));
            const int scope = settings.correctionScope();
            const PunctuationLevel punctuation = settings.punctuation();
            for (const LanguageTool::Match& m : found) {
                if (!LanguageTool::allowed(m, scope, punctuation)) continue;
                if (dictionary.contains(Graphemes::canonical(m.original.toLower()))) continue;
                result.matches << m;
            }
            Log::write(
                QStringLiteral("languagetool: %1 fautes repérées").arg(result.matches.size()));
        } catch (const std::exception& e) {
            Log::write(QStringLiteral("languagetool: ") + QString::fromUtf8(e.what()));
        }
    }

    const bool modelDecides = wantsModel();
    const FirstPass pass = applyFindings(text, result.matches, modelDecides);
    const int scope = settings.correctionScope();
    if (!modelDecides) {
        result.text = Corrector::finish(pass.text, scope);
        co_return result;
    }

    QString system = instructions(language, words);
    QString user = pass.text;
    if (!pass.leftovers.isEmpty()) {
        system += QStringLiteral(
            "\nUn vérificateur a repéré des fautes possibles. Elles peuvent être incomplètes ou "
            "fausses :\npour chacune, choisis la correction juste selon le contexte, et corrige "
            "aussi toute autre faute.");
        user = findingsFrame(pass.text, pass.leftovers);
    }

    QString answer;
    bool answered = false;
    if (canUseOpenRouter()) {
        try {
            answer = co_await OpenRouter::complete(system, user, settings.openRouterModel());
            answered = true;
        } catch (const std::exception& e) {
            Log::write(
                QStringLiteral("correction: OpenRouter indisponible, Local prend le relais (") +
                QString::fromUtf8(e.what()) + QLatin1Char(')'));
        }
    }
    if (!answered) answer = co_await LocalModel::run(system, user);

    result.text = Corrector::finish(guardChanges(text, stripEcho(answer)), scope);
    co_return result;
}

} // namespace ombry::Corrector
