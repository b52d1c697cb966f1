#include "platform/wayland/Pipes.h"

#include "platform/wayland/WaylandConnection.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace ombry::wayland {

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

} // namespace ombry::wayland
