#include "data/Records.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QRandomGenerator>
#include <QTextBoundaryFinder>
#include <cmath>
#include <type_traits>

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
// separator into part of a word or the reverse: those below the combining marks, and the
// general punctuation block but for the two joiners. A text made only of these is counted per
// code unit, which gives the same result as per cluster and is much faster.
bool isPlainForClusters(char16_t c) {
    return c < 0x300 || (c >= 0x2000 && c <= 0x206F && c != 0x200C && c != 0x200D) || c == 0x20AC;
}

// The count per code unit, or -1 as soon as a character asks for clusters.
int wordCountPlain(const QString& text) {
    int words = 0;
    bool inWord = false;
    for (const QChar ch : text) {
        const char16_t c = ch.unicode();
        bool separator;
        if (c < 0x80) {
            separator = c == u' ' || (c >= 0x09 && c <= 0x0D);
        } else {
            if (!isPlainForClusters(c)) return -1;
            separator = isSeparator(c);
        }
        if (separator) {
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
    const int plain = wordCountPlain(text);
    return plain >= 0 ? plain : wordCountClusters(text);
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

template <class C> char16_t unitOf(C c) {
    if constexpr (std::is_same_v<C, char>)
        return char16_t(uchar(c));
    else
        return char16_t(c.unicode());
}

template <class View> int digits(View s, qsizetype at, int n) {
    int v = 0;
    for (int i = 0; i < n; ++i) {
        const char16_t c = unitOf(s[at + i]);
        if (c < u'0' || c > u'9') return -1;
        v = v * 10 + (c - u'0');
    }
    return v;
}

// The form this program writes, read by hand because history files hold many of them.
template <class View> std::optional<QDateTime> parseWrittenDate(View t) {
    if (t.size() != 20 || unitOf(t[4]) != u'-' || unitOf(t[7]) != u'-' || unitOf(t[10]) != u'T' ||
        unitOf(t[13]) != u':' || unitOf(t[16]) != u':' || unitOf(t[19]) != u'Z')
        return std::nullopt;
    const int y = digits(t, 0, 4), mo = digits(t, 5, 2), d = digits(t, 8, 2);
    const int h = digits(t, 11, 2), mi = digits(t, 14, 2), s = digits(t, 17, 2);
    if (y < 0 || mo < 0 || d < 0 || h < 0 || mi < 0 || s < 0) return std::nullopt;
    const QDate date(y, mo, d);
    const QTime time(h, mi, s);
    if (!date.isValid() || !time.isValid()) return std::nullopt;
    return QDateTime(date, time, Qt::UTC);
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

std::optional<QDateTime> parseDate(QAnyStringView text) {
    if (auto written = text.visit([](auto view) { return parseWrittenDate(view); })) return written;
    // Any other ISO 8601 date and time, provided it names its offset from UTC.
    const QString s = text.toString();
    const qsizetype tee = s.indexOf(u'T');
    if (tee < 0) return std::nullopt;
    const QStringView zone = QStringView(s).mid(tee + 1);
    if (!zone.endsWith(u'Z') && !zone.contains(u'+') && !zone.contains(u'-')) return std::nullopt;
    const QDateTime parsed = QDateTime::fromString(s, Qt::ISODate);
    if (!parsed.isValid()) return std::nullopt;
    return parsed.toUTC();
}

std::optional<QUuid> parseUuid(QAnyStringView text) {
    if (text.size() != 36) return std::nullopt;
    const QUuid id = QUuid::fromString(text);
    if (id.isNull() &&
        !QAnyStringView::equal(text, QLatin1StringView("00000000-0000-0000-0000-000000000000")))
        return std::nullopt;
    return id;
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
    return hashOptional(r.failure, hashOptional(r.audioFile, hashOptional(r.bundleID, seed)));
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

} // namespace ombry
