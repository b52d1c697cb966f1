#pragma once

#include <QMainWindow>

namespace ombry {

class AppSettings;
class DictationController;
class MainView;
class Navigation;

// The main window: the menu bar of the program and a MainView as content. Closing it hides it
// and lets its content go on the next turn of the loop, so a hidden window costs nothing;
// showWindow() makes the content again. Its size and place are kept in the user defaults.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(Navigation& nav, AppSettings& settings, DictationController& controller,
               QWidget* parent = nullptr);

    // Makes the content when there is none, then shows the window in front.
    void showWindow();
    MainView* view() const;

    static constexpr const char* kFrameKey = "windowFrame";

Q_SIGNALS:
    void aboutRequested();
    void settingsRequested();
    void quitRequested();
    // The user closed the window (the program goes on).
    void closed();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void saveFrame();

    Navigation& nav_;
    AppSettings& settings_;
    DictationController& controller_;
};

} // namespace ombry
