#pragma once

#include <QMap>
#include <QObject>
#include <QString>
#include <mutex>
#include <optional>

namespace ombry {

// The services of the user's own keys, in this order.
enum class APIService { Deepgram, OpenRouter };
QString rawValue(APIService s); // "deepgram", "openRouter"
QList<APIService> allAPIServices();

// The user's own API keys. Loaded once, at first use, from keys.json in the data folder, then
// the former build's keychain, then the environment (first non-empty value wins). Keys are
// trimmed from every source; one holding a control character (a line break in the middle) is
// refused, said in the journal, and the next source is asked. A key taken from the keychain
// makes it write keys.json once, with every key then known. keys.json is made 0600 before
// any byte is written, and a wider mode found on it is narrowed when it is read; a keys.json
// that is there but cannot be read is never written over.
class KeyStore : public QObject {
    Q_OBJECT
public:
    static KeyStore& shared(); // keys.json in Paths::dataFolder()
    // Loads from the given keys.json (and the keychain and environment).
    explicit KeyStore(QString file, QObject* parent = nullptr);

    // The keychain service of the former identity; only ever read.
    static constexpr const char* keychainService = "com.quennard.talvo";

    const QString& file() const { return file_; }
    std::optional<QString> key(APIService service) const;
    // Trims whitespace and line ends; an empty result removes the key. Writes keys.json
    // (mode 0600) at once; a failed write leaves the key in memory for this run. A key with a
    // control character inside is refused: false, and nothing changes (see problem()).
    bool save(const QString& value, APIService service);

    // Why a trimmed key cannot be used, for the user ("elle contient un caractère de
    // contrôle"); empty when it can.
    static QString problem(const QString& key);

Q_SIGNALS:
    void keysChanged();

private:
    void write(const QList<APIService>& services) const;

    QString file_;
    bool blocked_ = false;
    mutable std::mutex mutex_;
    QMap<APIService, QString> keys_;
};

} // namespace ombry
