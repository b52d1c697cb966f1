#include "platform/linux/PulseCalls.h"

#include "platform/linux/DesktopFiles.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <limits>
#include <map>
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

// Sums several streams of PCM (S16LE) that arrive in pieces of their own timing into one.
// What every stream has given is summed as soon as all have given it; a stream that falls
// more than kLag behind (paused, or playing on another output) counts as silent meanwhile, so
// that the others never wait longer than that.
class Mixer {
public:
    static constexpr qsizetype kLag = 3 * 2048; // 192 ms

    void add(uint32_t key) { pending_.try_emplace(key); }
    void remove(uint32_t key) { pending_.erase(key); }
    bool has(uint32_t key) const { return pending_.count(key) > 0; }

    // Takes a piece of one stream; returns what can be given out now (maybe nothing).
    QByteArray take(uint32_t key, const QByteArray& pcm) {
        const auto it = pending_.find(key);
        if (it == pending_.end()) return {};
        if (pending_.size() == 1) return std::exchange(it->second, {}) + pcm;
        it->second += pcm;
        qsizetype least = std::numeric_limits<qsizetype>::max(), lead = 0;
        for (const auto& [k, bytes] : pending_) {
            least = std::min(least, bytes.size());
            lead = std::max(lead, bytes.size());
        }
        const qsizetype n = std::max(least, lead - kLag) & ~qsizetype(1);
        if (n <= 0) return {};
        std::vector<int32_t> sum(size_t(n / 2), 0);
        for (auto& [k, bytes] : pending_) {
            const qsizetype m = std::min(n, bytes.size()) / 2;
            const auto* samples = reinterpret_cast<const int16_t*>(bytes.constData());
            for (qsizetype i = 0; i < m; ++i)
                sum[size_t(i)] += samples[i];
            bytes.remove(0, std::min(n, bytes.size()));
        }
        QByteArray out(n, Qt::Uninitialized);
        auto* samples = reinterpret_cast<int16_t*>(out.data());
        for (size_t i = 0; i < sum.size(); ++i)
            samples[i] = int16_t(std::clamp<int32_t>(sum[i], -32768, 32767));
        return out;
    }

private:
    std::map<uint32_t, QByteArray> pending_; // by sink input
};

// What the computer plays, as the sum of the streams that play it: of every application but
// this program (whose sounds and reading aloud are no part of a call), or of one application.
// Each sink input has a record stream of its own on the monitor of the output it plays on,
// limited to it: the user's routing is left as it is, a stream that moves to another output
// (the default output changed) is followed there, and nothing is left behind on the server if
// the program dies. The capture has its own connection, whose events say when a stream begins,
// moves or ends. Callbacks run on that connection's loop thread with its lock held.
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
        pa_context_set_subscribe_callback(connection_->context(), &OutputCapture::onEvent, this);
        if (!connection_->finish(pa_context_subscribe(
                connection_->context(), PA_SUBSCRIPTION_MASK_SINK_INPUT,
                [](pa_context*, int, void* self) {
                    auto* me = static_cast<OutputCapture*>(self);
                    pa_threaded_mainloop_signal(me->connection_->loop(), 0);
                },
                this)))
            throw failure(connection_->error());
        // The streams that play now; the others as they come.
        connection_->finish(pa_context_get_sink_input_info_list(
            connection_->context(),
            [](pa_context*, const pa_sink_input_info* info, int eol, void* self) {
                auto* me = static_cast<OutputCapture*>(self);
                if (!eol && info)
                    me->consider(info);
                else
                    pa_threaded_mainloop_signal(me->connection_->loop(), 0);
            },
            this));
        // Until each of them records (or was refused).
        const auto connecting = [this] {
            return std::any_of(taps_.begin(), taps_.end(), [](const auto& t) {
                return pa_stream_get_state(t.second->stream) == PA_STREAM_CREATING;
            });
        };
        connection_->waitFor([&] { return !connecting() || connection_->dead(); });
    }

    void stop() override {
        if (!connection_) return;
        {
            PulseConnection::Lock lock(*connection_);
            stopped_ = true;
            while (!taps_.empty())
                release(taps_.begin()->first);
            pa_context_set_subscribe_callback(connection_->context(), nullptr, nullptr);
            pa_context_set_state_callback(connection_->context(), nullptr, nullptr);
            onPcm_ = {};
            onEnd_ = {};
        }
        connection_.reset();
    }

private:
    // The record stream of one sink input.
    struct Tap {
        OutputCapture* owner;
        uint32_t sinkInput;
        pa_stream* stream = nullptr;
        bool recorded = false; // the server accepted it
    };
    static constexpr int kRefusals = 3; // a sink input refused that often is left alone

    bool wanted(const pa_sink_input_info* info) const {
        return !ownProcess(info->proplist) &&
               (appId_.isEmpty() || identify(info->proplist).id == appId_);
    }

    // A sink input as the server describes it: captured from now on if it is wanted and not
    // captured yet.
    void consider(const pa_sink_input_info* info) {
        if (stopped_ || taps_.count(info->index) || !wanted(info)) return;
        if (const auto it = refusals_.find(info->index);
            it != refusals_.end() && it->second >= kRefusals)
            return;
        auto tap = std::make_unique<Tap>(Tap{this, info->index});
        tap->stream = newRecordStream(connection_->context(), "Sous-titres",
                                      &OutputCapture::onState, &OutputCapture::onRead, tap.get());
        if (!tap->stream) return;
        pa_stream_set_monitor_stream(tap->stream, info->index);
        // The server picks the monitor of the output the stream plays on.
        if (!connectRecordStream(tap->stream, nullptr)) {
            releaseRecordStream(tap->stream);
            return;
        }
        mixer_.add(info->index);
        taps_.emplace(info->index, std::move(tap));
    }

    void release(uint32_t sinkInput) {
        const auto it = taps_.find(sinkInput);
        if (it == taps_.end()) return;
        releaseRecordStream(it->second->stream);
        taps_.erase(it);
        mixer_.remove(sinkInput);
    }

    // Asks the server about a sink input, and captures it if it is wanted.
    void lookUp(uint32_t sinkInput) {
        pa_operation* op = pa_context_get_sink_input_info(
            connection_->context(), sinkInput,
            [](pa_context*, const pa_sink_input_info* info, int eol, void* self) {
                if (!eol && info) static_cast<OutputCapture*>(self)->consider(info);
            },
            this);
        if (op) pa_operation_unref(op);
    }

    void end() {
        if (auto onEnd = std::exchange(onEnd_, {})) onEnd(connection_->error());
    }

    static void onEvent(pa_context*, pa_subscription_event_type_t t, uint32_t index, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        if (me->stopped_ ||
            (t & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) != PA_SUBSCRIPTION_EVENT_SINK_INPUT)
            return;
        switch (t & PA_SUBSCRIPTION_EVENT_TYPE_MASK) {
        case PA_SUBSCRIPTION_EVENT_NEW:
            me->lookUp(index);
            break;
        case PA_SUBSCRIPTION_EVENT_REMOVE:
            me->release(index);
            me->refusals_.erase(index);
            break;
        default:
            // Moved to another output, or renamed: a stream that lost its record stream (a move
            // ends it) gets a new one there.
            if (!me->taps_.count(index)) me->lookUp(index);
        }
    }

    static void onContext(pa_context* c, void* self) {
        auto* me = static_cast<OutputCapture*>(self);
        const pa_context_state_t state = pa_context_get_state(c);
        if ((state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) && !me->stopped_)
            me->end(); // the server went away
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onState(pa_stream* s, void* data) {
        auto* tap = static_cast<Tap*>(data);
        OutputCapture* me = tap->owner;
        const pa_stream_state_t state = pa_stream_get_state(s);
        if (state == PA_STREAM_READY) tap->recorded = true;
        if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
            // The sink input ended, or moved to another output: if it still plays, it is
            // captured again where it is now. One whose capture the server keeps refusing
            // is not asked for again and again.
            const uint32_t sinkInput = tap->sinkInput;
            const bool refused = !tap->recorded && ++me->refusals_[sinkInput] >= kRefusals;
            me->release(sinkInput); // tap is gone from here on
            if (!refused && !me->stopped_ && !me->connection_->dead()) me->lookUp(sinkInput);
        }
        pa_threaded_mainloop_signal(me->connection_->loop(), 0);
    }

    static void onRead(pa_stream* s, size_t, void* data) {
        auto* tap = static_cast<Tap*>(data);
        OutputCapture* me = tap->owner;
        const uint32_t sinkInput = tap->sinkInput;
        readRecordStream(s, [me, sinkInput](const QByteArray& pcm) {
            const QByteArray mixed = me->mixer_.take(sinkInput, pcm);
            if (!mixed.isEmpty() && me->onPcm_) me->onPcm_(mixed);
        });
    }

    QString appId_;
    AudioSystem::PcmHandler onPcm_;
    AudioSystem::EndHandler onEnd_;
    std::shared_ptr<PulseConnection> connection_;
    // Under the loop's lock:
    std::map<uint32_t, std::unique_ptr<Tap>> taps_; // by sink input
    Mixer mixer_;
    std::map<uint32_t, int> refusals_; // by sink input
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

bool outputCaptureAvailable(PulseClient& client) {
    std::shared_ptr<PulseConnection> c;
    try {
        c = client.ready();
    } catch (const std::runtime_error&) {
        return false;
    }
    struct Query {
        PulseConnection* connection;
        bool monitor = false;
    } query{c.get()};
    PulseConnection::Lock lock(*c);
    const pa_sink_info_cb_t onSink = [](pa_context*, const pa_sink_info* info, int eol,
                                        void* data) {
        auto* q = static_cast<Query*>(data);
        if (!eol && info)
            q->monitor = info->monitor_source != PA_INVALID_INDEX;
        else
            pa_threaded_mainloop_signal(q->connection->loop(), 0);
    };
    // The default output by its name (also the last resort of a server without a default).
    return c->finish(
               pa_context_get_sink_info_by_name(c->context(), "@DEFAULT_SINK@", onSink, &query)) &&
           query.monitor;
}

bool applicationRunning(PulseClient& client, const QString& appId) {
    try {
        std::shared_ptr<PulseConnection> c = client.ready();
        struct Query {
            PulseConnection* connection;
            const QString* appId;
            bool found = false;
        } query{c.get(), &appId};
        PulseConnection::Lock lock(*c);
        pa_operation* op = pa_context_get_client_info_list(
            c->context(),
            [](pa_context*, const pa_client_info* info, int eol, void* data) {
                auto* q = static_cast<Query*>(data);
                if (eol || !info) {
                    pa_threaded_mainloop_signal(q->connection->loop(), 0);
                    return;
                }
                if (!ownProcess(info->proplist) && identify(info->proplist).id == *q->appId)
                    q->found = true;
            },
            &query);
        if (c->finish(op) && query.found) return true;
    } catch (const std::runtime_error&) {
        // No sound server: the processes still tell.
    }
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    std::lock_guard guard(desktopMutex);
    for (const QString& pid : pids) {
        bool number = false;
        const int64_t id = pid.toLongLong(&number);
        if (!number || id == getpid()) continue;
        QString name;
        const std::optional<DesktopEntry> entry = desktopFiles().forProcess(id, &name);
        if (entry ? entry->id == appId : name.toLower() == appId) return true;
    }
    return false;
}

std::unique_ptr<CaptureStream> captureOutput(const QString& appId, AudioSystem::PcmHandler onPcm,
                                             AudioSystem::EndHandler onEnd) {
    auto capture = std::make_unique<OutputCapture>(appId, std::move(onPcm), std::move(onEnd));
    capture->open();
    return capture;
}

} // namespace ombry::linux_platform
