#pragma once

#include <QByteArray>
#include <QString>
#include <functional>
#include <memory>
#include <mutex>
#include <pulse/pulseaudio.h>
#include <vector>

// The connection to the PulseAudio server (also served by PipeWire), shared by capture,
// playback and speech. A connection is a pa_threaded_mainloop, whose thread runs every stream
// callback (the "capture thread"), and a context. Nothing connects before the first use.
namespace ombry::linux_platform {

class PulseConnection {
public:
    // Creates the loop and the context and starts connecting; returns without waiting.
    // onSourcesChanged runs on the loop thread when a source appears or goes away, when the
    // connection is lost, and when it comes up again after a loss (reconnected true).
    PulseConnection(std::function<void()> onSourcesChanged, bool reconnected);
    // Stops the loop thread: never from that thread.
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    pa_threaded_mainloop* loop() const { return loop_; }
    pa_context* context() const { return context_; }
    bool inLoopThread() const;

    // Holds the loop's lock (blocks the loop thread's callbacks) for its lifetime. Taken on the
    // loop thread itself it does nothing, since callbacks already run under the lock.
    class Lock {
    public:
        explicit Lock(const PulseConnection& c);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* loop_;
        bool held_;
    };

    // A server that does not answer (frozen) is given up after this long at each wait.
    static constexpr int kAnswerMs = 2000;

    // With the lock held: waits until the context is ready (true) or has failed or the server
    // has not answered in time (false).
    bool waitReady();
    // With the lock held: waits until the operation is over, then releases it. False when the
    // connection failed meanwhile or the server did not answer in time.
    bool finish(pa_operation* op);
    // With the lock held: waits on the loop until `done` holds (true) or kAnswerMs have passed
    // (false). The loop's callbacks must signal it (pa_threaded_mainloop_signal).
    bool waitFor(const std::function<bool()>& done);
    // Whether the context failed or ended; such a connection is replaced at the next use.
    bool dead() const;
    // The server's last error, for messages.
    QString error() const;

    // Plays PCM (S16LE mono) on the default output without waiting: now when the context is
    // ready, else as soon as it is. With the lock held.
    void play(const QByteArray& pcm, int sampleRate);
    // Ends every sound playing or waiting. Under the lock.
    void stopPlaying();

private:
    struct Job;
    static void onState(pa_context* c, void* self);
    static void onEvent(pa_context* c, pa_subscription_event_type_t t, uint32_t index, void* self);
    void startJob(Job* job);
    void endJob(Job* job);

    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    std::function<void()> onSourcesChanged_;
    bool reconnected_;
    bool wasReady_ = false;
    // Under the loop's lock:
    std::vector<Job*> jobs_;    // sounds playing
    std::vector<Job*> waiting_; // sounds waiting for the connection
};

// Hands out the live connection, making a new one when there is none or the last one died
// (the server restarted). Thread-safe.
class PulseClient {
public:
    explicit PulseClient(std::function<void()> onSourcesChanged = {});
    // The current connection, possibly still connecting; never blocks on the server.
    std::shared_ptr<PulseConnection> connection();
    // The current connection once ready. Blocks while connecting; throws std::runtime_error
    // (in French) when there is no server.
    std::shared_ptr<PulseConnection> ready();

    enum class State { None, Connecting, Ready, Dead };
    // Where the current connection stands; never blocks on the server.
    State state();

private:
    std::mutex mutex_;
    std::shared_ptr<PulseConnection> current_;
    bool hadOne_ = false;
    std::function<void()> onSourcesChanged_;
};

// Record streams: S16LE mono 16 kHz, delivered in pieces of 1,024 frames (64 ms). Without the
// fragment size the server sends large chunks late, and the level, the pauses and the live
// preview lag behind. All of these run with the connection's lock held.

// A new record stream, not yet connected, whose state and read callbacks get data; null when
// the server refuses it.
pa_stream* newRecordStream(pa_context* context, const char* name, pa_stream_notify_cb_t onState,
                           pa_stream_request_cb_t onRead, void* data);
// Connects the stream to the device (null: the server's choice) with the fragment size above,
// adding flags to PA_STREAM_ADJUST_LATENCY; false when the server refuses at once.
bool connectRecordStream(pa_stream* stream, const char* device,
                         pa_stream_flags_t flags = PA_STREAM_NOFLAGS);
// Detaches the callbacks, disconnects and drops the stream, and nulls it; nothing when null.
void releaseRecordStream(pa_stream*& stream);
// Hands each fragment the stream holds to the handler (when it is set), from a read callback.
void readRecordStream(pa_stream* stream, const std::function<void(const QByteArray&)>& onPcm);

} // namespace ombry::linux_platform
