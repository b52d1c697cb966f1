// The JSON form of the records. Each record names its fields once, in a table; the same table
// drives the QJsonObject form and the list files, which are read and written by a small
// dedicated reader and writer because a history file may hold a hundred thousand records.
#include "data/Records.h"

#include <QJsonArray>
#include <charconv>
#include <cmath>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

namespace ombry {

namespace {

// ---------------------------------------------------------------------------------------------
// Field tables

template <class T, class M> struct Field {
    const char* name;
    M T::*member;
};
template <class T, class M> constexpr Field<T, M> field(const char* name, M T::*member) {
    return {name, member};
}

template <class M> struct IsOptional : std::false_type {};
template <class M> struct IsOptional<std::optional<M>> : std::true_type {};

template <class T> constexpr auto fieldsOf();

template <> constexpr auto fieldsOf<Dictation>() {
    return std::make_tuple(
        field("id", &Dictation::id), field("date", &Dictation::date),
        field("appName", &Dictation::appName), field("bundleID", &Dictation::bundleID),
        field("finalText", &Dictation::finalText), field("rawText", &Dictation::rawText),
        field("duration", &Dictation::duration), field("audioFile", &Dictation::audioFile),
        field("failure", &Dictation::failure));
}
template <> constexpr auto fieldsOf<Correction>() {
    return std::make_tuple(field("id", &Correction::id), field("heard", &Correction::heard),
                           field("written", &Correction::written));
}
template <> constexpr auto fieldsOf<Fix>() {
    return std::make_tuple(field("id", &Fix::id), field("original", &Fix::original),
                           field("correction", &Fix::correction), field("kind", &Fix::kind),
                           field("explanation", &Fix::explanation));
}
template <> constexpr auto fieldsOf<CorrectionRecord>() {
    return std::make_tuple(
        field("id", &CorrectionRecord::id), field("date", &CorrectionRecord::date),
        field("appName", &CorrectionRecord::appName),
        field("bundleID", &CorrectionRecord::bundleID), field("action", &CorrectionRecord::action),
        field("original", &CorrectionRecord::original), field("result", &CorrectionRecord::result),
        field("fixes", &CorrectionRecord::fixes));
}
template <> constexpr auto fieldsOf<Snippet>() {
    return std::make_tuple(field("id", &Snippet::id), field("trigger", &Snippet::trigger),
                           field("text", &Snippet::text));
}
template <> constexpr auto fieldsOf<CostEntry>() {
    return std::make_tuple(field("date", &CostEntry::date), field("amount", &CostEntry::amount));
}
template <> constexpr auto fieldsOf<Meeting>() {
    return std::make_tuple(field("id", &Meeting::id), field("date", &Meeting::date),
                           field("duration", &Meeting::duration), field("title", &Meeting::title),
                           field("transcript", &Meeting::transcript),
                           field("summary", &Meeting::summary), field("tasks", &Meeting::tasks));
}

// Calls f(index, field) for each field of T, in table order.
template <class T, class F> void forEachField(F&& f) {
    constexpr auto fields = fieldsOf<T>();
    [&]<size_t... I>(std::index_sequence<I...>) {
        (f(std::integral_constant<size_t, I>(), std::get<I>(fields)), ...);
    }
    (std::make_index_sequence<std::tuple_size_v<decltype(fields)>>());
}

// The fields that a decoded object must hold, as a bit mask over the table.
template <class T> constexpr quint32 requiredMask() {
    quint32 mask = 0;
    constexpr auto fields = fieldsOf<T>();
    [&]<size_t... I>(std::index_sequence<I...>) {
        ((mask |=
          IsOptional<
              std::remove_cvref_t<decltype(std::declval<T>().*(std::get<I>(fields).member))>>::value
              ? 0u
              : (1u << I)),
         ...);
    }
    (std::make_index_sequence<std::tuple_size_v<decltype(fields)>>());
    return mask;
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

// ---------------------------------------------------------------------------------------------
// QJsonValue form

QJsonValue toValue(const QUuid& v) {
    return uuidText(v);
}
QJsonValue toValue(const QDateTime& v) {
    return dateText(v);
}
QJsonValue toValue(const QString& v) {
    return v;
}
QJsonValue toValue(double v) {
    return v;
}
QJsonValue toValue(const QStringList& v) {
    return QJsonArray::fromStringList(v);
}
QJsonValue toValue(const QList<Fix>& v) {
    QJsonArray a;
    for (const Fix& f : v)
        a.append(f.toJson());
    return a;
}

template <class V, class Parse> bool fromParsed(const QJsonValue& v, V& out, Parse parse) {
    if (!v.isString()) return false;
    const auto value = parse(v.toString());
    if (value) out = *value;
    return value.has_value();
}
bool fromValue(const QJsonValue& v, QUuid& out) {
    return fromParsed(v, out, parseUuid);
}
bool fromValue(const QJsonValue& v, QDateTime& out) {
    return fromParsed(v, out, parseDate);
}
bool fromValue(const QJsonValue& v, QString& out) {
    if (!v.isString()) return false;
    out = v.toString();
    return true;
}
bool fromValue(const QJsonValue& v, double& out) {
    if (!v.isDouble()) return false;
    out = v.toDouble();
    return true;
}
bool fromValue(const QJsonValue& v, QStringList& out) {
    if (!v.isArray()) return false;
    out.clear();
    for (const QJsonValue& e : v.toArray()) {
        if (!e.isString()) return false;
        out.append(e.toString());
    }
    return true;
}
bool fromValue(const QJsonValue& v, QList<Fix>& out) {
    if (!v.isArray()) return false;
    out.clear();
    for (const QJsonValue& e : v.toArray()) {
        auto fix = Fix::fromJson(e);
        if (!fix) return false;
        out.append(std::move(*fix));
    }
    return true;
}
bool fromValue(const QJsonValue& v, std::optional<QString>& out) {
    out.reset();
    if (v.isUndefined() || v.isNull()) return true;
    QString s;
    if (!fromValue(v, s)) return false;
    out = std::move(s);
    return true;
}

template <class T> QJsonObject objectOf(const T& r) {
    QJsonObject o;
    forEachField<T>([&](auto, const auto& f) {
        const auto& value = r.*(f.member);
        if constexpr (IsOptional<std::remove_cvref_t<decltype(value)>>::value) {
            if (value) o.insert(QLatin1StringView(f.name), toValue(*value));
        } else {
            o.insert(QLatin1StringView(f.name), toValue(value));
        }
    });
    return o;
}

template <class T> std::optional<T> recordOf(const QJsonValue& value) {
    if (!value.isObject()) return std::nullopt;
    const QJsonObject o = value.toObject();
    T r = blank<T>();
    bool ok = true;
    forEachField<T>([&](auto, const auto& f) {
        if (ok) ok = fromValue(o.value(QLatin1StringView(f.name)), r.*(f.member));
    });
    if (!ok) return std::nullopt;
    return r;
}

// ---------------------------------------------------------------------------------------------
// Reader: strict JSON (RFC 8259) over UTF-8 bytes, decoding straight into the records.

class JsonReader {
public:
    explicit JsonReader(QByteArrayView data) : p_(data.data()), end_(data.data() + data.size()) {}

    bool atEnd() {
        ws();
        return p_ == end_;
    }
    bool consume(char c) {
        ws();
        if (p_ < end_ && *p_ == c) {
            ++p_;
            return true;
        }
        return false;
    }
    bool null() { return literal("null"); }

    // A string: `raw` holds its bytes when it has no escapes, else `decoded` holds it.
    bool string(QByteArrayView& raw, QString& decoded, bool& escaped) {
        if (!consume('"')) return false;
        const char* start = p_;
        escaped = false;
        while (p_ < end_) {
            const auto c = uchar(*p_);
            if (c == '"') {
                raw = QByteArrayView(start, p_ - start);
                ++p_;
                return true;
            }
            if (c == '\\') {
                escaped = true;
                return escapedString(start, decoded);
            }
            if (c < 0x20) return false;
            ++p_;
        }
        return false;
    }

    bool string(QString& out) {
        QByteArrayView raw;
        bool escaped;
        if (!string(raw, out, escaped)) return false;
        if (!escaped) out = QString::fromUtf8(raw);
        return true;
    }

    bool number(double& out) {
        ws();
        const char* start = p_;
        if (p_ < end_ && *p_ == '-') ++p_;
        if (p_ < end_ && *p_ == '0') {
            ++p_;
        } else if (!digits()) {
            return false;
        }
        if (p_ < end_ && *p_ == '.') {
            ++p_;
            if (!digits()) return false;
        }
        if (p_ < end_ && (*p_ == 'e' || *p_ == 'E')) {
            ++p_;
            if (p_ < end_ && (*p_ == '+' || *p_ == '-')) ++p_;
            if (!digits()) return false;
        }
        const auto result = std::from_chars(start, p_, out);
        // Out of range still is a number: JSON sets no limit, so it saturates.
        if (result.ec == std::errc::result_out_of_range)
            out = *start == '-' ? -HUGE_VAL : HUGE_VAL;
        else if (result.ec != std::errc() || result.ptr != p_)
            return false;
        return true;
    }

    // Any value, checked and dropped: members that the records do not name.
    bool skipValue(int depth = 0) {
        if (depth > 256) return false;
        ws();
        if (p_ == end_) return false;
        switch (*p_) {
        case '"': {
            QByteArrayView raw;
            QString decoded;
            bool escaped;
            return string(raw, decoded, escaped);
        }
        case '{':
            return object([&](QByteArrayView) { return skipValue(depth + 1); });
        case '[':
            return array([&] { return skipValue(depth + 1); });
        case 't':
            return literal("true");
        case 'f':
            return literal("false");
        case 'n':
            return literal("null");
        default: {
            double ignored;
            return number(ignored);
        }
        }
    }

    template <class F> bool array(F&& element) {
        if (!consume('[')) return false;
        if (consume(']')) return true;
        do {
            if (!element()) return false;
        } while (consume(','));
        return consume(']');
    }

    template <class F> bool object(F&& member) {
        if (!consume('{')) return false;
        if (consume('}')) return true;
        do {
            QByteArrayView key;
            QString decoded;
            bool escaped;
            if (!string(key, decoded, escaped)) return false;
            QByteArray keyBytes;
            if (escaped) {
                keyBytes = decoded.toUtf8();
                key = keyBytes;
            }
            if (!consume(':') || !member(key)) return false;
        } while (consume(','));
        return consume('}');
    }

private:
    void ws() {
        while (p_ < end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t'))
            ++p_;
    }

    bool digits() {
        const char* start = p_;
        while (p_ < end_ && *p_ >= '0' && *p_ <= '9')
            ++p_;
        return p_ > start;
    }

    bool literal(const char* word) {
        ws();
        const auto n = qsizetype(std::strlen(word));
        if (end_ - p_ < n || std::memcmp(p_, word, size_t(n)) != 0) return false;
        p_ += n;
        return true;
    }

    static int hex(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    // The rest of a string that holds escapes; p_ stands on the first backslash.
    bool escapedString(const char* start, QString& out) {
        out = QString::fromUtf8(QByteArrayView(start, p_ - start));
        const char* run = p_;
        while (p_ < end_) {
            const auto c = uchar(*p_);
            if (c == '"') {
                out += QString::fromUtf8(QByteArrayView(run, p_ - run));
                ++p_;
                return true;
            }
            if (c < 0x20) return false;
            if (c != '\\') {
                ++p_;
                continue;
            }
            out += QString::fromUtf8(QByteArrayView(run, p_ - run));
            if (++p_ == end_) return false;
            switch (*p_++) {
            case '"':
                out += u'"';
                break;
            case '\\':
                out += u'\\';
                break;
            case '/':
                out += u'/';
                break;
            case 'b':
                out += u'\b';
                break;
            case 'f':
                out += u'\f';
                break;
            case 'n':
                out += u'\n';
                break;
            case 'r':
                out += u'\r';
                break;
            case 't':
                out += u'\t';
                break;
            case 'u': {
                if (end_ - p_ < 4) return false;
                int unit = 0;
                for (int i = 0; i < 4; ++i) {
                    const int h = hex(p_[i]);
                    if (h < 0) return false;
                    unit = unit * 16 + h;
                }
                p_ += 4;
                out += QChar(char16_t(unit));
                break;
            }
            default:
                return false;
            }
            run = p_;
        }
        return false;
    }

    const char* p_;
    const char* end_;
};

bool readField(JsonReader& r, QString& out) {
    return r.string(out);
}

bool readField(JsonReader& r, std::optional<QString>& out) {
    if (r.null()) {
        out.reset();
        return true;
    }
    QString s;
    if (!r.string(s)) return false;
    out = std::move(s);
    return true;
}

bool readField(JsonReader& r, double& out) {
    return r.number(out);
}

// A text field read through its parser, without making a QString when it holds no escapes.
template <class V, class Parse> bool readParsed(JsonReader& r, V& out, Parse parse) {
    QByteArrayView raw;
    QString decoded;
    bool escaped;
    if (!r.string(raw, decoded, escaped)) return false;
    const auto value =
        parse(escaped ? QAnyStringView(decoded) : QAnyStringView(QUtf8StringView(raw)));
    if (value) out = *value;
    return value.has_value();
}

bool readField(JsonReader& r, QUuid& out) {
    return readParsed(r, out, parseUuid);
}

bool readField(JsonReader& r, QDateTime& out) {
    return readParsed(r, out, parseDate);
}

bool readField(JsonReader& r, QStringList& out) {
    out.clear();
    return r.array([&] {
        QString s;
        if (!r.string(s)) return false;
        out.append(std::move(s));
        return true;
    });
}

template <class T> bool readRecord(JsonReader& r, T& out);

bool readField(JsonReader& r, QList<Fix>& out) {
    out.clear();
    return r.array([&] {
        Fix f = blank<Fix>();
        if (!readRecord(r, f)) return false;
        out.append(std::move(f));
        return true;
    });
}

template <class T> bool readRecord(JsonReader& r, T& out) {
    quint32 seen = 0;
    const bool ok = r.object([&](QByteArrayView key) {
        bool matched = false;
        bool good = true;
        forEachField<T>([&](auto index, const auto& f) {
            if (matched || key != QByteArrayView(f.name)) return;
            matched = true;
            good = readField(r, out.*(f.member));
            seen |= 1u << decltype(index)::value;
        });
        return matched ? good : r.skipValue();
    });
    constexpr quint32 required = requiredMask<T>();
    return ok && (seen & required) == required;
}

// ---------------------------------------------------------------------------------------------
// Writer: compact JSON.

class JsonWriter {
public:
    QByteArray out;

    void string(const QString& s) {
        const QByteArray utf8 = s.toUtf8();
        out += '"';
        const char* run = utf8.constData();
        const char* end = run + utf8.size();
        for (const char* p = run; p < end; ++p) {
            const auto c = uchar(*p);
            if (c >= 0x20 && c != '"' && c != '\\') continue;
            out.append(run, p - run);
            run = p + 1;
            switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default: {
                static const char digits[] = "0123456789abcdef";
                const char escape[] = {'\\', 'u', '0', '0', digits[c >> 4], digits[c & 15]};
                out.append(escape, 6);
            }
            }
        }
        out.append(run, end - run);
        out += '"';
    }

    void number(double v) {
        // JSON has no infinities or NaN; a number must stay a number for the file to decode.
        if (!std::isfinite(v)) v = 0;
        char buffer[32];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
        out.append(buffer, result.ptr - buffer);
    }

    void value(const QString& v) { string(v); }
    void value(const QUuid& v) { string(uuidText(v)); }
    void value(const QDateTime& v) { string(dateText(v)); }
    void value(double v) { number(v); }
    void value(const QStringList& v) {
        out += '[';
        for (qsizetype i = 0; i < v.size(); ++i) {
            if (i) out += ',';
            string(v.at(i));
        }
        out += ']';
    }
    void value(const QList<Fix>& v) {
        out += '[';
        for (qsizetype i = 0; i < v.size(); ++i) {
            if (i) out += ',';
            record(v.at(i));
        }
        out += ']';
    }

    template <class T> void record(const T& r) {
        out += '{';
        bool first = true;
        forEachField<T>([&](auto, const auto& f) {
            const auto& v = r.*(f.member);
            if constexpr (IsOptional<std::remove_cvref_t<decltype(v)>>::value) {
                if (v) member(first, f.name, *v);
            } else {
                member(first, f.name, v);
            }
        });
        out += '}';
    }

private:
    template <class V> void member(bool& first, const char* name, const V& v) {
        if (!first) out += ',';
        first = false;
        out += '"';
        out += name;
        out += "\":";
        value(v);
    }
};

} // namespace

// ---------------------------------------------------------------------------------------------
// Records

#define OMBRY_RECORD(T)                                                                            \
    QJsonObject T::toJson() const {                                                                \
        return objectOf(*this);                                                                    \
    }                                                                                              \
    std::optional<T> T::fromJson(const QJsonValue& value) {                                        \
        return recordOf<T>(value);                                                                 \
    }
OMBRY_RECORD(Dictation)
OMBRY_RECORD(Correction)
OMBRY_RECORD(Fix)
OMBRY_RECORD(CorrectionRecord)
OMBRY_RECORD(Snippet)
OMBRY_RECORD(CostEntry)
OMBRY_RECORD(Meeting)
#undef OMBRY_RECORD

// ---------------------------------------------------------------------------------------------
// Lists

template <class T> QByteArray encodeList(const QList<T>& list) {
    JsonWriter w;
    w.out.reserve(list.size() * 256 + 2);
    w.out += '[';
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i) w.out += ',';
        w.record(list.at(i));
    }
    w.out += ']';
    return std::move(w.out);
}

template <class T> std::optional<QList<T>> decodeList(const QByteArray& data) {
    if (!data.isValidUtf8()) return std::nullopt;
    JsonReader r(data);
    QList<T> list;
    const bool ok = r.array([&] {
        T record = blank<T>();
        if (!readRecord(r, record)) return false;
        list.append(std::move(record));
        return true;
    });
    if (!ok || !r.atEnd()) return std::nullopt;
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
    JsonWriter w;
    w.value(words);
    return std::move(w.out);
}

std::optional<QStringList> decodeWords(const QByteArray& data) {
    if (!data.isValidUtf8()) return std::nullopt;
    JsonReader r(data);
    QStringList words;
    if (!readField(r, words) || !r.atEnd()) return std::nullopt;
    return words;
}

} // namespace ombry
