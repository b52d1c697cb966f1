#include "correction/Translator.h"

#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/LocalEngine.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"
#include "online/OpenRouterComplete.h"

// The CLD2 header uses FILE without including <cstdio>: it comes first, in a block of its own
// so that sorting the includes keeps it there.
#include <cstdio>

#include <cld2/public/compact_lang_det.h>
#include <cld2/public/encodings.h>

namespace ombry {

bool hasRemote() {
    return OmbryAI::canReachRemote();
}

namespace Translator {

const QList<QPair<QString, QString>>& codes() {
    static const QList<QPair<QString, QString>> table = {
        {QStringLiteral("anglais"), QStringLiteral("en")},
        {QStringLiteral("français"), QStringLiteral("fr")},
        {QStringLiteral("espagnol"), QStringLiteral("es")},
        {QStringLiteral("allemand"), QStringLiteral("de")},
        {QStringLiteral("italien"), QStringLiteral("it")},
        {QStringLiteral("portugais"), QStringLiteral("pt")},
        {QStringLiteral("néerlandais"), QStringLiteral("nl")},
        {QStringLiteral("japonais"), QStringLiteral("ja")},
        {QStringLiteral("chinois"), QStringLiteral("zh")},
    };
    return table;
}

std::optional<QString> detect(const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    const CLD2::CLDHints hints = {nullptr, nullptr, CLD2::UNKNOWN_ENCODING, CLD2::UNKNOWN_LANGUAGE};
    CLD2::Language top3[3];
    int percent3[3];
    double scores[3];
    int textBytes = 0;
    bool reliable = false;
    // Best effort: an answer for every text that has letters, as short as it is (without it, a
    // plain sentence is sometimes left unknown); only text without letters stays unknown.
    const CLD2::Language language = CLD2::ExtDetectLanguageSummary(
        utf8.constData(), static_cast<int>(utf8.size()), true, &hints, CLD2::kCLDFlagBestEffort,
        top3, percent3, scores, nullptr, &textBytes, &reliable);
    if (language == CLD2::UNKNOWN_LANGUAGE) return std::nullopt;
    // "zh-Hant" and "zh" are both Chinese.
    const QString code =
        QString::fromLatin1(CLD2::LanguageCode(language)).section(QLatin1Char('-'), 0, 0);
    for (const auto& [name, iso] : codes())
        if (iso == code) return name;
    return std::nullopt;
}

QString systemPrompt(const QString& to) {
    return QStringLiteral("Traduis ce texte en ") + to +
           QStringLiteral(
               ".\nTraduis de façon naturelle, comme l'écrirait quelqu'un dont c'est la langue "
               "maternelle : garde le ton\n(familier reste familier, l'argot devient de l'argot "
               "équivalent), les emojis, les noms propres, les liens\net la mise en forme. Renvoie "
               "uniquement la traduction, sans guillemets ni commentaire.");
}

QCoro::Task<QString> translate(QString text, QString target, bool autoReverse) {
    QString to = target;
    if (autoReverse && detect(text) == target)
        to = target == QStringLiteral("français") ? QStringLiteral("anglais")
                                                  : QStringLiteral("français");
    const QString system = systemPrompt(to);
    if (!hasRemote()) co_return co_await LocalModel::run(system, text);

    const AppSettings& settings = AppSettings::shared();
    const QString model = settings.rewriteEngine() == RewriteEngine::OpenRouter
                              ? settings.openRouterModel()
                              : QString::fromLatin1(kDefaultModel);
    try {
        co_return co_await OpenRouter::complete(system, text, model);
    } catch (const std::exception&) {
        // Falls through to the local model below (no co_await inside a handler).
    }
    Log::write(QStringLiteral("traduction: OpenRouter indisponible, Local prend le relais"));
    co_return co_await LocalModel::run(system, text);
}

} // namespace Translator

} // namespace ombry
