#include "net/OpenRouter.h"

#include "data/Records.h"
#include "net/Json.h"

#include <QJsonArray>
#include <algorithm>

namespace ombry::OpenRouter {

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

std::optional<QString> firstContent(const QByteArray& reply, bool contentOptional,
                                    const QString& service) {
    auto fail = [&](const QString& what) { Json::unreadable(service, what); };
    const QJsonValue choices = Json::object(reply, service).value(QLatin1String("choices"));
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
