#include "engines/Deepgram.h"

#include "data/KeyStore.h"
#include "engines/Cleanup.h"
#include "net/Endpoints.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/Json.h"

#include <QJsonArray>
#include <QJsonObject>

namespace ombry::Deepgram {

namespace {

constexpr double kTimeoutSeconds = 60.0;

const QString kService = QStringLiteral("Deepgram");

[[noreturn]] void fail(const QString& what) {
    Json::unreadable(kService, what);
}

QJsonArray arrayIn(const QJsonValue& object, QLatin1String key) {
    const QJsonValue v = object.toObject().value(key);
    if (!object.isObject() || !v.isArray()) fail(QStringLiteral("%1 absent").arg(key));
    return v.toArray();
}

} // namespace

QUrl listenURL(const QString& model, const QString& language, const QStringList& keyterms) {
    QList<QPair<QString, QString>> items = {
        {QStringLiteral("model"), model},
        {QStringLiteral("language"), language},
        {QStringLiteral("punctuate"), QStringLiteral("true")},
        {QStringLiteral("smart_format"), QStringLiteral("true")},
    };
    const bool nova3 = model.startsWith(QLatin1String("nova-3"));
    for (const QString& word : keyterms) {
        const QString term = trimBlanks(word);
        if (term.isEmpty()) continue;
        if (nova3)
            items.append({QStringLiteral("keyterm"), term});
        else
            items.append({QStringLiteral("keywords"), term + QStringLiteral(":2")});
    }
    // Encoded by hand: QUrlQuery would leave a '+' as it is, which the service reads as a blank.
    QByteArray query;
    for (const auto& [key, value] : items) {
        if (!query.isEmpty()) query += '&';
        query += QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value, ":");
    }
    QUrl url(Endpoints::deepgram() + QStringLiteral("/v1/listen"));
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
    return url;
}

QString decodeTranscript(const QByteArray& reply) {
    const QJsonValue results = Json::object(reply, kService).value(QLatin1String("results"));
    if (!results.isObject()) fail(QStringLiteral("results absent"));
    // Every channel and alternative must have the shape, not only the one that is read.
    std::optional<QString> first;
    for (const QJsonValue& channel : arrayIn(results, QLatin1String("channels"))) {
        for (const QJsonValue& alternative : arrayIn(channel, QLatin1String("alternatives"))) {
            const QJsonValue transcript = alternative.toObject().value(QLatin1String("transcript"));
            if (!transcript.isString()) fail(QStringLiteral("transcript absent"));
            if (!first) first = transcript.toString();
        }
        if (!first) first = QString(); // the first channel had no alternative
    }
    return first.value_or(QString());
}

QCoro::Task<QString> transcribe(QByteArray wav, QString model, QString language,
                                QStringList keyterms) {
    const std::optional<QString> key = KeyStore::shared().key(APIService::Deepgram);
    if (!key) throw EngineError::missingKey(kService);
    const Http::Headers headers = {{"Authorization", "Token " + key->toUtf8()},
                                   {"Content-Type", "audio/wav"}};
    // Word timings of a long recording make a large answer: a cap of its own.
    const Http::Limits limits{.maxReplyBytes = qint64(64) << 20};
    const Http::Reply reply = co_await Http::post(listenURL(model, language, keyterms), wav,
                                                  headers, kTimeoutSeconds, limits);
    if (reply.status != 200) throw EngineError::http(kService, reply.status, reply.bodyText());
    co_return decodeTranscript(reply.body);
}

} // namespace ombry::Deepgram
