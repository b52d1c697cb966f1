#include "meetings/PendingMeeting.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace ombry {

bool PendingMeeting::cutUpTo(int64_t size, bool final) {
    bool added = false;
    int64_t last = cuts.isEmpty() ? 0 : cuts.last();
    while (size - last >= kChunkBytes) {
        last += kChunkBytes;
        cuts << last;
        added = true;
    }
    if (final && size > last) {
        cuts << size;
        added = true;
    }
    return added;
}

int PendingMeeting::pieceCount(int64_t size) {
    return std::max<int>(1, int((size + kChunkBytes - 1) / kChunkBytes));
}

QString PendingMeeting::transcript() const {
    QStringList texts;
    for (const Part& p : parts)
        if (!p.text.isEmpty()) texts << p.text;
    return texts.join(QStringLiteral("\n\n"));
}

bool PendingMeeting::anyFailed() const {
    return std::any_of(parts.begin(), parts.end(), [](const Part& p) { return p.failed; });
}

QByteArray PendingMeeting::toJson() const {
    QJsonArray cutList;
    for (int64_t c : cuts)
        cutList << double(c);
    QJsonArray partList;
    for (const Part& p : parts)
        partList << QJsonObject{{"text", p.text}, {"failed", p.failed}};
    const QJsonObject o{{"id", id.toString(QUuid::WithoutBraces)},
                        {"startedAt", startedAt.toUTC().toString(Qt::ISODateWithMs)},
                        {"recording", recording},
                        {"bytes", double(bytes)},
                        {"cuts", cutList},
                        {"parts", partList}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

std::optional<PendingMeeting> PendingMeeting::fromJson(const QByteArray& data) {
    const QJsonDocument doc = QJsonDocument::fromJson(data);
    if (!doc.isObject()) return std::nullopt;
    const QJsonObject o = doc.object();
    PendingMeeting m;
    m.id = QUuid::fromString(o.value("id").toString());
    m.startedAt = QDateTime::fromString(o.value("startedAt").toString(), Qt::ISODateWithMs);
    if (m.id.isNull() || !m.startedAt.isValid()) return std::nullopt;
    m.recording = o.value("recording").toBool(true);
    m.bytes = int64_t(o.value("bytes").toDouble());
    for (const QJsonValue& v : o.value("cuts").toArray())
        m.cuts << int64_t(v.toDouble());
    for (const QJsonValue& v : o.value("parts").toArray()) {
        const QJsonObject p = v.toObject();
        m.parts << Part{p.value("text").toString(), p.value("failed").toBool()};
    }
    return m;
}

} // namespace ombry
