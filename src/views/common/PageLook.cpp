#include "views/common/PageLook.h"

#include "views/common/Components.h"
#include "views/common/ViewStyle.h"
#include "views/shell/Pages.h"

#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace ombry::PageLook {

QFrame* card(QWidget* parent) {
    return Components::card(nullptr, parent);
}

QWidget* header(Page page, QWidget* parent) {
    return Components::pageHeader(label(page), pageSubtitle(page), parent);
}

QLabel* sectionTitle(const QString& text, QWidget* parent) {
    return Components::text(text, "cardTitle", parent);
}

QLabel* note(const QString& text, QWidget* parent) {
    return Components::text(text, "secondary", parent);
}

QPushButton* primaryButton(const QString& text, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(QStringLiteral("primary"));
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

QPushButton* button(const QString& text, bool checkable, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setCheckable(checkable);
    if (checkable) b->setObjectName(QStringLiteral("chip"));
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

QPushButton* tab(const QString& text, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(QStringLiteral("tab"));
    b->setCheckable(true);
    b->setCursor(Qt::PointingHandCursor);
    return b;
}

void mark(QWidget* w, const char* name) {
    w->setProperty("part", QString::fromLatin1(name));
}

QWidget* scrolled(QWidget* content) {
    auto* area = new QScrollArea;
    area->setObjectName(QStringLiteral("pageScroll"));
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    content->setObjectName(QStringLiteral("pageContent"));
    area->setWidget(content);
    return area;
}

QVBoxLayout* scrolledPage(QWidget* page) {
    auto* outer = new QVBoxLayout(page);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* content = new QWidget;
    outer->addWidget(scrolled(content));
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 6, 0);
    layout->setSpacing(16);
    return layout;
}

QString fieldSheet() {
    const ViewStyle::Colors c = ViewStyle::colors(ViewStyle::darkNow());
    return QStringLiteral("QPlainTextEdit, QTextBrowser { background: %1; border: 1px solid %2;"
                          " border-radius: 8px; padding: 4px; selection-background-color: %3; }")
        .arg(c.control.name(), c.border.name(), c.accent.name());
}

QString accentColor() {
    return ViewStyle::colors(ViewStyle::darkNow()).accent.name();
}

QString warningColor() {
    return ViewStyle::colors(ViewStyle::darkNow()).warning.name();
}

QString secondaryColor() {
    return ViewStyle::colors(ViewStyle::darkNow()).secondary.name();
}

QString dangerColor() {
    return ViewStyle::colors(ViewStyle::darkNow()).danger.name();
}

} // namespace ombry::PageLook
