#pragma once

#include "data/Records.h"
#include "data/Store.h"

#include <QAbstractListModel>
#include <QDate>
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <memory>
#include <optional>
#include <vector>

// The logic of the history page: which records the filters keep, grouped by local day, as a
// list model that a view paints row by row. Nothing here makes a widget, so it is tested
// without a screen, and it stays quick on a history of a hundred thousand dictations.
namespace ombry {

enum class HistoryRange { Today, Week, All };
QString rawValue(HistoryRange r); // "today", "week", "all"
QString label(HistoryRange r);    // "Aujourd'hui", "7 jours", "Tout"
std::optional<HistoryRange> historyRangeFromRaw(const QString& raw);

// The choices of the page that decide which records stand in the list.
struct HistoryFilter {
    QString search;
    HistoryRange range = HistoryRange::All;
    std::optional<QString> app; // nothing: every application
    int kind = 0;               // 0 dictations, 1 corrections
    bool operator==(const HistoryFilter&) const = default;
};

// The local calendar day of UTC moments, quick over long runs: the offset from UTC is asked
// once per UTC day met (at both of its ends), and again only on a day whose offset changes.
class LocalDays {
public:
    QDate day(const QDateTime& moment);

private:
    QHash<qint64, std::pair<int, int>> offsets_;
};

// The texts of a list of records folded to one case, end to end in one block of UTF-8, so
// that a search is one quick scan of memory instead of a case-blind comparison per record.
// Built off the main thread for a long history; immutable once built.
class HistorySearchIndex {
public:
    static std::shared_ptr<const HistorySearchIndex> build(const QList<Dictation>& list);
    static std::shared_ptr<const HistorySearchIndex> build(const QList<CorrectionRecord>& list);
    // The search text as the index holds its texts.
    static QByteArray key(const QString& search);

    int size() const { return int(starts_.size()) - 1; }
    // The records whose texts hold the key, in increasing order.
    std::vector<int> find(const QByteArray& key) const;
    bool contains(int record, const QByteArray& key) const;

private:
    void add(const QString& a, const QString& b);
    QByteArray text_;
    std::vector<qsizetype> starts_{0}; // record i is text_[starts_[i], starts_[i+1])
};

// The head of a day's group: "samedi 14 mars 2026".
QString historyDayTitle(const QDate& day);
// The length of a recording: "12 s", "1 min 05 s".
QString recordingLength(double seconds);

// The filtered records of one kind grouped by day, newest day first, each group headed by a
// row of its own. Reads the store afresh when it changes.
class HistoryListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum RowKind { HeaderRow, DictationRow, CorrectionRow };
    enum Role {
        KindRole = Qt::UserRole + 1, // RowKind
        TitleRole,                   // header: the day
        TimeRole,                    // "09:26"
        AppRole,                     // appName
        BundleRole,                  // bundleID or empty
        TextRole,       // finalText, a failed dictation's error, or a correction's result
        SecondTextRole, // rawText, or a correction's original
        WordsRole,      // "{n} mot(s)"; a failed dictation's length: "12 s", "1 min 05 s"
        SpeedRole,      // "{n} mots/min" or empty
        ActionRole,     // a correction's action
        FixesRole,      // "{n} corrections" or empty
        ExpandedRole,   // bool: the raw text / original is on show
        HasAudioRole,   // bool: a kept recording exists
        IdRole,         // the record's QUuid
        StatusRole,     // a dictation that gave no text: "Échec", or "En cours"; else empty
        RetryRole,      // bool: failed, and its recording is kept to try again
    };

    explicit HistoryListModel(Store& store, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const HistoryFilter& filter() const { return filter_; }
    void setFilter(const HistoryFilter& f);
    void setSearch(const QString& search);
    void setRange(HistoryRange range);
    void setApp(const std::optional<QString>& app);
    void setKind(int kind);

    // The distinct application names of the dictations, in alphabetical order.
    QStringList appNames() const { return appNames_; }
    // Records kept by the filters (header rows not counted).
    int recordCount() const { return recordCount_; }
    // Whether the store holds any record of the shown kind at all.
    bool kindIsEmpty() const;

    // The record behind a row; nothing for a header.
    const Dictation* dictationAt(int row) const;
    const CorrectionRecord* correctionAt(int row) const;
    // The text the "Copier" action of a row copies.
    QString copyText(int row) const;
    // The disclosure of a row: raw text of a dictation, original of a correction.
    void toggleExpanded(int row);
    // The kept recording of a dictation row, when there is one.
    std::optional<QString> audioPath(int row) const;

    // Runs the filters again (the clock has moved on, the store has changed).
    void refresh();
    // Whether searches are quick: false for a moment while a long history's index is built,
    // when they read the records one by one.
    bool searchReady() const { return bool(index_); }

    // Histories up to this size have their search index built at once, on the main thread.
    static constexpr int kSyncIndexLimit = 5000;
    // Records that may land at the front of a long history before its index is built again.
    static constexpr int kUnindexedLimit = 64;
    // How long after a change the index of a long history starts being built.
    static constexpr int kIndexDelayMs = 150;

Q_SIGNALS:
    void appNamesChanged();
    void searchReadyChanged();

private:
    struct Row {
        int record; // index in the store's list, or -1 for a header
        QDate day;
    };
    void rebuildDays();
    void rebuildIndex();
    bool holds(int record, const QString& search) const;
    // The ids of the record at `skip` and of the last record of the shown list.
    std::pair<QUuid, QUuid> endIds(qsizetype skip) const;
    const std::vector<int>* found(const QString& search);
    void rebuildAppNames();
    void rebuildCandidates();
    void rebuildRows();
    bool passesRange(qint64 dateMs, const QDate& day) const;

    Store& store_;
    HistoryFilter filter_;
    LocalDays localDays_;
    // Per record of the shown kind, in store order: local day and moment.
    std::vector<QDate> days_;
    std::vector<qint64> dateMs_;
    QStringList appNames_;
    // Records passing range and application, and among them those passing the search.
    std::vector<int> candidates_;
    std::vector<int> matches_;
    // The search index of the shown kind, and the records found for the latest searches
    // whatever the range and application: a letter typed narrows the result of the search
    // before it, a letter erased finds its result again.
    std::shared_ptr<const HistorySearchIndex> index_;
    quint64 indexGeneration_ = 0;
    int indexShift_ = 0;                  // records at the front that the index lacks
    bool indexStale_ = false;             // a record the index holds has changed its text
    std::pair<QUuid, QUuid> indexedEnds_; // first and last ids of the indexed list
    QList<QPair<QString, std::vector<int>>> foundCache_;
    std::vector<int> direct_; // found without the index
    std::vector<Row> rows_;
    int recordCount_ = 0;
    QSet<QUuid> expanded_;
    QDate today_;
    qint64 weekStartMs_ = 0;
};

} // namespace ombry
