#pragma once

#include "data/Records.h"
#include "meetings/PendingMeeting.h"

#include <QByteArray>
#include <QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <atomic>
#include <memory>
#include <optional>

namespace ombry {

class AudioRecorder;
class SerialQueue;

// Records a whole meeting from the microphone with a recorder of its own, transcribes it in
// pieces of 3 minutes while it goes on (so the wait after the stop is that of the last piece
// and the summary), asks a model for a title, a summary and tasks, and files a Meeting in the
// store with its audio (Audio/{id}.wav).
//
// Nothing is lost: the audio and the pieces transcribed so far are written to the folder of
// pending meetings as they come, a failed piece or summary still files the meeting with its
// audio and what was heard, and resumePending() at start-up finishes a meeting that a quit
// or a crash interrupted. Main thread; the recorder starts and stops on its own queue.
class MeetingRecorder : public QObject {
    Q_OBJECT

public:
    struct State {
        enum class Kind { Idle, Recording, Processing };
        Kind kind = Kind::Idle;
        QString text; // the progress message while processing
        bool operator==(const State&) const = default;
    };

    static constexpr double kShortestSeconds = 3.0; // a recording this short is dropped
    static constexpr int kCheckpointMs = 5000;      // audio written and pieces cut this often
    static constexpr const char* kSummaryModel = "google/gemini-2.5-flash-lite";
    static constexpr const char* kPendingFolder = "PendingMeetings";

    static MeetingRecorder& shared();
    explicit MeetingRecorder(QObject* parent = nullptr);
    ~MeetingRecorder() override;

    State state() const { return state_; }
    QDateTime startedAt() const { return startedAt_; }

    // From idle: starts recording (returns at once). From recording: stops. Nothing while
    // processing, so a meeting is filed before the next one begins.
    void toggle();
    void start();
    void stop();
    // Finishes the meetings that were recording or processing when the program last ended.
    void resumePending();
    // Transcribes and summarises a stored meeting again from its kept audio (its pieces all
    // failed, say); the meeting is replaced when done. Only while idle.
    void retry(const QUuid& id);

    // Writes the audio so far and starts the pieces that are complete; the timer calls it
    // every few seconds while recording.
    void checkpoint();

    AudioRecorder& recorder() { return *recorder_; }
    // Where a stored meeting's audio is.
    static QString audioPath(const Meeting& meeting);
    QString pendingFolder() const;
    // The system text of the summary request.
    static QString summaryPrompt(const QString& language);
    // Reads a model's answer: title, summary, tasks; none when it does not decode.
    struct Summary {
        QString title;
        QString summary;
        QStringList tasks;
    };
    static std::optional<Summary> readSummary(const QString& answer);

Q_SIGNALS:
    void stateChanged();
    void startedAtChanged();
    void meetingStored(const ombry::Meeting& meeting);

private:
    struct Found; // what the disk holds of a pending meeting

    void setState(State s);
    void begin();
    void resume(const Found& found);
    void afterStop(QByteArray pcm);
    void writePending();
    void appendAudio(const QByteArray& pcm);
    void pump();
    void readPiece(int index, int64_t from, int64_t to);
    QCoro::Task<void> transcribePiece(int index, QByteArray pcm);
    QCoro::Task<void> finish();
    void file(const Meeting& meeting, bool audioWritten);
    QCoro::Task<std::optional<Summary>> summarize(QString transcript);
    void queuePending(const QList<PendingMeeting::Files>& found);
    void nextPending();
    // Leaves the meeting in hand to a later start: its pending files stay.
    void putAside();
    void dropPending();

    std::unique_ptr<AudioRecorder> recorder_;
    std::unique_ptr<SerialQueue> audioQueue_; // starting and stopping the recorder
    std::unique_ptr<SerialQueue> ioQueue_;    // the pending files
    std::atomic<bool> quitting_ = false;      // stops a long copy of audio at quit
    QTimer checkpointTimer_;
    State state_;
    QDateTime startedAt_;

    std::optional<PendingMeeting> current_;
    PendingMeeting::Files files_; // the pending files of current_
    int64_t written_ = 0;         // PCM bytes in the pending audio file
    bool stopping_ = false;       // stop() asked, the recorder not stopped yet
    bool busy_ = false;           // a piece or the summary is under way
    bool starting_ = false;       // start() asked, the recorder not started yet
    QList<PendingMeeting::Files> resumeQueue_;
};

} // namespace ombry
