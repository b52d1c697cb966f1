#include "online/CreditsConfig.h"

#include "net/Endpoints.h"
#include "platform/Platform.h"

#include <QCryptographicHash>
#include <QUrlQuery>

namespace ombry::CreditsConfig {

QString deviceIDOf(const QString& machineIdentifier) {
    const QString machine =
        machineIdentifier.trimmed().isEmpty() ? QStringLiteral("inconnu") : machineIdentifier;
    const QByteArray salted = (machine + QStringLiteral("|morven-signal")).toUtf8();
    return QString::fromLatin1(
        QCryptographicHash::hash(salted, QCryptographicHash::Sha256).toHex());
}

QString deviceID() {
    static const QString id = deviceIDOf(Platform::current().machine().machineIdentifier());
    return id;
}

QJsonObject identity() {
    return QJsonObject{{QStringLiteral("device_id"), deviceID()},
                       {QStringLiteral("app"), QStringLiteral("voice")}};
}

QString account() {
    return QStringLiteral("dev:") + deviceID();
}

const QList<Pack>& packs() {
    static const QList<Pack> list = {
        {100, QStringLiteral("1,99 €"), QStringLiteral("acheter/credits/100")},
        {500, QStringLiteral("6,99 €"), QStringLiteral("acheter/credits/500")},
    };
    return list;
}

QUrl packURL(const Pack& pack) {
    return Endpoints::siteURL(pack.path);
}

std::optional<QUrl> checkoutURL(const QString& url) {
    QUrl parsed(url, QUrl::StrictMode);
    if (url.isEmpty() || !parsed.isValid()) return std::nullopt;
    QUrlQuery query(parsed);
    query.addQueryItem(QStringLiteral("checkout[custom][account]"), account());
    parsed.setQuery(query);
    return parsed;
}

QJsonObject withIdentity(QJsonObject body) {
    const QJsonObject id = identity();
    for (auto it = id.begin(); it != id.end(); ++it)
        body.insert(it.key(), it.value());
    return body;
}

} // namespace ombry::CreditsConfig
