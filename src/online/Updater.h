#pragma once

#include <QCoroTask>
#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

namespace ombry {

// A release as the product site's update feed describes it. All five members are required.
struct Release {
    QString version;                   // as shown to the user
    int64_t build = 0;                 // the only thing compared
    QStringList notes;                 // one line each
    QString page;                      // address of the page about the release
    QHash<QString, QString> downloads; // archive address per processor

    bool operator==(const Release&) const = default;

    // The feed's JSON object as a release; nothing when a member is missing or of another type.
    static std::optional<Release> fromJson(const QByteArray& body);
};

// Keeps the program up to date by itself: asks the product site once a day whether a newer
// build exists, offers it, and on the user's word downloads the archive for this processor,
// checks its signature against the key built into the program, unpacks it beside the installed
// program, swaps the two in one step (UpdatePackage::swapIn) and restarts the program.
//
// The installed program is the folder of the running executable's `bin` folder (or the program
// folder whose entry point links to it) when that folder holds an `identifier` file (see
// UpdatePackage.h); a program installed otherwise (by the system's package manager, or run from
// a build tree) is never replaced.
//
// Observable: every field changes on the main thread, and each write emits its signal.
class Updater : public QObject {
    Q_OBJECT
public:
    static Updater& shared();

    // The release to offer; nothing when up to date.
    std::optional<Release> available() const { return available_; }
    // An installation is under way.
    bool installing() const { return installing_; }
    // The message of the last failed installation.
    std::optional<QString> error() const { return error_; }
    // The user closed the offer; kept for this run only, not reset by a new check.
    bool dismissed() const { return dismissed_; }
    void setDismissed(bool dismissed);

    // The name of this program in the feed, and its identifier.
    static inline const QString appKey = QStringLiteral("voice");
    static inline const QString identifier = QStringLiteral("com.quennard.ombryvoice");
    // The identifier of the program's former name, also accepted in an archive.
    static inline const QString formerIdentifier = QStringLiteral("com.quennard.talvo");
    static constexpr int kCheckIntervalSeconds = 86400;
    static constexpr double kFeedTimeoutSeconds = 60.0;

    // The build number of this program; 0 when the build gave none that reads as a number.
    static int64_t currentBuild();
    // The feed's key for the processor this program was built for ("x86_64", "arm64", ...).
    static QString processorKey();

    // Checks at once, then every day; a newer build is offered with a desktop notification
    // "Mise à jour disponible". A second call does nothing.
    void start();
    bool started() const { return timer_ != nullptr; }

    // Asks the feed; true when its build is newer than currentBuild(). Sets `available` to the
    // release when it is newer and clears it when it is not. Any failure (no site, transport,
    // status, decoding) returns false and leaves `available` as it was.
    QCoro::Task<bool> check();

    // Installs `available`; does nothing without it. A failure ends in `error` and one journal
    // line and leaves the installed program as it was.
    QCoro::Task<void> install();

    // Where the installed program is; empty when this program was not installed from an
    // archive. Tests point it at a folder of their own.
    QString installedFolder() const;
    // Whether a download from `from` follows its redirect to `to`: within its origin, or to
    // another host (a CDN) over https when the request carries no credential. What arrives is
    // judged by its signature all the same.
    static bool downloadMayFollow(const QUrl& from, const QUrl& to, bool carriesCredential);
    // What the user does to update this copy when it cannot update itself (no installed
    // folder): the words for the program at `executable`, installed by the system's package
    // manager (under /usr) or built or installed by hand. Nothing for a copy that can.
    std::optional<QString> manualUpdate() const;
    static QString manualUpdateText(const QString& executable);
    void setInstalledFolder(const QString& folder) { installedOverride_ = folder; }

    // Starts the new program once this one has ended, then ends this one. By default a
    // detached shell that waits one second (and until this process is gone) and runs
    // `bin/ombry-voice` of the folder, and a quit of the application on the next turn of the
    // loop, through its normal end. Tests replace it.
    using Relaunch = std::function<void(const QString& programFolder)>;
    void setRelaunch(Relaunch relaunch) { relaunch_ = std::move(relaunch); }
    static void relaunchDetached(const QString& programFolder);

Q_SIGNALS:
    void availableChanged();
    void installingChanged();
    void errorChanged();
    void dismissedChanged();

private:
    explicit Updater(QObject* parent = nullptr);
    void setAvailable(std::optional<Release> release);
    void setInstalling(bool installing);
    void setError(std::optional<QString> error);
    QCoro::Task<void> checkAndOffer();
    QCoro::Task<void> runInstall(Release release);

    std::optional<Release> available_;
    bool installing_ = false;
    std::optional<QString> error_;
    bool dismissed_ = false;
    std::unique_ptr<QTimer> timer_;
    std::optional<int64_t> offeredBuild_;
    QString installedOverride_;
    Relaunch relaunch_;
};

} // namespace ombry
