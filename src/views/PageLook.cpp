#include "views/PageLook.h"

#include <QFrame>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QVBoxLayout>

namespace ombry::PageLook {

namespace {

const QColor kAccent(0, 166, 153);

QString rgba(const QColor& c) {
    return QStringLiteral("rgba(%1,%2,%3,%4)")
        .arg(c.red())
        .arg(c.green())
        .arg(c.blue())
        .arg(c.alpha());
}

} // namespace

QFrame* card(QWidget* parent) {
    auto* frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("card"));
    auto* layout = new QVBoxLayout(frame);
    layout->setContentsMargins(18, 16, 18, 16);
    layout->setSpacing(10);
    return frame;
}

QWidget* header(const QString& title, const QString& subtitle, QWidget* parent) {
    auto* box = new QWidget(parent);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 4);
    layout->setSpacing(2);
    auto* t = new QLabel(title, box);
    t->setObjectName(QStringLiteral("pageTitle"));
    layout->addWidget(t);
    if (!subtitle.isEmpty()) layout->addWidget(note(subtitle, box));
    return box;
}

QLabel* sectionTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("sectionTitle"));
    return label;
}

QLabel* note(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("note"));
    label->setWordWrap(true);
    return label;
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
    b->setCursor(Qt::PointingHandCursor);
    b->setProperty("pill", true);
    return b;
}

QString styleSheet(const QWidget* page) {
    const QPalette p = page->palette();
    const bool dark = p.color(QPalette::Window).lightness() < 128;
    const QColor text = p.color(QPalette::WindowText);
    QColor secondary = text;
    secondary.setAlpha(150);
    const QColor cardBg = dark ? QColor(255, 255, 255, 14) : QColor(255, 255, 255);
    const QColor border = dark ? QColor(255, 255, 255, 28) : QColor(0, 0, 0, 22);
    const QColor field = dark ? QColor(0, 0, 0, 60) : QColor(246, 246, 248);
    QColor accentSoft = kAccent;
    accentSoft.setAlpha(dark ? 70 : 40);
    return QStringLiteral(
               "QFrame#card { background: %1; border: 1px solid %2; border-radius: 14px; }"
               "QLabel { background: transparent; border: none; }"
               "QLabel#pageTitle { font-size: 22pt; font-weight: 600; }"
               "QLabel#sectionTitle { font-size: 12pt; font-weight: 600; }"
               "QLabel#note { color: %3; }"
               "QLabel#error { color: #e5484d; }"
               "QLabel#bigNumber { font-size: 30pt; font-weight: 700; }"
               "QPlainTextEdit, QTextBrowser { background: %4; border: 1px solid %2;"
               " border-radius: 10px; padding: 6px; font-size: 11pt; }"
               "QPushButton[pill=\"true\"] { background: transparent; border: 1px solid %2;"
               " border-radius: 8px; padding: 5px 12px; }"
               "QPushButton[pill=\"true\"]:hover { background: %5; }"
               "QPushButton[pill=\"true\"]:checked { background: %5; border-color: %6;"
               " color: %6; font-weight: 600; }"
               "QPushButton#primary { background: %6; color: white; border: none;"
               " border-radius: 8px; padding: 7px 18px; font-weight: 600; }"
               "QPushButton#primary:disabled { background: %2; color: %3; }"
               "QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; border: "
               "none; }")
        .arg(rgba(cardBg), rgba(border), rgba(secondary), rgba(field), rgba(accentSoft),
             kAccent.name());
}

} // namespace ombry::PageLook
