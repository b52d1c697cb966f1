#include "engines/WavReader.h"

#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace ombry::WavReader {
namespace {

constexpr int kTargetRate = 16000;
constexpr int kIntegerPcm = 1;
constexpr int kFloat = 3;
constexpr int kExtensible = 0xFFFE;

quint16 u16(const QByteArray& b, qsizetype at) {
    return qFromLittleEndian<quint16>(reinterpret_cast<const uchar*>(b.constData() + at));
}
quint32 u32(const QByteArray& b, qsizetype at) {
    return qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(b.constData() + at));
}

// One sample of the frame at `p`, in [-1, 1].
float sampleAt(const uchar* p, const Format& f) {
    if (f.encoding == kFloat) {
        float v;
        std::memcpy(&v, p, 4);
        if (!std::isfinite(v)) return 0.0f;
        return std::clamp(v, -1.0f, 1.0f);
    }
    switch (f.bits) {
    case 8:
        return (int(p[0]) - 128) / 128.0f; // 8-bit WAV is unsigned
    case 16:
        return qFromLittleEndian<qint16>(p) / 32768.0f;
    case 24: {
        int32_t v = int32_t(p[0]) | (int32_t(p[1]) << 8) | (int32_t(p[2]) << 16);
        if (v & 0x800000) v -= 0x1000000;
        return float(v) / 8388608.0f;
    }
    default:
        return float(double(qFromLittleEndian<qint32>(p)) / 2147483648.0);
    }
}

bool supported(const Format& f) {
    if (f.channels < 1 || f.rate < 1000 || f.rate > 768000) return false;
    if (f.encoding == kFloat) return f.bits == 32;
    return f.encoding == kIntegerPcm &&
           (f.bits == 8 || f.bits == 16 || f.bits == 24 || f.bits == 32);
}

} // namespace

std::optional<Audio> parse(const QByteArray& wav, QString* error) {
    const auto fail = [&](const char* why) -> std::optional<Audio> {
        if (error) *error = QString::fromUtf8(why);
        return std::nullopt;
    };
    if (wav.size() < 12 || !wav.startsWith("RIFF") || wav.mid(8, 4) != "WAVE")
        return fail("fichier WAV attendu");
    std::optional<Format> format;
    qsizetype at = 12;
    while (at + 8 <= wav.size()) {
        const QByteArray id = wav.mid(at, 4);
        const qsizetype size = u32(wav, at + 4);
        const qsizetype body = at + 8;
        if (id == "fmt ") {
            if (size < 16 || body + 16 > wav.size()) return fail("en-tête WAV illisible");
            Format f;
            f.encoding = u16(wav, body);
            f.channels = u16(wav, body + 2);
            f.rate = int(u32(wav, body + 4));
            f.bits = u16(wav, body + 14);
            // The extensible layout names the real encoding in the first two bytes of its
            // sub-format identifier.
            if (f.encoding == kExtensible && size >= 40 && body + 26 <= wav.size())
                f.encoding = u16(wav, body + 24);
            if (!supported(f))
                return fail("format audio non pris en charge (WAV PCM 8, 16, 24 ou 32 bits, "
                            "ou flottant 32 bits, attendu)");
            format = f;
        } else if (id == "data") {
            if (!format) return fail("en-tête WAV illisible");
            // A recorder that could not seek back writes a size that overshoots (or 0, or
            // 0xFFFFFFFF): take what is there.
            const qsizetype available = wav.size() - body;
            const qsizetype length = size == 0 ? available : std::min(size, available);
            return Audio{*format, wav.mid(body, length)};
        }
        at = body + size + (size & 1);
    }
    return fail("données audio absentes du fichier WAV");
}

std::vector<float> resample(const std::vector<float>& mono, int from, int to) {
    if (from == to || mono.empty() || from <= 0 || to <= 0) return mono;
    // The low-pass cut-off relative to the input's own Nyquist frequency: a little under the
    // lower of the two rates' limits, so the transition band ends before anything folds back.
    const double cutoff = 0.9 * std::min(1.0, double(to) / from);
    // The kernel is a Blackman-windowed sinc reaching kZeros zero crossings on each side, read
    // from a table; its width in input samples grows as the cut-off falls.
    constexpr int kZeros = 8;
    constexpr int kSteps = 512; // table entries per zero crossing
    static const std::vector<double> table = [] {
        std::vector<double> t(kZeros * kSteps + 2);
        for (size_t i = 0; i < t.size(); ++i) {
            const double x = double(i) / kSteps; // in zero crossings
            const double sinc = x == 0.0 ? 1.0 : std::sin(M_PI * x) / (M_PI * x);
            const double w = std::min(x / kZeros, 1.0);
            const double blackman = 0.42 + 0.5 * std::cos(M_PI * w) + 0.08 * std::cos(2 * M_PI * w);
            t[i] = sinc * blackman;
        }
        return t;
    }();
    const double halfWidth = kZeros / cutoff;
    const auto kernel = [&](double distance) {
        const double x = std::abs(distance) * cutoff * kSteps;
        if (x >= double(kZeros * kSteps)) return 0.0;
        const size_t at = size_t(x);
        return table[at] + (table[at + 1] - table[at]) * (x - double(at));
    };

    // Output sample i sits at input position i·from/to: a whole part q and a phase r/to. The
    // phases repeat every to/gcd outputs, so the weights of each are computed once.
    const int64_t g = std::gcd(int64_t(from), int64_t(to));
    const int64_t phases = to / g;
    const long reach = long(std::ceil(halfWidth)) + 1;
    const size_t taps = size_t(2 * reach + 1);
    std::vector<float> weights;
    if (phases <= 4096) {
        weights.resize(size_t(phases) * taps);
        for (int64_t p = 0; p < phases; ++p) {
            const double frac = double(p * g) / to;
            float* w = weights.data() + size_t(p) * taps;
            double sum = 0.0;
            for (long j = -reach; j <= reach; ++j)
                sum += (w[j + reach] = float(kernel(frac - double(j))));
            for (size_t t = 0; t < taps; ++t)
                w[t] = float(w[t] / sum);
        }
    }

    const size_t count = size_t((int64_t(mono.size()) * to) / from);
    const long last = long(mono.size()) - 1;
    std::vector<float> out(count);
    for (size_t i = 0; i < count; ++i) {
        const int64_t position = int64_t(i) * from;
        const long q = long(position / to);
        const int64_t r = position % to;
        if (!weights.empty() && q - reach >= 0 && q + reach <= last) {
            const float* w = weights.data() + size_t(r / g) * taps;
            const float* x = mono.data() + (q - reach);
            float total = 0.0f;
            for (size_t t = 0; t < taps; ++t)
                total += w[t] * x[t];
            out[i] = total;
            continue;
        }
        // Near the ends the kernel is cut: dividing by the weights that remain keeps the level.
        const double centre = double(q) + double(r) / to;
        double total = 0.0, sum = 0.0;
        for (long k = std::max(0L, q - reach); k <= std::min(last, q + reach); ++k) {
            const double h = kernel(centre - double(k));
            total += h * mono[size_t(k)];
            sum += h;
        }
        out[i] = sum != 0.0 ? float(total / sum) : 0.0f;
    }
    return out;
}

QByteArray toSpeechPcm(const Audio& audio) {
    const Format& f = audio.format;
    const int bytesPerSample = f.bits / 8;
    const qsizetype frameBytes = qsizetype(bytesPerSample) * f.channels;
    const qsizetype frames = frameBytes > 0 ? audio.data.size() / frameBytes : 0;
    const auto* bytes = reinterpret_cast<const uchar*>(audio.data.constData());

    // Already the engines' format: the bytes as they are.
    if (f.encoding == kIntegerPcm && f.bits == 16 && f.channels == 1 && f.rate == kTargetRate)
        return audio.data.left(frames * 2);

    std::vector<float> mono(size_t(frames), 0.0f);
    for (qsizetype i = 0; i < frames; ++i) {
        float total = 0.0f;
        for (int c = 0; c < f.channels; ++c)
            total += sampleAt(bytes + i * frameBytes + c * bytesPerSample, f);
        mono[size_t(i)] = total / float(f.channels);
    }
    const std::vector<float> speech = resample(mono, f.rate, kTargetRate);

    QByteArray pcm(qsizetype(speech.size()) * 2, Qt::Uninitialized);
    auto* out = reinterpret_cast<uchar*>(pcm.data());
    for (size_t i = 0; i < speech.size(); ++i) {
        const long v = std::lround(std::clamp(speech[i], -1.0f, 1.0f) * 32767.0f);
        qToLittleEndian<qint16>(qint16(v), out + 2 * i);
    }
    return pcm;
}

} // namespace ombry::WavReader
