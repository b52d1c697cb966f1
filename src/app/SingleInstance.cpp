#include "app/SingleInstance.h"
#include "desktop/Log.h"
#include "platform/Paths.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QPointer>
#include <QStandardPaths>
#include <QTimer>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace ombry {

namespace {
constexpr int kWaitMs = 1000;
// What one connection may cost: a start or a key binding says its one line at once, so a
// connection that says nothing for this long, or more than a line, is dropped; beyond a few
// connections at once a new one is closed unread.
constexpr int kLineDeadlineMs = 2000;
constexpr qint64 kLongestLine = 256;
constexpr int kMostConnections = 16;

QByteArray lineOf(SingleInstance::Message m) {
    switch (m) {
    case SingleInstance::Message::Show:
        return QByteArrayLiteral("show\n");
    case SingleInstance::Message::Press:
        return QByteArrayLiteral("press\n");
    case SingleInstance::Message::Release:
        return QByteArrayLiteral("release\n");
    case SingleInstance::Message::Toggle:
        return QByteArrayLiteral("toggle\n");
    case SingleInstance::Message::Retry:
        return QByteArrayLiteral("retry\n");
    }
    return {};
}

std::optional<SingleInstance::Message> messageOf(const QByteArray& line) {
    for (auto m : {SingleInstance::Message::Show, SingleInstance::Message::Press,
                   SingleInstance::Message::Release, SingleInstance::Message::Toggle,
                   SingleInstance::Message::Retry})
        if (line == lineOf(m)) return m;
    return std::nullopt;
}
const QString kSocketName = QStringLiteral("ombry-voice.sock");

// A folder that only this user can enter: a real folder (not a link), ours, mode 0700.
bool isPrivateFolder(const QString& folder) {
    struct stat st {};
    return lstat(QFile::encodeName(folder).constData(), &st) == 0 && S_ISDIR(st.st_mode) &&
           st.st_uid == geteuid() && (st.st_mode & 0777) == 0700;
}

// Whether a socket in the folder has an address the system can take.
bool socketFits(const QString& folder) {
    return QFile::encodeName(QDir(folder).filePath(kSocketName)).size() <
           qsizetype(sizeof(sockaddr_un::sun_path));
}

// Whether a file of the lock or the socket was left by another user: never ours to trust.
bool ownedByAnother(const QString& path) {
    struct stat st {};
    return lstat(QFile::encodeName(path).constData(), &st) == 0 && st.st_uid != geteuid();
}
} // namespace

SingleInstance::SingleInstance(const QString& folder, QObject* parent)
    : QObject(parent), folder_(folder) {
    connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultFolder() {
    // The user's runtime folder; else a folder of our own in the shared temporary folder,
    // made private (one that another user made first is not ours); else the data folder.
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty() && isPrivateFolder(runtime) && socketFits(runtime)) return runtime;
    const QString own =
        QDir(QDir::tempPath()).filePath(QStringLiteral("ombry-voice-%1").arg(geteuid()));
    mkdir(QFile::encodeName(own).constData(), 0700);
    if (isPrivateFolder(own) && socketFits(own)) return own;
    return Paths::dataFolder();
}

QString SingleInstance::lockPath() const {
    return QDir(folder_).filePath(QStringLiteral("ombry-voice.lock"));
}

QString SingleInstance::socketPath() const {
    return QDir(folder_).filePath(kSocketName);
}

bool SingleInstance::claim() {
    QDir().mkpath(folder_);
    lock_ = std::make_unique<QLockFile>(lockPath());
    // A lock left by a program that died (its process is gone) is taken over at once.
    lock_->setStaleLockTime(0);
    if (ownedByAnother(lockPath())) QFile::remove(lockPath());
    if (lock_->tryLock(0)) {
        // The socket file of a program that died would stop listen(): it goes first.
        QLocalServer::removeServer(socketPath());
        server_.setSocketOptions(QLocalServer::UserAccessOption);
        if (!server_.listen(socketPath()))
            Log::write(QStringLiteral("démarrage: écoute de %1 impossible (%2)")
                           .arg(socketPath(), server_.errorString()));
        return true;
    }
    lock_.reset();
    send(Message::Show, folder_);
    return false;
}

bool SingleInstance::send(Message message, const QString& folder) {
    const QString path = QDir(folder).filePath(kSocketName);
    if (ownedByAnother(path)) return false;
    QLocalSocket socket;
    socket.connectToServer(path);
    if (!socket.waitForConnected(kWaitMs)) return false;
    socket.write(lineOf(message));
    const bool written = socket.waitForBytesWritten(kWaitMs);
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState) socket.waitForDisconnected(kWaitMs);
    return written;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        if (server_.findChildren<QLocalSocket*>().size() > kMostConnections) {
            socket->abort();
            continue;
        }
        // Nothing beyond one line is read from the system; the rest waits there until the
        // connection is dropped.
        socket->setReadBufferSize(kLongestLine);
        QTimer::singleShot(kLineDeadlineMs, socket, [socket] { socket->abort(); });
        QPointer<QLocalSocket> guard(socket);
        auto read = [this, guard] {
            if (!guard) return;
            if (!guard->canReadLine()) {
                if (guard->bytesAvailable() >= kLongestLine) guard->abort();
                return;
            }
            const std::optional<Message> message = messageOf(guard->readLine(kLongestLine));
            guard->disconnectFromServer();
            if (!message) return;
            if (*message == Message::Show) {
                if (onAnotherStart) onAnotherStart();
            } else if (*message == Message::Retry) {
                if (onRetry) onRetry();
            } else if (onKey) {
                onKey(*message);
            }
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        read(); // the line may have come with the connection
    }
}

} // namespace ombry
