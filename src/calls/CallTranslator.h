#pragma once

#include "platform/Desktop.h"

#include <QByteArray>
#include <QCoroTask>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace ombry {

class CallSegmenter;
class LivePreview;
class SerialQueue;

// Live French subtitles of what the other side says in a call. Listens to what the computer
// plays (all of it, or one chosen application), never to the microphone; cuts it into
// sentences by silence on its own queue ("verlo.call.audio"); sends each sentence to a
// multimodal model that transcribes it in English and translates it into French in one
// request; publishes the growing list of lines. A streaming recogniser shows the words as they
// are spoken, before the model's answer. State is read and changed on the main thread.
class CallTranslator : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool running READ running NOTIFY runningChanged)
    Q_PROPERTY(QString live READ live NOTIFY liveChanged)
    Q_PROPERTY(std::optional<QString> error READ error NOTIFY errorChanged)

public:
    // One subtitle. `en` holds the preview's words until the model's transcription replaces
    // them; `done` once `fr` holds a translation.
    struct Line {
        int64_t id = 0;
        QString en;
        QString fr;
        bool done = false;
        bool operator==(const Line&) const = default;
    };

    static constexpr const char* kTargetKey = "callApp"; // user default: the chosen app's id
    static constexpr const char* kQueueLabel = "verlo.call.audio";

    static CallTranslator& shared();
    explicit CallTranslator(QObject* parent = nullptr);
    ~CallTranslator() override;

    bool running() const { return running_; }
    const QList<Line>& lines() const { return lines_; }
    QString live() const { return live_; }
    QDateTime startedAt() const { return startedAt_; }
    std::optional<QString> error() const { return error_; }
    QString sourceLanguage() const { return QStringLiteral("en-GB"); }

    // The chosen application (an id as AudioSystem::playingApps gives), none for all the
    // computer's audio. Kept in the user default "callApp".
    std::optional<QString> targetBundleID() const { return target_; }
    void setTargetBundleID(const std::optional<QString>& id);
    // The chosen application's name: as last seen playing, else the last dot-separated part
    // of its id. None without a target.
    std::optional<QString> targetName() const;
    // The applications that play sound now; remembers their names for targetName().
    QList<PlayingApp> playingApps();

    // Main thread. start() returns at once; the capture opens on the audio queue and a
    // failure lands in error().
    void start();
    void stop();

    // Brings the subtitle panel forward; set by the program (the views know the translator,
    // not the other way round).
    std::function<void()> onShowWindow;

    LivePreview& preview() { return *preview_; }
    // Waits until the audio queue has handled what was handed to it (tests, benchmarks).
    void drainQueue();

Q_SIGNALS:
    void runningChanged();
    void linesChanged();
    void liveChanged();
    void errorChanged();
    void targetChanged();

private:
    void setRunning(bool v);
    void setLive(const QString& v);
    void setError(const std::optional<QString>& v);
    void setLines(QList<Line> v);
    void showWindow();
    void failStart(const QString& message, const QString& logged);
    // Audio queue.
    void receive(uint64_t session, const QByteArray& pcm);
    void flush();
    void send(const QByteArray& pcm);
    // Main thread.
    void addLine(int64_t id, const QByteArray& wav);
    QCoro::Task<void> translate(int64_t id, QByteArray wav, QString context);

    std::unique_ptr<SerialQueue> queue_;
    std::unique_ptr<LivePreview> preview_;
    // Audio queue only:
    std::unique_ptr<CallSegmenter> segmenter_;
    std::unique_ptr<CaptureStream> stream_;
    int64_t nextID_ = 0;
    // Read on the audio queue and the capture thread; written on the main thread. A session
    // number tells the buffers of the current run from those of an earlier one.
    std::atomic<uint64_t> session_{0};
    std::atomic<bool> accepting_{false};

    bool running_ = false;
    QList<Line> lines_;
    QString live_;
    QDateTime startedAt_;
    std::optional<QString> error_;
    std::optional<QString> target_;
    QHash<QString, QString> names_; // application id → name, as last seen playing
};

} // namespace ombry
