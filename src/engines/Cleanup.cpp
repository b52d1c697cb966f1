#include "engines/Cleanup.h"

#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <array>

namespace ombry {
namespace {

// Length in characters as a reader counts them (grapheme clusters), not UTF-16 units.
qsizetype graphemeCount(const QString& s) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, s);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

qsizetype firstGraphemeEnd(const QString& s) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, s);
    const qsizetype end = finder.toNextBoundary();
    return end < 0 ? s.size() : end;
}

qsizetype lastGraphemeStart(const QString& s) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, s);
    finder.toEnd();
    const qsizetype start = finder.toPreviousBoundary();
    return start < 0 ? 0 : start;
}

// The first code point of a piece of text (surrogate pairs joined).
char32_t firstCodePoint(QStringView s) {
    if (s.isEmpty()) return 0;
    if (s.size() > 1 && s[0].isHighSurrogate() && s[1].isLowSurrogate())
        return QChar::surrogateToUcs4(s[0], s[1]);
    return s[0].unicode();
}

// Blanks in the narrow sense: spaces of any width and tabs, never line breaks.
bool isBlank(QChar c) {
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QMutex& toneHintLock() {
    static QMutex lock;
    return lock;
}

QString& toneHintValue() {
    static QString value;
    return value;
}

const std::array<const char*, 11> kChatApps = {
    "com.hnc.Discord",      "com.apple.MobileSMS",       "net.whatsapp.WhatsApp",
    "desktop.WhatsApp",     "com.tinyspeck.slackmacgap", "ru.keepcoder.Telegram",
    "org.telegram.desktop", "com.facebook.archon",       "com.facebook.Messenger",
    "com.microsoft.teams2", "com.apple.FaceTime",
};

// The same applications (and their kin) as Linux names them: desktop-file ids, Flatpak ids and
// lower-case WM_CLASS classes.
const std::array<const char*, 22> kChatAppsLinux = {
    "discord",
    "com.discordapp.Discord",
    "vesktop",
    "dev.vencord.Vesktop",
    "slack",
    "com.slack.Slack",
    "signal",
    "signal-desktop",
    "org.signal.Signal",
    "telegram-desktop",
    "telegramdesktop",
    "whatsapp-for-linux",
    "com.github.eneshecan.WhatsAppForLinux",
    "whatsdesk",
    "caprine",
    "com.sindresorhus.Caprine",
    "teams-for-linux",
    "com.github.IsmaelMartinez.teams_for_linux",
    "element",
    "im.riot.Riot",
    "sm.puri.Chatty",
    "chatty",
};

const std::array<const char*, 7> kMailApps = {
    "com.apple.mail",
    "com.microsoft.Outlook",
    "com.readdle.smartemail-Mac",
    "com.superhuman.electron",
    "com.microsoft.Word",
    "com.apple.iWork.Pages",
    "com.google.Chrome.app.mail",
};

const std::array<const char*, 20> kMailAppsLinux = {
    "org.gnome.Evolution",
    "evolution",
    "thunderbird",
    "org.mozilla.Thunderbird",
    "net.thunderbird.Thunderbird",
    "org.gnome.Geary",
    "geary",
    "org.kde.kmail2",
    "kmail",
    "mailspring",
    "com.getmailspring.Mailspring",
    "claws-mail",
    "prospect-mail",
    "libreoffice-writer",
    "org.libreoffice.LibreOffice.writer",
    "writer",
    "onlyoffice-desktopeditors",
    "org.onlyoffice.desktopeditors",
    "abiword",
    "com.abisource.AbiWord",
};

template <std::size_t N> bool listed(const std::array<const char*, N>& list, const QString& id) {
    for (const char* entry : list)
        if (id == QLatin1String(entry)) return true;
    return false;
}

const std::array<const char*, 16> kRawSpeechMarkers = {
    " euh",
    " heu",
    " hum",
    " hmm",
    " bah ",
    " ben ",
    " genre ",
    " tu vois",
    " tu sais",
    " en mode ",
    " bref ",
    " du coup du coup",
    " enfin je veux dire",
    " c'est-à-dire que",
    " voilà voilà",
    " quoi.",
};

const std::array<const char*, 8> kSubjectWords = {
    "audio", "enregistrement", "entendre", "entendu", "transcri", "hear", "recording", "parole",
};

const std::array<const char*, 17> kRefusalWords = {
    "pas pu",  "n'ai pas", "aucun",    "aucune",     "vide",     "inaudible",
    "fournir", "veuillez", "pourriez", "impossible", "couldn't", "could not",
    "unable",  "no ",      "provide",  "sorry",      "désolé",
};

template <std::size_t N>
bool containsAny(const std::array<const char*, N>& list, const QString& haystack) {
    for (const char* needle : list)
        if (haystack.contains(QString::fromUtf8(needle))) return true;
    return false;
}

// The first grapheme of `text` in upper case, the rest as it stands.
QString raiseFirst(const QString& text) {
    const qsizetype end = firstGraphemeEnd(text);
    return text.left(end).toUpper() + text.mid(end);
}

} // namespace

QString trimBlanks(const QString& text) {
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isBlank(text[start]))
        ++start;
    while (end > start && isBlank(text[end - 1]))
        --end;
    return text.mid(start, end - start);
}

QString promptName(Language language) {
    switch (language) {
    case Language::Auto:
        return QStringLiteral(
            "la langue parlée (français, anglais ou autre, sans jamais traduire)");
    case Language::Fr:
        return QStringLiteral("français");
    case Language::En:
        return QStringLiteral("anglais");
    case Language::Es:
        return QStringLiteral("espagnol");
    case Language::De:
        return QStringLiteral("allemand");
    case Language::It:
        return QStringLiteral("italien");
    }
    return QStringLiteral("français");
}

QString punctuationSentence(PunctuationLevel level) {
    switch (level) {
    case PunctuationLevel::Light:
        return QStringLiteral(
            "Ponctuation légère : garde la ponctuation déjà présente, n'ajoute pas de virgules, de "
            "deux-points ni de points-virgules. Mets seulement un point à la fin de chaque phrase "
            "qui n'en a pas.");
    case PunctuationLevel::Normal:
        return QStringLiteral("Ponctuation normale : points, virgules et points d'interrogation là "
                              "où ils sont nécessaires.");
    case PunctuationLevel::Full:
        return QStringLiteral("Ponctuation complète et soignée : virgules, deux-points, "
                              "points-virgules et guillemets selon les règles.");
    }
    return {};
}

namespace OpenRouter {

QString toneHint() {
    QMutexLocker locker(&toneHintLock());
    return toneHintValue();
}

void setToneHint(const QString& hint) {
    QMutexLocker locker(&toneHintLock());
    toneHintValue() = hint;
}

QString instructions(const QString& language, const QStringList& words) {
    QString prompt =
        QStringLiteral(
            "Tu reçois la transcription brute d'une dictée vocale. Réécris-la proprement "
            "en ") +
        language +
        QStringLiteral(
            " :\nsupprime les hésitations et mots parasites (euh, hum, ben, bah, genre…), les "
            "répétitions et faux départs,\najoute la ponctuation et les majuscules, corrige "
            "l'orthographe et la grammaire.\n");
    prompt += punctuationSentence(AppSettings::shared().punctuation());
    prompt += QLatin1Char('\n');
    prompt += toneHint();
    prompt += QStringLiteral(
        "\nGarde tous les mots et toutes les idées de l'auteur, dans son ton : ne résume pas, ne "
        "raccourcis pas,\nne reformule pas ce qui est déjà correct. Retire seulement les "
        "hésitations.\nN'ajoute rien, ne réponds pas aux questions du texte, ne commente pas. "
        "Renvoie uniquement le texte final.");
    QStringList kept;
    // Blank entries are left out; the others go in as they are, untrimmed.
    for (const QString& word : words)
        if (!trimBlanks(word).isEmpty()) kept << word;
    if (!kept.isEmpty())
        prompt += QStringLiteral("\nOrthographe à respecter pour ces mots : ") +
                  kept.join(QStringLiteral(", ")) + QLatin1Char('.');
    return prompt;
}

bool alreadyClean(const QString& text) {
    QString padded = text.normalized(QString::NormalizationForm_C).toLower();
    padded.replace(QChar(0x2019), QLatin1Char('\''));
    padded = QLatin1Char(' ') + padded + QLatin1Char(' ');

    if (containsAny(kRawSpeechMarkers, padded)) return false;

    static const QRegularExpression wordPattern(QStringLiteral("[\\p{L}']+"));
    QString previous;
    bool first = true;
    for (auto it = wordPattern.globalMatch(padded); it.hasNext();) {
        const QString word = it.next().captured();
        if (!first && word == previous && graphemeCount(word) > 1 &&
            word != QLatin1String("nous") && word != QLatin1String("vous"))
            return false;
        previous = word;
        first = false;
    }
    return true;
}

QString basicCleanup(const QString& text) {
    QString result = text;

    static const QRegularExpression fillers(
        QStringLiteral("(?i)(?<![\\p{L}])(euh+|heu+|hum+|hmm+|bah|ben)(?![\\p{L}])[,.]?\\s*"),
        QRegularExpression::UseUnicodePropertiesOption);
    if (fillers.isValid()) result.remove(fillers);

    result.replace(QStringLiteral("  "), QStringLiteral(" "));

    result = trimBlanks(result);

    if (!result.isEmpty()) result = raiseFirst(result);
    return result;
}

} // namespace OpenRouter

namespace Tone {

QString hint(const std::optional<QString>& appID) {
    if (!appID || !AppSettings::shared().adaptTone()) return {};
    const QString& id = *appID;
    if (listed(kChatApps, id) || listed(kChatAppsLinux, id))
        return QStringLiteral("C'est un message de discussion : garde un ton naturel et familier, "
                              "des phrases courtes, pas de formules.");
    if (listed(kMailApps, id) || listed(kMailAppsLinux, id))
        return QStringLiteral("C'est un e-mail ou un document : écris dans un registre soigné et "
                              "professionnel, sans changer le sens.");
    return {};
}

} // namespace Tone

namespace Hallucination {

bool isFake(const QString& text) {
    // Composed first, so that a decomposed "désolé" still matches.
    const QString lower = text.normalized(QString::NormalizationForm_C).toLower();
    return containsAny(kSubjectWords, lower) && containsAny(kRefusalWords, lower);
}

QString clean(const QString& text) {
    if (!isFake(text)) return text;
    QString kept;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char('.') || c == QLatin1Char('?') || c == QLatin1Char('!')) {
            const QString sentence = text.mid(start, i + 1 - start);
            if (!isFake(sentence)) kept += sentence;
            start = i + 1;
        }
    }
    if (start < text.size()) {
        const QString rest = text.mid(start);
        if (!isFake(rest)) kept += rest;
    }
    return kept.trimmed();
}

} // namespace Hallucination

namespace Corrector {

QString finish(const QString& text, int scope) {
    QString result = text.trimmed();
    if (result.isEmpty()) return result;
    if (scope & CorrectionScope::Typography) {
        const char32_t first = firstCodePoint(result);
        if (QChar::isLower(first)) result = raiseFirst(result);
    }
    if (scope & CorrectionScope::Punctuation) {
        const char32_t last = firstCodePoint(QStringView(result).mid(lastGraphemeStart(result)));
        if (QChar::isLetter(last) || QChar::isNumber(last)) result += QLatin1Char('.');
    }
    return result;
}

} // namespace Corrector

} // namespace ombry
