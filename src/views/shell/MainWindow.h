#pragma once

#include "views/common/Debounce.h"

#include <QMainWindow>

namespace ombry {

class AppSettings;
class DictationController;
class MainView;
class Navigation;

// The main window: the menu bar of the program and a MainView as content. Closing it hides it
// and lets its content go on the next turn of the loop, so a closed window costs nothing;
// showWindow() makes the content again. "Masquer" hides it with its content, whose pages keep
// their state. Its size and place are kept in the user defaults as they change.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(Navigation& nav, AppSettings& settings, DictationController& controller,
               QWidget* parent = nullptr);
    ~MainWindow() override;

    // Makes the content when there is none, then shows the window in front.
    void showWindow();
    MainView* view() const;

    static constexpr const char* kFrameKey = "windowFrame";
    // The pause in moves and resizes after which the frame is saved.
    static constexpr int kFrameSaveDelayMs = 500;

Q_SIGNALS:
    void aboutRequested();
    void settingsRequested();
    void quitRequested();
    // The user closed or hid the window (the program goes on).
    void closed();

protected:
    void closeEvent(QCloseEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void buildMenus();
    void hideWindow();
    void frameChanged();
    void saveFrame();

    Navigation& nav_;
    AppSettings& settings_;
    DictationController& controller_;
    Debounce frameSave_;
};

} // namespace ombry
