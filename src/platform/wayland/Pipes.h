#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>
#include <functional>
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

// Writes bytes into a reader's pipe, what it takes now and the rest from the event loop as the
// reader takes it, then closes fd (taken over): at the end, when the reader goes, or after
// kPipeWriteMs. done, if given, is then told whether every byte went.
inline constexpr int kPipeWriteMs = 5000;
void writeToPipe(int fd, QByteArray bytes, std::function<void(bool complete)> done = {});

// What the clipboards of a Wayland session share: the longest a call waits for the compositor,
// the portal or another client's data; the types a text is offered in; and the targets of the
// X11 selection protocol that XWayland passes on, which carry no content of their own.
inline constexpr int kClipboardAnswerMs = 1000;
const QStringList& textTypes();
bool isProtocolTarget(const QString& type);

} // namespace ombry::wayland
