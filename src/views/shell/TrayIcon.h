#pragma once

#include "views/shell/TrayModel.h"

#include <QObject>
#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace ombry {

class AppSettings;
class DictationController;

// The icon of the program in the desktop's tray (StatusNotifierItem where the desktop offers
// it) and its menu, built afresh at each opening. The icon follows the controller's state; a
// click on it opens the window.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    TrayIcon(AppSettings& settings, DictationController& controller, QObject* parent = nullptr);
    ~TrayIcon() override;

    void show();
    QMenu* menu() const { return menu_.get(); }
    QSystemTrayIcon* icon() const { return icon_; }
    // The symbol the icon shows now.
    QString iconName() const { return iconName_; }
    // Fills the menu as it is when opened (called by the menu's aboutToShow).
    void rebuild();

    // How long the selection actions wait for the menu to close and the focus to go back to
    // the application in front.
    static constexpr int kActionDelayMs = 300;

Q_SIGNALS:
    void showWindowRequested();
    void settingsRequested();
    void quitRequested();
    void callToggleRequested();
    void meetingToggleRequested();

private:
    void fill(QMenu* menu, const QList<TrayModel::Entry>& entries);
    void act(const TrayModel::Entry& entry);
    void followState();

    AppSettings& settings_;
    DictationController& controller_;
    std::unique_ptr<QMenu> menu_;
    QSystemTrayIcon* icon_ = nullptr;
    QString iconName_;
};

} // namespace ombry
