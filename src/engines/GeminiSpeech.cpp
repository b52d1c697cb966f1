#include "engines/GeminiSpeech.h"

#include "audio/AudioRecorder.h"
#include "desktop/Log.h"
#include "engines/Cleanup.h"
#include "net/Errors.h"
#include "net/Json.h"
#include "net/OpenRouter.h"
#include "online/OmbryAI.h"

#include <QJsonArray>
#include <QRegularExpression>

namespace ombry::GeminiSpeech {

namespace {

constexpr qsizetype kWavHeaderBytes = 44;
constexpr double kTranscribeTimeout = 30.0;
constexpr double kJsonTimeout = 20.0;

void guard() {
    if (!OmbryAI::canReachRemote()) throw EngineError::missingKey(QStringLiteral("OpenRouter"));
}

// "\nMots à reconnaître et à écrire ainsi : a, b." for the entries that are not blank, kept as
// they were typed; nothing when none is left.
QString dictionarySuffix(const QStringList& words) {
    QStringList kept;
    for (const QString& w : words)
        if (!trimBlanks(w).isEmpty()) kept << w;
    if (kept.isEmpty()) return {};
    return QStringLiteral("\nMots à reconnaître et à écrire ainsi : ") +
           kept.join(QStringLiteral(", ")) + QLatin1Char('.');
}

// The content of the first choice; the empty text when there is none.
QCoro::Task<QString> ask(Http::JsonBody body, double timeout, std::shared_ptr<Http::Abort> abort) {
    const QByteArray reply =
        co_await OmbryAI::chat(std::move(body), timeout, QLatin1String(kLabel), std::move(abort));
    co_return OpenRouter::firstContent(reply, true, QLatin1String(kLabel)).value_or(QString());
}

// Reads a JSON object with two optional text members; throws DecodeError when the text is no
// such object.
QPair<QString, QString> decodePair(const QString& text, QLatin1String a, QLatin1String b) {
    const QJsonObject object = Json::object(text.toUtf8(), QLatin1String(kLabel));
    auto member = [&](QLatin1String key) {
        const QJsonValue v = object.value(key);
        if (v.isString()) return v.toString().trimmed();
        if (!v.isUndefined() && !v.isNull())
            Json::unreadable(QLatin1String(kLabel), key + QStringLiteral(" n'est pas un texte"));
        return QString();
    };
    const QString first = member(a);
    return {first, member(b)};
}

} // namespace

QString transcribePrompt(const QString& language, const QStringList& words) {
    return QStringLiteral("Transcris exactement cet enregistrement en ") + language +
           QStringLiteral(", mot pour mot, avec la ponctuation.\nN'invente rien ; si l'audio est "
                          "vide ou inaudible, renvoie une chaîne vide. Renvoie uniquement la "
                          "transcription.") +
           dictionarySuffix(words);
}

QString cleanPrompt(const QString& language, const QStringList& words, const QString& tone,
                    const QString& punctuation) {
    return QStringLiteral("Tu entends une dictée vocale en ") + language +
           QStringLiteral(".\n1) \"raw\" : transcris exactement ce qui est dit, mot pour mot.\n"
                          "2) \"clean\" : la même chose écrite proprement en ") +
           language +
           QStringLiteral(" : sans hésitations ni mots parasites (euh, ben, genre…),\nsans "
                          "répétitions ni faux départs, avec l'orthographe, la grammaire et les "
                          "majuscules justes. ") +
           punctuation + QLatin1Char(' ') + tone +
           QStringLiteral("\nGarde tous les mots et toutes les idées, dans le ton de l'auteur ; "
                          "ne résume pas, n'ajoute rien,\nne réponds pas aux questions dictées. "
                          "Garde l'argot et les abréviations.\nSi l'audio est vide ou inaudible, "
                          "renvoie des chaînes vides.\nRéponds uniquement en JSON : {\"raw\": "
                          "\"...\", \"clean\": \"...\"}") +
           dictionarySuffix(words);
}

QString translatePrompt(const QString& context) {
    return QStringLiteral(
               "Tu entends un extrait d'appel en anglais, souvent avec un accent britannique "
               "(argot et expressions comprises).\n1) Transcris exactement ce qui est dit, mot "
               "pour mot, en anglais, avec la ponctuation.\n2) Traduis-le en français naturel et "
               "fidèle, en gardant le sens des expressions (pas mot à mot).\nContexte des "
               "phrases précédentes, pour t'aider à comprendre : ") +
           (context.isEmpty() ? QStringLiteral("aucun") : context) +
           QStringLiteral("\nSi l'extrait est inaudible ou ne contient pas de parole, renvoie "
                          "des chaînes vides.\nRéponds uniquement en JSON : {\"en\": \"...\", "
                          "\"fr\": \"...\"}");
}

Http::JsonBody requestBody(const QString& prompt, const QByteArray& wav, bool json) {
    const QJsonObject audio{
        {QStringLiteral("type"), QStringLiteral("input_audio")},
        {QStringLiteral("input_audio"),
         QJsonObject{{QStringLiteral("data"), Http::JsonBody::binaryPlaceholder()},
                     {QStringLiteral("format"), QStringLiteral("wav")}}},
    };
    QJsonObject body{
        {QStringLiteral("model"), QLatin1String(kModel)},
        {QStringLiteral("temperature"), 0},
        {QStringLiteral("messages"),
         QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("system")},
                                {QStringLiteral("content"), prompt}},
                    QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                {QStringLiteral("content"), QJsonArray{audio}}}}},
    };
    if (json)
        body.insert(QStringLiteral("response_format"),
                    QJsonObject{{QStringLiteral("type"), QStringLiteral("json_object")}});
    return Http::JsonBody(std::move(body), wav);
}

QString jsonCut(const QString& content) {
    const qsizetype open = content.indexOf(QLatin1Char('{'));
    const qsizetype close = content.lastIndexOf(QLatin1Char('}'));
    if (open < 0 || close < 0 || close < open) return content;
    return content.mid(open, close - open + 1);
}

QString field(const QString& name, const QString& text) {
    // Blanks in the Unicode sense around the colon (a no-break space counts).
    const QRegularExpression key(QLatin1Char('"') + name + QStringLiteral("\"\\s*:\\s*\""),
                                 QRegularExpression::UseUnicodePropertiesOption);
    const QRegularExpressionMatch match = key.match(text);
    if (!match.hasMatch()) return {};
    QString value;
    for (qsizetype i = match.capturedEnd(); i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == QLatin1Char('"')) break;
        if (c == QLatin1Char('\\')) {
            if (++i >= text.size()) break;
            const QChar escaped = text.at(i);
            value += escaped == QLatin1Char('n') ? QChar(QLatin1Char('\n')) : escaped;
            continue;
        }
        value += c;
    }
    return value.trimmed();
}

QList<Http::JsonBody> transcribeBodies(const QString& prompt, const QByteArray& wav, bool sliced) {
    QList<Http::JsonBody> bodies;
    const auto add = [&](const QByteArray& audio) {
        bodies << requestBody(prompt, audio, false);
        bodies.last().encodeBinary();
    };
    // On the hosted road a long recording goes in slices.
    if (!sliced || wav.size() <= kWavHeaderBytes + kHostedSliceBytes) {
        add(wav);
        return bodies;
    }
    const QByteArray pcm = wav.mid(kWavHeaderBytes);
    for (qsizetype at = 0; at < pcm.size(); at += kHostedSliceBytes)
        add(AudioRecorder::wav(pcm.mid(at, kHostedSliceBytes)));
    return bodies;
}

QCoro::Task<QString> transcribe(QList<Http::JsonBody> bodies, std::shared_ptr<Http::Abort> abort) {
    guard();
    QStringList parts;
    for (Http::JsonBody& body : bodies) {
        const QString text = (co_await ask(std::move(body), kTranscribeTimeout, abort)).trimmed();
        const QString cleaned = Hallucination::clean(text);
        if (cleaned != text) Log::write(QStringLiteral("transcription: phrase inventée retirée"));
        if (!cleaned.isEmpty()) parts << cleaned;
    }
    co_return parts.join(QLatin1Char(' '));
}

QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList words) {
    guard();
    QList<Http::JsonBody> bodies =
        transcribeBodies(transcribePrompt(language, words), wav, OmbryAI::usesCredits());
    co_return co_await transcribe(std::move(bodies), nullptr);
}

QCoro::Task<RawAndClean> transcribeAndClean(QByteArray wav, QString language, QStringList words,
                                            QString tone, QString punctuation) {
    guard();
    const QString content =
        co_await ask(requestBody(cleanPrompt(language, words, tone, punctuation), wav, true),
                     kJsonTimeout, nullptr);
    const auto [raw, clean] =
        decodePair(jsonCut(content), QLatin1String("raw"), QLatin1String("clean"));
    co_return RawAndClean{raw, clean};
}

QCoro::Task<Translation> transcribeAndTranslate(QByteArray wav, QString context) {
    guard();
    const QString content =
        co_await ask(requestBody(translatePrompt(context), wav, true), kJsonTimeout, nullptr);
    const QString cut = jsonCut(content);
    try {
        const auto [en, fr] = decodePair(cut, QLatin1String("en"), QLatin1String("fr"));
        co_return Translation{en, fr};
    } catch (const DecodeError&) {
        co_return Translation{field(QStringLiteral("en"), cut), field(QStringLiteral("fr"), cut)};
    }
}

} // namespace ombry::GeminiSpeech
