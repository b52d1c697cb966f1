#pragma once

#include <QSize>
#include <QtGlobal>
#include <span>

// The plain rules of the strip's shared-memory pictures: the size the compositor is told and
// the buffer that is drawn next.
namespace ombry::wayland {

struct FrameLayout {
    int scale = 1;  // wl_surface buffer scale: whole numbers only
    QSize logical;  // the surface's size for the compositor
    QSize buffer;   // the buffer's pixels: the logical size times the scale
    int stride = 0; // bytes per row of the buffer (4 bytes a pixel)
};

// A picture of `pixels` drawn at `devicePixelRatio`: the scale is the ratio rounded up, and the
// buffer is padded to a whole number of logical pixels (a compositor refuses a buffer whose size
// the scale does not divide).
FrameLayout frameLayout(const QSize& pixels, qreal devicePixelRatio);

// One shared-memory buffer as the drawing sees it: held by the compositor until it releases
// it, and of some size (empty: not made yet).
struct Slot {
    bool busy = false;
    QSize size;
};

// The buffer to draw the next picture of `size` into: a free one of that size (kept as it is),
// else a free one (made again at that size), else -1: every buffer is with the compositor and
// the picture waits for a release.
int pickSlot(std::span<const Slot> held, const QSize& size);

} // namespace ombry::wayland
