#pragma once

#include "views/shell/Navigation.h"

#include <QWidget>

class QFrame;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace ombry {

class AppSettings;
class DictationController;
class OnboardingView;

// The content of the main window: the sidebar (greeting, one row per page, the status card),
// the banners over the page, the page chosen in Navigation, and the first-launch steps over
// everything while "onboarded" is not stored.
class MainView : public QWidget {
    Q_OBJECT
public:
    MainView(Navigation& nav, AppSettings& settings, DictationController& controller,
             QWidget* parent = nullptr);

    bool onboarded() const;
    OnboardingView* onboarding() const { return onboarding_; }
    QWidget* page() const { return page_; }
    QPushButton* sidebarRow(Page page) const;
    QLabel* statusTitle() const { return statusTitle_; }
    QFrame* creditsBanner() const { return creditsBanner_; }
    QFrame* keyboardBanner() const { return keyboardBanner_; }
    QFrame* updateBanner() const { return updateBanner_; }

    // Whether the page is put in a scrolling area (pictures of pages are not).
    static constexpr int kMinWidth = 1000;
    static constexpr int kMinHeight = 680;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* sidebar();
    QFrame* makeCreditsBanner();
    QFrame* makeKeyboardBanner();
    QFrame* makeUpdateBanner();
    void showReleaseNotes();
    void showPage();
    void remakePage();
    void refreshStatus();
    void refreshBanners();
    void applyLook();

    Navigation& nav_;
    AppSettings& settings_;
    DictationController& controller_;
    QList<QPushButton*> rows_;
    QVBoxLayout* pageSlot_ = nullptr;
    QWidget* page_ = nullptr;
    Page shownPage_ = Page::Dashboard;
    QLabel* greetingKey_ = nullptr;
    QLabel* statusTitle_ = nullptr;
    QLabel* statusKey_ = nullptr;
    QFrame* creditsBanner_ = nullptr;
    QLabel* creditsTitle_ = nullptr;
    QLabel* creditsText_ = nullptr;
    QPushButton* creditsBuy_ = nullptr;
    QFrame* keyboardBanner_ = nullptr;
    QFrame* updateBanner_ = nullptr;
    QLabel* updateTitle_ = nullptr;
    QLabel* updateError_ = nullptr;
    QPushButton* updateNotes_ = nullptr;
    QPushButton* updateInstall_ = nullptr;
    QLabel* keyboardText_ = nullptr;
    OnboardingView* onboarding_ = nullptr;
};

} // namespace ombry
