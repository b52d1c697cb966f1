#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

// Where the floating surfaces go, in screen coordinates (y grows downwards), as plain functions.
namespace ombry::Placement {

// Distance between the dictation strip and the bottom of the usable area of the screen.
inline constexpr int kOverlayLift = 24;

// The point on which the strip stands: the middle of the usable area's bottom edge, lifted.
QPoint overlayAnchor(const QRect& visibleFrame);

// The strip's window of `size`, centred on the anchor, its bottom edge on it.
QRect overlayRect(const QPoint& anchor, const QSize& size);

// The bubble's card.
inline constexpr int kBubbleWidth = 380;
inline constexpr int kBubbleMinHeight = 120;
inline constexpr int kBubbleMaxHeight = 420;
// On a compositor surface the card stands this far above the bottom of the usable area, clear
// of the strip.
inline constexpr int kBubbleLift = 96;

// The card's height for the height its content asks for.
int bubbleHeight(int fittingHeight);

// The card hangs 18 px under the pointer, centred on it; it keeps 8 px from the left and
// right edges of the usable area, and opens 18 px above the pointer when it would come within
// 8 px of the bottom edge.
QRect bubbleRect(const QPoint& pointer, const QRect& visibleFrame, int height);

} // namespace ombry::Placement
