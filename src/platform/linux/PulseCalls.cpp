#include "platform/linux/PulseCalls.h"

#include "platform/linux/DesktopFiles.h"

#include <QFileInfo>
#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <unistd.h>

namespace ombry::linux_platform {
namespace {

QString property(pa_proplist* props, const char* key) {
    const char* value = props ? pa_proplist_gets(props, key) : nullptr;
    return value ? QString::fromUtf8(value) : QString();
}

// The desktop files are read on the sound server's thread and on callers' threads.
std::mutex desktopMutex;
DesktopFiles& desktopFiles() {
    static DesktopFiles files;
    return files;
}

bool ownProcess(pa_proplist* props) {
    return property(props, PA_PROP_APPLICATION_PROCESS_ID) == QString::number(getpid());
}

PlayingApp identify(pa_proplist* props) {
    return identifyStream(property(props, PA_PROP_APPLICATION_ID),
                          property(props, PA_PROP_APPLICATION_NAME),
                          property(props, PA_PROP_APPLICATION_PROCESS_BINARY));
}

std::runtime_error failure(const QString& why) {
    return std::runtime_error(
        QStringLiteral("son de l'ordinateur indisponible (%1)").arg(why).toStdString());
}

// A capture of the default output's monitor, or of one application's sink inputs. It has its
// own connection, whose events say when the application opens or closes a stream. Callbacks
// run on that connection's loop thread with its lock held.
class OutputCapture final : public CaptureStream {
public:
    OutputCapture(QString appId, AudioSystem::PcmHandler onPcm, AudioSystem::EndHandler onEnd)
        : appId_(std::move(appId)), onPcm_(std::move(onPcm)), onEnd_(std::move(onEnd)) {}
    ~OutputCapture() override { stop(); }

    void open() {
        connection_ = std::make_shared<PulseConnection>(std::function<void()>{}, false);
        PulseConnection::Lock lock(*connection_);
        if (!connection_->waitReady()) throw failure(connection_->error());
        pa_context_set_state_callback(connection_->context(), &OutputCapture::onContext, this);
        if (appId_.isEmpty()) {
            attach(PA_INVALID_INDEX);
            waitStream();
            if (!stream_) throw failure(connection_->error());
            return;
        }
        pa_context_set_subscribe_callback(connection_->context(), &OutputCapture::onEvent, this);
        connection_->finish(pa_context_subscribe(
            connection_->context(), PA_SUBSCRIPTION_MASK_SINK_INPUT,
            [](pa_context*, int, void* self) {
                auto* me = static_cast<OutputCapture*>(self);
                pa_threaded_mainloop_signal(me->connection_->loop(), 0);
            },
            this));
        // The application's newest stream now, if it plays; otherwise its next one.
        scanning_ = true;
        connection_->finish(pa_context_get_sink_input_info_list(connection_->context(),
                                                                &OutputCapture::onScanned, this));
        if (stream_) waitStream();
    }

    void stop() override {
        if (!connection_) return;
        {
            PulseConnection::Lock lock(*connection_);
            stopped_ = true;
            release();
            pa_context_set_subscribe_callback(connection_->context(), nullptr, nullptr);
            pa_context_set_state_callback(connection_->context(), nullptr, nullptr);
            onPcm_ = {};
            onEnd_ = {};
        }
        connection_.reset();
    }

private:
    // A record stream on the monitor: of the default output, or of the sink the input plays
    // on, limited to that input.
    void attach(uint32_t sinkInput) {
        release();
        following_ = sinkInput;
        stream_ = newRecordStream(connection_->context(), "Sous-titres", &OutputCapture::onState,
                                  &OutputCapture::onRead, this);
        if (!stream_) return;
        if (sinkInput != PA_INVALID_INDEX) pa_stream_set_monitor_stream(stream_, sinkInput);
        // For one application the server picks the monitor of the sink its stream plays on.
        const char* device = sinkInput == PA_INVALID_INDEX ? "@DEFAULT_MONITOR@" : nullptr;
        if (!connectRecordStream(stream_, device)) release();
    }

    void waitStream() {
        while (stream_) {
            const pa_stream_state_t state = pa_stream_get_state(stream_);
            if (state == PA_STREAM_READY) return;
            if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
                release();
                return;
            }
            pa_threaded_mainloop_wait(connection_->loop());
        }
    }

    void release() {
        releaseRecordStream(stream_);
        following_ = PA_INVALID_INDEX;
    }

    void end() {
        if (auto onEnd = std::exchange(onEnd_, {})) onEnd(connection_->error());
    }

    // Looks for the application's newest stream and follows it.
    void rescan() {
        if (stopped_ || scanning_) return;
        scanning_ = true;
        newest_ = PA_INVALID_INDEX;
        pa_operation* op = pa_context_get_sink_input_info_list(connection_->context(),
                                                               &OutputCapture::onScanned, this);
        if (op)
            pa_operation_unref(op);
        else
            scanning_ = false;
    }

    bool ours(const pa_sink_input_info* info) const {
        return !ownProcess(info->proplist) && identify(info->proplist).id == appId_;
    }

    static void onScanned(pa_context*, const pa_sink_input_info* info, int eol, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        if (!eol && info) {
            if (me->ours(info) && (me->newest_ == PA_INVALID_INDEX || info->index > me->newest_))
                me->newest_ = info->index;
            return;
        }
        me->scanning_ = false;
        if (!me->stopped_ && me->newest_ != PA_INVALID_INDEX && me->newest_ != me->following_)
            me->attach(me->newest_);
        me->newest_ = PA_INVALID_INDEX;
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onEvent(pa_context* c, pa_subscription_event_type_t t, uint32_t index, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        if (me->stopped_ ||
            (t & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) != PA_SUBSCRIPTION_EVENT_SINK_INPUT)
            return;
        if ((t & PA_SUBSCRIPTION_EVENT_TYPE_MASK) != PA_SUBSCRIPTION_EVENT_NEW) return;
        // A new stream of the application (a new call): the capture moves to it.
        pa_operation* op = pa_context_get_sink_input_info(
            c, index,
            [](pa_context*, const pa_sink_input_info* info, int eol, void* self) {
                auto* me = static_cast<OutputCapture*>(self);
                if (eol || !info || me->stopped_) return;
                if (me->ours(info) && info->index != me->following_) me->attach(info->index);
            },
            me);
        if (op) pa_operation_unref(op);
    }

    static void onContext(pa_context* c, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        const pa_context_state_t state = pa_context_get_state(c);
        if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && !me->stopped_)
            me->end();
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onState(pa_stream* s, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        const pa_stream_state_t state = pa_stream_get_state(s);
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
            me->release();
            if (me->connection_->dead() || me->appId_.isEmpty())
                me->end(); // the output or the server went away
            else
                me->rescan(); // the application's stream ended: its next one, if any
        }
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onRead(pa_stream* s, size_t, void* self) {
        readRecordStream(s, static_cast<OutputCapture*>(self)->onPcm_);
    }

    QString appId_;
    AudioSystem::PcmHandler onPcm_;
    AudioSystem::EndHandler onEnd_;
    std::shared_ptr<PulseConnection> connection_;
    // Under the loop's lock:
    pa_stream* stream_ = nullptr;
    uint32_t following_ = PA_INVALID_INDEX;
    uint32_t newest_ = PA_INVALID_INDEX;
    bool scanning_ = false;
    bool stopped_ = false;
};

} // namespace

PlayingApp identifyStream(const QString& applicationId, const QString& applicationName,
                          const QString& binary) {
    const QString program = QFileInfo(binary).fileName();
    std::optional<DesktopEntry> entry;
    {
        std::lock_guard guard(desktopMutex);
        DesktopFiles& files = desktopFiles();
        if (!applicationId.isEmpty()) entry = files.forId(applicationId);
        if (!entry) entry = files.forProgram(program);
        if (!entry && !applicationName.isEmpty())
            entry = files.forWindowClass(applicationName, QString());
    }
    PlayingApp app;
    app.binary = program;
    if (entry) {
        app.id = entry->id;
        app.name = entry->name.isEmpty() ? applicationName : entry->name;
    } else if (!applicationId.isEmpty()) {
        app.id = applicationId;
        app.name = applicationName.isEmpty() ? applicationId : applicationName;
    } else {
        app.id = (applicationName.isEmpty() ? program : applicationName).toLower();
        app.name = applicationName.isEmpty() ? program : applicationName;
    }
    if (app.name.isEmpty()) app.name = app.id;
    return app;
}

QList<PlayingApp> playingApps(PulseClient& client) {
    QList<PlayingApp> out;
    std::shared_ptr<PulseConnection> c;
    try {
        c = client.ready();
    } catch (const std::runtime_error&) {
        return out;
    }
    struct Query {
        PulseConnection* connection;
        QList<PlayingApp>* out;
    } query{c.get(), &out};
    {
        PulseConnection::Lock lock(*c);
        pa_operation* op = pa_context_get_sink_input_info_list(
            c->context(),
            [](pa_context*, const pa_sink_input_info* info, int eol, void* data) {
                auto* q = static_cast<Query*>(data);
                if (eol || !info) {
                    pa_threaded_mainloop_signal(q->connection->loop(), 0);
                    return;
                }
                if (ownProcess(info->proplist)) return;
                const PlayingApp app = identify(info->proplist);
                if (app.id.isEmpty()) return;
                if (std::none_of(q->out->begin(), q->out->end(),
                                 [&](const PlayingApp& a) { return a.id == app.id; }))
                    *q->out << app;
            },
            &query);
        if (!c->finish(op)) out.clear();
    }
    std::sort(out.begin(), out.end(), [](const PlayingApp& a, const PlayingApp& b) {
        return a.name.localeAwareCompare(b.name) < 0;
    });
    return out;
}

std::unique_ptr<CaptureStream> captureOutput(const QString& appId, AudioSystem::PcmHandler onPcm,
                                             AudioSystem::EndHandler onEnd) {
    auto capture = std::make_unique<OutputCapture>(appId, std::move(onPcm), std::move(onEnd));
    capture->open();
    return capture;
}

} // namespace ombry::linux_platform
