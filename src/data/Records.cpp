#include "data/Records.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTextBoundaryFinder>
#include <cmath>

namespace ombry {

// ---------------------------------------------------------------------------------------------
// Word count

namespace {

bool isSeparator(char32_t c) {
    // QChar::isSpace covers White_Space, which already holds U+000A..U+000D, U+0085, U+2028
    // and U+2029; they are named again for clarity.
    return QChar::isSpace(c) || (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// Characters that never join a grapheme cluster with a neighbour in a way that could turn a
// separator into part of a word or the reverse: below the combining marks, and the general
// punctuation block but for the two joiners. Texts made only of these are counted per code
// point, which gives the same result as per cluster and is much faster.
bool isPlainForClusters(char16_t c) {
    return c < 0x300 || (c >= 0x2000 && c <= 0x206F && c != 0x200C && c != 0x200D) || c == 0x20AC;
}

int wordCountPlain(const QString& text) {
    int words = 0;
    bool inWord = false;
    for (const QChar ch : text) {
        if (isSeparator(ch.unicode())) {
            inWord = false;
        } else if (!inWord) {
            inWord = true;
            ++words;
        }
    }
    return words;
}

int wordCountClusters(const QString& text) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int words = 0;
    bool inWord = false;
    qsizetype start = 0;
    for (qsizetype end = finder.toNextBoundary(); end != -1; end = finder.toNextBoundary()) {
        if (end <= start) continue;
        // A cluster is a separator when it begins with one (CR LF, a blank with a mark on it).
        char32_t first = text.at(start).unicode();
        if (QChar::isHighSurrogate(first) && start + 1 < text.size() &&
            text.at(start + 1).isLowSurrogate())
            first = QChar::surrogateToUcs4(text.at(start), text.at(start + 1));
        if (isSeparator(first)) {
            inWord = false;
        } else if (!inWord) {
            inWord = true;
            ++words;
        }
        start = end;
    }
    return words;
}

} // namespace

int wordCount(const QString& text) {
    for (const QChar ch : text)
        if (!isPlainForClusters(ch.unicode())) return wordCountClusters(text);
    return wordCountPlain(text);
}

int Dictation::wordsPerMinute() const {
    if (!(duration > 0)) return 0;
    return int(std::round(double(wordCount(finalText)) / (duration / 60.0)));
}

// ---------------------------------------------------------------------------------------------
// Identities, dates

QUuid newRecordId() {
    // A version 4 UUID from the process's seeded generator: as unique as one from the system
    // source, without a system call per record.
    quint64 halves[2];
    QRandomGenerator::global()->fillRange(halves, 2);
    uchar bytes[16];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = uchar(halves[0] >> (8 * i));
        bytes[8 + i] = uchar(halves[1] >> (8 * i));
    }
    bytes[6] = uchar((bytes[6] & 0x0F) | 0x40);
    bytes[8] = uchar((bytes[8] & 0x3F) | 0x80);
    return QUuid::fromRfc4122(QByteArrayView(reinterpret_cast<const char*>(bytes), 16));
}

QDateTime recordNow() {
    return Platform::current().clock().now().toUTC();
}

QString uuidText(const QUuid& id) {
    return id.toString(QUuid::WithoutBraces).toUpper();
}

namespace {

void put2(char16_t* p, int v) {
    p[0] = char16_t('0' + v / 10);
    p[1] = char16_t('0' + v % 10);
}

int digits(const QString& s, qsizetype at, int n) {
    int v = 0;
    for (int i = 0; i < n; ++i) {
        const char16_t c = s.at(at + i).unicode();
        if (c < '0' || c > '9') return -1;
        v = v * 10 + (c - '0');
    }
    return v;
}

} // namespace

QString dateText(const QDateTime& date) {
    const QDateTime utc = date.toUTC();
    const QDate d = utc.date();
    const QTime t = utc.time();
    if (d.year() < 0 || d.year() > 9999) return utc.toString(Qt::ISODate);
    QString s(20, Qt::Uninitialized);
    char16_t* p = reinterpret_cast<char16_t*>(s.data());
    put2(p, d.year() / 100);
    put2(p + 2, d.year() % 100);
    p[4] = '-';
    put2(p + 5, d.month());
    p[7] = '-';
    put2(p + 8, d.day());
    p[10] = 'T';
    put2(p + 11, t.hour());
    p[13] = ':';
    put2(p + 14, t.minute());
    p[16] = ':';
    put2(p + 17, t.second());
    p[19] = 'Z';
    return s;
}

std::optional<QDateTime> parseDate(const QString& text) {
    // The form this program writes, read by hand because history files hold many of them.
    if (text.size() == 20 && text.at(4) == u'-' && text.at(7) == u'-' && text.at(10) == u'T' &&
        text.at(13) == u':' && text.at(16) == u':' && text.at(19) == u'Z') {
        const int y = digits(text, 0, 4), mo = digits(text, 5, 2), d = digits(text, 8, 2);
        const int h = digits(text, 11, 2), mi = digits(text, 14, 2), s = digits(text, 17, 2);
        if (y < 0 || mo < 0 || d < 0 || h < 0 || mi < 0 || s < 0) return std::nullopt;
        const QDate date(y, mo, d);
        const QTime time(h, mi, s);
        if (!date.isValid() || !time.isValid()) return std::nullopt;
        return QDateTime(date, time, Qt::UTC);
    }
    // Any other ISO 8601 date and time that names its offset from UTC.
    const qsizetype tee = text.indexOf(u'T');
    if (tee < 0) return std::nullopt;
    const QStringView zone = QStringView(text).mid(tee + 1);
    if (!zone.endsWith(u'Z') && !zone.contains(u'+') && !zone.contains(u'-')) return std::nullopt;
    const QDateTime parsed = QDateTime::fromString(text, Qt::ISODate);
    if (!parsed.isValid()) return std::nullopt;
    return parsed.toUTC();
}

std::optional<QUuid> parseUuid(const QString& text) {
    if (text.size() != 36) return std::nullopt;
    const QUuid id = QUuid::fromString(text);
    if (id.isNull() && text != QLatin1String("00000000-0000-0000-0000-000000000000"))
        return std::nullopt;
    return id;
}

// ---------------------------------------------------------------------------------------------
// Field readers: each fails (false) on a missing or mistyped required field.

namespace {

bool readString(const QJsonObject& o, QLatin1String key, QString& out) {
    const QJsonValue v = o.value(key);
    if (!v.isString()) return false;
    out = v.toString();
    return true;
}

bool readOptionalString(const QJsonObject& o, QLatin1String key, std::optional<QString>& out) {
    const QJsonValue v = o.value(key);
    if (v.isUndefined() || v.isNull()) {
        out.reset();
        return true;
    }
    if (!v.isString()) return false;
    out = v.toString();
    return true;
}

bool readDouble(const QJsonObject& o, QLatin1String key, double& out) {
    const QJsonValue v = o.value(key);
    if (!v.isDouble()) return false;
    out = v.toDouble();
    return true;
}

bool readUuid(const QJsonObject& o, QLatin1String key, QUuid& out) {
    const QJsonValue v = o.value(key);
    if (!v.isString()) return false;
    const auto id = parseUuid(v.toString());
    if (!id) return false;
    out = *id;
    return true;
}

bool readDate(const QJsonObject& o, QLatin1String key, QDateTime& out) {
    const QJsonValue v = o.value(key);
    if (!v.isString()) return false;
    const auto date = parseDate(v.toString());
    if (!date) return false;
    out = *date;
    return true;
}

bool readStringList(const QJsonValue& v, QStringList& out) {
    if (!v.isArray()) return false;
    const QJsonArray a = v.toArray();
    out.clear();
    out.reserve(a.size());
    for (const QJsonValue& e : a) {
        if (!e.isString()) return false;
        out.append(e.toString());
    }
    return true;
}

void putOptional(QJsonObject& o, QLatin1String key, const std::optional<QString>& v) {
    if (v) o.insert(key, *v);
}

// Records read from a file carry their stored id and date, so the defaults of a new record
// (a random id, the present) are not worth making for them.
template <class T> T blank() {
    if constexpr (requires(T t) { t.date; }) {
        if constexpr (requires(T t) { t.id; })
            return T{.id = QUuid(), .date = QDateTime()};
        else
            return T{.date = QDateTime()};
    } else {
        return T{.id = QUuid()};
    }
}

#define KEY(name) QLatin1String(name)

} // namespace

QJsonObject Dictation::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("date"), dateText(date));
    o.insert(KEY("appName"), appName);
    putOptional(o, KEY("bundleID"), bundleID);
    o.insert(KEY("finalText"), finalText);
    o.insert(KEY("rawText"), rawText);
    o.insert(KEY("duration"), duration);
    putOptional(o, KEY("audioFile"), audioFile);
    return o;
}

std::optional<Dictation> Dictation::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    Dictation r = blank<Dictation>();
    if (!readUuid(o, KEY("id"), r.id) || !readDate(o, KEY("date"), r.date) ||
        !readString(o, KEY("appName"), r.appName) ||
        !readOptionalString(o, KEY("bundleID"), r.bundleID) ||
        !readString(o, KEY("finalText"), r.finalText) ||
        !readString(o, KEY("rawText"), r.rawText) || !readDouble(o, KEY("duration"), r.duration) ||
        !readOptionalString(o, KEY("audioFile"), r.audioFile))
        return std::nullopt;
    return r;
}

QJsonObject Correction::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("heard"), heard);
    o.insert(KEY("written"), written);
    return o;
}

std::optional<Correction> Correction::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    Correction r = blank<Correction>();
    if (!readUuid(o, KEY("id"), r.id) || !readString(o, KEY("heard"), r.heard) ||
        !readString(o, KEY("written"), r.written))
        return std::nullopt;
    return r;
}

QJsonObject Fix::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("original"), original);
    o.insert(KEY("correction"), correction);
    o.insert(KEY("kind"), kind);
    o.insert(KEY("explanation"), explanation);
    return o;
}

std::optional<Fix> Fix::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    Fix r = blank<Fix>();
    if (!readUuid(o, KEY("id"), r.id) || !readString(o, KEY("original"), r.original) ||
        !readString(o, KEY("correction"), r.correction) || !readString(o, KEY("kind"), r.kind) ||
        !readString(o, KEY("explanation"), r.explanation))
        return std::nullopt;
    return r;
}

QJsonObject CorrectionRecord::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("date"), dateText(date));
    o.insert(KEY("appName"), appName);
    putOptional(o, KEY("bundleID"), bundleID);
    o.insert(KEY("action"), action);
    o.insert(KEY("original"), original);
    o.insert(KEY("result"), result);
    QJsonArray list;
    for (const Fix& f : fixes)
        list.append(f.toJson());
    o.insert(KEY("fixes"), list);
    return o;
}

std::optional<CorrectionRecord> CorrectionRecord::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    CorrectionRecord r = blank<CorrectionRecord>();
    if (!readUuid(o, KEY("id"), r.id) || !readDate(o, KEY("date"), r.date) ||
        !readString(o, KEY("appName"), r.appName) ||
        !readOptionalString(o, KEY("bundleID"), r.bundleID) ||
        !readString(o, KEY("action"), r.action) || !readString(o, KEY("original"), r.original) ||
        !readString(o, KEY("result"), r.result))
        return std::nullopt;
    const QJsonValue fixes = o.value(KEY("fixes"));
    if (!fixes.isArray()) return std::nullopt;
    for (const QJsonValue& f : fixes.toArray()) {
        auto fix = Fix::fromJson(f);
        if (!fix) return std::nullopt;
        r.fixes.append(std::move(*fix));
    }
    return r;
}

QJsonObject Snippet::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("trigger"), trigger);
    o.insert(KEY("text"), text);
    return o;
}

std::optional<Snippet> Snippet::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    Snippet r = blank<Snippet>();
    if (!readUuid(o, KEY("id"), r.id) || !readString(o, KEY("trigger"), r.trigger) ||
        !readString(o, KEY("text"), r.text))
        return std::nullopt;
    return r;
}

QJsonObject CostEntry::toJson() const {
    QJsonObject o;
    o.insert(KEY("date"), dateText(date));
    o.insert(KEY("amount"), amount);
    return o;
}

std::optional<CostEntry> CostEntry::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    CostEntry r = blank<CostEntry>();
    if (!readDate(o, KEY("date"), r.date) || !readDouble(o, KEY("amount"), r.amount))
        return std::nullopt;
    return r;
}

QJsonObject Meeting::toJson() const {
    QJsonObject o;
    o.insert(KEY("id"), uuidText(id));
    o.insert(KEY("date"), dateText(date));
    o.insert(KEY("duration"), duration);
    o.insert(KEY("title"), title);
    o.insert(KEY("transcript"), transcript);
    o.insert(KEY("summary"), summary);
    o.insert(KEY("tasks"), QJsonArray::fromStringList(tasks));
    return o;
}

std::optional<Meeting> Meeting::fromJson(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    Meeting r = blank<Meeting>();
    if (!readUuid(o, KEY("id"), r.id) || !readDate(o, KEY("date"), r.date) ||
        !readDouble(o, KEY("duration"), r.duration) || !readString(o, KEY("title"), r.title) ||
        !readString(o, KEY("transcript"), r.transcript) ||
        !readString(o, KEY("summary"), r.summary) ||
        !readStringList(o.value(KEY("tasks")), r.tasks))
        return std::nullopt;
    return r;
}

// ---------------------------------------------------------------------------------------------
// Hashing over all fields

namespace {
size_t hashOptional(const std::optional<QString>& v, size_t seed) {
    return v ? ::qHash(*v, seed) : seed ^ 0x9e3779b9u;
}
size_t hashDate(const QDateTime& d, size_t seed) {
    return ::qHash(d.toMSecsSinceEpoch(), seed);
}
} // namespace

size_t qHash(const Dictation& r, size_t seed) {
    seed = qHashMulti(seed, r.id, r.appName, r.finalText, r.rawText, r.duration);
    seed = hashDate(r.date, seed);
    return hashOptional(r.audioFile, hashOptional(r.bundleID, seed));
}

size_t qHash(const Correction& r, size_t seed) {
    return qHashMulti(seed, r.id, r.heard, r.written);
}

size_t qHash(const Fix& r, size_t seed) {
    return qHashMulti(seed, r.id, r.original, r.correction, r.kind, r.explanation);
}

size_t qHash(const CorrectionRecord& r, size_t seed) {
    seed = qHashMulti(seed, r.id, r.appName, r.action, r.original, r.result);
    seed = hashOptional(r.bundleID, hashDate(r.date, seed));
    for (const Fix& f : r.fixes)
        seed = qHash(f, seed);
    return seed;
}

size_t qHash(const Snippet& r, size_t seed) {
    return qHashMulti(seed, r.id, r.trigger, r.text);
}

size_t qHash(const CostEntry& r, size_t seed) {
    return hashDate(r.date, ::qHash(r.amount, seed));
}

size_t qHash(const Meeting& r, size_t seed) {
    seed = qHashMulti(seed, r.id, r.duration, r.title, r.transcript, r.summary);
    seed = hashDate(r.date, seed);
    for (const QString& t : r.tasks)
        seed = ::qHash(t, seed);
    return seed;
}

// ---------------------------------------------------------------------------------------------
// Lists

namespace {

// The JSON array held by a list file, or nothing when it is no JSON array or not UTF-8.
std::optional<QJsonArray> parseArray(const QByteArray& data) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray()) return std::nullopt;
    return doc.array();
}

} // namespace

template <class T> QByteArray encodeList(const QList<T>& list) {
    QJsonArray array;
    for (const T& r : list)
        array.append(r.toJson());
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

template <class T> std::optional<QList<T>> decodeList(const QByteArray& data) {
    const auto array = parseArray(data);
    if (!array) return std::nullopt;
    QList<T> list;
    list.reserve(array->size());
    for (const QJsonValue& v : *array) {
        auto r = T::fromJson(v);
        if (!r) return std::nullopt;
        list.append(std::move(*r));
    }
    return list;
}

#define OMBRY_LIST(T)                                                                              \
    template QByteArray encodeList<T>(const QList<T>&);                                            \
    template std::optional<QList<T>> decodeList<T>(const QByteArray&);
OMBRY_LIST(Dictation)
OMBRY_LIST(Correction)
OMBRY_LIST(Fix)
OMBRY_LIST(CorrectionRecord)
OMBRY_LIST(Snippet)
OMBRY_LIST(CostEntry)
OMBRY_LIST(Meeting)
#undef OMBRY_LIST

QByteArray encodeWords(const QStringList& words) {
    return QJsonDocument(QJsonArray::fromStringList(words)).toJson(QJsonDocument::Compact);
}

std::optional<QStringList> decodeWords(const QByteArray& data) {
    const auto array = parseArray(data);
    if (!array) return std::nullopt;
    QStringList words;
    if (!readStringList(*array, words)) return std::nullopt;
    return words;
}

} // namespace ombry
