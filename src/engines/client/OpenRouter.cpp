#include "engines/client/OpenRouter.h"

#include "data/Records.h"
#include "engines/client/Errors.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>

namespace ombry::OpenRouter {

namespace {

[[noreturn]] void fail(const QString& what) {
    throw DecodeError(QStringLiteral("réponse illisible du modèle (%1)").arg(what));
}

} // namespace

int maxTokens(const QString& text) {
    return std::min(4000, 3 * wordCount(text) + 200);
}

QJsonObject requestBody(const QString& system, const QString& text, const QString& model) {
    return QJsonObject{
        {QStringLiteral("model"), model},
        {QStringLiteral("temperature"), 0.2},
        {QStringLiteral("max_tokens"), maxTokens(text)},
        {QStringLiteral("messages"),
         QJsonArray{
             QJsonObject{{QStringLiteral("role"), QStringLiteral("system")},
                         {QStringLiteral("content"), system}},
             QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                         {QStringLiteral("content"), text}},
         }},
    };
}

std::optional<QString> firstContent(const QByteArray& reply, bool contentOptional) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(reply, &error);
    if (error.error != QJsonParseError::NoError) fail(error.errorString());
    if (!doc.isObject()) fail(QStringLiteral("pas un objet JSON"));
    const QJsonValue choices = doc.object().value(QLatin1String("choices"));
    if (!choices.isArray()) fail(QStringLiteral("choices absent"));
    // Every choice must have the shape, not only the first one that is read.
    std::optional<QString> first;
    const QJsonArray list = choices.toArray();
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QJsonValue message = list.at(i).toObject().value(QLatin1String("message"));
        if (!message.isObject()) fail(QStringLiteral("message absent"));
        const QJsonValue content = message.toObject().value(QLatin1String("content"));
        QString text;
        if (content.isString())
            text = content.toString();
        else if (!contentOptional || !(content.isNull() || content.isUndefined()))
            fail(QStringLiteral("content absent"));
        if (i == 0) first = text;
    }
    return first;
}

} // namespace ombry::OpenRouter
