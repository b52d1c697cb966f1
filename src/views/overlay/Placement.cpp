#include "views/overlay/Placement.h"

#include <algorithm>

namespace ombry::Placement {

QPoint overlayAnchor(const QRect& visibleFrame) {
    // QRect::bottom() is the last row inside; the edge is one below it.
    const int bottomEdge = visibleFrame.y() + visibleFrame.height();
    return {visibleFrame.x() + visibleFrame.width() / 2, bottomEdge - kOverlayLift};
}

QRect overlayRect(const QPoint& anchor, const QSize& size) {
    return {anchor.x() - size.width() / 2, anchor.y() - size.height(), size.width(), size.height()};
}

int bubbleHeight(int fittingHeight) {
    return std::clamp(fittingHeight, kBubbleMinHeight, kBubbleMaxHeight);
}

QRect bubbleRect(const QPoint& pointer, const QRect& visibleFrame, int height) {
    const int left = visibleFrame.x();
    const int right = visibleFrame.x() + visibleFrame.width();
    const int bottom = visibleFrame.y() + visibleFrame.height();
    int x = pointer.x() - kBubbleWidth / 2;
    x = std::min(std::max(x, left + 8), right - kBubbleWidth - 8);
    int y = pointer.y() + 18;
    if (y + height > bottom - 8) y = pointer.y() - 18 - height;
    return {x, y, kBubbleWidth, height};
}

} // namespace ombry::Placement
