#pragma once

#include <QColor>
#include <QRectF>

class QPainter;

// The small symbols of the floating surfaces, drawn with lines and shapes so that they are
// sharp at every scale and need no icon theme. Each fills the square `r`.
namespace ombry::Glyphs {

void checkCircle(QPainter& p, const QRectF& r, const QColor& fill, const QColor& mark);
void exclamationCircle(QPainter& p, const QRectF& r, const QColor& fill, const QColor& mark);
void microphone(QPainter& p, const QRectF& r, const QColor& color);
void globe(QPainter& p, const QRectF& r, const QColor& color);
// Two sheets; the front one is filled with `paper` so that it hides the back one.
void copy(QPainter& p, const QRectF& r, const QColor& color, const QColor& paper);
void checkmark(QPainter& p, const QRectF& r, const QColor& color);
void cross(QPainter& p, const QRectF& r, const QColor& color);

} // namespace ombry::Glyphs
