#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/PulseCalls.h"
#include "platform/linux/PulseClient.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>

// Capture, microphones and sounds through PulseAudio.
namespace ombry::linux_platform {
namespace {

std::runtime_error failure(const QString& what, const QString& why) {
    return std::runtime_error(QStringLiteral("%1 (%2)").arg(what, why).toStdString());
}

// The name of the server's default source; empty when it has none. pipeWire, when given, says
// whether the server is PipeWire's. With the lock held.
QString defaultSourceName(PulseConnection& c, bool* pipeWire = nullptr) {
    struct Query {
        PulseConnection* connection;
        QString name;
        bool pipeWire = false;
    } query{&c, {}};
    pa_operation* op = pa_context_get_server_info(
        c.context(),
        [](pa_context*, const pa_server_info* info, void* data) {
            auto* q = static_cast<Query*>(data);
            if (info && info->default_source_name)
                q->name = QString::fromUtf8(info->default_source_name);
            q->pipeWire = info && info->server_name && std::strstr(info->server_name, "PipeWire");
            pa_threaded_mainloop_signal(q->connection->loop(), 0);
        },
        &query);
    const bool answered = c.finish(op);
    if (pipeWire) *pipeWire = answered && query.pipeWire;
    return answered ? query.name : QString();
}

// What the server says of one source, by name or (with an empty name) by index. With the lock
// held.
struct SourceFacts {
    bool found = false;
    bool monitor = false; // the monitor of an output
    SampleFormat format;
};
SourceFacts sourceFacts(PulseConnection& c, const QString& name, uint32_t index) {
    struct Query {
        PulseConnection* connection;
        SourceFacts facts;
    } query{&c, {}};
    const pa_source_info_cb_t onInfo = [](pa_context*, const pa_source_info* info, int eol,
                                          void* data) {
        auto* q = static_cast<Query*>(data);
        if (eol || !info) {
            pa_threaded_mainloop_signal(q->connection->loop(), 0);
            return;
        }
        q->facts.found = true;
        q->facts.monitor = info->monitor_of_sink != PA_INVALID_INDEX;
        q->facts.format = {int(info->sample_spec.rate), int(info->sample_spec.channels)};
    };
    const QByteArray utf8 = name.toUtf8();
    pa_operation* op =
        name.isEmpty()
            ? pa_context_get_source_info_by_index(c.context(), index, onInfo, &query)
            : pa_context_get_source_info_by_name(c.context(), utf8.constData(), onInfo, &query);
    return c.finish(op) ? query.facts : SourceFacts{};
}

// One record stream of S16LE mono 16 kHz. Its callbacks run on the connection's loop thread
// (the capture thread) with the loop's lock held: the PCM handler must be quick, and stop()
// must not be called from it.
class PulseCapture final : public CaptureStream {
public:
    PulseCapture(std::shared_ptr<PulseConnection> connection, AudioSystem::PcmHandler onPcm,
                 AudioSystem::EndHandler onEnd)
        : connection_(std::move(connection)), onPcm_(std::move(onPcm)), onEnd_(std::move(onEnd)) {}
    ~PulseCapture() override { stop(); }

    // Connects to the source (empty: the default one) and waits until the stream runs.
    void open(const QString& source) {
        PulseConnection::Lock lock(*connection_);
        stream_ = newRecordStream(connection_->context(), "Dictée", &PulseCapture::onState,
                                  &PulseCapture::onRead, this);
        if (!stream_) throw failure(QStringLiteral("micro indisponible"), connection_->error());
        // Not movable: when the source goes away the server ends the stream rather than move
        // it elsewhere, so the recording ends instead of going on from another microphone.
        const QByteArray device = source.toUtf8();
        if (!connectRecordStream(stream_, source.isEmpty() ? nullptr : device.constData(),
                                 PA_STREAM_DONT_MOVE)) {
            const QString why = connection_->error();
            release();
            throw failure(QStringLiteral("micro indisponible"), why);
        }
        // A frozen server never answers: that too is a microphone that does not record.
        const bool answered = connection_->waitFor([this] {
            const pa_stream_state_t state = pa_stream_get_state(stream_);
            return state == PA_STREAM_READY || state == PA_STREAM_FAILED ||
                   state == PA_STREAM_TERMINATED;
        });
        if (pa_stream_get_state(stream_) != PA_STREAM_READY) {
            const QString why =
                answered ? connection_->error() : QStringLiteral("le serveur de son ne répond pas");
            release();
            throw failure(source.isEmpty() ? QStringLiteral("micro indisponible")
                                           : QStringLiteral("micro %1 indisponible").arg(source),
                          why);
        }
        // The stream is converted to 16 kHz mono by the server: what the source itself
        // delivers is asked of it, for the journal.
        format_ = sourceFacts(*connection_, {}, pa_stream_get_device_index(stream_)).format;
    }

    SampleFormat sourceFormat() const override { return format_; }

    void stop() override {
        if (!connection_) return;
        {
            // Once the lock is held no callback runs, and none will after the release.
            PulseConnection::Lock lock(*connection_);
            release();
            onPcm_ = {};
            onEnd_ = {};
        }
        connection_.reset();
    }

private:
    void release() { releaseRecordStream(stream_); }

    static void onState(pa_stream* s, void* self) {
        auto* me = static_cast<PulseCapture*>(self);
        const pa_stream_state_t state = pa_stream_get_state(s);
        if (state == PA_STREAM_READY) me->running_ = true;
        if ((state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) && me->running_) {
            // The source went away (the stream is killed) or the server did.
            me->running_ = false;
            if (auto onEnd = std::exchange(me->onEnd_, {})) onEnd(me->connection_->error());
        }
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onRead(pa_stream* s, size_t, void* self) {
        readRecordStream(s, static_cast<PulseCapture*>(self)->onPcm_);
    }

    std::shared_ptr<PulseConnection> connection_;
    AudioSystem::PcmHandler onPcm_;
    AudioSystem::EndHandler onEnd_;
    pa_stream* stream_ = nullptr;
    bool running_ = false;
    SampleFormat format_;
};

// The handlers of watchMicrophones, called on the main thread. Events of the loop thread are
// gathered: one call for a burst (a null sink brings its monitor along, for instance).
struct Watchers {
    std::mutex mutex;
    std::vector<std::function<void()>> handlers;
    std::atomic<bool> posted{false};
    std::function<void()> afterNotify; // main thread

    void notify(const std::shared_ptr<Watchers>& self) {
        QCoreApplication* app = QCoreApplication::instance();
        if (!app || posted.exchange(true)) return;
        QMetaObject::invokeMethod(
            app,
            [weak = std::weak_ptr(self)] {
                auto me = weak.lock();
                if (!me) return;
                me->posted = false;
                std::vector<std::function<void()>> copy;
                {
                    std::lock_guard guard(me->mutex);
                    copy = me->handlers;
                }
                for (const auto& h : copy)
                    h();
                if (me->afterNotify) me->afterNotify();
            },
            Qt::QueuedConnection);
    }
};

class PulseAudioSystem final : public AudioSystem {
public:
    PulseAudioSystem()
        : watchers_(std::make_shared<Watchers>()), client_([w = std::weak_ptr(watchers_)] {
              if (auto me = w.lock()) {
                  bool any;
                  {
                      std::lock_guard guard(me->mutex);
                      any = !me->handlers.empty();
                  }
                  if (any) me->notify(me);
              }
          }) {}

    std::unique_ptr<CaptureStream> capture(const QString& source, PcmHandler onPcm,
                                           EndHandler onEnd) override {
        std::shared_ptr<PulseConnection> connection;
        try {
            connection = client_.ready();
        } catch (const std::runtime_error& e) {
            throw std::runtime_error(QStringLiteral("micro indisponible : %1")
                                         .arg(QString::fromUtf8(e.what()))
                                         .toStdString());
        }
        auto stream = std::make_unique<PulseCapture>(std::move(connection), std::move(onPcm),
                                                     std::move(onEnd));
        stream->open(source);
        return stream;
    }

    QList<AudioSource> microphones() override {
        QList<AudioSource> out;
        std::shared_ptr<PulseConnection> c;
        try {
            c = client_.ready();
        } catch (const std::runtime_error&) {
            return out;
        }
        struct Query {
            PulseConnection* connection;
            QList<AudioSource>* out;
        } query{c.get(), &out};
        PulseConnection::Lock lock(*c);
        pa_operation* op = pa_context_get_source_info_list(
            c->context(),
            [](pa_context*, const pa_source_info* info, int eol, void* data) {
                auto* q = static_cast<Query*>(data);
                if (eol || !info) {
                    pa_threaded_mainloop_signal(q->connection->loop(), 0);
                    return;
                }
                if (info->monitor_of_sink != PA_INVALID_INDEX) return; // a monitor of an output
                *q->out << AudioSource{
                    QString::fromUtf8(info->name),
                    QString::fromUtf8(info->description ? info->description : info->name)};
            },
            &query);
        if (!c->finish(op)) out.clear();
        return out;
    }

    void watchMicrophones(std::function<void()> handler) override {
        {
            std::lock_guard guard(watchers_->mutex);
            watchers_->handlers.push_back(std::move(handler));
        }
        if (!timers_) {
            timers_ = std::make_unique<QObject>();
            watchers_->afterNotify = [this] {
                if (client_.state() == PulseClient::State::Dead) keepWatching(1000);
            };
        }
        // Starts connecting, so that events flow, without waiting for the server.
        try {
            client_.connection();
        } catch (const std::runtime_error&) {
        }
    }

    // Main thread. The server went away while someone watches the microphones: try again
    // now and then (less and less often) so that its return is noticed and reported. Only
    // while the server is gone; a connection that comes up reports the microphones itself.
    void keepWatching(int delayMs) {
        if (retrying_) return;
        retrying_ = true;
        QTimer::singleShot(delayMs, timers_.get(), [this, delayMs] {
            retrying_ = false;
            switch (client_.state()) {
            case PulseClient::State::Ready:
                return;
            case PulseClient::State::Dead:
            case PulseClient::State::None:
                try {
                    client_.connection();
                } catch (const std::runtime_error&) {
                }
                break;
            case PulseClient::State::Connecting:
                break;
            }
            keepWatching(std::min(delayMs * 2, 30000));
        });
    }

    QString defaultSource() override {
        try {
            std::shared_ptr<PulseConnection> c = client_.ready();
            bool pipeWire = false;
            QString name;
            {
                PulseConnection::Lock lock(*c);
                name = defaultSourceName(*c, &pipeWire);
            }
            // PipeWire's PulseAudio server (0.3.65) can go on telling a connection the default
            // source of before a change, when a new connection hears the new one: the user's
            // choice in the system's sound settings is asked on a connection of its own.
            if (pipeWire) {
                PulseConnection fresh({}, false);
                PulseConnection::Lock lock(fresh);
                if (fresh.waitReady())
                    if (const QString now = defaultSourceName(fresh); !now.isEmpty()) name = now;
            }
            return name;
        } catch (const std::runtime_error&) {
            return {};
        }
    }

    bool serverAvailable() override {
        // Asked at each key press, on the main thread: a live connection answers at once. Only
        // a first use or a lost server costs a connection.
        if (client_.state() == PulseClient::State::Ready) return true;
        try {
            client_.ready();
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    bool microphoneAvailable() override {
        // Without any input the servers make the monitor of an output the default source:
        // that is what the computer plays, not a microphone.
        // The default as defaultSource() finds it: PipeWire's stale answer on a long-lived
        // connection would call a microphone just plugged in and chosen a monitor.
        const QString name = defaultSource();
        if (name.isEmpty()) return false;
        try {
            std::shared_ptr<PulseConnection> c = client_.ready();
            PulseConnection::Lock lock(*c);
            const SourceFacts facts = sourceFacts(*c, name, PA_INVALID_INDEX);
            return facts.found && !facts.monitor;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    void stopPlaying() override {
        try {
            std::shared_ptr<PulseConnection> c = client_.connection();
            PulseConnection::Lock lock(*c);
            c->stopPlaying();
        } catch (const std::runtime_error&) {
            // No sound server: nothing plays.
        }
    }

    void play(const QByteArray& pcm, int sampleRate) override {
        try {
            std::shared_ptr<PulseConnection> c = client_.connection();
            PulseConnection::Lock lock(*c);
            c->play(pcm, sampleRate);
        } catch (const std::runtime_error&) {
            // No sound server: sounds are a courtesy, their absence is not an error.
        }
    }

    std::unique_ptr<CaptureStream> captureOutput(const QString& appId, PcmHandler onPcm,
                                                 EndHandler onEnd) override {
        return linux_platform::captureOutput(appId, std::move(onPcm), std::move(onEnd));
    }

    QList<PlayingApp> playingApps() override { return linux_platform::playingApps(client_); }
    bool outputCaptureAvailable() override {
        return linux_platform::outputCaptureAvailable(client_);
    }
    bool applicationRunning(const QString& appId) override {
        return linux_platform::applicationRunning(client_, appId);
    }

private:
    std::shared_ptr<Watchers> watchers_;
    PulseClient client_;
    std::unique_ptr<QObject> timers_; // the retries' context, on the main thread
    bool retrying_ = false;
};

} // namespace

std::unique_ptr<AudioSystem> makeAudioSystem() {
    return std::make_unique<PulseAudioSystem>();
}

} // namespace ombry::linux_platform
