#include "platform/SerialQueue.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/PulseClient.h"

#include <algorithm>
#include <atomic>
#include <espeak-ng/speak_lib.h>
#include <mutex>
#include <stdexcept>

// Reading aloud: espeak-ng synthesises on a worker thread and the PCM streams into a PulseAudio
// playback stream as it comes, so speech starts before the whole text is synthesised and
// stop() cuts it at once.
namespace ombry::linux_platform {
namespace {

class EspeakSpeech final : public SpeechOutput {
public:
    ~EspeakSpeech() override {
        stop();
        queue_.reset(); // joins the worker: no synthesis runs past this point
        release();
        if (rate_ > 0) espeak_Terminate();
    }

    void speak(const QString& text, const QString& language) override {
        stop();
        const uint64_t generation = ++generation_;
        speaking_ = true;
        if (!queue_) queue_ = std::make_unique<SerialQueue>(QStringLiteral("ombry.speech"));
        queue_->async([this, generation, text, language] {
            if (!say(generation, text, language) && generation_ == generation) speaking_ = false;
        });
    }

    void stop() override {
        ++generation_;
        speaking_ = false;
        std::shared_ptr<PulseConnection> c;
        {
            std::lock_guard guard(connectionMutex_);
            c = connection_;
        }
        if (!c) return;
        PulseConnection::Lock lock(*c);
        dropStream();
        // A synthesis waiting for room in the stream wakes up and sees it is no longer wanted.
        pa_threaded_mainloop_signal(c->loop(), 0);
    }

    bool speaking() const override { return speaking_; }

private:
    // The worker thread: synthesises and writes; false when nothing was (or will be) heard.
    bool say(uint64_t generation, const QString& text, const QString& language) {
        if (generation_ != generation) return false;
        if (rate_ == 0) {
            rate_ = espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 100, nullptr,
                                      espeakINITIALIZE_DONT_EXIT);
            if (rate_ <= 0) return false;
            espeak_SetSynthCallback(&EspeakSpeech::onSamples);
        }
        if (rate_ < 0) return false;
        // The voice of the language: "fr", "en", "de"… name espeak-ng's voices; a code it does
        // not know as a name is looked up among the voices' languages.
        const QByteArray code = language.trimmed().toLower().toUtf8();
        if (espeak_SetVoiceByName(code.constData()) != EE_OK) {
            espeak_VOICE wanted{};
            wanted.languages = code.constData();
            espeak_SetVoiceByProperties(&wanted);
        }

        try {
            openStream(generation);
        } catch (const std::runtime_error&) {
            return false;
        }
        current_ = this;
        const QByteArray utf8 = text.toUtf8();
        espeak_Synth(utf8.constData(), size_t(utf8.size()) + 1, 0, POS_CHARACTER, 0,
                     espeakCHARS_UTF8, nullptr, nullptr);
        current_ = nullptr;

        // Everything is written: when the server has played it, speaking() turns false.
        PulseConnection::Lock lock(*connection_);
        if (generation_ != generation || !stream_) return false;
        pa_operation* op = pa_stream_drain(
            stream_,
            [](pa_stream* s, int, void* self) {
                auto* me = static_cast<EspeakSpeech*>(self);
                if (s != me->stream_) return;
                if (me->streamGeneration_ == me->generation_) me->speaking_ = false;
                me->dropStream();
            },
            this);
        if (!op) return false;
        pa_operation_unref(op);
        return true;
    }

    void openStream(uint64_t generation) {
        std::shared_ptr<PulseConnection> c = client_.ready();
        if (connection_ != c) {
            release();
            std::lock_guard guard(connectionMutex_);
            connection_ = c;
        }
        PulseConnection::Lock lock(*c);
        dropStream();
        const pa_sample_spec spec{PA_SAMPLE_S16LE, uint32_t(rate_), 1};
        stream_ = pa_stream_new(c->context(), "Lecture", &spec, nullptr);
        if (!stream_) throw std::runtime_error("lecture impossible");
        streamGeneration_ = generation;
        pa_stream_set_state_callback(
            stream_,
            [](pa_stream*, void* self) {
                pa_threaded_mainloop_signal(static_cast<EspeakSpeech*>(self)->connection_->loop(),
                                            0);
            },
            this);
        pa_stream_set_write_callback(
            stream_,
            [](pa_stream*, size_t, void* self) {
                pa_threaded_mainloop_signal(static_cast<EspeakSpeech*>(self)->connection_->loop(),
                                            0);
            },
            this);
        // A fifth of a second ahead of the speaker: enough against gaps, little to cut.
        pa_buffer_attr attr;
        attr.maxlength = uint32_t(-1);
        attr.tlength = uint32_t(rate_) * 2 / 5;
        attr.prebuf = uint32_t(-1);
        attr.minreq = uint32_t(-1);
        attr.fragsize = uint32_t(-1);
        if (pa_stream_connect_playback(stream_, nullptr, &attr, PA_STREAM_ADJUST_LATENCY, nullptr,
                                       nullptr) < 0) {
            dropStream();
            throw std::runtime_error("lecture impossible");
        }
        for (;;) {
            const pa_stream_state_t state = pa_stream_get_state(stream_);
            if (state == PA_STREAM_READY) return;
            if (state != PA_STREAM_CREATING && state != PA_STREAM_UNCONNECTED) {
                dropStream();
                throw std::runtime_error("lecture impossible");
            }
            pa_threaded_mainloop_wait(c->loop());
        }
    }

    // The synthesiser's callback, on the worker thread: returns 1 to abort the synthesis.
    static int onSamples(short* wav, int count, espeak_EVENT*) {
        EspeakSpeech* me = current_;
        if (!me) return 1;
        if (!wav || count <= 0) return 0;
        PulseConnection::Lock lock(*me->connection_);
        const char* data = reinterpret_cast<const char*>(wav);
        size_t left = size_t(count) * 2;
        while (left > 0) {
            // Stopped, or a newer text replaced this one.
            if (!me->stream_ || me->streamGeneration_ != me->generation_) return 1;
            if (pa_stream_get_state(me->stream_) != PA_STREAM_READY) return 1;
            const size_t room = pa_stream_writable_size(me->stream_);
            if (room == 0 || room == size_t(-1)) {
                pa_threaded_mainloop_wait(me->connection_->loop());
                continue;
            }
            const size_t n = std::min(room, left) & ~size_t(1);
            if (n == 0) {
                pa_threaded_mainloop_wait(me->connection_->loop());
                continue;
            }
            pa_stream_write(me->stream_, data, n, nullptr, 0, PA_SEEK_RELATIVE);
            data += n;
            left -= n;
        }
        return 0;
    }

    // With the loop's lock held.
    void dropStream() {
        if (!stream_) return;
        pa_stream_set_state_callback(stream_, nullptr, nullptr);
        pa_stream_set_write_callback(stream_, nullptr, nullptr);
        if (pa_stream_get_state(stream_) == PA_STREAM_READY) {
            pa_operation* op = pa_stream_flush(stream_, nullptr, nullptr);
            if (op) pa_operation_unref(op);
            pa_stream_disconnect(stream_);
        }
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }

    void release() {
        if (!connection_) return;
        {
            PulseConnection::Lock lock(*connection_);
            dropStream();
        }
        std::lock_guard guard(connectionMutex_);
        connection_.reset();
    }

    static inline thread_local EspeakSpeech* current_ = nullptr;

    PulseClient client_;
    std::unique_ptr<SerialQueue> queue_; // made at the first text
    std::atomic<uint64_t> generation_{0};
    std::atomic<bool> speaking_{false};
    int rate_ = 0; // the synthesiser's sample rate; the worker's

    std::mutex connectionMutex_; // guards the pointer below, which the worker sets
    std::shared_ptr<PulseConnection> connection_;
    pa_stream* stream_ = nullptr;   // under the loop's lock
    uint64_t streamGeneration_ = 0; // under the loop's lock
};

} // namespace

std::unique_ptr<SpeechOutput> makeSpeechOutput() {
    return std::make_unique<EspeakSpeech>();
}

} // namespace ombry::linux_platform
