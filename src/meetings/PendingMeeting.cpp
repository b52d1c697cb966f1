#include "meetings/PendingMeeting.h"

#include <QDir>
#include <QFileInfo>
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
                        {"again", again},
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
    m.again = o.value("again").toBool();
    m.bytes = int64_t(o.value("bytes").toDouble());
    for (const QJsonValue& v : o.value("cuts").toArray())
        m.cuts << int64_t(v.toDouble());
    for (const QJsonValue& v : o.value("parts").toArray()) {
        const QJsonObject p = v.toObject();
        m.parts << Part{p.value("text").toString(), p.value("failed").toBool()};
    }
    return m;
}

PendingMeeting PendingMeeting::fromAudio(const QString& stem, int64_t bytes,
                                         const QDateTime& modified) {
    PendingMeeting m;
    m.id = QUuid::fromString(stem);
    if (m.id.isNull()) m.id = QUuid::createUuid();
    m.startedAt = modified.addMSecs(-bytes * 1000 / 32000).toUTC();
    return m;
}

QList<PendingMeeting::Files> PendingMeeting::find(const QString& folder) {
    const QDir dir(folder);
    QList<Files> found;
    const QFileInfoList entries =
        dir.entryInfoList(QDir::Files | QDir::System | QDir::Hidden, QDir::Time | QDir::Reversed);
    for (const QFileInfo& entry : entries) {
        const QString suffix = entry.suffix().toLower();
        if (suffix != QLatin1String("json") && suffix != QLatin1String("pcm")) continue;
        const QString stem = entry.completeBaseName();
        auto at = std::find_if(found.begin(), found.end(), [&](const Files& f) {
            return f.stem.compare(stem, Qt::CaseInsensitive) == 0;
        });
        if (at == found.end()) at = found.insert(found.end(), Files{stem, {}, {}});
        (suffix == QLatin1String("json") ? at->json : at->pcm) = entry.filePath();
    }
    // A missing file is written, or looked for, beside the other.
    for (Files& f : found) {
        if (f.json.isEmpty()) f.json = dir.filePath(f.stem + QStringLiteral(".json"));
        if (f.pcm.isEmpty()) f.pcm = dir.filePath(f.stem + QStringLiteral(".pcm"));
    }
    return found;
}

} // namespace ombry
