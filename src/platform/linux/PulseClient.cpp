#include "platform/linux/PulseClient.h"

#include <algorithm>
#include <stdexcept>

namespace ombry::linux_platform {

// One sound being played: its own playback stream, written whole at once, then drained.
struct PulseConnection::Job {
    PulseConnection* owner;
    QByteArray pcm;
    int rate;
    pa_stream* stream = nullptr;
};

PulseConnection::PulseConnection(std::function<void()> onSourcesChanged, bool reconnected)
    : onSourcesChanged_(std::move(onSourcesChanged)), reconnected_(reconnected) {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) throw std::runtime_error("PulseAudio : boucle impossible à créer");
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Ombry Voice");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "com.quennard.ombryvoice");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ICON_NAME, "ombry-voice");
    context_ =
        pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), "Ombry Voice", props);
    pa_proplist_free(props);
    if (!context_) {
        pa_threaded_mainloop_free(loop_);
        throw std::runtime_error("PulseAudio : contexte impossible à créer");
    }
    pa_context_set_state_callback(context_, &PulseConnection::onState, this);
    pa_context_set_subscribe_callback(context_, &PulseConnection::onEvent, this);
    // No autospawn: a desktop without a sound server simply has no audio.
    pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
    pa_threaded_mainloop_start(loop_);
}

PulseConnection::~PulseConnection() {
    {
        Lock lock(*this);
        for (Job* job : jobs_) {
            pa_stream_set_state_callback(job->stream, nullptr, nullptr);
            pa_stream_disconnect(job->stream);
            pa_stream_unref(job->stream);
            delete job;
        }
        for (Job* job : waiting_)
            delete job;
        jobs_.clear();
        waiting_.clear();
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_set_subscribe_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
    }
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
}

bool PulseConnection::inLoopThread() const {
    return pa_threaded_mainloop_in_thread(loop_);
}

PulseConnection::Lock::Lock(const PulseConnection& c)
    : loop_(c.loop_), held_(!pa_threaded_mainloop_in_thread(c.loop_)) {
    if (held_) pa_threaded_mainloop_lock(loop_);
}

PulseConnection::Lock::~Lock() {
    if (held_) pa_threaded_mainloop_unlock(loop_);
}

bool PulseConnection::waitFor(const std::function<bool()>& done) {
    if (done()) return true;
    struct Alarm {
        pa_threaded_mainloop* loop;
        bool rang = false;
    } alarm{loop_};
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_);
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(kAnswerMs) * PA_USEC_PER_MSEC);
    pa_time_event* timer = api->time_new(
        api, &when,
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
            auto* a = static_cast<Alarm*>(data);
            a->rang = true;
            pa_threaded_mainloop_signal(a->loop, 0);
        },
        &alarm);
    while (!done() && !alarm.rang)
        pa_threaded_mainloop_wait(loop_);
    api->time_free(timer);
    return done();
}

bool PulseConnection::waitReady() {
    const auto settled = [this] {
        const pa_context_state_t state = pa_context_get_state(context_);
        return state == PA_CONTEXT_READY || state == PA_CONTEXT_FAILED ||
               state == PA_CONTEXT_TERMINATED;
    };
    return waitFor(settled) && pa_context_get_state(context_) == PA_CONTEXT_READY;
}

bool PulseConnection::finish(pa_operation* op) {
    if (!op) return false;
    waitFor([&] { return pa_operation_get_state(op) != PA_OPERATION_RUNNING || dead(); });
    if (pa_operation_get_state(op) == PA_OPERATION_RUNNING) pa_operation_cancel(op);
    const bool done = pa_operation_get_state(op) == PA_OPERATION_DONE;
    pa_operation_unref(op);
    return done;
}

bool PulseConnection::dead() const {
    const pa_context_state_t state = pa_context_get_state(context_);
    return state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED;
}

QString PulseConnection::error() const {
    return QString::fromUtf8(pa_strerror(pa_context_errno(context_)));
}

void PulseConnection::onState(pa_context* c, void* self) {
    auto* me = static_cast<PulseConnection*>(self);
    switch (pa_context_get_state(c)) {
    case PA_CONTEXT_READY: {
        pa_operation* op = pa_context_subscribe(c, PA_SUBSCRIPTION_MASK_SOURCE, nullptr, nullptr);
        if (op) pa_operation_unref(op);
        for (Job* job : std::exchange(me->waiting_, {}))
            me->startJob(job);
        me->wasReady_ = true;
        if (me->reconnected_ && me->onSourcesChanged_) me->onSourcesChanged_();
        break;
    }
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        for (Job* job : std::exchange(me->waiting_, {}))
            delete job;
        // The microphones are gone with the server, as far as anyone can tell. A connection
        // that never came up changed nothing (and saying so would make listeners retry).
        if (me->wasReady_ && me->onSourcesChanged_) me->onSourcesChanged_();
        break;
    default:
        break;
    }
    pa_threaded_mainloop_signal(me->loop_, 0);
}

void PulseConnection::onEvent(pa_context*, pa_subscription_event_type_t t, uint32_t, void* self) {
    auto* me = static_cast<PulseConnection*>(self);
    if ((t & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) != PA_SUBSCRIPTION_EVENT_SOURCE) return;
    const auto kind = t & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    // New and removed sources change the list; a change of description renames an entry.
    if (me->onSourcesChanged_ &&
        (kind == PA_SUBSCRIPTION_EVENT_NEW || kind == PA_SUBSCRIPTION_EVENT_REMOVE))
        me->onSourcesChanged_();
}

void PulseConnection::play(const QByteArray& pcm, int sampleRate) {
    if (pcm.size() < 2 || sampleRate <= 0) return;
    auto* job = new Job{this, pcm, sampleRate};
    switch (pa_context_get_state(context_)) {
    case PA_CONTEXT_READY:
        startJob(job);
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        delete job;
        break;
    default:
        waiting_.push_back(job);
    }
}

void PulseConnection::stopPlaying() {
    // Streams end the way they always do (their drain or their first state callback), so no
    // callback ever meets a job that is gone: a playing stream drops what it holds, one still
    // connecting gets nothing to play.
    for (Job* job : jobs_) {
        job->pcm.clear();
        if (pa_stream_get_state(job->stream) == PA_STREAM_READY) {
            if (pa_operation* op = pa_stream_flush(job->stream, nullptr, nullptr))
                pa_operation_unref(op);
        }
    }
    for (Job* job : waiting_)
        delete job;
    waiting_.clear();
}

void PulseConnection::startJob(Job* job) {
    const pa_sample_spec spec{PA_SAMPLE_S16LE, uint32_t(job->rate), 1};
    job->stream = pa_stream_new(context_, "Son", &spec, nullptr);
    if (!job->stream) {
        delete job;
        return;
    }
    jobs_.push_back(job);
    pa_stream_set_state_callback(
        job->stream,
        [](pa_stream* s, void* data) {
            auto* job = static_cast<Job*>(data);
            switch (pa_stream_get_state(s)) {
            case PA_STREAM_READY: {
                if (job->pcm.size() < 2) { // stopped before it could start
                    job->owner->endJob(job);
                    break;
                }
                // The whole sound at once, then a drain, which also starts playback at once
                // even though less than the prebuffer was written.
                pa_stream_write(s, job->pcm.constData(), size_t(job->pcm.size() & ~1), nullptr, 0,
                                PA_SEEK_RELATIVE);
                pa_operation* op = pa_stream_drain(
                    s,
                    [](pa_stream*, int, void* data) {
                        auto* job = static_cast<Job*>(data);
                        job->owner->endJob(job);
                    },
                    job);
                if (op)
                    pa_operation_unref(op);
                else
                    job->owner->endJob(job);
                break;
            }
            case PA_STREAM_FAILED:
            case PA_STREAM_TERMINATED:
                job->owner->endJob(job);
                break;
            default:
                break;
            }
        },
        job);
    // A short target latency, so that a sound is heard when it is asked for.
    const uint32_t bytesPerMs = uint32_t(job->rate) * 2 / 1000;
    pa_buffer_attr attr;
    attr.maxlength = uint32_t(-1);
    attr.tlength = 40 * bytesPerMs;
    attr.prebuf = uint32_t(-1);
    attr.minreq = uint32_t(-1);
    attr.fragsize = uint32_t(-1);
    if (pa_stream_connect_playback(job->stream, nullptr, &attr, PA_STREAM_ADJUST_LATENCY, nullptr,
                                   nullptr) < 0)
        endJob(job);
}

void PulseConnection::endJob(Job* job) {
    auto it = std::find(jobs_.begin(), jobs_.end(), job);
    if (it == jobs_.end()) return;
    jobs_.erase(it);
    pa_stream_set_state_callback(job->stream, nullptr, nullptr);
    if (pa_stream_get_state(job->stream) == PA_STREAM_READY) pa_stream_disconnect(job->stream);
    pa_stream_unref(job->stream);
    delete job;
}

namespace {
// A record fragment: 1,024 frames of S16LE mono, 64 ms at 16 kHz.
constexpr uint32_t kFragmentBytes = 2048;
} // namespace

pa_stream* newRecordStream(pa_context* context, const char* name, pa_stream_notify_cb_t onState,
                           pa_stream_request_cb_t onRead, void* data) {
    const pa_sample_spec spec{PA_SAMPLE_S16LE, 16000, 1};
    // PipeWire mixes a stereo source down to mono as the sum of its channels over the square
    // root of two: a voice alike on both channels (many built-in and USB microphones are
    // stereo) comes out 3 dB louder than it is, and a loud one clips. Normalised, the
    // mix is their average, as PulseAudio makes it; PulseAudio ignores the property.
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, "channelmix.normalize", "true");
    pa_stream* stream = pa_stream_new_with_proplist(context, name, &spec, nullptr, props);
    pa_proplist_free(props);
    if (!stream) return nullptr;
    pa_stream_set_state_callback(stream, onState, data);
    pa_stream_set_read_callback(stream, onRead, data);
    return stream;
}

bool connectRecordStream(pa_stream* stream, const char* device, pa_stream_flags_t flags) {
    pa_buffer_attr attr;
    attr.maxlength = uint32_t(-1);
    attr.tlength = uint32_t(-1);
    attr.prebuf = uint32_t(-1);
    attr.minreq = uint32_t(-1);
    attr.fragsize = kFragmentBytes;
    return pa_stream_connect_record(stream, device, &attr,
                                    pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | flags)) >= 0;
}

void releaseRecordStream(pa_stream*& stream) {
    if (!stream) return;
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (state == PA_STREAM_READY || state == PA_STREAM_CREATING) pa_stream_disconnect(stream);
    pa_stream_unref(stream);
    stream = nullptr;
}

void readRecordStream(pa_stream* stream, const std::function<void(const QByteArray&)>& onPcm) {
    for (;;) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream, &data, &bytes) < 0 || bytes == 0) return;
        // A hole (data null) is dropped: it is no sound at all, not silence.
        QByteArray pcm;
        if (data) pcm = QByteArray(static_cast<const char*>(data), qsizetype(bytes));
        pa_stream_drop(stream);
        if (!pcm.isEmpty() && onPcm) onPcm(pcm);
    }
}

PulseClient::PulseClient(std::function<void()> onSourcesChanged)
    : onSourcesChanged_(std::move(onSourcesChanged)) {}

std::shared_ptr<PulseConnection> PulseClient::connection() {
    std::shared_ptr<PulseConnection> old;
    std::lock_guard guard(mutex_);
    if (current_) {
        bool dead;
        {
            PulseConnection::Lock lock(*current_);
            dead = current_->dead();
        }
        if (!dead) return current_;
        old = std::move(current_); // ends outside the lock, after the new one is made
    }
    current_ = std::make_shared<PulseConnection>(onSourcesChanged_, hadOne_);
    hadOne_ = true;
    return current_;
}

PulseClient::State PulseClient::state() {
    std::lock_guard guard(mutex_);
    if (!current_) return State::None;
    PulseConnection::Lock lock(*current_);
    switch (pa_context_get_state(current_->context())) {
    case PA_CONTEXT_READY:
        return State::Ready;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        return State::Dead;
    default:
        return State::Connecting;
    }
}

std::shared_ptr<PulseConnection> PulseClient::ready() {
    std::shared_ptr<PulseConnection> c = connection();
    PulseConnection::Lock lock(*c);
    if (!c->waitReady())
        throw std::runtime_error(
            QStringLiteral("pas de serveur de son (%1)").arg(c->error()).toStdString());
    return c;
}

} // namespace ombry::linux_platform
