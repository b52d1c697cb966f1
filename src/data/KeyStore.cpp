#include "data/KeyStore.h"

#include "data/IdentityMigration.h"
#include "data/Problems.h"
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

constexpr qint64 kMaxKeysFileBytes = 1 << 20;

// keys.json as a dictionary from text to text. A missing file, or one that is not such a
// dictionary (a member that is not text included), counts as empty as a whole. `unreadable`
// tells a file that is there but cannot be read.
QMap<QString, QString> readKeysFile(const QString& path, bool* unreadable = nullptr) {
    QMap<QString, QString> entries;
    const Paths::ReadResult read = Paths::readRegularFile(path, kMaxKeysFileBytes);
    if (unreadable) *unreadable = !read.ok() && read.status != Paths::ReadResult::Status::Missing;
    if (!read.ok()) return entries;
    const QJsonObject object = QJsonDocument::fromJson(read.bytes).object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isString()) return {};
        entries.insert(it.key(), it.value().toString());
    }
    return entries;
}

// A key from any source, trimmed; nothing when it is empty or refused.
std::optional<QString> usableKey(const QString& value, APIService service, const char* source) {
    const QString key = value.trimmed();
    if (key.isEmpty()) return std::nullopt;
    if (const QString problem = KeyStore::problem(key); !problem.isEmpty()) {
        DataProblems::report(QStringLiteral("clé %1 (%2) refusée : %3")
                                 .arg(rawValue(service), QLatin1String(source), problem));
        return std::nullopt;
    }
    return key;
}

} // namespace

QString KeyStore::problem(const QString& key) {
    for (const QChar c : key)
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            return QStringLiteral("elle contient un caractère de contrôle");
    return {};
}

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
    bool unreadable = false;
    const QMap<QString, QString> stored = readKeysFile(file_, &unreadable);
    if (unreadable) {
        blocked_ = true;
        DataProblems::report(
            QStringLiteral("%1 ne peut pas être lu : il est laissé tel quel").arg(file_));
    } else if (QFileInfo::exists(file_)) {
        // A file made by someone else with a wider mode is narrowed at once.
        QFile::setPermissions(file_, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }
    bool fromKeychain = false;
    for (const APIService service : allAPIServices()) {
        const QString raw = rawValue(service);
        std::optional<QString> value = usableKey(stored.value(raw), service, "keys.json");
        if (!value) {
            value = usableKey(Platform::current()
                                  .keychain()
                                  .genericPassword(QLatin1String(keychainService), raw)
                                  .value_or(QString()),
                              service, "trousseau");
            if (value) fromKeychain = true;
        }
        if (!value)
            value = usableKey(qEnvironmentVariable(environmentName(service)), service,
                              environmentName(service));
        if (value) keys_.insert(service, *value);
    }
    // A key that still lives only in the former keychain goes into the file once, so that the
    // keychain is no longer needed.
    if (fromKeychain) write(allAPIServices());
}

std::optional<QString> KeyStore::key(APIService service) const {
    std::lock_guard lock(mutex_);
    const auto it = keys_.constFind(service);
    if (it == keys_.constEnd()) return std::nullopt;
    return *it;
}

bool KeyStore::save(const QString& value, APIService service) {
    const QString trimmed = value.trimmed();
    if (!problem(trimmed).isEmpty()) return false;
    {
        std::lock_guard lock(mutex_);
        if (trimmed.isEmpty())
            keys_.remove(service);
        else
            keys_.insert(service, trimmed);
    }
    write({service});
    Q_EMIT keysChanged();
    return true;
}

// Under the data folder's lock, the file is read again and only the given services are set
// from memory: keys another process saved meanwhile stay.
void KeyStore::write(const QList<APIService>& services) const {
    if (blocked_) return;
    const QString folder = QFileInfo(file_).absolutePath();
    Paths::makePrivateFolder(folder);
    const Paths::FileLock lock(folder + QStringLiteral("/.lock"));
    bool unreadable = false;
    const QMap<QString, QString> current = readKeysFile(file_, &unreadable);
    if (unreadable) return;
    QJsonObject object;
    for (auto it = current.constBegin(); it != current.constEnd(); ++it)
        object.insert(it.key(), it.value());
    {
        std::lock_guard guard(mutex_);
        for (const APIService service : services) {
            const auto it = keys_.constFind(service);
            if (it == keys_.constEnd())
                object.remove(rawValue(service));
            else
                object.insert(rawValue(service), *it);
        }
    }
    // Made 0600 before any byte is written.
    Paths::writeFileAtomically(file_, QJsonDocument(object).toJson(QJsonDocument::Compact),
                               Paths::kPrivateFileMode);
}

} // namespace ombry
