#include "app/OmbryIcon.h"

#include <QDir>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <cmath>

namespace ombry::OmbryIcon {
namespace {

// Everything is drawn on a 1024-unit square and scaled to the target size. Below 48 pixels
// the details that would turn to mush (waves, grille, shadows) are left out and strokes grow.
constexpr double kUnits = 1024.0;

struct Detail {
    bool shadow;   // soft shadow under the tile and under the glyph
    bool waves;    // sound waves beside the microphone
    bool grille;   // slots on the microphone head
    double margin; // space between the tile and the canvas edge
    double radius; // corner radius of the tile
    double stroke; // line width of the glyph
    double glyphScale;
};

Detail detailFor(int size) {
    if (size <= 24) return {false, false, false, 0.0, 200.0, 92.0, 1.32};
    if (size <= 32) return {false, false, false, 16.0, 210.0, 76.0, 1.2};
    if (size <= 64) return {true, true, false, 48.0, 216.0, 58.0, 1.0};
    return {true, true, true, 72.0, 210.0, 48.0, 1.0};
}

QPainterPath tilePath(const Detail& d) {
    QPainterPath p;
    const QRectF r(d.margin, d.margin, kUnits - 2 * d.margin, kUnits - 2 * d.margin);
    p.addRoundedRect(r, d.radius, d.radius);
    return p;
}

void drawTileShadow(QPainter& p, const Detail& d) {
    // Stacked translucent tiles, each a little larger and lower: a soft shadow without a blur.
    p.setPen(Qt::NoPen);
    for (int i = 8; i >= 1; --i) {
        const double grow = i * 3.0;
        const QRectF r(d.margin - grow, d.margin - grow + 10 + i * 2.0,
                       kUnits - 2 * d.margin + 2 * grow, kUnits - 2 * d.margin + 2 * grow);
        p.setBrush(QColor(0, 0, 0, 5));
        p.drawRoundedRect(r, d.radius + grow, d.radius + grow);
    }
}

void drawTile(QPainter& p, const QColor& accent, const Detail& d) {
    const QPainterPath tile = tilePath(d);
    const QRectF r = tile.boundingRect();

    QColor top = accent.lighter(122);
    QColor bottom = accent.darker(135);
    QLinearGradient fill(r.topLeft(), r.bottomRight());
    fill.setColorAt(0.0, top);
    fill.setColorAt(0.55, accent);
    fill.setColorAt(1.0, bottom);
    p.fillPath(tile, fill);

    // A soft light from the upper left.
    QRadialGradient light(QPointF(r.left() + r.width() * 0.25, r.top() + r.height() * 0.12),
                          r.width() * 0.9);
    light.setColorAt(0.0, QColor(255, 255, 255, 70));
    light.setColorAt(1.0, QColor(255, 255, 255, 0));
    p.fillPath(tile, light);

    if (d.shadow) {
        // A thin bright rim along the top edge and a darker one along the bottom.
        QLinearGradient rim(r.topLeft(), r.bottomLeft());
        rim.setColorAt(0.0, QColor(255, 255, 255, 110));
        rim.setColorAt(0.5, QColor(255, 255, 255, 0));
        rim.setColorAt(0.85, QColor(0, 0, 0, 0));
        rim.setColorAt(1.0, QColor(0, 0, 0, 60));
        p.strokePath(tile, QPen(QBrush(rim), 6.0));
    }
}

// The microphone: a capsule head, a U-shaped holder, a stem and a foot, with sound waves.
void drawMicrophone(QPainter& p, const QColor& accent, const Detail& d, const QColor& ink,
                    bool isShadow) {
    const double s = d.glyphScale;
    const double cx = kUnits / 2;
    const double headW = 210 * s, headH = 360 * s;
    const double headTop = 512 - 90 * s - headH / 2 - 20 * s;
    const QRectF head(cx - headW / 2, headTop, headW, headH);
    const double w = d.stroke;

    QPen pen(ink, w, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);

    // Head.
    p.setPen(Qt::NoPen);
    if (isShadow) {
        p.setBrush(ink);
    } else {
        QLinearGradient g(head.topLeft(), head.bottomLeft());
        g.setColorAt(0.0, QColor(255, 255, 255));
        g.setColorAt(1.0, QColor(232, 248, 246));
        p.setBrush(g);
    }
    p.drawRoundedRect(head, headW / 2, headW / 2);

    if (d.grille && !isShadow) {
        QColor slot = accent;
        slot.setAlpha(120);
        p.setPen(QPen(slot, 16, Qt::SolidLine, Qt::RoundCap));
        for (int i = 0; i < 3; ++i) {
            const double y = head.top() + headH * (0.30 + 0.13 * i);
            p.drawLine(QPointF(cx - headW * 0.22, y), QPointF(cx + headW * 0.22, y));
        }
    }

    // Holder: a U around the lower half of the head.
    const double holderR = headW / 2 + 70 * s;
    const double holderCy = head.bottom() - headW / 2;
    const double holderTop = holderCy - 60 * s;
    QPainterPath holder;
    holder.moveTo(cx - holderR, holderTop);
    holder.lineTo(cx - holderR, holderCy);
    holder.arcTo(QRectF(cx - holderR, holderCy - holderR, 2 * holderR, 2 * holderR), 180, 180);
    holder.lineTo(cx + holderR, holderTop);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    p.drawPath(holder);

    // Stem and foot.
    const double stemTop = holderCy + holderR;
    const double footY = stemTop + 110 * s;
    p.drawLine(QPointF(cx, stemTop), QPointF(cx, footY));
    p.drawLine(QPointF(cx - 100 * s, footY), QPointF(cx + 100 * s, footY));

    if (!d.waves) return;
    // Two sound waves on each side, centred on the head, fading outward.
    const QPointF centre(cx, head.center().y() + 20 * s);
    const double radii[] = {255 * s, 340 * s};
    const int alphas[] = {235, 150};
    for (int i = 0; i < 2; ++i) {
        QColor c = ink;
        c.setAlpha(isShadow ? ink.alpha() : alphas[i]);
        p.setPen(QPen(c, w * 0.9, Qt::SolidLine, Qt::RoundCap));
        const double r = radii[i];
        const QRectF box(centre.x() - r, centre.y() - r, 2 * r, 2 * r);
        p.drawArc(box, int(155 * 16), int(50 * 16)); // left
        p.drawArc(box, int(-25 * 16), int(50 * 16)); // right
    }
}

// A waveform: rounded bars, tallest in the middle; three wider bars at the smallest sizes.
void drawWaveform(QPainter& p, const Detail& d, const QColor& ink) {
    static const double five[] = {240, 440, 620, 440, 240};
    static const double three[] = {420, 680, 420};
    const bool small = d.stroke > 70;
    const int count = small ? 3 : 5;
    const double* heights = small ? three : five;
    const double barW = small ? 150 : 84;
    const double gap = small ? 90 : 62;
    const double total = count * barW + (count - 1) * gap;
    p.setPen(Qt::NoPen);
    p.setBrush(ink);
    for (int i = 0; i < count; ++i) {
        const double h = heights[i];
        const QRectF bar(kUnits / 2 - total / 2 + i * (barW + gap), kUnits / 2 - h / 2, barW, h);
        p.drawRoundedRect(bar, barW / 2, barW / 2);
    }
}

void drawGlyph(QPainter& p, const QColor& accent, const Detail& d, int glyph, const QColor& ink,
               bool isShadow) {
    if (glyph == 1)
        drawWaveform(p, d, ink);
    else
        drawMicrophone(p, accent, d, ink, isShadow);
}

} // namespace

QImage render(int size, const QColor& accent, int glyph) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / kUnits, size / kUnits);

    const Detail d = detailFor(size);
    if (d.shadow) drawTileShadow(p, d);
    drawTile(p, accent, d);

    if (d.shadow) {
        // The glyph casts a faint shadow down onto the tile. It is drawn flat into a layer
        // first, so that overlapping strokes do not darken where they meet.
        QImage layer(size, size, QImage::Format_ARGB32_Premultiplied);
        layer.fill(Qt::transparent);
        QPainter lp(&layer);
        lp.setRenderHint(QPainter::Antialiasing);
        lp.scale(size / kUnits, size / kUnits);
        drawGlyph(lp, accent, d, glyph, QColor(0, 50, 48), true);
        lp.end();
        p.save();
        p.resetTransform();
        p.setClipPath(QTransform::fromScale(size / kUnits, size / kUnits).map(tilePath(d)));
        p.setOpacity(0.22);
        p.drawImage(QPointF(0, size * 12 / kUnits), layer);
        p.restore();
    }
    drawGlyph(p, accent, d, glyph, Qt::white, false);
    p.end();
    return image;
}

bool writeIconset(const QString& folder, const QColor& accent, int glyph, QString* error) {
    for (int n : kSizes) {
        // The folder is taken literally: a "%2" in its name stays as it is.
        const QString dir = folder + QStringLiteral("/hicolor/%1x%1/apps").arg(n);
        const QString file = dir + QStringLiteral("/ombry-voice.png");
        if (!QDir().mkpath(dir) || !render(n, accent, glyph).save(file, "PNG")) {
            if (error) *error = QStringLiteral("impossible d'écrire l'icône dans %1").arg(dir);
            return false;
        }
    }
    return true;
}

} // namespace ombry::OmbryIcon
