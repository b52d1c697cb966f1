#pragma once

// The running text shown while the user speaks: the audio of the recording is decoded as it
// comes by pocketsphinx, on a worker thread of the preview, and each new hypothesis is handed
// to `onText` on the main thread. The preview is an extra: it never reports an error, and a
// language without a model on this machine simply gives no text.

#include <QByteArray>
#include <QObject>
#include <QString>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace ombry {

// How a stream of recognition results becomes one running text: final pieces accumulate, and
// the latest partial piece stands after them until the next result replaces it. A blank is put
// between two pieces unless one of them already carries it.
class PreviewText {
public:
    // Takes one result and returns the whole running text.
    QString add(const QString& text, bool isFinal);
    void reset() { finalized_.clear(); }

private:
    QString finalized_;
};

class LivePreview : public QObject {
    Q_OBJECT

public:
    explicit LivePreview(QObject* parent = nullptr);
    ~LivePreview() override;

    // Begins a new running text in `language` ("fr", "en"...), whose model is looked for as the
    // offline transcription does. `longForm` (meetings, calls) cuts the decoding at each pause
    // so that hours of audio keep a small decoder; `download` is accepted for the callers' sake:
    // models are installed by hand here. Returns at once; the model loads on the worker thread,
    // and audio fed meanwhile waits for it. Without a model everything fed is dropped.
    void start(const QString& language, bool longForm, bool download);

    // PCM, signed 16-bit little-endian mono 16 kHz, from any thread (the audio thread). Dropped
    // while the preview is stopped.
    void feed(const QByteArray& pcm);

    // Ends the running text: nothing fed or decoded afterwards reaches `onText`.
    void stop();

    // The whole running text at each change, on the main thread (the thread of this object).
    std::function<void(const QString&)> onText;

    // The JSGF grammar that replaces the language model; empty (the default) means the
    // OMBRY_POCKETSPHINX_JSGF environment variable, or none. Read at start.
    void setGrammar(const QString& path) { grammar_ = path; }

private:
    struct Request {
        QString language;
        bool longForm = false;
        QString grammar;
        uint64_t session = 0;
    };
    struct Decoder;

    void run();
    void publish(uint64_t session, const QString& text);

    // Shared with the worker, under mutex_.
    std::mutex mutex_;
    std::condition_variable wake_;
    std::optional<Request> request_;
    std::deque<QByteArray> audio_;
    uint64_t session_ = 0;   // the session fed audio belongs to; 0 when stopped
    bool accepting_ = false; // feed keeps its audio
    bool quit_ = false;

    // Main thread only.
    uint64_t shown_ = 0; // the session whose texts reach onText
    uint64_t lastSession_ = 0;
    QString grammar_;

    std::thread worker_;
};

} // namespace ombry
