#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>
#include <optional>

// The device's identity towards the hosted service, and the links to buy credits.
namespace ombry::CreditsConfig {

// SHA-256 of the machine identifier (or "inconnu" when there is none) followed by
// "|morven-signal", as 64 lower-case hexadecimal digits. Computed once per process.
QString deviceID();
// The same digest for a given machine identifier.
QString deviceIDOf(const QString& machineIdentifier);
// {"device_id": deviceID(), "app": "voice"}: merged into every request to the site.
QJsonObject identity();
// "dev:{deviceID}": the account the site credits after a payment.
QString account();

struct Pack {
    int credits;
    QString price; // "1,99 €"
    QString path;  // on the product site: "acheter/credits/100"
};
// The two packs on sale, smaller first.
const QList<Pack>& packs();
// The pack's page on the product site; empty when there is no valid site.
QUrl packURL(const Pack& pack);

// `url` with the query item checkout[custom][account] = account() added; nothing when the text
// does not parse as an address.
std::optional<QUrl> checkoutURL(const QString& url);

// Merges `identity()` into `body`; identity members win over those of the same name.
QJsonObject withIdentity(QJsonObject body);

} // namespace ombry::CreditsConfig
