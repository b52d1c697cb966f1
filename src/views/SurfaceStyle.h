#pragma once

#include <QColor>

class QPainter;
class QRectF;

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

// A soft shadow under a rounded shape, drawn as a few widening translucent rings inside the
// margin `spread` around `shape`. Skipped by callers when the machine asks for light visuals.
void drawSoftShadow(QPainter& p, const QRectF& shape, qreal radius, qreal spread, bool dark);

} // namespace ombry
