#include "views/history/HistoryModel.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/dashboard/DashboardModel.h"

#include <QCollator>
#include <QCoreApplication>
#include <QLocale>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>

namespace ombry {

namespace {

qint64 floorDiv(qint64 a, qint64 b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

} // namespace

QString rawValue(HistoryRange r) {
    switch (r) {
    case HistoryRange::Today:
        return QStringLiteral("today");
    case HistoryRange::Week:
        return QStringLiteral("week");
    case HistoryRange::All:
        break;
    }
    return QStringLiteral("all");
}

QString label(HistoryRange r) {
    switch (r) {
    case HistoryRange::Today:
        return QStringLiteral("Aujourd'hui");
    case HistoryRange::Week:
        return QStringLiteral("7 jours");
    case HistoryRange::All:
        break;
    }
    return QStringLiteral("Tout");
}

std::optional<HistoryRange> historyRangeFromRaw(const QString& raw) {
    for (HistoryRange r : {HistoryRange::Today, HistoryRange::Week, HistoryRange::All})
        if (rawValue(r) == raw) return r;
    return std::nullopt;
}

QDate LocalDays::day(const QDateTime& moment) {
    const qint64 secs = floorDiv(moment.toMSecsSinceEpoch(), 1000);
    const qint64 utcDay = floorDiv(secs, 86400);
    auto it = offsets_.constFind(utcDay);
    if (it == offsets_.constEnd()) {
        const auto offsetAt = [](qint64 s) {
            return QDateTime::fromSecsSinceEpoch(s, Qt::LocalTime).offsetFromUtc();
        };
        it = offsets_.insert(utcDay, {offsetAt(utcDay * 86400), offsetAt(utcDay * 86400 + 86399)});
    }
    const int offset = it->first == it->second
                           ? it->first
                           : QDateTime::fromSecsSinceEpoch(secs, Qt::LocalTime).offsetFromUtc();
    constexpr qint64 kJulianDayOfEpoch = 2440588;
    return QDate::fromJulianDay(kJulianDayOfEpoch + floorDiv(secs + offset, 86400));
}

void HistorySearchIndex::add(const QString& a, const QString& b) {
    text_ += a.toCaseFolded().toUtf8();
    text_ += '\n';
    text_ += b.toCaseFolded().toUtf8();
    text_ += '\0'; // no match runs from one record into the next
    starts_.push_back(text_.size());
}

std::shared_ptr<const HistorySearchIndex> HistorySearchIndex::build(const QList<Dictation>& list) {
    auto index = std::make_shared<HistorySearchIndex>();
    index->starts_.reserve(list.size() + 1);
    for (const Dictation& d : list)
        index->add(d.finalText, d.rawText);
    index->text_.squeeze();
    return index;
}

std::shared_ptr<const HistorySearchIndex>
HistorySearchIndex::build(const QList<CorrectionRecord>& list) {
    auto index = std::make_shared<HistorySearchIndex>();
    index->starts_.reserve(list.size() + 1);
    for (const CorrectionRecord& r : list)
        index->add(r.result, r.original);
    index->text_.squeeze();
    return index;
}

QByteArray HistorySearchIndex::key(const QString& search) {
    return search.toCaseFolded().toUtf8();
}

std::vector<int> HistorySearchIndex::find(const QByteArray& key) const {
    std::vector<int> out;
    if (key.isEmpty()) {
        out.resize(size_t(size()));
        std::iota(out.begin(), out.end(), 0);
        return out;
    }
    const char* data = text_.constData();
    const size_t total = size_t(text_.size());
    size_t pos = 0;
    while (pos < total) {
        const void* hit = memmem(data + pos, total - pos, key.constData(), size_t(key.size()));
        if (!hit) break;
        const qsizetype at = static_cast<const char*>(hit) - data;
        const auto next = std::upper_bound(starts_.begin(), starts_.end(), at);
        const int record = int(next - starts_.begin()) - 1;
        out.push_back(record);
        pos = size_t(*next);
    }
    return out;
}

bool HistorySearchIndex::contains(int record, const QByteArray& key) const {
    if (record < 0 || record >= size()) return false;
    const qsizetype from = starts_[size_t(record)];
    const qsizetype to = starts_[size_t(record) + 1];
    return memmem(text_.constData() + from, size_t(to - from), key.constData(),
                  size_t(key.size())) != nullptr;
}

QString recordingLength(double seconds) {
    const int s = int(std::lround(std::max(0.0, seconds)));
    if (s < 60) return QStringLiteral("%1 s").arg(s);
    return QStringLiteral("%1 min %2 s").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

QString historyDayTitle(const QDate& day) {
    static const QLocale french(QLocale::French, QLocale::France);
    return french.toString(day, QStringLiteral("dddd d MMMM yyyy"));
}

HistoryListModel::HistoryListModel(Store& store, QObject* parent)
    : QAbstractListModel(parent), store_(store) {
    connect(&store_, &Store::dictationsChanged, this, [this] {
        if (filter_.kind == 0) {
            refresh();
        } else {
            rebuildAppNames(); // the menu of applications follows the dictations
            Q_EMIT appNamesChanged();
        }
    });
    connect(&store_, &Store::dictationUpdated, this, [this](qsizetype at) {
        if (filter_.kind == 0 && at >= indexShift_) indexStale_ = true;
    });
    connect(&store_, &Store::fixesChanged, this, [this] {
        if (filter_.kind == 1) refresh();
    });
    refresh();
}

void HistoryListModel::refresh() {
    beginResetModel();
    rebuildDays();
    rebuildIndex();
    rebuildAppNames();
    rebuildCandidates();
    rebuildRows();
    endResetModel();
    Q_EMIT appNamesChanged();
}

void HistoryListModel::rebuildDays() {
    days_.clear();
    dateMs_.clear();
    const auto note = [this](const QDateTime& date) {
        days_.push_back(localDays_.day(date));
        dateMs_.push_back(date.toMSecsSinceEpoch());
    };
    if (filter_.kind == 0) {
        const QList<Dictation>& list = store_.dictations();
        days_.reserve(list.size());
        dateMs_.reserve(list.size());
        for (const Dictation& d : list)
            note(d.date);
    } else {
        const QList<CorrectionRecord>& list = store_.fixes();
        days_.reserve(list.size());
        dateMs_.reserve(list.size());
        for (const CorrectionRecord& r : list)
            note(r.date);
    }
}

void HistoryListModel::rebuildAppNames() {
    QSet<QString> names;
    for (const Dictation& d : store_.dictations())
        names.insert(d.appName);
    names.remove(QString());
    appNames_ = QStringList(names.begin(), names.end());
    QCollator collator(QLocale(QLocale::French, QLocale::France));
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::sort(appNames_.begin(), appNames_.end(), collator);
}

bool HistoryListModel::holds(int record, const QString& search) const {
    const auto in = [&search](const QString& a, const QString& b) {
        return a.contains(search, Qt::CaseInsensitive) || b.contains(search, Qt::CaseInsensitive);
    };
    if (filter_.kind == 0) {
        const Dictation& d = store_.dictations().at(record);
        return in(d.finalText, d.rawText);
    }
    const CorrectionRecord& r = store_.fixes().at(record);
    return in(r.result, r.original);
}

std::pair<QUuid, QUuid> HistoryListModel::endIds(qsizetype skip) const {
    const auto ends = [skip](const auto& list) -> std::pair<QUuid, QUuid> {
        if (list.size() <= skip) return {};
        return {list.at(skip).id, list.last().id};
    };
    return filter_.kind == 0 ? ends(store_.dictations()) : ends(store_.fixes());
}

void HistoryListModel::rebuildIndex() {
    foundCache_.clear();
    const int size =
        filter_.kind == 0 ? int(store_.dictations().size()) : int(store_.fixes().size());
    // New records at the front of a list whose rest is as it was (a dictation landing): the
    // index stays, and the few records before it are read one by one, also when one of them
    // changes (its processing ends). A record the index holds that changes its text (a failed
    // dictation tried again) has the index built again.
    if (index_ && !indexStale_ && size > kSyncIndexLimit && size > index_->size() &&
        size - index_->size() <= kUnindexedLimit && indexedEnds_.first.isNull() == false &&
        endIds(size - index_->size()) == indexedEnds_) {
        indexShift_ = size - index_->size();
        return;
    }
    const quint64 generation = ++indexGeneration_;
    indexShift_ = 0;
    indexStale_ = false;
    if (size <= kSyncIndexLimit) {
        index_ = filter_.kind == 0 ? HistorySearchIndex::build(store_.dictations())
                                   : HistorySearchIndex::build(store_.fixes());
        indexedEnds_ = endIds(0);
        return;
    }
    // A long history: the lists are shared with the worker, not copied (a later change in
    // the store copies its own list), and the index comes back to the main thread.
    const bool ready = bool(index_);
    index_.reset();
    if (ready) Q_EMIT searchReadyChanged();
    QPointer<HistoryListModel> self(this);
    const auto finish = [self, generation,
                         ends = endIds(0)](std::shared_ptr<const HistorySearchIndex> index) {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, generation, ends, index = std::move(index)] {
                if (!self || self->indexGeneration_ != generation) return;
                self->index_ = index;
                self->indexedEnds_ = ends;
                Q_EMIT self->searchReadyChanged();
            },
            Qt::QueuedConnection);
    };
    // Started once the page has been drawn, so that the build does not take the processor from
    // the opening of the page.
    std::function<void()> build;
    if (filter_.kind == 0) {
        build = [list = store_.dictations(), finish] { finish(HistorySearchIndex::build(list)); };
    } else {
        build = [list = store_.fixes(), finish] { finish(HistorySearchIndex::build(list)); };
    }
    QTimer::singleShot(kIndexDelayMs, this, [this, generation, build = std::move(build)] {
        if (indexGeneration_ == generation) QThreadPool::globalInstance()->start(build);
    });
}

bool HistoryListModel::passesRange(qint64 dateMs, const QDate& day) const {
    switch (filter_.range) {
    case HistoryRange::Today:
        return day == today_;
    case HistoryRange::Week:
        return dateMs >= weekStartMs_;
    case HistoryRange::All:
        break;
    }
    return true;
}

void HistoryListModel::rebuildCandidates() {
    const QDateTime now = Platform::current().clock().now();
    today_ = localDays_.day(now);
    // Seven calendar days back in local time: across a change of daylight saving time this
    // is not 7 × 24 hours.
    weekStartMs_ = now.toLocalTime().addDays(-7).toMSecsSinceEpoch();
    candidates_.clear();
    const int n = int(days_.size());
    candidates_.reserve(n);
    for (int i = 0; i < n; ++i) {
        if (!passesRange(dateMs_[i], days_[i])) continue;
        if (filter_.app) {
            const QString& name = filter_.kind == 0 ? store_.dictations().at(i).appName
                                                    : store_.fixes().at(i).appName;
            if (name != *filter_.app) continue;
        }
        candidates_.push_back(i);
    }
}

const std::vector<int>* HistoryListModel::found(const QString& search) {
    for (qsizetype i = 0; i < foundCache_.size(); ++i) {
        if (foundCache_.at(i).first == search) {
            foundCache_.move(i, foundCache_.size() - 1);
            return &foundCache_.last().second;
        }
    }
    if (!index_) {
        // The index of a long history is still being built (a moment after the page opens or
        // a dictation lands): the texts are read one by one, and the result is not kept.
        direct_.clear();
        for (int i : candidates_)
            if (holds(i, search)) direct_.push_back(i);
        return &direct_;
    }
    const QByteArray key = HistorySearchIndex::key(search);
    // A search that holds an earlier one can only find fewer records: the longest such
    // earlier search gives the records to look at again.
    const std::vector<int>* narrowFrom = nullptr;
    qsizetype longest = -1;
    for (const auto& [earlier, records] : foundCache_) {
        if (earlier.size() > longest && search.contains(earlier, Qt::CaseInsensitive)) {
            narrowFrom = &records;
            longest = earlier.size();
        }
    }
    // Records [0, indexShift_) came after the index was built: they are read directly, and
    // record i of the list is record i - indexShift_ of the index.
    const int shift = indexShift_;
    std::vector<int> result;
    if (narrowFrom) {
        result.reserve(narrowFrom->size());
        for (int i : *narrowFrom)
            if (i < shift ? holds(i, search) : index_->contains(i - shift, key))
                result.push_back(i);
    } else {
        for (int i = 0; i < shift; ++i)
            if (holds(i, search)) result.push_back(i);
        const std::vector<int> indexed = index_->find(key);
        result.reserve(result.size() + indexed.size());
        for (int i : indexed)
            result.push_back(i + shift);
    }
    constexpr qsizetype kCached = 24;
    if (foundCache_.size() >= kCached) foundCache_.removeFirst();
    foundCache_.append({search, std::move(result)});
    return &foundCache_.last().second;
}

void HistoryListModel::rebuildRows() {
    const QString& search = filter_.search;
    if (search.isEmpty()) {
        matches_ = candidates_;
    } else {
        const std::vector<int>* f = found(search);
        matches_.clear();
        std::set_intersection(candidates_.begin(), candidates_.end(), f->begin(), f->end(),
                              std::back_inserter(matches_));
    }

    // Groups by day, newest day first; inside a day the stored order stands. The history is
    // kept newest first, so the groups usually come out in order already; a record out of
    // place only moves its group.
    rows_.clear();
    recordCount_ = int(matches_.size());
    std::vector<std::pair<QDate, std::vector<int>>> groups;
    QHash<QDate, size_t> groupOf;
    for (int i : matches_) {
        const QDate& d = days_[i];
        if (groups.empty() || groups.back().first != d) {
            const auto it = groupOf.constFind(d);
            if (it == groupOf.constEnd()) {
                groupOf.insert(d, groups.size());
                groups.push_back({d, {}});
            } else {
                groups[*it].second.push_back(i);
                continue;
            }
        }
        groups.back().second.push_back(i);
    }
    std::stable_sort(groups.begin(), groups.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    rows_.reserve(matches_.size() + groups.size());
    for (const auto& [day, records] : groups) {
        rows_.push_back({-1, day});
        for (int i : records)
            rows_.push_back({i, day});
    }
}

void HistoryListModel::setFilter(const HistoryFilter& f) {
    if (f == filter_) return;
    const bool kindChanged = f.kind != filter_.kind;
    const bool baseChanged = kindChanged || f.range != filter_.range || f.app != filter_.app;
    filter_ = f;
    beginResetModel();
    if (kindChanged) {
        rebuildDays();
        index_.reset(); // the other kind's
        rebuildIndex();
    }
    if (baseChanged) rebuildCandidates();
    rebuildRows();
    endResetModel();
}

void HistoryListModel::setSearch(const QString& search) {
    HistoryFilter f = filter_;
    f.search = search;
    setFilter(f);
}

void HistoryListModel::setRange(HistoryRange range) {
    HistoryFilter f = filter_;
    f.range = range;
    setFilter(f);
}

void HistoryListModel::setApp(const std::optional<QString>& app) {
    HistoryFilter f = filter_;
    f.app = app;
    setFilter(f);
}

void HistoryListModel::setKind(int kind) {
    HistoryFilter f = filter_;
    f.kind = kind == 1 ? 1 : 0;
    setFilter(f);
}

bool HistoryListModel::kindIsEmpty() const {
    return filter_.kind == 0 ? store_.dictations().isEmpty() : store_.fixes().isEmpty();
}

int HistoryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(rows_.size());
}

const Dictation* HistoryListModel::dictationAt(int row) const {
    if (filter_.kind != 0 || row < 0 || row >= int(rows_.size()) || rows_[row].record < 0)
        return nullptr;
    return &store_.dictations().at(rows_[row].record);
}

const CorrectionRecord* HistoryListModel::correctionAt(int row) const {
    if (filter_.kind != 1 || row < 0 || row >= int(rows_.size()) || rows_[row].record < 0)
        return nullptr;
    return &store_.fixes().at(rows_[row].record);
}

QString HistoryListModel::copyText(int row) const {
    if (const Dictation* d = dictationAt(row)) return d->finalText;
    if (const CorrectionRecord* r = correctionAt(row)) return r->result;
    return {};
}

void HistoryListModel::toggleExpanded(int row) {
    QUuid id;
    if (const Dictation* d = dictationAt(row))
        id = d->id;
    else if (const CorrectionRecord* r = correctionAt(row))
        id = r->id;
    else
        return;
    if (!expanded_.remove(id)) expanded_.insert(id);
    const QModelIndex i = index(row);
    Q_EMIT dataChanged(i, i, {ExpandedRole});
}

std::optional<QString> HistoryListModel::audioPath(int row) const {
    if (const Dictation* d = dictationAt(row)) return store_.audioURL(*d);
    return std::nullopt;
}

QVariant HistoryListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= int(rows_.size())) return {};
    const Row& row = rows_[index.row()];
    if (row.record < 0) {
        switch (role) {
        case KindRole:
            return HeaderRow;
        case TitleRole:
        case Qt::DisplayRole:
            return historyDayTitle(row.day);
        default:
            return {};
        }
    }
    static const QLocale french(QLocale::French, QLocale::France);
    if (filter_.kind == 0) {
        const Dictation& d = store_.dictations().at(row.record);
        switch (role) {
        case KindRole:
            return DictationRow;
        case TimeRole:
            return french.toString(d.date.toLocalTime().time(), QStringLiteral("HH:mm"));
        case AppRole:
            return d.appName;
        case BundleRole:
            return d.bundleID.value_or(QString());
        case Qt::DisplayRole:
        case TextRole:
            if (d.inProgress()) return QStringLiteral("Transcription en cours…");
            return d.failure.value_or(d.finalText);
        case SecondTextRole:
            return d.rawText;
        case WordsRole:
            if (d.failed()) return recordingLength(d.duration);
            return Dashboard::counted(wordCount(d.finalText), QStringLiteral("mot"),
                                      QStringLiteral("mots"));
        case SpeedRole: {
            const int wpm = d.failed() ? 0 : d.wordsPerMinute();
            return wpm > 0 ? QStringLiteral("%1 mots/min").arg(wpm) : QString();
        }
        case StatusRole:
            return !d.failed()      ? QString()
                   : d.inProgress() ? QStringLiteral("En cours")
                                    : QStringLiteral("Échec");
        case RetryRole:
            return d.failed() && !d.inProgress() && store_.audioURL(d).has_value();
        case ExpandedRole:
            return expanded_.contains(d.id);
        case HasAudioRole:
            return store_.audioURL(d).has_value();
        case IdRole:
            return d.id;
        default:
            return {};
        }
    }
    const CorrectionRecord& r = store_.fixes().at(row.record);
    switch (role) {
    case KindRole:
        return CorrectionRow;
    case TimeRole:
        return french.toString(r.date.toLocalTime().time(), QStringLiteral("HH:mm"));
    case AppRole:
        return r.appName;
    case BundleRole:
        return r.bundleID.value_or(QString());
    case Qt::DisplayRole:
    case TextRole:
        return r.result;
    case SecondTextRole:
        return r.original;
    case ActionRole:
        return r.action;
    case FixesRole:
        return r.fixes.isEmpty() ? QString() : QStringLiteral("%1 corrections").arg(r.fixes.size());
    case ExpandedRole:
        return expanded_.contains(r.id);
    case HasAudioRole:
        return false;
    case IdRole:
        return r.id;
    case StatusRole:
        return QString();
    case RetryRole:
        return false;
    default:
        return {};
    }
}

} // namespace ombry
