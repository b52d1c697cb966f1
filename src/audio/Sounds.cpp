#include "audio/Sounds.h"

#include "platform/Platform.h"

#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace ombry {
namespace {

// One partial of a sound: a sine whose frequency glides linearly from `from` to `to` Hz.
struct Partial {
    double from, to, gain;
};

// A blip: the partials under an envelope with a short linear attack and an exponential decay,
// faded to zero over the last 5 ms so that it ends without a click.
QByteArray synthesize(double seconds, double attack, double decay, double volume,
                      std::initializer_list<Partial> partials) {
    const int count = int(seconds * kSoundRate);
    const int fade = kSoundRate / 200;
    QByteArray out(count * 2, '\0');
    std::vector<double> phase(partials.size(), 0.0);
    for (int i = 0; i < count; ++i) {
        const double t = double(i) / kSoundRate;
        double envelope = t < attack ? t / attack : std::exp(-(t - attack) / decay);
        if (i > count - fade) envelope *= double(count - i) / fade;
        double v = 0;
        size_t k = 0;
        for (const Partial& p : partials) {
            const double f = p.from + (p.to - p.from) * (t / seconds);
            phase[k] += 2 * std::numbers::pi * f / kSoundRate;
            v += p.gain * std::sin(phase[k]);
            ++k;
        }
        const double sample = std::clamp(v * envelope * volume, -1.0, 1.0) * 32767.0;
        qToLittleEndian<qint16>(qint16(std::lround(sample)), out.data() + 2 * i);
    }
    return out;
}

} // namespace

QByteArray soundPcm(Sound sound) {
    // Tink is kept very short (60 ms) and high, so that it is over by the time the microphone
    // hears the first word; Pop is a soft falling drop; Basso a low buzz long enough to notice.
    static const QByteArray tink =
        synthesize(0.060, 0.002, 0.015, 0.45, {{2637, 2637, 0.8}, {5274, 5274, 0.2}});
    static const QByteArray pop =
        synthesize(0.090, 0.004, 0.025, 0.55, {{900, 450, 0.85}, {1800, 900, 0.15}});
    static const QByteArray basso = synthesize(
        0.380, 0.010, 0.140, 0.50, {{155, 150, 0.55}, {310, 300, 0.3}, {465, 450, 0.15}});
    switch (sound) {
    case Sound::Tink:
        return tink;
    case Sound::Pop:
        return pop;
    case Sound::Basso:
        return basso;
    }
    return {};
}

void playSound(Sound sound) {
    Platform::current().audio().play(soundPcm(sound), kSoundRate);
}

} // namespace ombry
