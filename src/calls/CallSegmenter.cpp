#include "calls/CallSegmenter.h"

#include <cstdlib>
#include <utility>

namespace ombry {

std::optional<QByteArray> CallSegmenter::add(const QByteArray& pcm) {
    const qsizetype n = pcm.size() / 2;
    if (n == 0) return std::nullopt;
    // One pass for the peak; the samples are already 16-bit.
    const auto* bytes = reinterpret_cast<const unsigned char*>(pcm.constData());
    int peak = 0;
    for (qsizetype i = 0; i < n; ++i) {
        const int v = int16_t(uint16_t(bytes[2 * i]) | uint16_t(bytes[2 * i + 1]) << 8);
        peak = std::max(peak, std::abs(v));
    }
    segment_.append(pcm.constData(), n * 2);
    if (peak >= kVoicePeak) {
        voiced_ = true;
        silentSamples_ = 0;
    } else {
        silentSamples_ += n;
    }
    const double seconds = double(segment_.size() / 2) / kSampleRate;
    if (voiced_ &&
        (double(silentSamples_) / kSampleRate > kPauseSeconds || seconds > kLongestSeconds))
        return flush();
    if (!voiced_ && seconds > kSilenceKeptSeconds) segment_.clear();
    return std::nullopt;
}

std::optional<QByteArray> CallSegmenter::flush() {
    std::optional<QByteArray> out;
    if (voiced_ && segment_.size() > kShortestBytes) out = std::exchange(segment_, {});
    segment_.clear();
    voiced_ = false;
    silentSamples_ = 0;
    return out;
}

void CallSegmenter::reset() {
    segment_.clear();
    voiced_ = false;
    silentSamples_ = 0;
}

} // namespace ombry
