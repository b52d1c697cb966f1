// The figures the dashboard shows, computed from the history: words by day, speed, time saved,
// spending, and the share of each application.
#include "data/Store.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cmath>

namespace ombry {

namespace {

qint64 floorDiv(qint64 a, qint64 b) {
    qint64 q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

} // namespace

QDate Store::localDay(const QDateTime& moment) const {
    // Converting each date of a long history to local time one by one is slow. The offset is
    // asked once per UTC day met, at both ends of it; only a day on which it changes (a
    // daylight saving day) asks again for the moment itself.
    const qint64 secs = floorDiv(moment.toMSecsSinceEpoch(), 1000);
    const qint64 utcDay = floorDiv(secs, 86400);
    if (utcDay != lastUtcDay_) {
        auto it = dayOffsets_.constFind(utcDay);
        if (it == dayOffsets_.constEnd()) {
            const auto offsetAt = [](qint64 s) {
                return QDateTime::fromSecsSinceEpoch(s, Qt::LocalTime).offsetFromUtc();
            };
            it = dayOffsets_.insert(utcDay,
                                    {offsetAt(utcDay * 86400), offsetAt(utcDay * 86400 + 86399)});
        }
        lastUtcDay_ = utcDay;
        lastDayOffsets_ = *it;
    }
    const int offset = lastDayOffsets_.first == lastDayOffsets_.second
                           ? lastDayOffsets_.first
                           : QDateTime::fromSecsSinceEpoch(secs, Qt::LocalTime).offsetFromUtc();
    constexpr qint64 kJulianDayOfEpoch = 2440588;
    return QDate::fromJulianDay(kJulianDayOfEpoch + floorDiv(secs + offset, 86400));
}

void Store::rebuildStats() {
    // Every record is walked; what is known of a record whose text and date did not change
    // is taken over. The previous records are looked for where an insertion at the front (or
    // nothing) left them, and by id only when the order changed otherwise.
    QList<RecordStats> previous = std::move(recordStats_);
    // The list of the rebuild before last is reused, so that its memory is not asked for anew.
    QList<RecordStats> next = std::move(spareStats_);
    next.clear();
    next.reserve(dictations_.size());
    const qsizetype shift = dictations_.size() - previous.size();
    QHash<QUuid, qsizetype> byId;
    qsizetype misses = 0;
    const auto findPrevious = [&](qsizetype i, const QUuid& id) -> RecordStats* {
        for (const qsizetype j : {i - shift, i})
            if (j >= 0 && j < previous.size() && previous[j].id == id) return &previous[j];
        // New records are expected where the list grew; past that, the order has changed and
        // the records are looked up by id.
        if (previous.isEmpty() || ++misses <= std::max<qsizetype>(shift, 0)) return nullptr;
        if (byId.isEmpty())
            for (qsizetype j = 0; j < previous.size(); ++j)
                byId.insert(previous[j].id, j);
        const auto it = byId.constFind(id);
        return it == byId.constEnd() ? nullptr : &previous[*it];
    };

    int total = 0;
    double duration = 0;
    int count = 0;
    QMap<QDate, int> byDay;
    QDate runDay;
    int runWords = 0;
    for (qsizetype i = 0; i < dictations_.size(); ++i) {
        const Dictation& d = dictations_.at(i);
        RecordStats r{
            d.id,   d.date.toMSecsSinceEpoch(), d.finalText.constData(), d.finalText.size(), 0,
            QDate()};
        const RecordStats* known = findPrevious(i, d.id);
        r.words = known && known->text == r.text && known->textSize == r.textSize
                      ? known->words
                      : wordCount(d.finalText);
        r.day = known && known->dateMs == r.dateMs ? known->day : localDay(d.date);
        if (d.failure) {
            // No text was dictated: neither its words nor its time count.
            next.append(std::move(r));
            continue;
        }
        ++count;
        total += r.words;
        duration += d.duration;
        // The history is sorted by date: a run of one day is summed before it goes in the map.
        if (r.day != runDay) {
            if (runDay.isValid()) byDay[runDay] += runWords;
            runDay = r.day;
            runWords = 0;
        }
        runWords += r.words;
        next.append(std::move(r));
    }
    if (runDay.isValid()) byDay[runDay] += runWords;
    recordStats_ = std::move(next);
    spareStats_ = std::move(previous);
    totalWords_ = total;
    totalDuration_ = duration;
    dictationCount_ = count;
    wordsByDay_ = std::move(byDay);
    Q_EMIT statsChanged();
}

int Store::words(const QDate& day) const {
    return wordsByDay_.value(day, 0);
}

int Store::words(const QDateTime& on) const {
    return words(localDay(on));
}

QList<DayWords> Store::lastDays(int n) const {
    QList<DayWords> days;
    if (n <= 0) return days;
    const QDate today = localDay(Platform::current().clock().now());
    for (int offset = 1 - n; offset <= 0; ++offset) {
        const QDate day = today.addDays(offset);
        days.append({day.startOfDay(), words(day)});
    }
    return days;
}

int Store::averageWPM() const {
    if (!(totalDuration_ > 0)) return 0;
    return int(std::round(totalWords_ / (totalDuration_ / 60)));
}

double Store::minutesSaved(int typingWPM) const {
    if (typingWPM < 1) return 0;
    const double saved = double(totalWords_) / typingWPM - totalDuration_ / 60;
    return saved < 0 ? 0 : saved;
}

double Store::spentThisMonth() const {
    const QDate today = localDay(Platform::current().clock().now());
    double sum = 0;
    for (const CostEntry& c : costs_) {
        const QDate day = localDay(c.date);
        if (day.year() == today.year() && day.month() == today.month()) sum += c.amount;
    }
    return sum;
}

QList<AppShare> Store::appShares() const {
    QList<AppShare> shares;
    if (totalWords_ < 1) return shares;
    QHash<QString, qsizetype> index;
    QList<int> words;
    for (qsizetype i = 0; i < dictations_.size(); ++i) {
        const Dictation& d = dictations_.at(i);
        if (d.failure) continue;
        const int n = i < recordStats_.size() ? recordStats_.at(i).words : wordCount(d.finalText);
        auto it = index.constFind(d.appName);
        if (it == index.constEnd()) {
            it = index.insert(d.appName, shares.size());
            shares.append({d.appName, std::nullopt, 0});
            words.append(0);
        }
        AppShare& group = shares[*it];
        words[*it] += n;
        if (!group.bundleID && d.bundleID && !d.bundleID->isEmpty()) group.bundleID = d.bundleID;
    }
    for (qsizetype i = 0; i < shares.size(); ++i)
        shares[i].share = double(words[i]) / totalWords_;
    std::stable_sort(shares.begin(), shares.end(),
                     [](const AppShare& a, const AppShare& b) { return a.share > b.share; });
    return shares;
}

} // namespace ombry
