#pragma once

#include <QByteArray>
#include <QList>
#include <sys/types.h>

namespace ombry::wayland {

// Reads every pipe to its end, all at once, until timeoutMs has passed: each pipe's bytes, and
// whether its writer closed it in time (an unfinished read is not the whole content). The
// descriptors stay open.
struct PipeRead {
    QByteArray bytes;
    bool complete = false;
};
QList<PipeRead> readPipes(const QList<int>& fds, int timeoutMs);

// write() that neither blocks nor kills the process when the reader has gone (no SIGPIPE):
// the bytes taken, or -1 with errno (EAGAIN: the pipe is full, EPIPE: nobody reads).
ssize_t writeSome(int fd, const char* bytes, size_t size);

} // namespace ombry::wayland
