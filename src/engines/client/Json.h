#pragma once

#include <QJsonValue>
#include <cmath>
#include <limits>
#include <optional>

namespace ombry::Json {

// A JSON number that is a whole number in the range of int; nothing for any other value.
inline std::optional<int> integer(const QJsonValue& value) {
    if (!value.isDouble()) return std::nullopt;
    const double d = value.toDouble();
    if (std::trunc(d) != d || d < std::numeric_limits<int>::min() ||
        d > std::numeric_limits<int>::max())
        return std::nullopt;
    return int(d);
}

} // namespace ombry::Json
