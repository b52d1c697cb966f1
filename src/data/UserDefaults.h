#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <mutex>
#include <optional>

namespace ombry {

// One domain of user defaults: a JSON object kept in one file, with the types of its values
// as they were set. Every change writes the whole file atomically. A file of the wrong shape
// (not an object, broken JSON, not UTF-8) reads as empty; its bytes are kept beside it as
// "{file}.damaged" just before the first change overwrites it. Safe to use from any thread.
class UserDefaults {
public:
    explicit UserDefaults(QString file);
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The program's own domain (Paths::defaultsFile()), loaded at first use.
    static UserDefaults& standard();

    const QString& file() const { return file_; }

    // Undefined when the key has no value.
    QJsonValue value(const QString& key) const;
    bool contains(const QString& key) const;
    QJsonObject all() const;
    void setValue(const QString& key, const QJsonValue& value);
    void remove(const QString& key);
    // Sets several entries with one write.
    void merge(const QJsonObject& entries);
    // Reads the file again, dropping what is in memory.
    void reload();

    // Typed reads: a value of another type counts as absent.
    std::optional<bool> boolValue(const QString& key) const;
    std::optional<qint64> integerValue(const QString& key) const; // integral numbers only
    std::optional<double> doubleValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<QStringList> stringListValue(const QString& key) const; // all elements text

    // Reads a defaults file; nullopt when it exists but is not a JSON object in UTF-8.
    static std::optional<QJsonObject> readFile(const QString& path);

private:
    void writeLocked();

    QString file_;
    mutable std::mutex mutex_;
    QJsonObject values_;
    bool damaged_ = false;    // the file on disk could not be read as an object
    bool unreadable_ = false; // a pipe, a device, too large or refused: never written over
};

} // namespace ombry
