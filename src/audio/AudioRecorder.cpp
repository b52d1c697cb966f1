#include "audio/AudioRecorder.h"

#include "audio/Microphones.h"
#include "data/Settings.h"
#include "desktop/Log.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QtEndian>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ombry {
namespace {

int64_t sampleCount(const QByteArray& pcm) {
    return pcm.size() / 2;
}

int16_t sampleAt(const char* data, int64_t i) {
    return qFromLittleEndian<qint16>(data + 2 * i);
}

bool isLoud(int16_t s) {
    return std::abs(int(s)) > AudioRecorder::kLoudSample;
}

bool frameHasLoud(const std::vector<int16_t>& samples, int64_t from, int64_t to) {
    for (int64_t i = from; i < to; ++i)
        if (isLoud(samples[size_t(i)])) return true;
    return false;
}

void putU32(char* at, uint32_t v) {
    qToLittleEndian<quint32>(v, at);
}
void putU16(char* at, uint16_t v) {
    qToLittleEndian<quint16>(v, at);
}

} // namespace

double AudioRecorder::speechSeconds(const QByteArray& pcm) {
    const int64_t count = sampleCount(pcm);
    if (count == 0) return 0;
    const char* data = pcm.constData();
    int64_t voiced = 0;
    for (int64_t start = 0; start < count; start += kFrameSamples) {
        const int64_t end = std::min(start + kFrameSamples, count);
        double sum = 0;
        for (int64_t i = start; i < end; ++i) {
            const double s = sampleAt(data, i);
            sum += s * s;
        }
        if (std::sqrt(sum / double(end - start)) > kSpeechFrameRms) ++voiced;
    }
    return double(voiced) / 50.0;
}

QByteArray AudioRecorder::trimSilence(const QByteArray& pcm) {
    const int64_t count = sampleCount(pcm);
    if (count == 0) return pcm;
    std::vector<int16_t> samples(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i)
        samples[size_t(i)] = sampleAt(pcm.constData(), i);

    // Head: frames aligned on sample 0.
    int64_t first = -1;
    for (int64_t start = 0; start < count; start += kFrameSamples) {
        if (frameHasLoud(samples, start, std::min(start + kFrameSamples, count))) {
            first = start;
            break;
        }
    }
    if (first < 0) return pcm; // silent: left whole for the caller's own speech test

    // Tail: frames aligned on the end of the buffer, a different grid from the head's. The
    // position kept is the frame's end, not the loud sample's.
    int64_t end = count;
    for (; end > 0; end -= kFrameSamples) {
        const int64_t from = std::max<int64_t>(end - kFrameSamples, 0);
        if (frameHasLoud(samples, from, std::min(from + kFrameSamples, count))) break;
    }

    const int64_t from = std::max<int64_t>(first - kTrimMarginSamples, 0);
    const int64_t to = std::min<int64_t>(end + kTrimMarginSamples, count);
    return pcm.mid(qsizetype(2 * from), qsizetype(2 * (to - from)));
}

QByteArray AudioRecorder::normalize(const QByteArray& pcm, int64_t peak) {
    if (peak < 201 || peak > 11999) return pcm;
    const double gain = std::min(20000.0 / double(peak), 8.0);
    QByteArray out = pcm;
    char* data = out.data();
    const int64_t count = sampleCount(out);
    for (int64_t i = 0; i < count; ++i) {
        const double v = std::clamp(double(sampleAt(data, i)) * gain, -32767.0, 32767.0);
        qToLittleEndian<qint16>(qint16(std::trunc(v)), data + 2 * i);
    }
    return out;
}

QByteArray AudioRecorder::wav(const QByteArray& pcm) {
    return wavHeader(pcm.size()) + pcm;
}

QByteArray AudioRecorder::wavHeader(int64_t pcmBytes) {
    // 32-bit sizes hold 37 hours of PCM. Beyond, the file is RF64: the sizes are set to
    // 0xFFFFFFFF and given on 64 bits in a "ds64" chunk before "fmt ".
    const bool large = uint64_t(pcmBytes) > uint64_t(std::numeric_limits<uint32_t>::max()) - 80;
    const int ds64 = large ? 36 : 0;
    QByteArray out(44 + ds64, '\0');
    char* h = out.data();
    std::memcpy(h, large ? "RF64" : "RIFF", 4);
    putU32(h + 4, large ? 0xFFFFFFFFu : uint32_t(pcmBytes + 36));
    std::memcpy(h + 8, "WAVE", 4);
    if (large) {
        std::memcpy(h + 12, "ds64", 4);
        putU32(h + 16, 28);
        qToLittleEndian<quint64>(quint64(pcmBytes + 72), h + 20); // the RIFF size
        qToLittleEndian<quint64>(quint64(pcmBytes), h + 28);      // the data size
        qToLittleEndian<quint64>(quint64(pcmBytes / 2), h + 36);  // samples
        putU32(h + 44, 0);                                        // no table
        h += ds64;
    }
    std::memcpy(h + 12, "fmt ", 4);
    putU32(h + 16, 16);
    putU16(h + 20, 1); // integer PCM
    putU16(h + 22, 1); // mono
    putU32(h + 24, uint32_t(kSampleRate));
    putU32(h + 28, uint32_t(kBytesPerSecond));
    putU16(h + 32, 2);  // block align
    putU16(h + 34, 16); // bits per sample
    std::memcpy(h + 36, "data", 4);
    putU32(h + 40, large ? 0xFFFFFFFFu : uint32_t(pcmBytes));
    return out;
}

int64_t AudioRecorder::peak(const QByteArray& pcm) {
    const int64_t count = sampleCount(pcm);
    const char* data = pcm.constData();
    int64_t best = 0;
    for (int64_t i = 0; i < count; ++i)
        best = std::max(best, std::abs(int64_t(sampleAt(data, i))));
    return best;
}

} // namespace ombry

// The capture side.
namespace ombry {

struct AudioRecorder::Shared {
    // The recording; guarded by lock, and nothing is called back while it is held.
    mutable std::mutex lock;
    QByteArray samples;

    std::atomic<bool> recording{false};
    std::atomic<AudioRecorder*> owner{nullptr}; // null once the recorder is gone

    // The caller's queue only.
    std::unique_ptr<CaptureStream> stream;

    // The capture thread's, while recording; reset by stop() once the capture has ended.
    int64_t silentFrames = 0;
    bool spokeSinceCut = false;
    bool delivered = false; // a piece of this capture has arrived
    QByteArray carry;       // a byte left over from an odd-sized buffer

    mutable std::mutex stateLock; // guards what follows
    QByteArray lastPCM;
    int64_t lastPeak = 0;
    std::optional<QString> currentUID;
};

namespace {

// Runs fn on the main thread later, as long as the recorder behind shared still exists.
template <typename Fn> void onMain(const std::shared_ptr<AudioRecorder::Shared>& shared, Fn fn) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    QMetaObject::invokeMethod(
        app,
        [weak = std::weak_ptr(shared), fn = std::move(fn)] {
            if (auto s = weak.lock())
                if (AudioRecorder* owner = s->owner.load()) fn(*owner);
        },
        Qt::QueuedConnection);
}

// The largest signed sample of the buffer, from 0: the negative side does not count, so a
// buffer of only negative samples has peak 0.
int64_t positivePeak(const QByteArray& pcm) {
    int64_t best = 0;
    const char* data = pcm.constData();
    for (int64_t i = 0; i < sampleCount(pcm); ++i)
        best = std::max<int64_t>(best, sampleAt(data, i));
    return best;
}

} // namespace

AudioRecorder::AudioRecorder() : shared_(std::make_shared<Shared>()) {
    shared_->owner = this;
}

AudioRecorder::~AudioRecorder() {
    // The capture callbacks use this object: end them before it goes.
    halt();
    shared_->owner = nullptr;
}

void AudioRecorder::start() {
    Shared& s = *shared_;
    if (s.recording) return;
    {
        std::lock_guard guard(s.lock);
        s.samples = QByteArray();
    }
    s.carry.clear();
    s.delivered = false;

    // The capture callbacks run on the capture thread; the stream is ended (and its thread
    // joined) before this recorder can go, so they may use it directly.
    auto onPcm = [this](const QByteArray& pcm) { receive(pcm); };
    auto onEnd = [this](const QString& reason) {
        Log::write(QStringLiteral("audio: source perdue (%1)").arg(reason));
        onMain(shared_, [reason](AudioRecorder& r) {
            if (r.onSourceLost) r.onSourceLost(reason);
        });
    };

    // The microphone of the settings when it is plugged in, else the server's default when
    // that is a microphone. Never a monitor: with no microphone there is no recording, rather
    // than a recording of what the computer plays.
    std::optional<QString> wanted = AppSettings::shared().microphoneUID();
    if (wanted && wanted->isEmpty()) wanted.reset();
    AudioSystem& audio = Platform::current().audio();
    const QList<Microphones::Device> mics = Microphones::all();
    const QString fallback = audio.defaultSource();
    std::optional<QString> source = Microphones::choose(wanted, mics, fallback);
    auto notChosen = [&](const QString& why) {
        Log::write(QStringLiteral("micro: impossible de choisir %1 (%2)").arg(*wanted, why));
    };
    if (wanted && source != wanted) notChosen(QStringLiteral("absent"));
    if (!source) {
        if (fallback.isEmpty() && !audio.serverAvailable())
            throw std::runtime_error("micro indisponible (pas de serveur de son)");
        throw std::runtime_error(QStringLiteral("aucun micro, source par défaut : %1")
                                     .arg(fallback.isEmpty() ? QStringLiteral("aucune") : fallback)
                                     .toStdString());
    }
    std::unique_ptr<CaptureStream> stream;
    try {
        stream = audio.capture(*source, onPcm, onEnd);
    } catch (const std::runtime_error& e) {
        // Unplugged between the list and the connection: the default microphone, if any.
        const std::optional<QString> other =
            source == wanted ? Microphones::choose(std::nullopt, mics, fallback) : std::nullopt;
        if (!other || other == source) throw;
        notChosen(QString::fromUtf8(e.what()));
        source = other;
        stream = audio.capture(*source, onPcm, onEnd);
    }
    const SampleFormat format = stream->sourceFormat();
    s.stream = std::move(stream);
    {
        std::lock_guard guard(s.stateLock);
        s.currentUID = source == wanted ? wanted : std::nullopt;
    }
    // What the source delivers, before the server converts it to 16 kHz mono.
    if (format.rate > 0)
        Log::write(
            QStringLiteral("audio: entrée %1 Hz, %2 canaux").arg(format.rate).arg(format.channels));
    else
        Log::write(QStringLiteral("audio: entrée de format inconnu"));
    s.recording = true;
}

void AudioRecorder::receive(const QByteArray& input) {
    Shared& s = *shared_;
    QByteArray pcm = input;
    if (!s.carry.isEmpty()) pcm.prepend(std::exchange(s.carry, QByteArray()));
    if (pcm.size() % 2) {
        s.carry = pcm.right(1);
        pcm.chop(1);
    }
    if (pcm.isEmpty()) return;
    // The moment the microphone really delivers, stamped on arrival: the key press's delay
    // up to the first sample is read from the journal.
    if (!std::exchange(s.delivered, true))
        Log::write(QStringLiteral("audio: premier morceau, %1 ms de son")
                       .arg(sampleCount(pcm) * 1000 / kSampleRate));

    int64_t total;
    {
        std::lock_guard guard(s.lock);
        s.samples.append(pcm);
        total = s.samples.size();
    }
    if (onBuffer) onBuffer(pcm);

    const int64_t peak = positivePeak(pcm);
    const double level = std::min(double(peak) / kLevelFullScale, 1.0);
    onMain(shared_, [level](AudioRecorder& r) {
        if (r.onLevel) r.onLevel(level);
    });

    if (peak >= kPauseVoicePeak) {
        s.spokeSinceCut = true;
        s.silentFrames = 0;
        return;
    }
    s.silentFrames += sampleCount(pcm);
    if (!s.spokeSinceCut) return;
    if (s.silentFrames >= kPauseSamples) {
        s.spokeSinceCut = false;
        if (onPause) onPause(total);
    }
}

QByteArray AudioRecorder::halt() {
    Shared& s = *shared_;
    if (!s.recording) return {};
    if (s.stream) s.stream->stop();
    s.stream.reset();
    s.recording = false;
    std::lock_guard guard(s.lock);
    return s.samples;
}

AudioRecorder::Stopped AudioRecorder::stop() {
    if (!shared_->recording) return {};
    const QByteArray pcm = halt();
    const int64_t top = peak(pcm);
    {
        std::lock_guard guard(shared_->stateLock);
        shared_->lastPCM = pcm;
        shared_->lastPeak = top;
    }
    shared_->silentFrames = 0;
    shared_->spokeSinceCut = false;
    const double duration = double(sampleCount(pcm)) / double(kSampleRate);
    return {wav(normalize(trimSilence(pcm), top)), duration};
}

QByteArray AudioRecorder::stopRaw() {
    return halt();
}

QByteArray AudioRecorder::pcm(int64_t from, int64_t to) const {
    std::lock_guard guard(shared_->lock);
    const int64_t end = std::min<int64_t>(to, shared_->samples.size());
    if (from < 0) from = 0;
    if (from >= end) return {};
    return shared_->samples.mid(qsizetype(from), qsizetype(end - from));
}

int64_t AudioRecorder::size() const {
    std::lock_guard guard(shared_->lock);
    return shared_->samples.size();
}

bool AudioRecorder::isRecording() const {
    return shared_->recording;
}

int64_t AudioRecorder::lastPeak() const {
    std::lock_guard guard(shared_->stateLock);
    return shared_->lastPeak;
}

QByteArray AudioRecorder::lastPCM() const {
    std::lock_guard guard(shared_->stateLock);
    return shared_->lastPCM;
}

std::optional<QString> AudioRecorder::currentUID() const {
    std::lock_guard guard(shared_->stateLock);
    return shared_->currentUID;
}

void AudioRecorder::warmUp() {
    // Asking connects to the sound server, which is what the first start would wait for.
    Platform::current().audio().serverAvailable();
}

} // namespace ombry
