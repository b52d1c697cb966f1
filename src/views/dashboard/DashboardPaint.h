#pragma once

#include <QColor>
#include <QFrame>
#include <QIcon>
#include <QRectF>
#include <QString>

#include "views/shell/Navigation.h"

class QLabel;
class QPainter;
class QPalette;
class QVBoxLayout;
class QWidget;

// The look shared by the dashboard, history and dictionary pages: the window's colours in the
// appearance its palette shows, cards, page heads, the application badge and the small
// symbols of these pages, drawn in code so that they need no icon theme.
namespace ombry {

struct PageColors {
    bool dark = false;
    QColor window;
    QColor card;
    QColor border;
    QColor text;
    QColor secondary;
    QColor accent;
    QColor accentSoft; // the accent, faint, behind symbols and chosen chips
    QColor control;    // the background of small buttons and chips
};

PageColors pageColors(const QPalette& palette);

// Symbols by name: "flame", "seal", "sparkles", "card", "words", "sun", "speed", "hourglass",
// "copy", "play", "retry", "chevron-down", "chevron-up", "trash", "cross", "arrow", "search",
// "book", "bolt", "wand". An unknown name draws a dot.
void paintSymbol(QPainter& p, const QString& name, const QRectF& r, const QColor& color);

// The symbol as an icon for buttons, at 1× and 2× scale.
QIcon symbolIcon(const QString& name, const QColor& color, int size = 16);

// The font at `factor` times its size, whether it is set in points or (by a style sheet) in
// pixels.
QFont scaledFont(QFont font, qreal factor);

// A round badge with the initial of an application, in a colour of its own.
void paintAppBadge(QPainter& p, const QRectF& r, const QString& appName);

// A rounded card in the page's card colour with a thin border.
class PageCard : public QFrame {
    Q_OBJECT
public:
    explicit PageCard(QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A symbol in a faint accent circle, the size of the widget.
class SymbolCircle : public QWidget {
    Q_OBJECT
public:
    explicit SymbolCircle(const QString& symbol, int size = 32, QWidget* parent = nullptr);
    void setSymbol(const QString& symbol);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString symbol_;
};

// Fills `page` with a scroll area that only scrolls down; returns the layout of what scrolls,
// in the pages' spacing.
QVBoxLayout* makeScrolledPage(QWidget* page);
// The head of a page as every page of the window has it: title and the line under it.
QWidget* makePageHeader(Page page);
// The title of a card.
QLabel* makeCardTitle(const QString& text, QWidget* parent = nullptr);
// Text in the secondary colour of the palette.
void makeSecondary(QLabel* label);

} // namespace ombry
