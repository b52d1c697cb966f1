#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class QLockFile;

namespace ombry {

// One desktop program per user. The first start takes a lock file and listens on a local
// socket beside it; a later start finds the lock taken, tells the first through the socket
// and steps aside, so that two programs never hook the same keys. The same socket carries the
// dictation key from the desktop's own shortcuts (`--press`, `--release`, `--toggle`), where
// the program cannot see the keys itself.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // `folder` holds the lock and the socket: the user's runtime folder (XDG_RUNTIME_DIR) by
    // default, which only the user can enter.
    explicit SingleInstance(const QString& folder = defaultFolder(), QObject* parent = nullptr);
    ~SingleInstance() override;

    static QString defaultFolder();

    // What another start tells the running program, one line each.
    enum class Message { Show, Press, Release, Toggle, Retry };
    // Sends one message to the program that listens in `folder`; false when none listens.
    static bool send(Message message, const QString& folder = defaultFolder());

    // True when this process is the first: it listens from now on. False when another one
    // runs: it has been told (when it answers within a second).
    bool claim();

    QString lockPath() const;
    QString socketPath() const;

    // In the first process, on the main thread: another start has just stepped aside.
    std::function<void()> onAnotherStart;
    // In the first process, on the main thread: the dictation key from the desktop's shortcuts.
    std::function<void(Message)> onKey;
    // In the first process, on the main thread: `--retry`, the newest failed dictation again.
    std::function<void()> onRetry;

private:
    void accept();

    QString folder_;
    std::unique_ptr<QLockFile> lock_;
    QLocalServer server_;
};

} // namespace ombry
