#include "app/AppShell.h"

#include "app/OmbryIcon.h"

#include "calls/CallTranslator.h"
#include "data/Settings.h"
#include "desktop/Notify.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "views/shell/MainWindow.h"
#include "views/shell/Navigation.h"
#include "views/shell/TrayIcon.h"
#include "views/subtitles/SubtitleWindow.h"

#include <QApplication>
#include <QIcon>
#include <QMessageBox>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace ombry {

AppShell::AppShell(DictationController& controller, QObject* parent)
    : QObject(parent), controller_(controller) {
    // The program's icon for its windows and the task switcher, drawn like the installed one.
    QIcon icon;
    const QColor accent = QColor::fromRgbF(0.0f, 184 / 255.0f, 169 / 255.0f, 1.0f);
    for (int size : {16, 24, 32, 48, 64, 128, 256})
        icon.addPixmap(QPixmap::fromImage(OmbryIcon::render(size, accent)));
    QApplication::setWindowIcon(icon);
}

AppShell::~AppShell() {
    delete window_.data();
}

void AppShell::setUpTray() {
    tray_ = new TrayIcon(AppSettings::shared(), controller_, this);
    connect(tray_, &TrayIcon::showWindowRequested, this, &AppShell::showWindow);
    connect(tray_, &TrayIcon::settingsRequested, this, &AppShell::openSettings);
    connect(tray_, &TrayIcon::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    // The call subtitles stop when running, else start with their panel in front.
    connect(tray_, &TrayIcon::callToggleRequested, this, [] {
        CallTranslator& call = CallTranslator::shared();
        if (call.running()) {
            call.stop();
            return;
        }
        call.start();
        SubtitleWindow::shared().show();
    });
    // A meeting starts when idle and stops when recording; one being processed is left alone.
    connect(tray_, &TrayIcon::meetingToggleRequested, this,
            [] { MeetingRecorder::shared().toggle(); });
    tray_->show();
}

void AppShell::showWindow() {
    if (!window_) {
        window_ = new MainWindow(Navigation::shared(), AppSettings::shared(), controller_);
        connect(window_, &MainWindow::aboutRequested, this, &AppShell::showAbout);
        connect(window_, &MainWindow::settingsRequested, this, &AppShell::openSettings);
        connect(window_, &MainWindow::quitRequested, qApp, &QCoreApplication::quit,
                Qt::QueuedConnection);
        connect(window_, &MainWindow::closed, this, [this] {
            // Without a tray to show the program, the first close says where it went.
            if (toldAboutBackground_ || QSystemTrayIcon::isSystemTrayAvailable()) return;
            toldAboutBackground_ = true;
            Notify::post(
                QStringLiteral("Ombry Voice reste lancé"),
                QStringLiteral("Ta touche de dictée marche toujours. Relance Ombry Voice "
                               "depuis le menu des applications pour rouvrir la fenêtre."));
        });
    }
    window_->showWindow();
}

void AppShell::openSettings() {
    Navigation& nav = Navigation::shared();
    if (nav.page() != Page::Settings) nav.setPage(Page::Settings);
    showWindow();
}

void AppShell::showAbout() {
    showWindow();
    QMessageBox::about(window_, QStringLiteral("À propos de Ombry Voice"),
                       QStringLiteral("<b>Ombry Voice %1</b><br>Assistant de dictée en français "
                                      "pour le bureau Linux.<br><small>Fait par Quennard.</small>")
                           .arg(QCoreApplication::applicationVersion()));
}

void AppShell::needsAttention() {
    Navigation& nav = Navigation::shared();
    if (nav.page() != Page::Settings) nav.setPage(Page::Settings);
    showWindow();
}

} // namespace ombry
