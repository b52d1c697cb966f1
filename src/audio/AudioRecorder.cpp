#include "audio/AudioRecorder.h"

#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
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
    // 32-bit sizes hold more than 37 hours of PCM; anything larger is a programming error.
    if (uint64_t(pcm.size()) > uint64_t(std::numeric_limits<uint32_t>::max()) - 36)
        qFatal("AudioRecorder::wav: %lld bytes do not fit a WAV header", qlonglong(pcm.size()));
    const auto size = uint32_t(pcm.size());
    QByteArray out(44, '\0');
    char* h = out.data();
    std::memcpy(h, "RIFF", 4);
    putU32(h + 4, size + 36);
    std::memcpy(h + 8, "WAVE", 4);
    std::memcpy(h + 12, "fmt ", 4);
    putU32(h + 16, 16);
    putU16(h + 20, 1); // integer PCM
    putU16(h + 22, 1); // mono
    putU32(h + 24, uint32_t(kSampleRate));
    putU32(h + 28, uint32_t(kBytesPerSecond));
    putU16(h + 32, 2);  // block align
    putU16(h + 34, 16); // bits per sample
    std::memcpy(h + 36, "data", 4);
    putU32(h + 40, size);
    out.append(pcm);
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

// Capture side: skeleton, filled in next.
namespace ombry {

struct AudioRecorder::Shared {};

AudioRecorder::AudioRecorder() : shared_(std::make_shared<Shared>()) {}
AudioRecorder::~AudioRecorder() = default;
void AudioRecorder::start() {}
AudioRecorder::Stopped AudioRecorder::stop() {
    return {};
}
QByteArray AudioRecorder::stopRaw() {
    return {};
}
QByteArray AudioRecorder::pcm(int64_t, int64_t) const {
    return {};
}
int64_t AudioRecorder::size() const {
    return 0;
}
bool AudioRecorder::isRecording() const {
    return false;
}
int64_t AudioRecorder::lastPeak() const {
    return 0;
}
QByteArray AudioRecorder::lastPCM() const {
    return {};
}
std::optional<QString> AudioRecorder::currentUID() const {
    return std::nullopt;
}
void AudioRecorder::warmUp() {}
QByteArray AudioRecorder::halt() {
    return {};
}

} // namespace ombry
