#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <optional>

// Reading the JSON replies of the services: the shared failure and the small typed reads.
namespace ombry::Json {

// Throws DecodeError "{service} : réponse illisible ({what})".
[[noreturn]] void unreadable(const QString& service, const QString& what);

// The reply parsed as a JSON object; throws DecodeError (see unreadable) when it is not one.
QJsonObject object(const QByteArray& reply, const QString& service);

// A JSON number that is a whole number in the range of int; nothing for any other value.
std::optional<int> integer(const QJsonValue& value);

} // namespace ombry::Json
