#include "platform/wayland/Pipes.h"

#include "platform/wayland/WaylandConnection.h"

#include <QCoreApplication>
#include <QSet>
#include <QSocketNotifier>
#include <QTimer>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace ombry::wayland {
namespace {

class PipeWriter : public QObject {
public:
    PipeWriter(int fd, QByteArray bytes, qsizetype done, std::function<void(bool)> onDone)
        : fd_(fd), bytes_(std::move(bytes)), done_(done), onDone_(std::move(onDone)),
          notifier_(new QSocketNotifier(fd, QSocketNotifier::Write, this)) {
        connect(notifier_, &QSocketNotifier::activated, this, [this] {
            if (writeMore(fd_, bytes_, done_)) finish();
        });
        QTimer::singleShot(kPipeWriteMs, this, [this] { finish(); });
    }
    ~PipeWriter() override {
        if (fd_ >= 0) close(fd_);
    }

    // True once nothing more is to be written (all written, or the reader has gone).
    static bool writeMore(int fd, const QByteArray& bytes, qsizetype& done) {
        while (done < bytes.size()) {
            const ssize_t n = writeSome(fd, bytes.constData() + done, size_t(bytes.size() - done));
            if (n < 0) return errno != EAGAIN && errno != EWOULDBLOCK;
            done += n;
        }
        return true;
    }

private:
    void finish() {
        if (fd_ < 0) return;
        notifier_->setEnabled(false);
        // Closed before done is told: the reader sees the end of the bytes first.
        close(std::exchange(fd_, -1));
        if (onDone_) std::exchange(onDone_, {})(done_ == bytes_.size());
        deleteLater();
    }

    int fd_;
    QByteArray bytes_;
    qsizetype done_;
    std::function<void(bool)> onDone_;
    QSocketNotifier* notifier_;
};

} // namespace

QList<PipeRead> readPipes(const QList<int>& fds, int timeoutMs) {
    QList<PipeRead> out(fds.size());
    for (const int fd : fds)
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    const Deadline deadline(timeoutMs);
    std::vector<bool> ended(fds.size(), false); // at its end, or broken
    for (;;) {
        std::vector<pollfd> waits;
        std::vector<qsizetype> which;
        for (qsizetype i = 0; i < fds.size(); ++i) {
            if (ended[i]) continue;
            waits.push_back({fds[i], POLLIN, 0});
            which.push_back(i);
        }
        if (waits.empty()) break;
        const int ready = poll(waits.data(), waits.size(), deadline.remaining());
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) break; // time is up (or poll failed): what came so far
        for (size_t k = 0; k < waits.size(); ++k) {
            if (!waits[k].revents) continue;
            const qsizetype i = which[k];
            char buffer[65536];
            for (;;) {
                const ssize_t n = ::read(fds[i], buffer, sizeof buffer);
                if (n > 0) {
                    out[i].bytes.append(buffer, n);
                } else if (n == 0) {
                    out[i].complete = true;
                    ended[i] = true;
                    break;
                } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                    break;
                } else if (errno != EINTR) {
                    ended[i] = true; // a broken pipe: what it gave is not the content
                    break;
                }
            }
        }
    }
    return out;
}

ssize_t writeSome(int fd, const char* bytes, size_t size) {
    // SIGPIPE goes to the thread that wrote: blocked here, it is taken back below, and the
    // write fails with EPIPE instead of ending the process.
    sigset_t pipeSignal, previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    ssize_t n;
    do {
        n = ::write(fd, bytes, size);
    } while (n < 0 && errno == EINTR);
    const int error = errno;
    if (n < 0 && error == EPIPE && !sigismember(&previous, SIGPIPE)) {
        const timespec now{0, 0};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return n;
}

void writeToPipe(int fd, QByteArray bytes, std::function<void(bool complete)> done) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    qsizetype written = 0;
    if (PipeWriter::writeMore(fd, bytes, written) || !QCoreApplication::instance()) {
        close(fd);
        if (done) done(written == bytes.size());
        return;
    }
    new PipeWriter(fd, std::move(bytes), written, std::move(done));
}

const QStringList& textTypes() {
    static const QStringList types = {QStringLiteral("text/plain;charset=utf-8"),
                                      QStringLiteral("text/plain"), QStringLiteral("UTF8_STRING"),
                                      QStringLiteral("TEXT"), QStringLiteral("STRING")};
    return types;
}

bool isProtocolTarget(const QString& type) {
    static const QSet<QString> targets = {
        QStringLiteral("TARGETS"),         QStringLiteral("MULTIPLE"),
        QStringLiteral("TIMESTAMP"),       QStringLiteral("SAVE_TARGETS"),
        QStringLiteral("DELETE"),          QStringLiteral("INCR"),
        QStringLiteral("INSERT_PROPERTY"), QStringLiteral("INSERT_SELECTION"),
    };
    return targets.contains(type);
}

} // namespace ombry::wayland
