#include "data/UserDefaults.h"

#include "data/Problems.h"
#include "platform/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <cmath>

namespace ombry {

namespace {

// A settings file holds a few hundred bytes; one beyond this is not the program's.
constexpr qint64 kMaxFileBytes = qint64(1) << 20;

struct Loaded {
    QJsonObject values;
    bool damaged = false;
    bool unreadable = false; // not a regular file, too large or refused: left as it is
};

Loaded load(const QString& path) {
    // Regular files of a bounded size only: a pipe or a device is never waited on or read
    // without end.
    const Paths::ReadResult read = Paths::readRegularFile(path, kMaxFileBytes);
    if (read.status == Paths::ReadResult::Status::Missing) return {};
    if (!read.ok()) {
        DataProblems::report(QStringLiteral("%1 ne peut pas être lu (%2) : réglages par défaut, "
                                            "le fichier est laissé tel quel")
                                 .arg(path, read.error.isEmpty()
                                                ? QStringLiteral("trop grand ou spécial")
                                                : read.error));
        return {{}, false, true};
    }
    const QByteArray& bytes = read.bytes;
    if (!bytes.isValidUtf8()) return {{}, true};
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return {{}, true};
    return {doc.object(), false};
}

} // namespace

UserDefaults::UserDefaults(QString file) : file_(std::move(file)) {
    reload();
}

UserDefaults& UserDefaults::standard() {
    static UserDefaults* instance = new UserDefaults(Paths::defaultsFile());
    return *instance;
}

std::optional<QJsonObject> UserDefaults::readFile(const QString& path) {
    Loaded l = load(path);
    if (l.damaged || l.unreadable) return std::nullopt;
    return l.values;
}

void UserDefaults::reload() {
    Loaded l = load(file_);
    std::lock_guard lock(mutex_);
    values_ = std::move(l.values);
    damaged_ = l.damaged;
    unreadable_ = l.unreadable;
}

QJsonValue UserDefaults::value(const QString& key) const {
    std::lock_guard lock(mutex_);
    return values_.value(key);
}

bool UserDefaults::contains(const QString& key) const {
    std::lock_guard lock(mutex_);
    return values_.contains(key);
}

QJsonObject UserDefaults::all() const {
    std::lock_guard lock(mutex_);
    return values_;
}

void UserDefaults::setValue(const QString& key, const QJsonValue& value) {
    std::lock_guard lock(mutex_);
    if (value.isUndefined())
        values_.remove(key);
    else
        values_.insert(key, value);
    writeLocked();
}

void UserDefaults::remove(const QString& key) {
    std::lock_guard lock(mutex_);
    values_.remove(key);
    writeLocked();
}

void UserDefaults::merge(const QJsonObject& entries) {
    std::lock_guard lock(mutex_);
    for (auto it = entries.begin(); it != entries.end(); ++it)
        values_.insert(it.key(), it.value());
    writeLocked();
}

void UserDefaults::writeLocked() {
    if (unreadable_) return; // never written over during this run
    QDir().mkpath(QFileInfo(file_).absolutePath());
    if (damaged_) {
        // The user's former file could not be read; keep its bytes before replacing it.
        QFile old(file_);
        if (old.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = old.readAll();
            old.close();
            Paths::writeFileAtomically(file_ + QStringLiteral(".damaged"), bytes);
        }
        damaged_ = false;
    }
    Paths::writeFileAtomically(file_, QJsonDocument(values_).toJson(QJsonDocument::Indented));
}

std::optional<bool> UserDefaults::boolValue(const QString& key) const {
    const QJsonValue v = value(key);
    if (!v.isBool()) return std::nullopt;
    return v.toBool();
}

std::optional<qint64> UserDefaults::integerValue(const QString& key) const {
    const QJsonValue v = value(key);
    if (!v.isDouble()) return std::nullopt;
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::floor(d) != d || std::fabs(d) > 9.0e18) return std::nullopt;
    return v.toInteger(qint64(d));
}

std::optional<double> UserDefaults::doubleValue(const QString& key) const {
    const QJsonValue v = value(key);
    if (!v.isDouble()) return std::nullopt;
    return v.toDouble();
}

std::optional<QString> UserDefaults::stringValue(const QString& key) const {
    const QJsonValue v = value(key);
    if (!v.isString()) return std::nullopt;
    return v.toString();
}

std::optional<QStringList> UserDefaults::stringListValue(const QString& key) const {
    const QJsonValue v = value(key);
    if (!v.isArray()) return std::nullopt;
    QStringList list;
    for (const QJsonValue& e : v.toArray()) {
        if (!e.isString()) return std::nullopt;
        list.append(e.toString());
    }
    return list;
}

} // namespace ombry
