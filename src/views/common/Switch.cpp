#include "views/common/Switch.h"

#include "views/common/ViewStyle.h"

#include <QPainter>
#include <QPolygonF>

namespace ombry {

Switch::Switch(QWidget* parent) : QCheckBox(parent) {
    setCursor(Qt::PointingHandCursor);
    setFixedSize(sizeHint());
}

void Switch::paintEvent(QPaintEvent*) {
    const ViewStyle::Colors c = ViewStyle::colors(ViewStyle::darkNow());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(1, 1, -1, -1);
    QColor track = isChecked() ? c.accent : c.border;
    if (!isEnabled()) track.setAlpha(110);
    p.setPen(Qt::NoPen);
    p.setBrush(track);
    p.drawRoundedRect(r, r.height() / 2, r.height() / 2);
    const qreal d = r.height() - 4;
    const qreal x = isChecked() ? r.right() - 2 - d : r.left() + 2;
    p.setBrush(Qt::white);
    p.setPen(QPen(QColor(0, 0, 0, 30), 0.5));
    p.drawEllipse(QRectF(x, r.top() + 2, d, d));
    if (hasFocus()) {
        p.setPen(QPen(c.accent, 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), height() / 2.0,
                          height() / 2.0);
    }
}

void Picker::paintEvent(QPaintEvent* event) {
    QComboBox::paintEvent(event);
    const ViewStyle::Colors c = ViewStyle::colors(ViewStyle::darkNow());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(isEnabled() ? c.secondary : c.border, 1.6, Qt::SolidLine, Qt::RoundCap,
                  Qt::RoundJoin));
    const QPointF mid(width() - 13, height() / 2.0);
    p.drawPolyline(QPolygonF({mid + QPointF(-4, -2), mid + QPointF(0, 2), mid + QPointF(4, -2)}));
}

} // namespace ombry
