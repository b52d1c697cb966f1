#include "meetings/MeetingRecorder.h"

#include "audio/AudioRecorder.h"
#include "audio/Sounds.h"
#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "engines/Cleanup.h"
#include "engines/GeminiSpeech.h"
#include "engines/LocalEngine.h"
#include "engines/LocalSpeech.h"
#include "net/Errors.h"
#include "net/OpenRouter.h"
#include "online/OpenRouterComplete.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace ombry {
namespace {

QString fileOf(const QString& folder, const QUuid& id, const char* suffix) {
    return QDir(folder).filePath(uuidText(id) + QLatin1String(suffix));
}

// The journal line of pending audio that cannot be read, which is left where it is (the user's
// only copy, or not ours to touch) and tried again at the next start; none when it can be.
std::optional<QString> setAside(const QString& path, const Paths::OpenResult& audio) {
    using Status = Paths::ReadResult::Status;
    if (audio.status != Status::Unreadable && audio.status != Status::NotRegular)
        return std::nullopt;
    const QString why = audio.status == Status::NotRegular
                            ? QStringLiteral("pas un fichier ordinaire")
                            : audio.error;
    return QStringLiteral("réunion: audio en attente illisible (%1: %2), laissé en place")
        .arg(QFileInfo(path).fileName(), why);
}

} // namespace

MeetingRecorder& MeetingRecorder::shared() {
    static MeetingRecorder* instance = new MeetingRecorder(QCoreApplication::instance());
    return *instance;
}

MeetingRecorder::MeetingRecorder(QObject* parent)
    : QObject(parent), recorder_(std::make_unique<AudioRecorder>()),
      audioQueue_(std::make_unique<SerialQueue>(QStringLiteral("verlo.meeting.audio"))),
      ioQueue_(std::make_unique<SerialQueue>(QStringLiteral("verlo.meeting.io"))) {
    checkpointTimer_.setInterval(kCheckpointMs);
    connect(&checkpointTimer_, &QTimer::timeout, this, &MeetingRecorder::checkpoint);
}

MeetingRecorder::~MeetingRecorder() {
    checkpointTimer_.stop();
    // A meeting recording at quit keeps what was heard: its audio goes to the pending file,
    // which the next start finishes.
    if (recorder_->isRecording() || stopping_) {
        QByteArray pcm;
        audioQueue_->sync([&] { pcm = recorder_->stopRaw(); });
        if (current_ && pcm.size() > written_) appendAudio(pcm.mid(written_));
    }
    quitting_ = true;
    audioQueue_.reset();
    ioQueue_.reset(); // writes what is queued
}

QString MeetingRecorder::pendingFolder() const {
    return QDir(Store::shared().folder()).filePath(QString::fromLatin1(kPendingFolder));
}

QString MeetingRecorder::audioPath(const Meeting& meeting) {
    return Store::shared().meetingAudioPath(meeting.id);
}

void MeetingRecorder::setState(State s) {
    state_ = std::move(s);
    emit stateChanged();
}

void MeetingRecorder::toggle() {
    if (state_.kind == State::Kind::Idle)
        start();
    else if (state_.kind == State::Kind::Recording)
        stop();
}

void MeetingRecorder::start() {
    if (state_.kind != State::Kind::Idle || starting_ || current_) return;
    starting_ = true;
    QPointer<MeetingRecorder> self(this);
    audioQueue_->async([this, self] {
        bool ok = true;
        try {
            recorder_->start();
        } catch (const std::exception&) {
            ok = false;
        }
        QMetaObject::invokeMethod(
            this,
            [self, ok] {
                if (!self) return;
                self->starting_ = false;
                if (!ok) {
                    Log::write(QStringLiteral("réunion: micro indisponible"));
                    return;
                }
                self->begin();
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::begin() {
    startedAt_ = Platform::current().clock().now();
    emit startedAtChanged();
    PendingMeeting meeting;
    meeting.id = newRecordId();
    meeting.startedAt = startedAt_;
    current_ = meeting;
    const QString folder = pendingFolder();
    files_ = {uuidText(meeting.id), fileOf(folder, meeting.id, ".json"),
              fileOf(folder, meeting.id, ".pcm")};
    written_ = 0;
    setState({State::Kind::Recording, {}});
    playSound(Sound::Tink);
    Log::write(QStringLiteral("réunion: début"));
    writePending();
    checkpointTimer_.start();
}

void MeetingRecorder::checkpoint() {
    if (!current_ || !current_->recording || stopping_) return;
    const int64_t size = recorder_->size();
    if (size > written_) {
        appendAudio(recorder_->pcm(written_, size));
        written_ = size;
    }
    if (current_->cutUpTo(size, false)) writePending();
    pump();
}

void MeetingRecorder::stop() {
    if (state_.kind != State::Kind::Recording || stopping_) return;
    stopping_ = true;
    checkpointTimer_.stop();
    QPointer<MeetingRecorder> self(this);
    audioQueue_->async([this, self] {
        QByteArray pcm = recorder_->stopRaw();
        QMetaObject::invokeMethod(
            this,
            [self, pcm = std::move(pcm)] {
                if (self) self->afterStop(pcm);
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::afterStop(QByteArray pcm) {
    stopping_ = false;
    playSound(Sound::Pop);
    const double duration = double(pcm.size() / 2) / AudioRecorder::kSampleRate;
    Log::write(QStringLiteral("réunion: fin, %1 s").arg(int64_t(duration)));
    if (!current_) return;
    if (duration <= kShortestSeconds) {
        dropPending();
        current_.reset();
        setState({});
        return;
    }
    // From here on the pieces and the kept audio are read from the pending file, which can
    // hold more than memory or a WAV header does.
    if (pcm.size() > written_) appendAudio(pcm.mid(written_));
    written_ = pcm.size();
    pcm.clear();
    current_->recording = false;
    current_->bytes = written_;
    current_->cutUpTo(written_, true);
    writePending();
    setState({State::Kind::Processing, QStringLiteral("Transcription…")});
    pump();
}

// Starts the next piece when none is under way, or, once the recording has ended and every
// piece is back, files the meeting. Pieces go one after the other, never side by side.
void MeetingRecorder::pump() {
    if (busy_ || !current_) return;
    const int i = int(current_->parts.size());
    if (i < current_->cuts.size()) {
        busy_ = true;
        if (!current_->recording)
            setState(
                {State::Kind::Processing, QStringLiteral("Transcription %1/%2…")
                                              .arg(i + 1)
                                              .arg(PendingMeeting::pieceCount(current_->bytes))});
        const int64_t from = current_->pieceStart(i), to = current_->cuts[i];
        if (current_->recording)
            transcribePiece(i, recorder_->pcm(from, to));
        else
            readPiece(i, from, to);
    } else if (!current_->recording) {
        busy_ = true;
        finish();
    }
}

// Reads a piece of a recording that has ended from the pending audio, on the files' queue.
void MeetingRecorder::readPiece(int index, int64_t from, int64_t to) {
    QPointer<MeetingRecorder> self(this);
    ioQueue_->async([this, self, path = files_.pcm, index, from, to] {
        QByteArray pcm;
        const Paths::OpenResult file = Paths::openRegularFile(path);
        bool ok = file.ok() && file.size >= to;
        if (ok) {
            pcm.resize(to - from);
            ok = ::pread(file.fd, pcm.data(), size_t(pcm.size()), from) == pcm.size();
        }
        if (file.fd >= 0) ::close(file.fd);
        QMetaObject::invokeMethod(
            this,
            [self, index, ok, pcm = std::move(pcm)] {
                if (!self || !self->current_) return;
                if (ok) {
                    self->transcribePiece(index, pcm);
                    return;
                }
                Log::write(QStringLiteral("réunion: audio en attente illisible, gardé pour le "
                                          "prochain démarrage"));
                self->putAside();
            },
            Qt::QueuedConnection);
    });
}

QCoro::Task<void> MeetingRecorder::transcribePiece(int index, QByteArray pcm) {
    QPointer<MeetingRecorder> self(this);
    const QUuid id = current_->id;
    // Silence is not sent: no sample louder than the background (as silence is trimmed).
    const bool silent = AudioRecorder::peak(pcm) <= AudioRecorder::kLoudSample;
    const QByteArray wav =
        silent ? QByteArray() : AudioRecorder::wav(AudioRecorder::trimSilence(pcm));
    pcm.clear();
    const AppSettings& settings = AppSettings::shared();
    const QStringList words = Store::shared().words();
    PendingMeeting::Part part;
    try {
        if (silent)
            part.text.clear();
        else if (hasRemote())
            part.text =
                co_await GeminiSpeech::transcribe(wav, promptName(settings.language()), words);
        else
            part.text =
                co_await LocalSpeech::transcribe(wav, localeCode(settings.language()), words);
        part.text = part.text.trimmed();
    } catch (const std::exception& e) {
        part.failed = true;
        Log::write(QStringLiteral("réunion: morceau %1 %2").arg(index + 1).arg(describe(e)));
    }
    // The recorder may have gone (the program quits): the pending files keep the meeting.
    if (!self || !self->current_ || self->current_->id != id) co_return;
    self->current_->parts << part;
    if (!silent) self->writePending(); // a silent piece is cheaply heard again after a quit
    self->busy_ = false;
    self->pump();
}

QCoro::Task<void> MeetingRecorder::finish() {
    QPointer<MeetingRecorder> self(this);
    const PendingMeeting pending = *current_;
    const QString transcript = pending.transcript();
    if (transcript.isEmpty() && !pending.anyFailed()) {
        // Nothing was said: no meeting.
        dropPending();
        current_.reset();
        busy_ = false;
        setState({});
        nextPending();
        co_return;
    }
    setState({State::Kind::Processing, QStringLiteral("Résumé…")});
    Meeting meeting;
    meeting.id = pending.id;
    meeting.date = pending.startedAt;
    meeting.duration = double(pending.bytes / 2) / AudioRecorder::kSampleRate;
    meeting.title = QStringLiteral("Réunion");
    meeting.transcript = transcript;
    // A meeting none of whose pieces could be transcribed is still filed, with its audio.
    if (!transcript.isEmpty()) {
        const std::optional<Summary> summary = co_await summarize(transcript);
        if (!self) co_return;
        if (summary) {
            meeting.title = summary->title;
            meeting.summary = summary->summary;
            meeting.tasks = summary->tasks;
        }
    }
    // The audio is written first, then the list; the pending files go only after both.
    ioQueue_->async([this, self, audio = audioPath(meeting), source = files_.pcm,
                     bytes = pending.bytes, meeting] {
        Paths::makePrivateFolder(QFileInfo(audio).absolutePath());
        const bool written = Paths::copyFileAtomically(
            source, audio, AudioRecorder::wavHeader(bytes), 0, bytes, &quitting_);
        QMetaObject::invokeMethod(
            this,
            [self, meeting, written] {
                if (self) self->file(meeting, written);
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::file(const Meeting& meeting, bool audioWritten) {
    if (!audioWritten) {
        Log::write(QStringLiteral("réunion: audio non enregistré, la réunion reste en attente"));
        putAside();
        return;
    }
    Store& store = Store::shared();
    QList<Meeting> meetings = store.meetings();
    const auto at = std::find_if(meetings.begin(), meetings.end(),
                                 [&](const Meeting& m) { return m.id == meeting.id; });
    if (at != meetings.end())
        *at = meeting; // filed before, its audio lost since
    else
        meetings.prepend(meeting);
    store.setMeetings(meetings);
    if (!store.flush()) {
        Log::write(QStringLiteral("réunion: liste non enregistrée, la réunion reste en attente"));
        putAside();
        return;
    }
    dropPending();
    Log::write(QStringLiteral("réunion: enregistrée (%1 caractères, %2 tâches)")
                   .arg(Graphemes::count(meeting.transcript))
                   .arg(meeting.tasks.size()));
    current_.reset();
    busy_ = false;
    setState({});
    emit meetingStored(meeting);
    nextPending();
}

void MeetingRecorder::putAside() {
    current_.reset();
    busy_ = false;
    setState({});
    nextPending();
}

QString MeetingRecorder::summaryPrompt(const QString& language) {
    return QStringLiteral(
               "Tu reçois la transcription d'une réunion ou d'une discussion. Écris en %1.\n"
               "Réponds uniquement en JSON : {\"title\": \"titre court\", \"summary\": \"résumé "
               "clair en quelques phrases ou points\",\n\"tasks\": [\"tâche à faire (qui, quoi, "
               "quand si connu)\", ...]}. Liste vide s'il n'y a pas de tâche.")
        .arg(language);
}

std::optional<MeetingRecorder::Summary> MeetingRecorder::readSummary(const QString& answer) {
    QString text = answer;
    const qsizetype open = text.indexOf(QLatin1Char('{'));
    const qsizetype close = text.lastIndexOf(QLatin1Char('}'));
    if (open >= 0 && close > open) text = text.mid(open, close - open + 1);
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
    if (!doc.isObject()) return std::nullopt;
    const QJsonObject o = doc.object();
    const QJsonValue title = o.value("title"), summary = o.value("summary"),
                     tasks = o.value("tasks");
    // Keys of the wrong type make the answer unreadable, as absent keys do not.
    if ((!title.isUndefined() && !title.isNull() && !title.isString()) ||
        (!summary.isUndefined() && !summary.isNull() && !summary.isString()) ||
        (!tasks.isUndefined() && !tasks.isNull() && !tasks.isArray()))
        return std::nullopt;
    Summary s;
    s.title = title.isString() ? title.toString() : QStringLiteral("Réunion");
    s.summary = summary.toString();
    for (const QJsonValue& t : tasks.toArray()) {
        if (!t.isString()) return std::nullopt;
        s.tasks << t.toString();
    }
    return s;
}

QCoro::Task<std::optional<MeetingRecorder::Summary>>
MeetingRecorder::summarize(QString transcript) {
    const QString system = summaryPrompt(promptName(AppSettings::shared().language()));
    QString answer;
    try {
        if (hasRemote())
            answer = co_await OpenRouter::complete(system, transcript,
                                                   QString::fromLatin1(kSummaryModel));
        else
            answer = co_await LocalModel::run(system, transcript);
    } catch (const std::exception& e) {
        Log::write(QStringLiteral("résumé: ") + describe(e));
        co_return std::nullopt;
    }
    std::optional<Summary> summary = readSummary(answer);
    if (!summary) Log::write(QStringLiteral("résumé: réponse illisible"));
    co_return summary;
}

void MeetingRecorder::writePending() {
    if (!current_) return;
    ioQueue_->async([folder = pendingFolder(), path = files_.json, meeting = *current_] {
        Paths::makePrivateFolder(folder);
        Paths::writeFileAtomically(path, meeting.toJson());
    });
}

void MeetingRecorder::appendAudio(const QByteArray& pcm) {
    if (!current_ || pcm.isEmpty()) return;
    ioQueue_->async([folder = pendingFolder(), path = files_.pcm, pcm] {
        Paths::makePrivateFolder(folder);
        QFile file(path);
        const auto owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        if (!file.open(QIODevice::WriteOnly | QIODevice::Append, owner)) return;
        file.setPermissions(owner); // made by an earlier version with the default mode
        file.write(pcm);
    });
}

void MeetingRecorder::dropPending() {
    ioQueue_->async([files = files_] {
        QFile::remove(files.json);
        QFile::remove(files.pcm);
    });
}

void MeetingRecorder::resumePending() {
    QPointer<MeetingRecorder> self(this);
    // Audio that cannot be read is told at once, not after a long meeting before it.
    ioQueue_->async([this, self, folder = pendingFolder()] {
        QList<PendingMeeting::Files> found = PendingMeeting::find(folder);
        QStringList lines;
        found.removeIf([&](const PendingMeeting::Files& files) {
            const Paths::OpenResult audio = Paths::openRegularFile(files.pcm);
            if (audio.fd >= 0) ::close(audio.fd);
            const std::optional<QString> line = setAside(files.pcm, audio);
            if (line) lines << *line;
            return line.has_value();
        });
        QMetaObject::invokeMethod(
            this,
            [self, found, lines] {
                if (!self) return;
                for (const QString& line : lines)
                    Log::write(line);
                self->queuePending(found);
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::queuePending(const QList<PendingMeeting::Files>& found) {
    for (const PendingMeeting::Files& files : found) {
        const auto same = [&](const QString& stem) {
            return stem.compare(files.stem, Qt::CaseInsensitive) == 0;
        };
        const bool known =
            (current_ && same(files_.stem)) ||
            std::any_of(resumeQueue_.begin(), resumeQueue_.end(),
                        [&](const PendingMeeting::Files& f) { return same(f.stem); });
        if (!known) resumeQueue_ << files;
    }
    nextPending();
}

void MeetingRecorder::retry(const QUuid& id) {
    const QList<Meeting>& stored = Store::shared().meetings();
    const auto meeting =
        std::find_if(stored.begin(), stored.end(), [&](const Meeting& m) { return m.id == id; });
    if (state_.kind != State::Kind::Idle || current_ || starting_ || meeting == stored.end())
        return;
    PendingMeeting pending;
    pending.id = id;
    pending.startedAt = meeting->date;
    pending.recording = false;
    pending.again = true;
    const QString folder = pendingFolder();
    const PendingMeeting::Files files{uuidText(id), fileOf(folder, id, ".json"),
                                      fileOf(folder, id, ".pcm")};
    setState({State::Kind::Processing, QStringLiteral("Transcription…")});
    QPointer<MeetingRecorder> self(this);
    // The kept audio becomes a pending meeting, so that a quit in the middle loses nothing.
    ioQueue_->async([this, self, wav = audioPath(*meeting), files, pending] {
        const Paths::OpenResult audio = Paths::openRegularFile(wav);
        char magic[4] = {};
        const bool read = audio.ok() && ::pread(audio.fd, magic, 4, 0) == 4;
        if (audio.fd >= 0) ::close(audio.fd);
        const int64_t head = std::memcmp(magic, "RF64", 4) == 0 ? 80 : 44;
        Paths::makePrivateFolder(QFileInfo(files.pcm).absolutePath());
        const bool ok = read && audio.size > head &&
                        Paths::copyFileAtomically(wav, files.pcm, {}, head,
                                                  (audio.size - head) & ~int64_t(1), &quitting_) &&
                        Paths::writeFileAtomically(files.json, pending.toJson());
        QMetaObject::invokeMethod(
            this,
            [self, files, ok] {
                if (!self) return;
                if (!ok) Log::write(QStringLiteral("réunion: audio gardé illisible"));
                if (ok) self->resumeQueue_.prepend(files);
                self->setState({});
                self->nextPending();
            },
            Qt::QueuedConnection);
    });
}

struct MeetingRecorder::Found {
    PendingMeeting::Files files;
    QByteArray json;
    Paths::OpenResult audio; // without its descriptor
    QDateTime modified;
};

void MeetingRecorder::nextPending() {
    if (state_.kind != State::Kind::Idle || current_ || starting_ || resumeQueue_.isEmpty()) return;
    setState({State::Kind::Processing, QStringLiteral("Transcription…")});
    QPointer<MeetingRecorder> self(this);
    // Only the sizes and the small state are read here; the audio is read piece by piece. A
    // pipe or a device is never opened so that it could block.
    ioQueue_->async([this, self, files = resumeQueue_.takeFirst()] {
        Found found{files, Paths::readRegularFile(files.json, 1 << 24).bytes,
                    Paths::openRegularFile(files.pcm), QFileInfo(files.pcm).lastModified()};
        if (found.audio.fd >= 0) ::close(found.audio.fd);
        found.audio.fd = -1;
        QMetaObject::invokeMethod(
            this,
            [self, found] {
                if (self) self->resume(found);
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::resume(const Found& found) {
    files_ = found.files;
    if (const std::optional<QString> line = setAside(found.files.pcm, found.audio)) {
        Log::write(*line);
        setState({});
        nextPending();
        return;
    }
    const int64_t size = found.audio.size & ~int64_t(1);
    std::optional<PendingMeeting> meeting = PendingMeeting::fromJson(found.json);
    // The state lost or cut short: the audio alone makes the meeting.
    if (!meeting && found.audio.ok())
        meeting = PendingMeeting::fromAudio(found.files.stem, size, found.modified);
    const QList<Meeting>& stored = Store::shared().meetings();
    const bool filed = meeting && !meeting->again &&
                       std::any_of(stored.begin(), stored.end(),
                                   [&](const Meeting& m) { return m.id == meeting->id; }) &&
                       QFileInfo::exists(Store::shared().meetingAudioPath(meeting->id));
    if (!meeting || filed || double(size / 2) / AudioRecorder::kSampleRate <= kShortestSeconds) {
        dropPending(); // filed just before the program ended, or nothing worth keeping
        setState({});
        nextPending();
        return;
    }
    Log::write(QStringLiteral("réunion: reprise"));
    // What was cut or transcribed beyond the audio that reached the disk is done again.
    while (!meeting->cuts.isEmpty() && meeting->cuts.last() > size)
        meeting->cuts.removeLast();
    while (meeting->parts.size() > meeting->cuts.size())
        meeting->parts.removeLast();
    meeting->recording = false;
    meeting->bytes = size;
    meeting->cutUpTo(size, true);
    current_ = meeting;
    startedAt_ = meeting->startedAt;
    emit startedAtChanged();
    written_ = size;
    writePending();
    pump();
}

} // namespace ombry
