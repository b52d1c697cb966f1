#pragma once

#include "views/shell/Navigation.h"

#include <QString>

class QFrame;
class QLabel;
class QPushButton;
class QVBoxLayout;
class QWidget;

// The pieces the corrector, translator and meetings pages are made of, in the window's look
// (the object names its style sheet knows: card, cardTitle, secondary, primary, chip, tab).
namespace ombry::PageLook {

// A rounded card with a vertical layout.
QFrame* card(QWidget* parent = nullptr);
// The page's title and line, as the sidebar names the page.
QWidget* header(Page page, QWidget* parent = nullptr);
// The title of a card.
QLabel* sectionTitle(const QString& text, QWidget* parent = nullptr);
// Quieter text.
QLabel* note(const QString& text, QWidget* parent = nullptr);
// The filled accent button of a page's main action.
QPushButton* primaryButton(const QString& text, QWidget* parent = nullptr);
// A plain button; a checkable one is a chip that fills with the accent when chosen.
QPushButton* button(const QString& text, bool checkable = false, QWidget* parent = nullptr);
// The tab buttons of a page's tab row.
QPushButton* tab(const QString& text, QWidget* parent = nullptr);
// Names a part of a page for whoever looks for it (tests), apart from its style role.
void mark(QWidget* w, const char* name);
// A scroll area in the window's page colours around `content`.
QWidget* scrolled(QWidget* content);
// Fills `page` with a scroll area; returns the layout of what scrolls, in the pages' spacing.
QVBoxLayout* scrolledPage(QWidget* page);
// The look of the text fields of a page in the current appearance.
QString fieldSheet();
// Colours of the current appearance for text drawn inside labels.
QString accentColor();
QString dangerColor();
QString warningColor();
QString secondaryColor();

} // namespace ombry::PageLook
