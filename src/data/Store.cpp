#include "data/Store.h"

#include "data/IdentityMigration.h"
#include "data/ListMerge.h"
#include "data/Problems.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <type_traits>

namespace ombry {

namespace {

const QString kHistory = QStringLiteral("history.json");
const QString kWords = QStringLiteral("words.json");
const QString kCorrections = QStringLiteral("corrections.json");
const QString kFixes = QStringLiteral("fixes.json");
const QString kSnippets = QStringLiteral("snippets.json");
const QString kCosts = QStringLiteral("costs.json");
const QString kMeetings = QStringLiteral("meetings.json");

std::atomic<Store*> sharedInstance{nullptr};

const QString kLockFile = QStringLiteral(".lock");

// The largest list file read; a bigger one is left alone like an unreadable one.
constexpr qint64 kMaxListFileBytes = qint64(1) << 30;

template <class T> QByteArray encodeOf(const QList<T>& list) {
    if constexpr (std::is_same_v<T, QString>)
        return encodeWords(list);
    else
        return encodeList(list);
}

template <class T> std::optional<QList<T>> decodeOf(const QByteArray& bytes) {
    if constexpr (std::is_same_v<T, QString>)
        return decodeWords(bytes);
    else
        return decodeList<T>(bytes);
}

// A copy of a file that does not decode, kept beside it under a name of its own
// ("history.json.damaged", then ".damaged.2"...), so that no earlier copy is replaced.
void keepDamagedCopy(const QString& path, const QByteArray& bytes) {
    const QString copy = Paths::writeNewFile(path + QStringLiteral(".damaged"), bytes);
    DataProblems::report(copy.isEmpty()
                             ? QStringLiteral("%1 illisible, copie impossible").arg(path)
                             : QStringLiteral("%1 illisible, copie gardée : %2").arg(path, copy));
}

void reportUnreadable(const QString& path, const Paths::ReadResult& r) {
    DataProblems::report(
        QStringLiteral("%1 ne peut pas être lu (%2) : il est laissé tel quel")
            .arg(path, r.error.isEmpty() ? QStringLiteral("trop grand ou spécial") : r.error));
}

// What can be in the way of reading a list file: the file is missing (an empty list), fine,
// or there but not readable, in which case it is never written over during this run.
bool isUnreadable(const Paths::ReadResult& r) {
    return r.status != Paths::ReadResult::Status::Ok &&
           r.status != Paths::ReadResult::Status::Missing;
}

bool isBlankOrTab(QChar c) {
    return c == u' ' || c == u'\t';
}

QString trimmedBlanks(const QString& s) {
    qsizetype b = 0, e = s.size();
    while (b < e && isBlankOrTab(s.at(b)))
        ++b;
    while (e > b && isBlankOrTab(s.at(e - 1)))
        --e;
    return s.mid(b, e - b);
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Life

QString Store::defaultFolder() {
    const QString folder = Paths::dataFolder();
    IdentityMigration::moveDataFolder(folder);
    return folder;
}

Store& Store::shared() {
    // Made once and kept to the end of the process; quitting writes it through flush().
    static Store* instance = [] {
        auto* s = new Store(defaultFolder());
        sharedInstance = s;
        return s;
    }();
    return *instance;
}

Store* Store::sharedIfCreated() {
    return sharedInstance.load();
}

Store::Store(const QString& folder, QObject* parent)
    : QObject(parent), folder_(folder), audioFolder_(folder + QStringLiteral("/Audio")),
      ioQueue_(std::make_unique<SerialQueue>(QStringLiteral("verlo.store.io"))) {
    // The history and the journal hold the user's words: only the user may enter the folder.
    Paths::makePrivateFolder(folder_);
    Paths::makePrivateFolder(audioFolder_);

    // Each list goes through its setter, which schedules its save: every file is rewritten
    // shortly after start, and made if it was missing.
    setDictations(load<Dictation>(kHistory));
    setWords(load<QString>(kWords));
    setCorrections(load<Correction>(kCorrections));
    setFixes(load<CorrectionRecord>(kFixes));
    setSnippets(load<Snippet>(kSnippets));
    setCosts(load<CostEntry>(kCosts));
    setMeetings(load<Meeting>(kMeetings));
}

// The list in a file; empty when it is missing, cannot be read or does not decode. A file that
// does not decode is copied beside itself first (on the queue, ahead of any save); a file that
// cannot be read is left alone for the whole run.
template <class T> QList<T> Store::load(const QString& name) {
    const QString path = folder_ + QLatin1Char('/') + name;
    auto state = std::make_shared<FileState>();
    fileStates_.insert(name, state);
    const Paths::ReadResult read = Paths::readRegularFile(path, kMaxListFileBytes);
    if (isUnreadable(read)) {
        state->blocked = true;
        ioQueue_->async([path, read] { reportUnreadable(path, read); });
        return {};
    }
    if (!read.ok()) return {}; // missing
    state->stamp = Paths::stamp(path);
    if (auto list = decodeOf<T>(read.bytes)) {
        state->base = read.bytes;
        return std::move(*list);
    }
    state->othersInFile = true; // damaged bytes: not a list this process can take as its own
    if (!read.bytes.trimmed().isEmpty())
        ioQueue_->async([path, bytes = read.bytes] { keepDamagedCopy(path, bytes); });
    return {};
}

Store::~Store() {
    flush();
    Store* self = this;
    sharedInstance.compare_exchange_strong(self, nullptr);
}

// ---------------------------------------------------------------------------------------------
// Saving

// The encoder of one scheduled save, with the copy of the list it writes. A save that is
// replaced lets go of its copy at once, so that the list in memory can change in place rather
// than being copied whole at the next change.
struct Store::SaveJob {
    std::mutex mutex;
    std::function<SaveFn> encode;

    std::function<SaveFn> take() {
        std::lock_guard lock(mutex);
        return encode;
    }
    void release() {
        std::function<SaveFn> dropped;
        std::lock_guard lock(mutex);
        dropped.swap(encode);
    }
};

void Store::releasePending(const QString& name) {
    if (const auto it = pending_.constFind(name); it != pending_.constEnd()) {
        it->item->cancel();
        it->job->release();
    }
}

// Writers of the data folder take turns under one lock file. Under it, a save reads the file
// again: when it still holds what this process last wrote, the list is written as it is;
// when another process wrote it meanwhile, the other's changes are merged with this process's
// changes before the write. So no process drops what another one wrote.
void Store::schedule(const QString& name, std::function<SaveFn> encode) {
    releasePending(name);
    auto job = std::make_shared<SaveJob>();
    job->encode = std::move(encode);
    // The encoding runs inside the item, on the queue.
    auto item =
        std::make_shared<WorkItem>([folder = folder_, name, job, state = fileStates_.value(name)] {
            const auto encode = job->take();
            if (!encode || !state) return;
            state->failed = true; // until the file is written
            if (state->blocked) return;
            const QString path = folder + QLatin1Char('/') + name;
            const Paths::FileLock lock(folder + QLatin1Char('/') + kLockFile);
            // Unchanged since this process wrote it alone: nothing to read again.
            const std::optional<Paths::FileStamp> now = Paths::stamp(path);
            const bool known = now && state->stamp && *now == *state->stamp;
            std::optional<QByteArray> disk;
            if (now && !(known && !state->othersInFile)) {
                Paths::ReadResult read = Paths::readRegularFile(path, kMaxListFileBytes);
                if (isUnreadable(read)) {
                    state->blocked = true;
                    reportUnreadable(path, read);
                    return;
                }
                if (read.ok()) disk = std::move(read.bytes);
            }
            const SaveOutput out = encode(*state, disk, known, path);
            if (!Paths::writeFileAtomically(path, out.written)) return;
            state->failed = false;
            state->base = out.ours;
            state->stamp = Paths::stamp(path);
            state->othersInFile = out.merged;
        });
    pending_.insert(name, {item, job});
    ioQueue_->asyncAfter(kSaveDelayMs, item);
}

template <class T> void Store::save(const QList<T>& list, const QString& name) {
    const bool newestFirst = name == kHistory || name == kFixes;
    schedule(name,
             [list, newestFirst](const FileState& state, const std::optional<QByteArray>& disk,
                                 bool known, const QString& path) -> SaveOutput {
                 QByteArray ours = encodeOf(list);
                 // Missing, or holding only what this process wrote: ours as it is.
                 if (!disk) return {ours, ours, false};
                 std::optional<QList<T>> onDisk = decodeOf<T>(*disk);
                 if (!onDisk) {
                     // Damaged by someone else since this process read it: kept aside, then
                     // replaced.
                     if (!known && !disk->trimmed().isEmpty()) keepDamagedCopy(path, *disk);
                     return {ours, ours, false};
                 }
                 const QList<T> base = decodeOf<T>(state.base).value_or(QList<T>());
                 // Ours as the file holds it (dates to the second), to compare with the others.
                 const QList<T> oursRead = decodeOf<T>(ours).value_or(list);
                 QByteArray written = encodeOf(mergedLists(oursRead, base, *onDisk, newestFirst));
                 const bool others = written != ours;
                 return {std::move(ours), std::move(written), others};
             });
}

bool Store::flush() {
    QList<std::shared_ptr<WorkItem>> items;
    QList<std::shared_ptr<FileState>> states;
    for (auto it = pending_.cbegin(); it != pending_.cend(); ++it) {
        if (it->item->isCancelled()) continue;
        items.append(it->item);
        states.append(fileStates_.value(it.key()));
    }
    pending_.clear();
    if (items.isEmpty()) return true;
    ioQueue_->sync([&items] {
        for (const auto& item : items) {
            item->perform();
            // Written now: the delayed run would only write the same bytes again.
            item->cancel();
        }
    });
    return std::none_of(states.begin(), states.end(),
                        [](const auto& state) { return state && state->failed; });
}

QStringList Store::pendingFiles() const {
    return pending_.keys();
}

// ---------------------------------------------------------------------------------------------
// Lists

template <class L>
void Store::assign(L& member, L value, const QString& name, void (Store::*changed)()) {
    member = std::move(value);
    save(member, name);
    Q_EMIT(this->*changed)();
}

void Store::setDictations(QList<Dictation> v) {
    dictations_ = std::move(v);
    save(dictations_, kHistory);
    rebuildStats();
    Q_EMIT dictationsChanged();
}

void Store::setWords(QStringList v) {
    assign(words_, std::move(v), kWords, &Store::wordsChanged);
}

void Store::setCorrections(QList<Correction> v) {
    assign(corrections_, std::move(v), kCorrections, &Store::correctionsChanged);
}

void Store::setFixes(QList<CorrectionRecord> v) {
    assign(fixes_, std::move(v), kFixes, &Store::fixesChanged);
}

void Store::setSnippets(QList<Snippet> v) {
    assign(snippets_, std::move(v), kSnippets, &Store::snippetsChanged);
}

void Store::setCosts(QList<CostEntry> v) {
    assign(costs_, std::move(v), kCosts, &Store::costsChanged);
}

void Store::setMeetings(QList<Meeting> v) {
    assign(meetings_, std::move(v), kMeetings, &Store::meetingsChanged);
}

void Store::add(const Dictation& d) {
    releasePending(kHistory); // so that the list grows in place
    dictations_.prepend(d);
    save(dictations_, kHistory);
    rebuildStats();
    Q_EMIT dictationsChanged();
}

bool Store::update(const Dictation& d) {
    const auto it = std::find_if(dictations_.cbegin(), dictations_.cend(),
                                 [&d](const Dictation& x) { return x.id == d.id; });
    if (it == dictations_.cend()) return false;
    const qsizetype at = it - dictations_.cbegin();
    releasePending(kHistory); // so that the list changes in place
    dictations_[at] = d;
    save(dictations_, kHistory);
    rebuildStats();
    Q_EMIT dictationUpdated(at);
    Q_EMIT dictationsChanged();
    return true;
}

void Store::remove(const QUuid& id) {
    QList<Dictation> kept = dictations_;
    const auto gone =
        std::find_if(kept.cbegin(), kept.cend(), [&id](const Dictation& d) { return d.id == id; });
    if (gone == kept.cend()) return;
    if (gone->audioFile)
        ioQueue_->async(
            [path = audioFolder_ + QLatin1Char('/') + *gone->audioFile] { QFile::remove(path); });
    kept.erase(gone);
    setDictations(std::move(kept));
}

int Store::failInterrupted(const QString& reason) {
    int count = 0;
    QList<Dictation> list = dictations_;
    for (Dictation& d : list) {
        if (!d.inProgress()) continue;
        d.failure = reason;
        ++count;
    }
    if (count > 0) setDictations(std::move(list));
    return count;
}

void Store::addFix(const CorrectionRecord& r) {
    releasePending(kFixes);
    fixes_.prepend(r);
    save(fixes_, kFixes);
    Q_EMIT fixesChanged();
}

void Store::addCost(double amount) {
    releasePending(kCosts);
    costs_.append(CostEntry{.date = recordNow(), .amount = amount});
    save(costs_, kCosts);
    Q_EMIT costsChanged();
}

// ---------------------------------------------------------------------------------------------
// Dictionary and voice shortcuts

QString Store::applyCorrections(const QString& text) const {
    QString result = text;
    for (const Correction& rule : corrections_) {
        if (trimmedBlanks(rule.heard).isEmpty()) continue;
        // Whole words only: a word is bounded by anything that is not a letter or a digit of
        // any script. The heard text keeps its own blanks.
        const QRegularExpression re(QStringLiteral("(?<![\\p{L}\\p{N}])") +
                                        QRegularExpression::escape(rule.heard) +
                                        QStringLiteral("(?![\\p{L}\\p{N}])"),
                                    QRegularExpression::CaseInsensitiveOption |
                                        QRegularExpression::UseUnicodePropertiesOption);
        if (!re.isValid()) continue;
        // The written text goes in as it stands: "$" and "\" in it are no references.
        QString out;
        qsizetype last = 0;
        auto matches = re.globalMatch(result);
        if (!matches.hasNext()) continue;
        while (matches.hasNext()) {
            const QRegularExpressionMatch m = matches.next();
            out += QStringView(result).mid(last, m.capturedStart() - last);
            out += rule.written;
            last = m.capturedEnd();
        }
        out += QStringView(result).mid(last);
        result = std::move(out);
    }
    return result;
}

QString Store::normalizedForSnippet(const QString& text) {
    // Lower case, then the diacritics folded away: decomposed, the marks are dropped together
    // with everything that is not a letter, a digit or a space.
    const QString decomposed = text.toLower().normalized(QString::NormalizationForm_D);
    QString kept;
    kept.reserve(decomposed.size());
    for (qsizetype i = 0; i < decomposed.size(); ++i) {
        const QChar c = decomposed.at(i);
        if (c.isHighSurrogate() && i + 1 < decomposed.size() &&
            decomposed.at(i + 1).isLowSurrogate()) {
            const char32_t ucs = QChar::surrogateToUcs4(c, decomposed.at(i + 1));
            if (QChar::isLetterOrNumber(ucs)) {
                kept += c;
                kept += decomposed.at(i + 1);
            }
            ++i;
            continue;
        }
        if (c == u' ' || c.isLetterOrNumber()) kept += c;
    }
    return trimmedBlanks(kept);
}

std::optional<Snippet> Store::snippet(const QString& matching) const {
    const QString text = normalizedForSnippet(matching);
    for (const Snippet& s : snippets_) {
        if (s.trigger.isEmpty()) continue;
        if (normalizedForSnippet(s.trigger) == text) return s;
    }
    return std::nullopt;
}

std::optional<QString> Store::audioURL(const Dictation& d) const {
    if (!d.audioFile) return std::nullopt;
    const QString path = audioFolder_ + QLatin1Char('/') + *d.audioFile;
    if (!QFileInfo::exists(path)) return std::nullopt;
    return path;
}

std::optional<Dictation> Store::lastFailed() const {
    for (const Dictation& d : dictations_)
        if (d.failed() && !d.inProgress() && audioURL(d)) return d;
    return std::nullopt;
}

QString Store::meetingAudioPath(const QUuid& id) const {
    return audioFolder_ + QLatin1Char('/') + uuidText(id) + QStringLiteral(".wav");
}

// ---------------------------------------------------------------------------------------------
// Clearing

void Store::pruneAudio() {
    const QDateTime cutoff = Platform::current().clock().now().addSecs(-kAudioKeptSeconds);
    QSet<QUuid> ids;
    QStringList files;
    for (const Dictation& d : std::as_const(dictations_)) {
        if (d.date < cutoff && d.audioFile) {
            ids.insert(d.id);
            files.append(*d.audioFile);
        }
    }
    // A meeting's audio goes at the same age; the meeting stays, its file is all it has.
    for (const Meeting& m : std::as_const(meetings_))
        if (m.date < cutoff) files.append(uuidText(m.id) + QStringLiteral(".wav"));
    ioQueue_->async([folder = audioFolder_, files] {
        for (const QString& f : files)
            QFile::remove(folder + QLatin1Char('/') + f);
    });
    if (ids.isEmpty()) return;
    QList<Dictation> kept = dictations_;
    for (Dictation& d : kept)
        if (ids.contains(d.id)) d.audioFile.reset();
    setDictations(std::move(kept));
}

void Store::removeMeeting(const QUuid& id) {
    QList<Meeting> meetings = meetings_;
    meetings.removeIf([&](const Meeting& m) { return m.id == id; });
    setMeetings(std::move(meetings));
    ioQueue_->async([path = meetingAudioPath(id)] { QFile::remove(path); });
}

void Store::clearHistory() {
    setFixes({});
    for (const Dictation& d : std::as_const(dictations_))
        if (d.audioFile) QFile::remove(audioFolder_ + QLatin1Char('/') + *d.audioFile);
    setDictations({});
}

void Store::eraseEverything() {
    setDictations({});
    setWords({});
    setCorrections({});
    setFixes({});
    setSnippets({});
    setCosts({});
    setMeetings({});
    ioQueue_->async([folder = folder_, audio = audioFolder_] {
        QDir(audio).removeRecursively();
        const QStringList files{kHistory,
                                kWords,
                                kCorrections,
                                kFixes,
                                kSnippets,
                                kCosts,
                                kMeetings,
                                QStringLiteral("keys.json"),
                                QStringLiteral("journal.log")};
        for (const QString& f : files)
            QFile::remove(folder + QLatin1Char('/') + f);
        // Copies kept of damaged files are the user's data too: "name.damaged", "name.damaged.2"...
        const QStringList damaged =
            QDir(folder).entryList({QStringLiteral("*.json.damaged*")}, QDir::Files | QDir::Hidden);
        for (const QString& f : damaged)
            QFile::remove(folder + QLatin1Char('/') + f);
    });
}

} // namespace ombry
