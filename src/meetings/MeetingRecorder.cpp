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
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <algorithm>

namespace ombry {
namespace {

QString fileOf(const QString& folder, const QUuid& id, const char* suffix) {
    return QDir(folder).filePath(uuidText(id) + QLatin1String(suffix));
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
    audioQueue_.reset();
    ioQueue_.reset(); // writes what is queued
}

QString MeetingRecorder::pendingFolder() const {
    return QDir(Store::shared().folder()).filePath(QString::fromLatin1(kPendingFolder));
}

QString MeetingRecorder::audioPath(const Meeting& meeting) {
    return QDir(Store::shared().audioFolder()).filePath(uuidText(meeting.id) + ".wav");
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
    pcm_.clear();
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
        dropPending(current_->id);
        current_.reset();
        setState({});
        return;
    }
    if (pcm.size() > written_) appendAudio(pcm.mid(written_));
    written_ = pcm.size();
    pcm_ = std::move(pcm);
    current_->recording = false;
    current_->bytes = pcm_.size();
    current_->cutUpTo(pcm_.size(), true);
    writePending();
    setState({State::Kind::Processing, QStringLiteral("Transcription…")});
    pump();
}

QByteArray MeetingRecorder::slice(int64_t from, int64_t to) const {
    if (current_ && current_->recording) return recorder_->pcm(from, to);
    return pcm_.mid(from, to - from);
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
        transcribePiece(i, slice(current_->pieceStart(i), current_->cuts[i]));
    } else if (!current_->recording) {
        busy_ = true;
        finish();
    }
}

QCoro::Task<void> MeetingRecorder::transcribePiece(int index, QByteArray pcm) {
    QPointer<MeetingRecorder> self(this);
    const QUuid id = current_->id;
    const QByteArray wav = AudioRecorder::wav(AudioRecorder::trimSilence(pcm));
    pcm.clear();
    const AppSettings& settings = AppSettings::shared();
    const QStringList words = Store::shared().words();
    PendingMeeting::Part part;
    try {
        if (hasRemote())
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
    self->writePending();
    self->busy_ = false;
    self->pump();
}

QCoro::Task<void> MeetingRecorder::finish() {
    QPointer<MeetingRecorder> self(this);
    const PendingMeeting pending = *current_;
    const QString transcript = pending.transcript();
    if (transcript.isEmpty() && !pending.anyFailed()) {
        // Nothing was said: no meeting.
        dropPending(pending.id);
        current_.reset();
        pcm_.clear();
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
    const QString audio = audioPath(meeting);
    ioQueue_->async([this, self, audio, pcm = pcm_, meeting] {
        const bool written = Paths::writeFileAtomically(audio, AudioRecorder::wav(pcm));
        QMetaObject::invokeMethod(
            this,
            [self, meeting, written] {
                if (!self) return;
                if (!written) Log::write(QStringLiteral("réunion: audio non enregistré"));
                Store& store = Store::shared();
                QList<Meeting> meetings = store.meetings();
                meetings.prepend(meeting);
                store.setMeetings(meetings);
                store.flush();
                self->dropPending(meeting.id);
                Log::write(QStringLiteral("réunion: enregistrée (%1 caractères, %2 tâches)")
                               .arg(Graphemes::count(meeting.transcript))
                               .arg(meeting.tasks.size()));
                self->current_.reset();
                self->pcm_.clear();
                self->busy_ = false;
                self->setState({});
                emit self->meetingStored(meeting);
                self->nextPending();
            },
            Qt::QueuedConnection);
    });
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
    ioQueue_->async([folder = pendingFolder(), meeting = *current_] {
        QDir().mkpath(folder);
        Paths::writeFileAtomically(fileOf(folder, meeting.id, ".json"), meeting.toJson());
    });
}

void MeetingRecorder::appendAudio(const QByteArray& pcm) {
    if (!current_ || pcm.isEmpty()) return;
    ioQueue_->async([folder = pendingFolder(), id = current_->id, pcm] {
        QDir().mkpath(folder);
        QFile file(fileOf(folder, id, ".pcm"));
        if (file.open(QIODevice::WriteOnly | QIODevice::Append)) file.write(pcm);
    });
}

void MeetingRecorder::dropPending(const QUuid& id) {
    ioQueue_->async([folder = pendingFolder(), id] {
        QFile::remove(fileOf(folder, id, ".json"));
        QFile::remove(fileOf(folder, id, ".pcm"));
    });
}

void MeetingRecorder::resumePending() {
    const QDir dir(pendingFolder());
    QList<PendingMeeting> found;
    for (const QString& name : dir.entryList({QStringLiteral("*.json")}, QDir::Files)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) continue;
        if (auto meeting = PendingMeeting::fromJson(file.readAll())) found << *meeting;
    }
    std::sort(found.begin(), found.end(), [](const PendingMeeting& a, const PendingMeeting& b) {
        return a.startedAt < b.startedAt;
    });
    const QList<Meeting>& stored = Store::shared().meetings();
    for (const PendingMeeting& meeting : found) {
        const bool filed = std::any_of(stored.begin(), stored.end(),
                                       [&](const Meeting& m) { return m.id == meeting.id; });
        if (filed)
            dropPending(meeting.id); // filed just before the program ended
        else if (!resumeQueue_.contains(meeting.id) && (!current_ || current_->id != meeting.id))
            resumeQueue_ << meeting.id;
    }
    nextPending();
}

void MeetingRecorder::nextPending() {
    if (state_.kind != State::Kind::Idle || current_ || starting_ || resumeQueue_.isEmpty()) return;
    const QUuid id = resumeQueue_.takeFirst();
    setState({State::Kind::Processing, QStringLiteral("Transcription…")});
    QPointer<MeetingRecorder> self(this);
    // The audio of a long meeting is large: read on the pending files' queue.
    ioQueue_->async([this, self, folder = pendingFolder(), id] {
        QByteArray json, pcm;
        QFile jsonFile(fileOf(folder, id, ".json"));
        if (jsonFile.open(QIODevice::ReadOnly)) json = jsonFile.readAll();
        QFile pcmFile(fileOf(folder, id, ".pcm"));
        if (pcmFile.open(QIODevice::ReadOnly)) pcm = pcmFile.readAll();
        QMetaObject::invokeMethod(
            this,
            [self, json, pcm] {
                if (!self) return;
                self->resume(json, pcm);
            },
            Qt::QueuedConnection);
    });
}

void MeetingRecorder::resume(const QByteArray& json, QByteArray pcm) {
    std::optional<PendingMeeting> meeting = PendingMeeting::fromJson(json);
    pcm.truncate(pcm.size() & ~qsizetype(1));
    if (!meeting || double(pcm.size() / 2) / AudioRecorder::kSampleRate <= kShortestSeconds) {
        if (meeting) dropPending(meeting->id);
        setState({});
        nextPending();
        return;
    }
    Log::write(QStringLiteral("réunion: reprise"));
    // What was cut or transcribed beyond the audio that reached the disk is done again.
    const int64_t size = pcm.size();
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
    pcm_ = std::move(pcm);
    written_ = size;
    writePending();
    pump();
}

} // namespace ombry
