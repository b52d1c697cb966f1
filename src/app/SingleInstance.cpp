#include "app/SingleInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QPointer>
#include <QStandardPaths>

namespace ombry {

namespace {
const QByteArray kHello = QByteArrayLiteral("show\n");
constexpr int kWaitMs = 1000;
} // namespace

SingleInstance::SingleInstance(const QString& folder, QObject* parent)
    : QObject(parent), folder_(folder) {
    connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultFolder() {
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty()) dir = QDir::tempPath();
    return dir;
}

QString SingleInstance::lockPath() const {
    return QDir(folder_).filePath(QStringLiteral("ombry-voice.lock"));
}

QString SingleInstance::socketPath() const {
    return QDir(folder_).filePath(QStringLiteral("ombry-voice.sock"));
}

bool SingleInstance::claim() {
    QDir().mkpath(folder_);
    lock_ = std::make_unique<QLockFile>(lockPath());
    // A lock left by a program that died (its process is gone) is taken over at once.
    lock_->setStaleLockTime(0);
    if (lock_->tryLock(0)) {
        // The socket file of a program that died would stop listen(): it goes first.
        QLocalServer::removeServer(socketPath());
        server_.setSocketOptions(QLocalServer::UserAccessOption);
        server_.listen(socketPath());
        return true;
    }
    lock_.reset();
    QLocalSocket socket;
    socket.connectToServer(socketPath());
    if (socket.waitForConnected(kWaitMs)) {
        socket.write(kHello);
        socket.waitForBytesWritten(kWaitMs);
        socket.disconnectFromServer();
        if (socket.state() != QLocalSocket::UnconnectedState) socket.waitForDisconnected(kWaitMs);
    }
    return false;
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QPointer<QLocalSocket> guard(socket);
        auto read = [this, guard] {
            if (!guard || !guard->canReadLine()) return;
            const QByteArray line = guard->readLine();
            if (line == kHello && onAnotherStart) onAnotherStart();
            guard->disconnectFromServer();
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        read(); // the line may have come with the connection
    }
}

} // namespace ombry
