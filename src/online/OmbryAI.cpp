#include "online/OmbryAI.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "net/Endpoints.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/Json.h"
#include "net/OpenRouter.h"
#include "net/Spending.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"

#include <QJsonDocument>

namespace ombry::OmbryAI {

namespace {

constexpr double kHostedExtraSeconds = 5.0;

std::optional<QString> ownKey() {
    return KeyStore::shared().key(APIService::OpenRouter);
}

QCoro::Task<QByteArray> direct(Http::JsonBody body, double timeoutSeconds, QString label,
                               QString key, Http::Limits limits) {
    body.object.insert(QStringLiteral("usage"), QJsonObject{{QStringLiteral("include"), true}});
    // Braced lists stay out of co_await expressions: GCC 12 miscompiles them there.
    const Http::Headers headers = {{"Authorization", "Bearer " + key.toUtf8()},
                                   {"X-Title", "Ombry Voice"}};
    const QUrl url(Endpoints::openRouter() + QLatin1String(OpenRouter::kChatPath));
    const Http::Reply reply =
        co_await Http::postJson(url, std::move(body), headers, timeoutSeconds, limits);
    if (reply.status != 200) throw EngineError::http(label, reply.status, reply.bodyText());
    Spending::record(reply.body);
    co_return reply.body;
}

QCoro::Task<QByteArray> hosted(Http::JsonBody body, double timeoutSeconds, Http::Limits limits) {
    if (!Endpoints::siteIsValid()) throw EngineError::missingKey(QStringLiteral("OpenRouter"));
    if (Credits::shared().exhausted()) throw EngineError::noCredits();
    body.object.remove(QStringLiteral("usage"));
    body.object = CreditsConfig::withIdentity(std::move(body.object));
    const Http::Headers none;
    const Http::Reply reply =
        co_await Http::postJson(Endpoints::siteURL(QStringLiteral("api/voice")), std::move(body),
                                none, timeoutSeconds + kHostedExtraSeconds, limits);
    const QJsonObject answer = QJsonDocument::fromJson(reply.body).object();
    if (reply.status == 200) {
        Credits::shared().update(Json::integer(
            answer.value(QLatin1String("ombry")).toObject().value(QLatin1String("credits"))));
        co_return reply.body;
    }
    if (reply.status == 402) {
        Credits::shared().update(0);
        Log::write(QStringLiteral("crédits Ombry épuisés : retour sur Local"));
        throw EngineError::noCredits();
    }
    const QJsonValue error = answer.value(QLatin1String("error"));
    throw EngineError::http(QStringLiteral("Ombry"), reply.status,
                            error.isString() ? error.toString() : QString());
}

} // namespace

bool usesOwnKey() {
    if (!ownKey()) return false;
    return AppSettings::shared().ownKeyMode() || !Endpoints::siteIsValid();
}

bool usesCredits() {
    return !usesOwnKey() && Endpoints::siteIsValid();
}

bool canReachRemote() {
    return usesOwnKey() || (usesCredits() && !Credits::shared().exhausted());
}

QCoro::Task<QByteArray> chat(Http::JsonBody body, double timeoutSeconds, QString label,
                             std::shared_ptr<Http::Abort> abort) {
    Http::Limits limits;
    limits.abort = std::move(abort);
    if (usesOwnKey()) {
        if (const std::optional<QString> key = ownKey())
            co_return co_await direct(std::move(body), timeoutSeconds, std::move(label), *key,
                                      limits);
    }
    co_return co_await hosted(std::move(body), timeoutSeconds, limits);
}

} // namespace ombry::OmbryAI
