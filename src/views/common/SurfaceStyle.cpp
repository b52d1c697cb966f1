#include "views/common/SurfaceStyle.h"

#include <QPainterPath>
#include <QPolygon>
#include <QRect>
#include <QRegion>

namespace ombry {

SurfaceStyle surfaceStyle(bool dark) {
    SurfaceStyle s;
    s.accent = QColor(0, 184, 169);
    s.onAccent = Qt::white;
    if (dark) {
        s.background = QColor(28, 28, 32, 238);
        s.border = QColor(255, 255, 255, 30);
        s.text = QColor(242, 242, 246);
        s.secondary = QColor(242, 242, 246, 150);
        s.error = QColor(255, 84, 72);
        s.control = QColor(255, 255, 255, 22);
    } else {
        s.background = QColor(252, 252, 253, 245);
        s.border = QColor(0, 0, 0, 28);
        s.text = QColor(28, 28, 30);
        s.secondary = QColor(28, 28, 30, 145);
        s.accent = QColor(0, 160, 147);
        s.error = QColor(222, 52, 42);
        s.control = QColor(0, 0, 0, 14);
    }
    return s;
}

SurfaceStyle opaque(SurfaceStyle style) {
    style.background.setAlpha(255);
    return style;
}

QRegion roundedRegion(const QRect& r, qreal radius) {
    QPainterPath path;
    path.addRoundedRect(QRectF(r), radius, radius);
    return QRegion(path.toFillPolygon().toPolygon());
}

} // namespace ombry
