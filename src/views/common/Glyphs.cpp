#include "views/common/Glyphs.h"

#include <QPainter>
#include <QPainterPath>

namespace ombry::Glyphs {

namespace {

QPen stroke(const QColor& c, qreal width) {
    QPen pen(c, width);
    pen.setCapStyle(Qt::RoundCap);
    pen.setJoinStyle(Qt::RoundJoin);
    return pen;
}

// The tick, in a square: from the left third down to the bottom and up to the top right.
void tick(QPainter& p, const QRectF& r, const QColor& c, qreal width) {
    QPainterPath path;
    path.moveTo(r.left() + r.width() * 0.22, r.top() + r.height() * 0.52);
    path.lineTo(r.left() + r.width() * 0.42, r.top() + r.height() * 0.72);
    path.lineTo(r.left() + r.width() * 0.78, r.top() + r.height() * 0.30);
    p.setPen(stroke(c, width));
    p.setBrush(Qt::NoBrush);
    p.drawPath(path);
}

} // namespace

void checkCircle(QPainter& p, const QRectF& r, const QColor& fill, const QColor& mark) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawEllipse(r);
    tick(p, r, mark, r.width() * 0.12);
    p.restore();
}

void exclamationCircle(QPainter& p, const QRectF& r, const QColor& fill, const QColor& mark) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawEllipse(r);
    const qreal w = r.width() * 0.12;
    p.setPen(stroke(mark, w));
    const qreal cx = r.center().x();
    p.drawLine(QPointF(cx, r.top() + r.height() * 0.26), QPointF(cx, r.top() + r.height() * 0.56));
    p.setPen(Qt::NoPen);
    p.setBrush(mark);
    p.drawEllipse(QPointF(cx, r.top() + r.height() * 0.73), w * 0.65, w * 0.65);
    p.restore();
}

void microphone(QPainter& p, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const qreal w = r.width();
    const QRectF capsule(r.left() + w * 0.34, r.top() + w * 0.08, w * 0.32, w * 0.5);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRoundedRect(capsule, capsule.width() / 2, capsule.width() / 2);
    p.setPen(stroke(color, w * 0.08));
    p.setBrush(Qt::NoBrush);
    const QRectF cup(r.left() + w * 0.22, r.top() + w * 0.2, w * 0.56, w * 0.5);
    p.drawArc(cup, 180 * 16, 180 * 16);
    p.drawLine(QPointF(r.center().x(), cup.bottom()), QPointF(r.center().x(), r.top() + w * 0.88));
    p.restore();
}

void globe(QPainter& p, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF c =
        r.adjusted(r.width() * 0.06, r.height() * 0.06, -r.width() * 0.06, -r.height() * 0.06);
    p.setPen(stroke(color, r.width() * 0.08));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(c);
    p.drawEllipse(c.adjusted(c.width() * 0.28, 0, -c.width() * 0.28, 0));
    p.drawLine(QPointF(c.left(), c.center().y()), QPointF(c.right(), c.center().y()));
    p.drawLine(QPointF(c.center().x(), c.top()), QPointF(c.center().x(), c.bottom()));
    p.restore();
}

void copy(QPainter& p, const QRectF& r, const QColor& color, const QColor& paper) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const qreal w = r.width();
    p.setPen(stroke(color, w * 0.08));
    p.setBrush(Qt::NoBrush);
    const QRectF back(r.left() + w * 0.18, r.top() + w * 0.1, w * 0.5, w * 0.6);
    const QRectF front(r.left() + w * 0.34, r.top() + w * 0.28, w * 0.5, w * 0.6);
    p.drawRoundedRect(back, w * 0.08, w * 0.08);
    p.setBrush(paper);
    p.drawRoundedRect(front, w * 0.08, w * 0.08);
    p.restore();
}

void checkmark(QPainter& p, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    tick(p, r, color, r.width() * 0.1);
    p.restore();
}

void cross(QPainter& p, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(stroke(color, r.width() * 0.09));
    const QRectF c =
        r.adjusted(r.width() * 0.27, r.height() * 0.27, -r.width() * 0.27, -r.height() * 0.27);
    p.drawLine(c.topLeft(), c.bottomRight());
    p.drawLine(c.topRight(), c.bottomLeft());
    p.restore();
}

} // namespace ombry::Glyphs
