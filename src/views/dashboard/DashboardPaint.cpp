#include "views/dashboard/DashboardPaint.h"

#include "views/common/Components.h"
#include "views/common/ViewStyle.h"
#include "views/shell/Pages.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QPixmap>
#include <QScrollArea>
#include <QVBoxLayout>
#include <QtMath>
#include <cmath>

namespace ombry {

PageColors pageColors(const QPalette& palette) {
    // The window's own colours, in the appearance the palette shows: light text means the dark
    // appearance (the background may be transparent, the text colour never is).
    const bool dark = palette.color(QPalette::WindowText).lightness() > 128;
    const ViewStyle::Colors v = ViewStyle::colors(dark);
    PageColors c;
    c.dark = dark;
    c.window = v.window;
    c.card = v.card;
    c.border = v.border;
    c.text = v.text;
    c.secondary = v.secondary;
    c.accent = v.accent;
    c.accentSoft = v.accentSoft;
    c.control = v.control;
    return c;
}

void paintSymbol(QPainter& p, const QString& name, const QRectF& r, const QColor& color) {
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    const qreal s = std::min(r.width(), r.height());
    const QRectF b(r.center().x() - s / 2, r.center().y() - s / 2, s, s);
    const auto at = [&](qreal x, qreal y) { return QPointF(b.left() + x * s, b.top() + y * s); };
    QPen pen(color, std::max<qreal>(1.2, s / 11), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);

    if (name == u"flame") {
        QPainterPath f;
        f.moveTo(at(0.5, 0.08));
        f.cubicTo(at(0.62, 0.3), at(0.86, 0.42), at(0.84, 0.64));
        f.cubicTo(at(0.82, 0.84), at(0.66, 0.94), at(0.5, 0.94));
        f.cubicTo(at(0.32, 0.94), at(0.16, 0.82), at(0.17, 0.62));
        f.cubicTo(at(0.18, 0.46), at(0.3, 0.38), at(0.36, 0.28));
        f.cubicTo(at(0.4, 0.42), at(0.46, 0.46), at(0.5, 0.48));
        f.cubicTo(at(0.54, 0.36), at(0.52, 0.2), at(0.5, 0.08));
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawPath(f);
    } else if (name == u"seal") {
        QPainterPath star;
        for (int i = 0; i < 24; ++i) {
            const qreal a = i * M_PI / 12;
            const qreal rr = (i % 2 ? 0.40 : 0.46) * s;
            const QPointF q(b.center().x() + rr * std::cos(a), b.center().y() + rr * std::sin(a));
            i == 0 ? star.moveTo(q) : star.lineTo(q);
        }
        star.closeSubpath();
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawPath(star);
        // The mark in white on a coloured seal, in the accent on a white one.
        const QColor mark = color.lightness() > 200 ? QColor(0, 150, 138) : QColor(Qt::white);
        p.setPen(QPen(mark, s / 9, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QPolygonF{at(0.32, 0.52), at(0.45, 0.64), at(0.68, 0.38)});
    } else if (name == u"sparkles") {
        const auto sparkle = [&](QPointF c, qreal rr) {
            QPainterPath path;
            path.moveTo(c.x(), c.y() - rr);
            path.quadTo(c, QPointF(c.x() + rr, c.y()));
            path.quadTo(c, QPointF(c.x(), c.y() + rr));
            path.quadTo(c, QPointF(c.x() - rr, c.y()));
            path.quadTo(c, QPointF(c.x(), c.y() - rr));
            p.drawPath(path);
        };
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        sparkle(at(0.42, 0.56), 0.38 * s);
        sparkle(at(0.78, 0.22), 0.18 * s);
    } else if (name == u"card") {
        p.drawRoundedRect(QRectF(at(0.08, 0.22), at(0.92, 0.78)), s * 0.08, s * 0.08);
        p.drawLine(at(0.08, 0.4), at(0.92, 0.4));
        p.drawLine(at(0.2, 0.62), at(0.42, 0.62));
    } else if (name == u"words") {
        p.drawLine(at(0.12, 0.3), at(0.88, 0.3));
        p.drawLine(at(0.12, 0.5), at(0.7, 0.5));
        p.drawLine(at(0.12, 0.7), at(0.8, 0.7));
    } else if (name == u"sun") {
        p.setBrush(color);
        p.drawEllipse(b.center(), s * 0.17, s * 0.17);
        for (int i = 0; i < 8; ++i) {
            const qreal a = i * M_PI / 4;
            const QPointF d(std::cos(a), std::sin(a));
            p.drawLine(b.center() + d * s * 0.3, b.center() + d * s * 0.44);
        }
    } else if (name == u"speed") {
        p.drawArc(QRectF(at(0.1, 0.18), at(0.9, 0.98)), 0, 180 * 16);
        p.drawLine(at(0.5, 0.58), at(0.72, 0.34));
        p.setBrush(color);
        p.drawEllipse(at(0.5, 0.58), s * 0.06, s * 0.06);
    } else if (name == u"hourglass") {
        p.drawLine(at(0.22, 0.1), at(0.78, 0.1));
        p.drawLine(at(0.22, 0.9), at(0.78, 0.9));
        p.drawPolyline(
            QPolygonF{at(0.28, 0.1), at(0.28, 0.22), at(0.5, 0.5), at(0.72, 0.22), at(0.72, 0.1)});
        p.drawPolyline(
            QPolygonF{at(0.28, 0.9), at(0.28, 0.78), at(0.5, 0.5), at(0.72, 0.78), at(0.72, 0.9)});
        p.setBrush(color);
        p.drawPolygon(QPolygonF{at(0.36, 0.84), at(0.5, 0.66), at(0.64, 0.84)});
    } else if (name == u"copy") {
        p.drawRoundedRect(QRectF(at(0.14, 0.1), at(0.64, 0.66)), s * 0.08, s * 0.08);
        p.setBrush(QColor(0, 0, 0, 0));
        p.drawRoundedRect(QRectF(at(0.36, 0.34), at(0.86, 0.9)), s * 0.08, s * 0.08);
    } else if (name == u"play") {
        p.setBrush(color);
        p.drawPolygon(QPolygonF{at(0.26, 0.14), at(0.84, 0.5), at(0.26, 0.86)});
    } else if (name == u"retry") {
        p.drawArc(QRectF(at(0.14, 0.14), at(0.86, 0.86)), 60 * 16, 290 * 16);
        p.drawPolyline(QPolygonF{at(0.5, 0.04), at(0.72, 0.18), at(0.54, 0.36)});
    } else if (name == u"chevron-down") {
        p.drawPolyline(QPolygonF{at(0.22, 0.36), at(0.5, 0.64), at(0.78, 0.36)});
    } else if (name == u"chevron-up") {
        p.drawPolyline(QPolygonF{at(0.22, 0.64), at(0.5, 0.36), at(0.78, 0.64)});
    } else if (name == u"trash") {
        p.drawLine(at(0.14, 0.24), at(0.86, 0.24));
        p.drawLine(at(0.38, 0.24), at(0.42, 0.1));
        p.drawLine(at(0.42, 0.1), at(0.58, 0.1));
        p.drawLine(at(0.58, 0.1), at(0.62, 0.24));
        p.drawPolyline(QPolygonF{at(0.22, 0.24), at(0.28, 0.9), at(0.72, 0.9), at(0.78, 0.24)});
        p.drawLine(at(0.42, 0.4), at(0.42, 0.74));
        p.drawLine(at(0.58, 0.4), at(0.58, 0.74));
    } else if (name == u"cross") {
        p.drawLine(at(0.26, 0.26), at(0.74, 0.74));
        p.drawLine(at(0.74, 0.26), at(0.26, 0.74));
    } else if (name == u"arrow") {
        p.drawLine(at(0.12, 0.5), at(0.86, 0.5));
        p.drawPolyline(QPolygonF{at(0.58, 0.24), at(0.86, 0.5), at(0.58, 0.76)});
    } else if (name == u"search") {
        p.drawEllipse(QRectF(at(0.12, 0.12), at(0.66, 0.66)));
        p.drawLine(at(0.6, 0.6), at(0.88, 0.88));
    } else if (name == u"book") {
        p.drawRoundedRect(QRectF(at(0.18, 0.1), at(0.82, 0.9)), s * 0.06, s * 0.06);
        p.drawLine(at(0.34, 0.1), at(0.34, 0.9));
        p.drawLine(at(0.46, 0.32), at(0.7, 0.32));
    } else if (name == u"bolt") {
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawPolygon(QPolygonF{at(0.58, 0.06), at(0.2, 0.56), at(0.48, 0.56), at(0.4, 0.94),
                                at(0.8, 0.42), at(0.52, 0.42)});
    } else if (name == u"wand") {
        p.drawLine(at(0.14, 0.86), at(0.62, 0.38));
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        for (const auto& [c, rr] :
             {std::pair{at(0.74, 0.26), 0.16}, {at(0.4, 0.16), 0.09}, {at(0.86, 0.58), 0.09}}) {
            QPainterPath path;
            path.moveTo(c.x(), c.y() - rr * s);
            path.quadTo(c, QPointF(c.x() + rr * s, c.y()));
            path.quadTo(c, QPointF(c.x(), c.y() + rr * s));
            path.quadTo(c, QPointF(c.x() - rr * s, c.y()));
            path.quadTo(c, QPointF(c.x(), c.y() - rr * s));
            p.drawPath(path);
        }
    } else {
        p.setBrush(color);
        p.drawEllipse(b.center(), s * 0.15, s * 0.15);
    }
    p.restore();
}

QIcon symbolIcon(const QString& name, const QColor& color, int size) {
    QIcon icon;
    for (int scale : {1, 2}) {
        QPixmap pm(size * scale, size * scale);
        pm.setDevicePixelRatio(scale);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        paintSymbol(p, name, QRectF(1, 1, size - 2, size - 2), color);
        p.end();
        icon.addPixmap(pm);
    }
    return icon;
}

QFont scaledFont(QFont font, qreal factor) {
    if (font.pixelSize() > 0)
        font.setPixelSize(std::max(1, int(std::lround(font.pixelSize() * factor))));
    else if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * factor);
    return font;
}

void paintAppBadge(QPainter& p, const QRectF& r, const QString& appName) {
    static const QColor colors[] = {QColor(0x3B, 0x82, 0xF6), QColor(0x8B, 0x5C, 0xF6),
                                    QColor(0xEC, 0x48, 0x99), QColor(0xF5, 0x9E, 0x0B),
                                    QColor(0x10, 0xB9, 0x81), QColor(0x06, 0xB6, 0xD4),
                                    QColor(0xEF, 0x44, 0x44), QColor(0x64, 0x74, 0x8B)};
    const QString name = appName.trimmed();
    const QColor color = colors[qHash(name) % std::size(colors)];
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRoundedRect(r, r.width() * 0.28, r.height() * 0.28);
    QFont f = p.font();
    f.setBold(true);
    f.setPixelSize(std::max(8, int(r.height() * 0.55)));
    p.setFont(f);
    p.setPen(Qt::white);
    p.drawText(r, Qt::AlignCenter, name.isEmpty() ? QStringLiteral("?") : name.left(1).toUpper());
    p.restore();
}

PageCard::PageCard(QWidget* parent) : QFrame(parent) {
    setAttribute(Qt::WA_StyledBackground, false);
}

void PageCard::paintEvent(QPaintEvent*) {
    const PageColors c = pageColors(palette());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(c.border, 1));
    p.setBrush(c.card);
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 12, 12);
}

SymbolCircle::SymbolCircle(const QString& symbol, int size, QWidget* parent)
    : QWidget(parent), symbol_(symbol) {
    setFixedSize(size, size);
}

void SymbolCircle::setSymbol(const QString& symbol) {
    symbol_ = symbol;
    update();
}

void SymbolCircle::paintEvent(QPaintEvent*) {
    const PageColors c = pageColors(palette());
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(c.accentSoft);
    p.drawEllipse(QRectF(rect()));
    const qreal inset = width() * 0.26;
    paintSymbol(p, symbol_, QRectF(rect()).adjusted(inset, inset, -inset, -inset), c.accent);
}

QVBoxLayout* makeScrolledPage(QWidget* page) {
    auto* outer = new QVBoxLayout(page);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("pageScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->viewport()->setAutoFillBackground(false);
    outer->addWidget(scroll);
    auto* content = new QWidget;
    content->setObjectName(QStringLiteral("pageContent"));
    scroll->setWidget(content);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 8);
    layout->setSpacing(16);
    return layout;
}

QWidget* makePageHeader(Page page) {
    return Components::pageHeader(label(page), pageSubtitle(page));
}

QLabel* makeCardTitle(const QString& text, QWidget* parent) {
    return Components::text(text, "cardTitle", parent);
}

void makeSecondary(QLabel* label) {
    // The window's style sheet gives every widget the text colour: the quieter one is set on
    // the label itself. A change of appearance builds the pages again.
    label->setStyleSheet(
        QStringLiteral("color: %1;").arg(ViewStyle::colors(ViewStyle::darkNow()).secondary.name()));
}

} // namespace ombry
