#pragma once

#include <QFrame>
#include <QLabel>
#include <QString>

class QBoxLayout;
class QHBoxLayout;
class QVBoxLayout;

// Small shared pieces of the pages: cards, page headers, section titles, setting rows.
namespace ombry::Components {

// A label with a style role (its object name: "secondary", "cardTitle", …), word-wrapped.
QLabel* text(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);

// A rounded card with a vertical layout of its own (returned through `layout`).
QFrame* card(QVBoxLayout** layout = nullptr, QWidget* parent = nullptr);

// The head of a page: its title in large type and a line under it.
QWidget* pageHeader(const QString& title, const QString& subtitle, QWidget* parent = nullptr);

QLabel* sectionTitle(const QString& title, QWidget* parent = nullptr);

// A row of a settings card: title and detail on the left, the control on the right.
QWidget* row(const QString& title, const QString& detail, QWidget* control,
             QWidget* parent = nullptr);

// An image of a symbol at `size` logical pixels.
QLabel* symbol(const QString& name, const QColor& color, int size = 20, QWidget* parent = nullptr);

} // namespace ombry::Components
