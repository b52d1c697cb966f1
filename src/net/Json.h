#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <cstdint>
#include <optional>

// Reading the JSON replies of the services: the shared failure and the small typed reads.
namespace ombry::Json {

// Throws DecodeError "{service} : réponse illisible ({what})".
[[noreturn]] void unreadable(const QString& service, const QString& what);

// The reply parsed as a JSON object; throws DecodeError (see unreadable) when it is not one.
QJsonObject object(const QByteArray& reply, const QString& service);

// A JSON number that is a whole number in the range of int; nothing for any other value.
std::optional<int> integer(const QJsonValue& value);
// The same for numbers beyond 32 bits, up to the integers a JSON double holds exactly (2^53).
std::optional<int64_t> integer64(const QJsonValue& value);

} // namespace ombry::Json
