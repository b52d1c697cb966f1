#include "data/KeyStore.h"

#include "data/IdentityMigration.h"
#include "platform/Paths.h"
#include "platform/Platform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace ombry {

QString rawValue(APIService s) {
    return s == APIService::Deepgram ? QStringLiteral("deepgram") : QStringLiteral("openRouter");
}

QList<APIService> allAPIServices() {
    return {APIService::Deepgram, APIService::OpenRouter};
}

namespace {

const char* environmentName(APIService s) {
    return s == APIService::Deepgram ? "DEEPGRAM_API_KEY" : "OPENROUTER_API_KEY";
}

// keys.json as a dictionary from text to text. A missing or unreadable file, or one that is
// not such a dictionary (a member that is not text included), counts as empty as a whole.
QMap<QString, QString> readKeysFile(const QString& path) {
    QMap<QString, QString> entries;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return entries;
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isString()) return {};
        entries.insert(it.key(), it.value().toString());
    }
    return entries;
}

} // namespace

KeyStore& KeyStore::shared() {
    static KeyStore* instance = [] {
        // The data folder may still be the former identity's: move it first, so that the
        // keys are read from (and written to) the folder the store will use.
        const QString folder = Paths::dataFolder();
        IdentityMigration::moveDataFolder(folder);
        return new KeyStore(folder + QStringLiteral("/keys.json"));
    }();
    return *instance;
}

KeyStore::KeyStore(QString file, QObject* parent) : QObject(parent), file_(std::move(file)) {
    const QMap<QString, QString> stored = readKeysFile(file_);
    bool fromKeychain = false;
    for (const APIService service : allAPIServices()) {
        const QString raw = rawValue(service);
        QString value = stored.value(raw);
        if (value.isEmpty()) {
            value = Platform::current()
                        .keychain()
                        .genericPassword(QLatin1String(keychainService), raw)
                        .value_or(QString());
            if (!value.isEmpty()) fromKeychain = true;
        }
        if (value.isEmpty()) value = qEnvironmentVariable(environmentName(service));
        if (!value.isEmpty()) keys_.insert(service, value);
    }
    // A key that still lives only in the former keychain goes into the file once, so that the
    // keychain is no longer needed.
    if (fromKeychain) write();
}

std::optional<QString> KeyStore::key(APIService service) const {
    std::lock_guard lock(mutex_);
    const auto it = keys_.constFind(service);
    if (it == keys_.constEnd()) return std::nullopt;
    return *it;
}

void KeyStore::save(const QString& value, APIService service) {
    const QString trimmed = value.trimmed();
    {
        std::lock_guard lock(mutex_);
        if (trimmed.isEmpty())
            keys_.remove(service);
        else
            keys_.insert(service, trimmed);
    }
    write();
    Q_EMIT keysChanged();
}

void KeyStore::write() const {
    QJsonObject object;
    {
        std::lock_guard lock(mutex_);
        for (auto it = keys_.constBegin(); it != keys_.constEnd(); ++it)
            object.insert(rawValue(it.key()), it.value());
    }
    QDir().mkpath(QFileInfo(file_).absolutePath());
    if (!Paths::writeFileAtomically(file_, QJsonDocument(object).toJson(QJsonDocument::Compact)))
        return;
    // Only the user may read the keys.
    QFile::setPermissions(file_, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

} // namespace ombry
