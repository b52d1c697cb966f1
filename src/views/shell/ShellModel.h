#pragma once

#include "dictation/DictationController.h"
#include "online/Updater.h"

#include <QString>
#include <optional>

// What the frame of the main window says: the status card, the greeting, the credits banner
// and the steps of the first launch. Plain functions of their inputs.
namespace ombry::ShellModel {

// The status card's title.
QString statusTitle(DictationController::State state, bool translating, bool meetingRecording);

// The first word of the user's full name, or the whole name when it has one word.
QString firstName(const QString& fullName);
// The user's full name from the account database (the comment field before its first comma),
// else the login name. Read once per process.
QString fullUserName();
QString greeting(const QString& fullName); // "Salut {firstName}"
QString holdKey(const QString& keyLabel);  // "Maintiens {keyLabel}"

// What to check when the first step cannot hear a microphone: the sound server, else the
// input chosen in the system's sound settings. Nothing when a microphone is there.
std::optional<QString> microphoneAdvice(bool soundServer, bool microphone);

// The low-credits banner, when it shows.
struct CreditsBanner {
    QString title;
    QString text;
    QString button; // "{credits} crédits · {price}" of the first pack
};
// Shows when credits pay for the service, the balance is known and at most 9, and the user
// closed it more than a day ago (dismissedAt and now in seconds since 1970).
std::optional<CreditsBanner> creditsBanner(bool usesCredits, std::optional<int> balance,
                                           double dismissedAt, double now);
inline constexpr double kBannerQuietSeconds = 86400;
inline constexpr int kMinutesPerCredit = 5;

// The banner offering a newer release, when it shows.
struct UpdateBanner {
    QString title;                // "Ombry Voice {version} est disponible"
    QString install;              // the install button: "Mettre à jour", "Installation…"
    bool installEnabled = true;   // not while an installation runs
    std::optional<QString> error; // the last failed installation's message
    // How to update this copy, which cannot install by itself: shown without install button.
    std::optional<QString> manual;
    QStringList notes;
    QString page; // the release's page, empty when it has none
};
// Shows while a release is offered and the user has not closed the offer. manual: the words of
// Updater::manualUpdate().
std::optional<UpdateBanner> updateBanner(const std::optional<Release>& available, bool installing,
                                         const std::optional<QString>& error, bool dismissed,
                                         const std::optional<QString>& manual = std::nullopt);

// The three steps of the first launch.
class Onboarding {
public:
    static constexpr int kSteps = 3;
    int step() const { return step_; }
    QString counter() const; // "{step + 1} sur 3"
    bool canGoBack() const { return step_ > 0; }
    QString nextTitle() const; // "Continuer", "Commencer" on the last step
    // Moves on; true when the last step was finished (the caller stores "onboarded").
    bool next();
    void back();

private:
    int step_ = 0;
};

// The user defaults keys of the window.
inline constexpr const char* kOnboardedKey = "onboarded";
inline constexpr const char* kLowCreditsDismissedKey = "lowCreditsDismissedAt";

} // namespace ombry::ShellModel
