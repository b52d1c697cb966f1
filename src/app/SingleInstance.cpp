#include "app/SingleInstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>
#include <QPointer>
#include <QStandardPaths>
#include <optional>

namespace ombry {

namespace {
constexpr int kWaitMs = 1000;

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
    send(Message::Show, folder_);
    return false;
}

bool SingleInstance::send(Message message, const QString& folder) {
    QLocalSocket socket;
    socket.connectToServer(QDir(folder).filePath(QStringLiteral("ombry-voice.sock")));
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
        QPointer<QLocalSocket> guard(socket);
        auto read = [this, guard] {
            if (!guard || !guard->canReadLine()) return;
            const std::optional<Message> message = messageOf(guard->readLine());
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
