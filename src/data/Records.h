#pragma once

#include <QAnyStringView>
#include <QByteArray>
#include <QDateTime>
#include <QHashFunctions>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

// The plain values the program keeps, and their JSON form: upper-case UUIDs, UTC dates with
// whole seconds and a Z, optional fields left out when they hold nothing (and `null` read as
// nothing). A missing or mistyped required field makes the whole list fail to decode.
namespace ombry {

// The number of non-empty runs between separators (whitespace, U+000A..U+000D, U+0085,
// U+2028, U+2029), counted per grapheme cluster so that CR LF is one separator.
int wordCount(const QString& text);

// A fresh random identity for a record made in memory.
QUuid newRecordId();
// The present moment of the platform's clock, in UTC: the default date of a new record.
QDateTime recordNow();

// The JSON text forms shared by every record.
QString uuidText(const QUuid& id);       // E621E1F8-C36C-495A-93FC-0C247A3E6E5F
QString dateText(const QDateTime& date); // 2026-03-14T09:26:53Z
std::optional<QUuid> parseUuid(QAnyStringView text);
// The form above, or any ISO 8601 date and time that names its offset from UTC.
std::optional<QDateTime> parseDate(QAnyStringView text);

struct Dictation {
    QUuid id = newRecordId();
    QDateTime date = recordNow();
    QString appName{};
    std::optional<QString> bundleID{};
    QString finalText{};
    QString rawText{};
    double duration = 0;
    std::optional<QString> audioFile{}; // "{id}.wav" inside the store's audio folder
    // A dictation that gave no text: the reason shown to the user, or the empty text while
    // its recording is still being processed. Its audio is kept, to process it again. No
    // value for an ordinary dictation (and in every file written before there were any).
    std::optional<QString> failure{};

    bool failed() const { return failure.has_value(); }
    bool inProgress() const { return failure && failure->isEmpty(); }

    // Words of finalText per minute of recording, rounded half away from zero; 0 when the
    // duration is not positive.
    int wordsPerMinute() const;

    QJsonObject toJson() const;
    static std::optional<Dictation> fromJson(const QJsonValue& value);
    bool operator==(const Dictation&) const = default;
};

// A dictionary rule: what transcription hears, and what is to be written instead.
struct Correction {
    QUuid id = newRecordId();
    QString heard{};
    QString written{};

    QJsonObject toJson() const;
    static std::optional<Correction> fromJson(const QJsonValue& value);
    bool operator==(const Correction&) const = default;
};

// One change found in a corrected text.
struct Fix {
    QUuid id = newRecordId();
    QString original{};
    QString correction{};
    QString kind{};        // "orthographe", "grammaire", "conjugaison", "accord", ...
    QString explanation{}; // may be empty

    QJsonObject toJson() const;
    static std::optional<Fix> fromJson(const QJsonValue& value);
    bool operator==(const Fix&) const = default;
};

// One correction or rewrite of a selected text.
struct CorrectionRecord {
    QUuid id = newRecordId();
    QDateTime date = recordNow();
    QString appName{};
    std::optional<QString> bundleID{};
    QString action{}; // French label of what was done: "Corriger", "Plus clair", ...
    QString original{};
    QString result{};
    QList<Fix> fixes{};

    QJsonObject toJson() const;
    static std::optional<CorrectionRecord> fromJson(const QJsonValue& value);
    bool operator==(const CorrectionRecord&) const = default;
};

// A voice shortcut: saying the trigger alone inserts the text.
struct Snippet {
    QUuid id = newRecordId();
    QString trigger{};
    QString text{};

    QJsonObject toJson() const;
    static std::optional<Snippet> fromJson(const QJsonValue& value);
    bool operator==(const Snippet&) const = default;
};

// The cost of one billed call, in US dollars. Has no identity of its own.
struct CostEntry {
    QDateTime date = recordNow();
    double amount = 0;

    QJsonObject toJson() const;
    static std::optional<CostEntry> fromJson(const QJsonValue& value);
    bool operator==(const CostEntry&) const = default;
};

struct Meeting {
    QUuid id = newRecordId();
    QDateTime date = recordNow();
    double duration = 0;
    QString title{};
    QString transcript{};
    QString summary{};
    QStringList tasks{};

    QJsonObject toJson() const;
    static std::optional<Meeting> fromJson(const QJsonValue& value);
    bool operator==(const Meeting&) const = default;
};

size_t qHash(const Dictation& r, size_t seed = 0);
size_t qHash(const Correction& r, size_t seed = 0);
size_t qHash(const Fix& r, size_t seed = 0);
size_t qHash(const CorrectionRecord& r, size_t seed = 0);
size_t qHash(const Snippet& r, size_t seed = 0);
size_t qHash(const CostEntry& r, size_t seed = 0);
size_t qHash(const Meeting& r, size_t seed = 0);

// A list file: one compact JSON array of records. Decoding fails as a whole (no value) when
// the data is not a JSON array or any element does not decode.
template <class T> QByteArray encodeList(const QList<T>& list);
template <class T> std::optional<QList<T>> decodeList(const QByteArray& data);

// words.json: a JSON array of strings.
QByteArray encodeWords(const QStringList& words);
std::optional<QStringList> decodeWords(const QByteArray& data);

} // namespace ombry
