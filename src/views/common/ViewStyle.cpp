#include "views/common/ViewStyle.h"

#include "data/Settings.h"
#include "views/shell/Navigation.h"

#include <QPalette>
#include <QWidget>

namespace ombry::ViewStyle {

Colors colors(bool dark) {
    Colors c;
    if (dark) {
        c.window = QColor(0x1C, 0x1C, 0x20);
        c.sidebar = QColor(0x24, 0x24, 0x29);
        c.card = QColor(0x2A, 0x2A, 0x30);
        c.border = QColor(0x3A, 0x3A, 0x42);
        c.text = QColor(0xF0, 0xF0, 0xF4);
        c.secondary = QColor(0xA0, 0xA0, 0xAA);
        c.accent = QColor(0x00, 0xC2, 0xB2);
        c.accentSoft = QColor(0x00, 0xB8, 0xA9, 50);
        c.selection = QColor(0x00, 0xB8, 0xA9, 60);
        c.warning = QColor(0xF5, 0xA6, 0x23);
        c.danger = QColor(0xFF, 0x5A, 0x4E);
        c.control = QColor(0x34, 0x34, 0x3C);
    } else {
        c.window = QColor(0xF6, 0xF6, 0xF8);
        c.sidebar = QColor(0xEC, 0xEE, 0xF1);
        c.card = QColor(0xFF, 0xFF, 0xFF);
        c.border = QColor(0xE0, 0xE1, 0xE6);
        c.text = QColor(0x1C, 0x1C, 0x1E);
        c.secondary = QColor(0x6B, 0x6B, 0x75);
        c.accent = QColor(0x00, 0xA0, 0x93);
        c.accentSoft = QColor(0x00, 0xB8, 0xA9, 30);
        c.selection = QColor(0x00, 0xB8, 0xA9, 38);
        c.warning = QColor(0xD9, 0x8A, 0x00);
        c.danger = QColor(0xD9, 0x34, 0x2A);
        c.control = QColor(0xF0, 0xF1, 0xF4);
    }
    return c;
}

namespace {
QString rgba(const QColor& c) {
    return QStringLiteral("rgba(%1,%2,%3,%4)")
        .arg(c.red())
        .arg(c.green())
        .arg(c.blue())
        .arg(c.alpha());
}
} // namespace

QString styleSheet(bool dark) {
    const Colors c = colors(dark);
    QString s = QStringLiteral(R"(
QWidget#mainView, QWidget#pageArea, QScrollArea#pageScroll, QWidget#pageContent { background: @window; }
QWidget { color: @text; font-size: 13px; }
QWidget#sidebar { background: @sidebar; border-right: 1px solid @border; }
QFrame#card, QFrame#banner, QFrame#welcome, QFrame#statusCard, QFrame#onboardingCard {
  background: @card; border: 1px solid @border; border-radius: 12px; }
QFrame#banner[tone="warning"] { border: 1px solid @warning; }
QFrame#banner[tone="accent"] { border: 1px solid @accent; }
QLabel { background: transparent; border: none; }
QLabel#pageTitle { font-size: 26px; font-weight: 700; }
QLabel#pageSubtitle, QLabel#secondary, QLabel#rowDetail { color: @secondary; }
QLabel#rowDetail { font-size: 12px; }
QLabel#sectionTitle { font-size: 12px; font-weight: 700; color: @secondary; text-transform: uppercase; }
QLabel#cardTitle, QLabel#bannerTitle { font-size: 15px; font-weight: 600; }
QLabel#greeting { font-size: 16px; font-weight: 700; }
QLabel#statusTitle { font-size: 14px; font-weight: 600; }
QLabel#ok { color: @accent; font-weight: 600; }
QLabel#bad { color: @danger; font-weight: 600; }
QLabel#stepCounter { color: @accent; font-weight: 600; }
QLabel#onboardingTitle { font-size: 24px; font-weight: 700; }
QLabel#bigNumber { font-size: 28px; font-weight: 700; }
QPushButton#sidebarRow { text-align: left; padding: 7px 10px; border: none; border-radius: 8px;
  background: transparent; font-size: 14px; }
QPushButton#sidebarRow:hover { background: @accentSoft; }
QPushButton#sidebarRow:checked { background: @selection; color: @text; font-weight: 600; }
QPushButton { background: @control; border: 1px solid @border; border-radius: 7px; padding: 5px 12px; }
QPushButton:hover { border-color: @accent; }
QPushButton:disabled { color: @secondary; }
QPushButton#primary { background: @accent; color: white; border: none; font-weight: 600; }
QPushButton#danger { color: @danger; }
QPushButton#flat { background: transparent; border: none; padding: 2px; }
QPushButton#tab { background: transparent; border: none; border-radius: 7px; padding: 6px 12px; }
QPushButton#tab:checked { background: @selection; }
QPushButton#chip { border-radius: 13px; padding: 4px 12px; }
QPushButton#chip:checked { background: @accent; color: white; border-color: @accent; }
QComboBox, QLineEdit, QSpinBox { background: @control; border: 1px solid @border; border-radius: 7px;
  padding: 4px 8px; min-height: 20px; }
QComboBox { padding-right: 26px; }
QComboBox::drop-down { border: none; width: 24px; }
QComboBox QAbstractItemView { background: @card; selection-background-color: @selection; }
QProgressBar { background: @control; border: none; border-radius: 4px; max-height: 8px; }
QProgressBar::chunk { background: @accent; border-radius: 4px; }
QWidget#scrim { background: rgba(0,0,0,110); }
)");
    s.replace(QLatin1String("@window"), c.window.name())
        .replace(QLatin1String("@sidebar"), c.sidebar.name())
        .replace(QLatin1String("@card"), c.card.name())
        .replace(QLatin1String("@border"), c.border.name())
        .replace(QLatin1String("@text"), c.text.name())
        .replace(QLatin1String("@secondary"), c.secondary.name())
        .replace(QLatin1String("@accentSoft"), rgba(c.accentSoft))
        .replace(QLatin1String("@accent"), c.accent.name())
        .replace(QLatin1String("@selection"), rgba(c.selection))
        .replace(QLatin1String("@warning"), c.warning.name())
        .replace(QLatin1String("@danger"), c.danger.name())
        .replace(QLatin1String("@control"), c.control.name());
    return s;
}

bool darkNow() {
    if (snapshotMode()) return qEnvironmentVariable("TALVO_THEME") == QLatin1String("dark");
    return AppSettings::shared().theme() == Theme::Dark;
}

void apply(QWidget* root, bool dark) {
    const Colors c = colors(dark);
    QPalette p = root->palette();
    p.setColor(QPalette::Window, c.window);
    p.setColor(QPalette::WindowText, c.text);
    p.setColor(QPalette::Base, c.card);
    p.setColor(QPalette::Text, c.text);
    p.setColor(QPalette::Button, c.control);
    p.setColor(QPalette::ButtonText, c.text);
    p.setColor(QPalette::Highlight, c.accent);
    p.setColor(QPalette::PlaceholderText, c.secondary);
    root->setPalette(p);
    root->setAutoFillBackground(true);
    root->setStyleSheet(styleSheet(dark));
}

} // namespace ombry::ViewStyle
