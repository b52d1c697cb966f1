#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

class QPainter;
class QRectF;

// The symbols of the window, the tray and the menus, drawn in code by name ("waveform",
// "gearshape", …) so that they are sharp at every scale and need no icon theme.
namespace ombry::Symbols {

// Draws the symbol into the square r; an unknown name draws a small dot.
void draw(QPainter& p, const QString& name, const QRectF& r, const QColor& color);
// An icon of the symbol, drawn at the logical size for scale 1 and 2.
QIcon icon(const QString& name, const QColor& color, int size = 20);
// The tray icon: the symbol in the accent colour on a rounded tile, readable on light and dark
// panels.
QIcon trayIcon(const QString& name);
// Whether the name has a drawing of its own.
bool known(const QString& name);

} // namespace ombry::Symbols
