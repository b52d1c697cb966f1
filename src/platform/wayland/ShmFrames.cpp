#include "platform/wayland/ShmFrames.h"

#include <cmath>

namespace ombry::wayland {

FrameLayout frameLayout(const QSize& pixels, qreal devicePixelRatio) {
    FrameLayout f;
    f.scale = std::max(1, int(std::ceil(devicePixelRatio - 0.001)));
    f.logical =
        QSize((pixels.width() + f.scale - 1) / f.scale, (pixels.height() + f.scale - 1) / f.scale);
    f.buffer = f.logical * f.scale;
    f.stride = f.buffer.width() * 4;
    return f;
}

int pickSlot(std::span<const Slot> held, const QSize& size) {
    int free = -1;
    for (int i = 0; i < int(held.size()); ++i) {
        if (held[i].busy) continue;
        if (held[i].size == size) return i;
        if (free < 0) free = i;
    }
    return free;
}

} // namespace ombry::wayland
