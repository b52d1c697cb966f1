#include "net/Json.h"

#include "net/Errors.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <cmath>
#include <limits>

namespace ombry::Json {

void unreadable(const QString& service, const QString& what) {
    throw DecodeError(QStringLiteral("%1 : réponse illisible (%2)").arg(service, what));
}

QJsonObject object(const QByteArray& reply, const QString& service) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(reply, &error);
    if (error.error != QJsonParseError::NoError) unreadable(service, error.errorString());
    if (!doc.isObject()) unreadable(service, QStringLiteral("objet attendu"));
    return doc.object();
}

std::optional<int> integer(const QJsonValue& value) {
    if (!value.isDouble()) return std::nullopt;
    const double d = value.toDouble();
    if (std::trunc(d) != d || d < std::numeric_limits<int>::min() ||
        d > std::numeric_limits<int>::max())
        return std::nullopt;
    return int(d);
}

std::optional<int64_t> integer64(const QJsonValue& value) {
    if (!value.isDouble()) return std::nullopt;
    const double d = value.toDouble();
    constexpr double exact = 9007199254740992.0; // 2^53
    if (std::trunc(d) != d || d < -exact || d > exact) return std::nullopt;
    return int64_t(d);
}

} // namespace ombry::Json
