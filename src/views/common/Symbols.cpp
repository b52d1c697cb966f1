#include "views/common/Symbols.h"

#include "views/common/Glyphs.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRectF>
#include <QSet>
#include <cmath>

namespace ombry::Symbols {

namespace {

const QSet<QString>& names() {
    static const QSet<QString> set = {
        QStringLiteral("square.grid.2x2"),
        QStringLiteral("checkmark.seal"),
        QStringLiteral("globe"),
        QStringLiteral("person.2.wave.2"),
        QStringLiteral("clock"),
        QStringLiteral("book.closed"),
        QStringLiteral("gearshape"),
        QStringLiteral("waveform"),
        QStringLiteral("waveform.circle.fill"),
        QStringLiteral("ellipsis"),
        QStringLiteral("arrow.uturn.down"),
        QStringLiteral("macwindow"),
        QStringLiteral("captions.bubble"),
        QStringLiteral("speaker.wave.2"),
        QStringLiteral("mic"),
        QStringLiteral("keyboard"),
        QStringLiteral("arrow.down.circle.fill"),
        QStringLiteral("xmark"),
        QStringLiteral("person.crop.circle"),
        QStringLiteral("lock.shield"),
        QStringLiteral("slider.horizontal.3"),
        QStringLiteral("eurosign"),
        QStringLiteral("exclamationmark.triangle"),
    };
    return set;
}

// Draws in a 24-unit square mapped onto r.
void waveBars(QPainter& p, const QColor& c, qreal scale) {
    const qreal heights[] = {6, 12, 18, 10, 14, 6};
    QPen pen(c, 2.2 * scale, Qt::SolidLine, Qt::RoundCap);
    p.setPen(pen);
    for (int i = 0; i < 6; ++i) {
        const qreal x = 4.5 + i * 3.0;
        p.drawLine(QPointF(x, 12 - heights[i] / 2 * scale),
                   QPointF(x, 12 + heights[i] / 2 * scale));
    }
}

} // namespace

bool known(const QString& name) {
    return names().contains(name);
}

void draw(QPainter& p, const QString& name, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.translate(r.topLeft());
    p.scale(r.width() / 24.0, r.height() / 24.0);
    QPen pen(color, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    const QRectF unit(0, 0, 24, 24);

    if (name == QLatin1String("square.grid.2x2")) {
        for (int i = 0; i < 4; ++i)
            p.drawRoundedRect(QRectF(4 + (i % 2) * 9, 4 + (i / 2) * 9, 7, 7), 2, 2);
    } else if (name == QLatin1String("checkmark.seal")) {
        QPainterPath seal;
        for (int i = 0; i < 24; ++i) {
            const qreal a = i * M_PI / 12;
            const qreal rr = (i % 2) ? 8.2 : 9.6;
            const QPointF pt(12 + rr * std::cos(a), 12 + rr * std::sin(a));
            i ? seal.lineTo(pt) : seal.moveTo(pt);
        }
        seal.closeSubpath();
        p.drawPath(seal);
        Glyphs::checkmark(p, QRectF(7.5, 7.5, 9, 9), color);
    } else if (name == QLatin1String("globe")) {
        Glyphs::globe(p, QRectF(3, 3, 18, 18), color);
    } else if (name == QLatin1String("person.2.wave.2")) {
        p.drawEllipse(QPointF(9, 8.5), 3, 3);
        p.drawArc(QRectF(3.5, 13, 11, 9), 0, 180 * 16);
        p.drawEllipse(QPointF(16, 9.5), 2.4, 2.4);
        p.drawArc(QRectF(13, 14, 8, 7), 0, 180 * 16);
        p.drawArc(QRectF(18, 4, 4, 8), -60 * 16, 120 * 16);
    } else if (name == QLatin1String("clock")) {
        p.drawEllipse(QRectF(3, 3, 18, 18));
        p.drawLine(QPointF(12, 12), QPointF(12, 7));
        p.drawLine(QPointF(12, 12), QPointF(15.5, 14));
    } else if (name == QLatin1String("book.closed")) {
        p.drawRoundedRect(QRectF(5, 3, 14, 18), 2, 2);
        p.drawLine(QPointF(8.5, 3), QPointF(8.5, 21));
        p.drawLine(QPointF(11.5, 8), QPointF(16, 8));
    } else if (name == QLatin1String("gearshape")) {
        QPainterPath gear;
        for (int i = 0; i < 32; ++i) {
            const qreal a = i * M_PI / 16;
            const qreal rr = ((i / 2) % 2) ? 7.2 : 9.4;
            const QPointF pt(12 + rr * std::cos(a), 12 + rr * std::sin(a));
            i ? gear.lineTo(pt) : gear.moveTo(pt);
        }
        gear.closeSubpath();
        p.drawPath(gear);
        p.drawEllipse(QPointF(12, 12), 3, 3);
    } else if (name == QLatin1String("waveform")) {
        waveBars(p, color, 1.0);
    } else if (name == QLatin1String("waveform.circle.fill")) {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawEllipse(QRectF(1.5, 1.5, 21, 21));
        p.setBrush(Qt::NoBrush);
        waveBars(p, Qt::white, 0.7);
    } else if (name == QLatin1String("ellipsis")) {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        for (int i = 0; i < 3; ++i)
            p.drawEllipse(QPointF(5.5 + i * 6.5, 12), 2.1, 2.1);
    } else if (name == QLatin1String("arrow.uturn.down")) {
        QPainterPath path;
        path.moveTo(18, 4);
        path.lineTo(18, 11);
        path.arcTo(QRectF(6, 5, 12, 12), 0, -180);
        path.lineTo(6, 19);
        p.drawPath(path);
        p.drawLine(QPointF(6, 20), QPointF(2.8, 16.5));
        p.drawLine(QPointF(6, 20), QPointF(9.2, 16.5));
    } else if (name == QLatin1String("macwindow")) {
        p.drawRoundedRect(QRectF(3, 5, 18, 14), 2.5, 2.5);
        p.drawLine(QPointF(3, 9), QPointF(21, 9));
    } else if (name == QLatin1String("captions.bubble")) {
        QPainterPath b;
        b.addRoundedRect(QRectF(3, 4, 18, 13), 3, 3);
        p.drawPath(b);
        p.drawLine(QPointF(8, 17), QPointF(6.5, 21));
        p.drawLine(QPointF(6.5, 21), QPointF(11, 17));
        p.drawLine(QPointF(7, 9), QPointF(17, 9));
        p.drawLine(QPointF(7, 12.5), QPointF(14, 12.5));
    } else if (name == QLatin1String("speaker.wave.2")) {
        QPainterPath sp;
        sp.moveTo(3.5, 9.5);
        sp.lineTo(7, 9.5);
        sp.lineTo(11.5, 5.5);
        sp.lineTo(11.5, 18.5);
        sp.lineTo(7, 14.5);
        sp.lineTo(3.5, 14.5);
        sp.closeSubpath();
        p.drawPath(sp);
        p.drawArc(QRectF(10, 8, 6, 8), -50 * 16, 100 * 16);
        p.drawArc(QRectF(11, 4.5, 10, 15), -50 * 16, 100 * 16);
    } else if (name == QLatin1String("mic")) {
        Glyphs::microphone(p, QRectF(3, 3, 18, 18), color);
    } else if (name == QLatin1String("keyboard")) {
        p.drawRoundedRect(QRectF(2.5, 6, 19, 12), 2, 2);
        for (int row = 0; row < 2; ++row)
            for (int i = 0; i < 5; ++i)
                p.drawPoint(QPointF(6 + i * 3, 9.5 + row * 3));
        p.drawLine(QPointF(8, 15.5), QPointF(16, 15.5));
    } else if (name == QLatin1String("arrow.down.circle.fill")) {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawEllipse(QRectF(2, 2, 20, 20));
        p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawLine(QPointF(12, 7), QPointF(12, 16.5));
        p.drawLine(QPointF(12, 16.5), QPointF(8, 12.5));
        p.drawLine(QPointF(12, 16.5), QPointF(16, 12.5));
    } else if (name == QLatin1String("xmark")) {
        Glyphs::cross(p, QRectF(5, 5, 14, 14), color);
    } else if (name == QLatin1String("person.crop.circle")) {
        p.drawEllipse(QRectF(3, 3, 18, 18));
        p.drawEllipse(QPointF(12, 10), 3.2, 3.2);
        p.drawArc(QRectF(6.5, 14.5, 11, 8), 30 * 16, 120 * 16);
    } else if (name == QLatin1String("lock.shield")) {
        QPainterPath s;
        s.moveTo(12, 2.5);
        s.lineTo(20, 5.5);
        s.cubicTo(20, 14, 17, 18.5, 12, 21.5);
        s.cubicTo(7, 18.5, 4, 14, 4, 5.5);
        s.closeSubpath();
        p.drawPath(s);
        p.drawRect(QRectF(9, 11, 6, 5));
        p.drawArc(QRectF(10, 7.5, 4, 6), 0, 180 * 16);
    } else if (name == QLatin1String("slider.horizontal.3")) {
        for (int i = 0; i < 3; ++i) {
            const qreal y = 6 + i * 6;
            p.drawLine(QPointF(3, y), QPointF(21, y));
            p.setBrush(color);
            p.drawEllipse(QPointF(i == 1 ? 15 : 8 + i * 2, y), 2, 2);
            p.setBrush(Qt::NoBrush);
        }
    } else if (name == QLatin1String("eurosign")) {
        p.drawArc(QRectF(6, 4, 14, 16), 45 * 16, 270 * 16);
        p.drawLine(QPointF(4, 10.5), QPointF(13, 10.5));
        p.drawLine(QPointF(4, 13.5), QPointF(13, 13.5));
    } else if (name == QLatin1String("exclamationmark.triangle")) {
        QPainterPath t;
        t.moveTo(12, 3);
        t.lineTo(21.5, 20);
        t.lineTo(2.5, 20);
        t.closeSubpath();
        p.drawPath(t);
        p.drawLine(QPointF(12, 9), QPointF(12, 14));
        p.drawPoint(QPointF(12, 17));
    } else {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawEllipse(unit.center(), 3, 3);
    }
    p.restore();
}

QIcon icon(const QString& name, const QColor& color, int size) {
    QIcon out;
    for (int scale : {1, 2}) {
        QPixmap pm(size * scale, size * scale);
        pm.fill(Qt::transparent);
        {
            QPainter p(&pm);
            draw(p, name, QRectF(0, 0, pm.width(), pm.height()), color);
        }
        pm.setDevicePixelRatio(scale);
        out.addPixmap(pm);
    }
    return out;
}

QIcon trayIcon(const QString& name) {
    QIcon out;
    const QColor accent(0, 184, 169);
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pm(size, size);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(name == QLatin1String("waveform.circle.fill") ? QColor(222, 52, 42) : accent);
        p.drawRoundedRect(QRectF(0, 0, size, size), size * 0.22, size * 0.22);
        const QString inner =
            name == QLatin1String("waveform.circle.fill") ? QStringLiteral("waveform") : name;
        draw(p, inner, QRectF(size * 0.1, size * 0.1, size * 0.8, size * 0.8), Qt::white);
        p.end();
        out.addPixmap(pm);
    }
    return out;
}

} // namespace ombry::Symbols
