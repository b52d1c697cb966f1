#pragma once

#include "views/shell/ShellModel.h"

#include <QTimer>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;

namespace ombry {

class AppSettings;
class DictationController;
class MicrophoneTest;

// The three steps of the first launch, as a card over the window that only finishing closes:
// what the program needs of this computer (the microphone with a live level, the X keyboard),
// the dictation key with a live check of it, and the credits.
class OnboardingView : public QWidget {
    Q_OBJECT
public:
    OnboardingView(AppSettings& settings, DictationController& controller,
                   QWidget* parent = nullptr);
    ~OnboardingView() override;

    int step() const { return model_.step(); }
    bool keyHeard() const { return keyHeard_; }

Q_SIGNALS:
    // The last step's button: "onboarded" is stored.
    void finished();

private:
    QWidget* permissionsStep();
    QWidget* keyStep();
    QWidget* creditsStep();
    void showStep();
    void readRights();

    AppSettings& settings_;
    DictationController& controller_;
    ShellModel::Onboarding model_;
    QStackedWidget* steps_ = nullptr;
    QLabel* counter_ = nullptr;
    QPushButton* back_ = nullptr;
    QPushButton* next_ = nullptr;
    QLabel* micState_ = nullptr;
    QPushButton* micRetry_ = nullptr;
    QLabel* micDetail_ = nullptr;
    bool micAsked_ = false; // "Autoriser" was clicked
    QLabel* keysState_ = nullptr;
    QLabel* keysDetail_ = nullptr;
    QProgressBar* meter_ = nullptr;
    QLabel* keyCheck_ = nullptr;
    MicrophoneTest* micTest_ = nullptr;
    QTimer rights_;
    bool keyHeard_ = false;
};

} // namespace ombry
