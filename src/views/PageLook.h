#pragma once

#include <QString>

class QFrame;
class QLabel;
class QPushButton;
class QWidget;

// Small pieces shared by the corrector, translator and meetings pages: cards, titles and
// buttons drawn from the application's palette, so both themes follow.
namespace ombry::PageLook {

// A rounded card with a vertical layout (margins 18, spacing 10).
QFrame* card(QWidget* parent = nullptr);
// The page's title and its line of explanation.
QWidget* header(const QString& title, const QString& subtitle, QWidget* parent = nullptr);
QLabel* sectionTitle(const QString& text, QWidget* parent = nullptr);
// Secondary text: smaller and dimmed.
QLabel* note(const QString& text, QWidget* parent = nullptr);
// The filled accent button of a page's main action.
QPushButton* primaryButton(const QString& text, QWidget* parent = nullptr);
// A flat bordered button; `checkable` ones show their checked state in the accent colour.
QPushButton* button(const QString& text, bool checkable = false, QWidget* parent = nullptr);
// The style sheet of a page, built from its palette; applied again when the palette changes.
QString styleSheet(const QWidget* page);

} // namespace ombry::PageLook
