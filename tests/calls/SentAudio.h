#pragma once

// The audio a request sent to the speech model: the WAV of its last message's input_audio part.
#include "TestHttpServer.h"

#include <QJsonArray>
#include <optional>

namespace ombry::test {

inline std::optional<QByteArray> sentAudio(const RecordedRequest& r) {
    const QJsonValue content =
        r.json().value("messages").toArray().last().toObject().value("content");
    for (const QJsonValue& part : content.toArray()) {
        const QJsonObject audio = part.toObject().value("input_audio").toObject();
        if (!audio.isEmpty())
            return QByteArray::fromBase64(audio.value("data").toString().toLatin1());
    }
    return std::nullopt;
}

// Seconds of 16 kHz mono audio in the request, or nothing for a text request.
inline std::optional<double> audioSeconds(const RecordedRequest& r) {
    const std::optional<QByteArray> wav = sentAudio(r);
    return wav ? std::optional((wav->size() - 44) / 32000.0) : std::nullopt;
}

} // namespace ombry::test
