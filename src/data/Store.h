#pragma once

#include "data/Records.h"
#include "platform/Paths.h"

#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

namespace ombry {

class SerialQueue;
class WorkItem;

// Words dictated on one local day; `day` is the start of that day in local time.
struct DayWords {
    QDateTime day;
    int words = 0;
    bool operator==(const DayWords&) const = default;
};

// The share of all dictated words that went into one application.
struct AppShare {
    QString name;
    std::optional<QString> bundleID;
    double share = 0;
};

// The user's data: seven lists held in memory, each written to its own JSON file 0.4 s after
// its last change, on the serial queue "verlo.store.io", plus the statistics of the history.
// Lists and statistics belong to the main thread.
//
// Several processes may write the folder at once (a command-line run beside the desktop
// program): writes take turns under the folder's lock file, and each merges what others wrote
// since (see schedule()). A list file that exists but cannot be read is never written over.
class Store : public QObject {
    Q_OBJECT
public:
    // The instance of the process, over Paths::dataFolder(); made at first use.
    static Store& shared();
    // The shared instance if something has made it already, else nullptr.
    static Store* sharedIfCreated();
    // The data folder of the shared store, after moving the former identity's folder there.
    static QString defaultFolder();

    // A store over the given folder: creates it and its Audio folder, loads the seven files.
    explicit Store(const QString& folder, QObject* parent = nullptr);
    ~Store() override; // writes what is pending

    static constexpr int kSaveDelayMs = 400;
    static constexpr qint64 kAudioKeptSeconds = 2592000; // 30 days

    const QString& folder() const { return folder_; }
    const QString& audioFolder() const { return audioFolder_; }

    const QList<Dictation>& dictations() const { return dictations_; }
    const QStringList& words() const { return words_; }
    const QList<Correction>& corrections() const { return corrections_; }
    const QList<CorrectionRecord>& fixes() const { return fixes_; }
    const QList<Snippet>& snippets() const { return snippets_; }
    const QList<CostEntry>& costs() const { return costs_; }
    const QList<Meeting>& meetings() const { return meetings_; }

    // Each setter schedules the save of its file; setDictations also rebuilds the statistics.
    void setDictations(QList<Dictation> v);
    void setWords(QStringList v);
    void setCorrections(QList<Correction> v);
    void setFixes(QList<CorrectionRecord> v);
    void setSnippets(QList<Snippet> v);
    void setCosts(QList<CostEntry> v);
    void setMeetings(QList<Meeting> v);

    // Failed dictations (see Dictation::failure) count in none of the statistics.
    int totalWords() const { return totalWords_; }
    double totalDuration() const { return totalDuration_; }
    int dictationCount() const { return dictationCount_; } // those that gave a text
    // Words per local calendar day.
    const QMap<QDate, int>& wordsByDay() const { return wordsByDay_; }

    void add(const Dictation& d); // at the front of dictations
    // The dictation of the same id takes this value, where it stands; false when it is gone.
    bool update(const Dictation& d);
    // Drops a dictation and its kept recording (deleted on the queue, after any write of it
    // queued before).
    void remove(const QUuid& id);
    // The dictations left in progress (a run ended during their processing) become failed
    // with this reason; gives how many.
    int failInterrupted(const QString& reason);
    void addFix(const CorrectionRecord& r); // at the front of fixes
    void addCost(double amount);            // at the end of costs, dated now

    // The dictionary rules, in list order, each whole-word and case-insensitive.
    QString applyCorrections(const QString& text) const;
    // The first voice shortcut whose trigger equals the text once both are normalised.
    std::optional<Snippet> snippet(const QString& matching) const;
    // The path of the dictation's kept recording, if it has one and the file exists.
    std::optional<QString> audioURL(const Dictation& d) const;
    // The newest dictation that failed (not one in progress) and still has its recording.
    std::optional<Dictation> lastFailed() const;
    // Where a meeting's audio is kept: "{id}.wav" in the audio folder.
    QString meetingAudioPath(const QUuid& id) const;

    int words(const QDate& day) const;
    int words(const QDateTime& on) const;  // the local day of that moment
    QList<DayWords> lastDays(int n) const; // n entries, oldest first, the last being today
    int averageWPM() const;
    double minutesSaved(int typingWPM) const;
    double spentThisMonth() const;
    QList<AppShare> appShares() const;

    void rebuildStats();
    // Removes the meeting and its audio.
    void removeMeeting(const QUuid& id);
    // Drops the recordings of dictations and meetings older than 30 days (the records stay).
    void pruneAudio();
    // Writes every pending save now, on the queue, and waits for it. Not from the queue.
    // Returns whether each of those files reached the disk.
    bool flush();
    void clearHistory();
    void eraseEverything();

    // The file names of the saves scheduled since the last flush.
    QStringList pendingFiles() const;
    SerialQueue& ioQueue() { return *ioQueue_; }

    // Normalised form used to compare voice shortcuts: lower case, no diacritics, only
    // letters, digits and spaces, trimmed of blanks and tabs.
    static QString normalizedForSnippet(const QString& text);

Q_SIGNALS:
    // Before dictationsChanged, when update() changed the dictation at that place.
    void dictationUpdated(qsizetype at);
    void dictationsChanged();
    void wordsChanged();
    void correctionsChanged();
    void fixesChanged();
    void snippetsChanged();
    void costsChanged();
    void meetingsChanged();
    void statsChanged();

private:
    // What the save of one file knows of it; touched on the queue once the store is made.
    struct FileState {
        QByteArray base; // this process's list as last read or written (what it changed from)
        std::optional<Paths::FileStamp> stamp; // the file as this process last read or wrote it
        bool othersInFile = false; // that file held entries of other runs besides `base`
        bool blocked = false;      // there but unreadable: never written during this run
        bool failed = false;       // the last save of the file did not reach the disk
    };
    struct SaveOutput {
        QByteArray ours;    // the encoding of this process's list
        QByteArray written; // what goes to the file: ours, merged with what others wrote
        bool merged = false;
    };
    // disk: the file's bytes, read again; nothing when it is missing or known to hold only what
    // this process wrote. known: the file is the one this process last read or wrote.
    using SaveFn = SaveOutput(const FileState&, const std::optional<QByteArray>& disk, bool known,
                              const QString& path);

    template <class T> QList<T> load(const QString& name);
    template <class T> void save(const QList<T>& list, const QString& name);
    template <class L>
    void assign(L& member, L value, const QString& name, void (Store::*changed)());
    void schedule(const QString& name, std::function<SaveFn> encode);
    void releasePending(const QString& name);
    QDate localDay(const QDateTime& utc) const;

    QString folder_;
    QString audioFolder_;
    std::unique_ptr<SerialQueue> ioQueue_;

    QList<Dictation> dictations_;
    QStringList words_;
    QList<Correction> corrections_;
    QList<CorrectionRecord> fixes_;
    QList<Snippet> snippets_;
    QList<CostEntry> costs_;
    QList<Meeting> meetings_;

    int totalWords_ = 0;
    double totalDuration_ = 0;
    int dictationCount_ = 0;
    QMap<QDate, int> wordsByDay_;

    struct SaveJob;
    struct Pending {
        std::shared_ptr<WorkItem> item;
        std::shared_ptr<SaveJob> job;
    };
    QMap<QString, Pending> pending_;
    QHash<QString, std::shared_ptr<FileState>> fileStates_;

    // What the statistics know of each dictation, in the order of dictations_: a rebuild
    // reuses the word count and the day of a record whose text and date are unchanged, so that
    // it does not segment a long history again at each new dictation.
    struct RecordStats {
        QUuid id;
        qint64 dateMs = 0;
        // Where the text counted lies and its length. Texts are shared between copies of a
        // record and a changed text is made before the old one is let go, so an unchanged
        // text is told by its address alone, without reading it.
        const QChar* text = nullptr;
        qsizetype textSize = 0;
        int words = 0;
        QDate day;
    };
    QList<RecordStats> recordStats_;
    QList<RecordStats> spareStats_;
    // The local offsets from UTC at the start and at the end of each UTC day met.
    mutable QHash<qint64, std::pair<int, int>> dayOffsets_;
    mutable qint64 lastUtcDay_ = std::numeric_limits<qint64>::min();
    mutable std::pair<int, int> lastDayOffsets_;
};

} // namespace ombry
