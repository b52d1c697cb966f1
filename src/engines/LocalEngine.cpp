#include "engines/LocalEngine.h"

#include "net/Errors.h"
#include "net/Http.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace ombry {

namespace LocalModel {
namespace {

constexpr double kProbeTimeout = 3.0;
constexpr double kChatTimeout = 180.0;

EngineError unavailable() {
    return EngineError::http(QLatin1String(kService), 0, QString::fromUtf8(kUnavailable));
}

// Asks the local server for its models. None when nothing answers; otherwise the id of its
// first model (empty when it lists none: servers that serve one model ignore the field).
QCoro::Task<std::optional<QString>> probe() {
    try {
        const Http::Reply reply =
            co_await Http::send("GET", QUrl(LocalServers::model() + QStringLiteral("/v1/models")),
                                {}, {}, kProbeTimeout);
        if (reply.status != 200) co_return std::nullopt;
        const QJsonArray models =
            QJsonDocument::fromJson(reply.body).object().value(QLatin1String("data")).toArray();
        co_return models.isEmpty()
            ? QString()
            : models.first().toObject().value(QLatin1String("id")).toString();
    } catch (const TransportError& e) {
        if (e.tooLarge()) throw LocalServers::tooLargeAnswer(kService);
        co_return std::nullopt;
    }
}

QCoro::Task<QString> chat(QString system, QString text, std::optional<QJsonObject> schema) {
    const std::optional<QString> model = co_await probe();
    if (!model) throw unavailable();

    QString prompt = text;
    QJsonObject body{
        {QStringLiteral("stream"), false},
    };
    if (!model->isEmpty()) body.insert(QStringLiteral("model"), *model);
    if (schema) {
        prompt += QStringLiteral("\n\nSchéma JSON de la réponse : ") +
                  QString::fromUtf8(QJsonDocument(*schema).toJson(QJsonDocument::Compact));
        body.insert(QStringLiteral("response_format"),
                    QJsonObject{{QStringLiteral("type"), QStringLiteral("json_schema")},
                                {QStringLiteral("json_schema"),
                                 QJsonObject{{QStringLiteral("name"), QStringLiteral("reponse")},
                                             {QStringLiteral("strict"), true},
                                             {QStringLiteral("schema"), *schema}}}});
    }
    body.insert(QStringLiteral("messages"),
                QJsonArray{QJsonObject{{QStringLiteral("role"), QStringLiteral("system")},
                                       {QStringLiteral("content"), system}},
                           QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                                       {QStringLiteral("content"), prompt}}});

    Http::Reply reply;
    try {
        reply = co_await Http::postJson(
            QUrl(LocalServers::model() + QStringLiteral("/v1/chat/completions")), body, {},
            kChatTimeout);
    } catch (const TransportError& e) {
        if (e.tooLarge()) throw LocalServers::tooLargeAnswer(kService);
        // The server went away between the probe and the request: the model is not there.
        if (!e.timedOut()) throw unavailable();
        throw;
    }
    if (reply.status != 200)
        throw EngineError::http(QLatin1String(kService), reply.status, reply.bodyText());

    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(reply.body, &parseError);
    const QJsonArray choices = doc.object().value(QLatin1String("choices")).toArray();
    const QJsonValue content = choices.first()
                                   .toObject()
                                   .value(QLatin1String("message"))
                                   .toObject()
                                   .value(QLatin1String("content"));
    if (parseError.error != QJsonParseError::NoError || choices.isEmpty() || !content.isString())
        throw DecodeError(QStringLiteral("IA locale : réponse illisible"));
    co_return content.toString().trimmed();
}

} // namespace

QCoro::Task<bool> available() {
    try {
        const std::optional<QString> model = co_await probe();
        co_return model.has_value();
    } catch (const EngineError&) {
        co_return false;
    }
}

QCoro::Task<QString> run(QString system, QString text) {
    co_return co_await chat(std::move(system), std::move(text), std::nullopt);
}

QCoro::Task<QString> runStructured(QString system, QString text, QJsonObject schema) {
    co_return co_await chat(std::move(system), std::move(text), std::move(schema));
}

} // namespace LocalModel

} // namespace ombry
