#pragma once

#include "views/shell/MainWindow.h"

#include <QObject>
#include <QPointer>

namespace ombry {

class DictationController;
class TrayIcon;

// What the user touches outside the keys: the tray icon and its menu, the main window with its
// menu bar, the settings and the About box. One per desktop program.
class AppShell : public QObject {
    Q_OBJECT
public:
    explicit AppShell(DictationController& controller, QObject* parent = nullptr);
    ~AppShell() override;

    // The tray icon, shown.
    void setUpTray();
    // Shows the main window, made at the first call and kept for the life of the program.
    void showWindow();
    // The settings page, in the window.
    void openSettings();
    void showAbout();
    // The controller needs the user in the settings (missing key, keyboard, microphone).
    void needsAttention();

    MainWindow* window() const { return window_; }
    TrayIcon* tray() const { return tray_; }

private:
    DictationController& controller_;
    QPointer<MainWindow> window_;
    TrayIcon* tray_ = nullptr;
    bool toldAboutBackground_ = false;
};

} // namespace ombry
