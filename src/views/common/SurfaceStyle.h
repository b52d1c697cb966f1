#pragma once

#include <QColor>

class QRect;
class QRegion;

// The colours of the floating surfaces, in the light or the dark appearance.
namespace ombry {

struct SurfaceStyle {
    QColor background; // the strip or card, slightly translucent
    QColor border;
    QColor text;
    QColor secondary;
    QColor accent; // the product's teal
    QColor error;
    QColor onAccent; // a mark drawn on the accent or error colour
    QColor control;  // the background of a small button
};

SurfaceStyle surfaceStyle(bool dark);

// The colours with the background made opaque: no blending for the window system to do, for
// machines that ask for light visuals.
SurfaceStyle opaque(SurfaceStyle style);

// The shape of a rounded rectangle as a window mask. A window's transparent pixels show as
// black on an X11 desktop without a compositing manager; with the mask, nothing outside the
// shape belongs to the window there, and composited desktops look the same.
QRegion roundedRegion(const QRect& r, qreal radius);

} // namespace ombry
