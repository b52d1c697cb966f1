#include "views/SurfaceStyle.h"

#include <QPainter>
#include <QRectF>

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

void drawSoftShadow(QPainter& p, const QRectF& shape, qreal radius, qreal spread, bool dark) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    const int rings = 6;
    const int strongest = dark ? 26 : 16;
    for (int i = rings; i >= 1; --i) {
        const qreal grow = spread * i / rings;
        const QRectF r = shape.adjusted(-grow, -grow + spread * 0.3, grow, grow + spread * 0.3);
        p.setBrush(QColor(0, 0, 0, strongest * (rings - i + 1) / rings / 2));
        p.drawRoundedRect(r, radius + grow, radius + grow);
    }
    p.restore();
}

} // namespace ombry
