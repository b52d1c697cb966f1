#pragma once

#include <QColor>
#include <QString>

class QWidget;

// The look of the main window: its colours in the light and the dark appearance, and the
// style sheet that gives the sidebar, the cards, the banners and the controls that look.
namespace ombry::ViewStyle {

struct Colors {
    QColor window;  // behind the pages
    QColor sidebar; // the sidebar's column
    QColor card;    // cards and banners
    QColor border;
    QColor text;
    QColor secondary; // smaller, quieter text
    QColor accent;    // the product's teal
    QColor accentSoft;
    QColor selection; // the chosen row of the sidebar
    QColor warning;
    QColor danger;
    QColor control; // fields, buttons
};

Colors colors(bool dark);
QString styleSheet(bool dark);

// Whether the main window is drawn dark now: the theme setting, or TALVO_THEME=dark for
// pictures of the pages.
bool darkNow();

// Gives a widget tree the look (style sheet and palette) of the appearance.
void apply(QWidget* root, bool dark);

} // namespace ombry::ViewStyle
