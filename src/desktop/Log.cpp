#include "desktop/Log.h"

#include "data/Store.h"
#include "platform/Clock.h"
#include "platform/Paths.h"
#include "platform/Platform.h"
#include "platform/SerialQueue.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <memory>
#include <mutex>

namespace ombry::Log {
namespace {

// A journal this large or larger is thrown away whole when a run first opens it.
constexpr qint64 kDeleteFromBytes = 2'000'001;

struct Journal {
    std::mutex pathMutex;
    QString path; // empty until first asked for

    // Touched only on the queue.
    std::unique_ptr<QFile> handle;
    bool opened = false;

    // The queue keeps its own clock: it only runs immediate work, and must not depend on
    // whatever clock a test has installed in the platform.
    SystemClock queueClock;
    SerialQueue queue{QStringLiteral("verlo.log"), &queueClock};
};

Journal& journal() {
    static Journal j;
    return j;
}

// The store's data folder: asking for it first moves the former identity's folder into place,
// so that an early line does not make an empty new folder that would stop that move.
QString defaultPath() {
    return Store::defaultFolder() + QStringLiteral("/journal.log");
}

// Once per run, at the first write: drop an oversized journal, make sure the file exists,
// open it at its end. A failure leaves the handle empty for the whole run.
void open(Journal& j) {
    j.opened = true;
    const QString path = url();
    const QFileInfo info(path);
    // The journal holds the user's words: the folder and the file are the user's only.
    Paths::makePrivateFolder(info.absolutePath());
    if (info.exists() && info.size() >= kDeleteFromBytes) QFile::remove(path);
    auto file = std::make_unique<QFile>(path);
    // Unbuffered: each line is one write to the file, nothing held back in memory. A new file is
    // made 0600; one that exists is set to it.
    if (file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered,
                   QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        file->setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        j.handle = std::move(file);
    }
}

} // namespace

void write(const QString& message) {
    const QString stamp = Platform::current().clock().now().toUTC().toString(Qt::ISODateWithMs);
    Journal& j = journal();
    j.queue.async([&j, line = stamp + QLatin1Char(' ') + message + QLatin1Char('\n')] {
        if (!j.opened) open(j);
        if (j.handle) j.handle->write(line.toUtf8());
    });
}

QString url() {
    Journal& j = journal();
    std::lock_guard lock(j.pathMutex);
    if (j.path.isEmpty()) j.path = defaultPath();
    return j.path;
}

void sync() {
    journal().queue.sync([] {});
}

void resetForTests(const QString& path) {
    Journal& j = journal();
    j.queue.sync([&j] {
        j.handle.reset();
        j.opened = false;
    });
    std::lock_guard lock(j.pathMutex);
    j.path = path;
}

} // namespace ombry::Log
