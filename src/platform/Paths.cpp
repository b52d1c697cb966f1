#include "platform/Paths.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ombry::Paths {
namespace {

QString xdg(const char* var, const char* fallbackUnderHome) {
    const QString v = qEnvironmentVariable(var);
    if (!v.isEmpty() && QDir::isAbsolutePath(v)) return QDir::cleanPath(v);
    return QDir::cleanPath(QDir::homePath() + QLatin1Char('/') + QLatin1String(fallbackUnderHome));
}

} // namespace

QString dataHome() {
    return xdg("XDG_DATA_HOME", ".local/share");
}
QString configHome() {
    return xdg("XDG_CONFIG_HOME", ".config");
}
QString cacheHome() {
    return xdg("XDG_CACHE_HOME", ".cache");
}

QString dataFolder() {
    return dataHome() + QLatin1Char('/') + QLatin1String(kDataFolderName);
}

QString defaultsFile() {
    return configHome() + QLatin1Char('/') + QLatin1String(kDomain) + QStringLiteral(".json");
}

QString formerDefaultsFile() {
    return configHome() + QLatin1Char('/') + QLatin1String(kFormerDomain) + QStringLiteral(".json");
}

namespace {

int openNative(const QString& path, int flags, unsigned mode = 0) {
    const QByteArray native = toNative(path);
    int fd;
    do {
        fd = ::open(native.constData(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool writeAll(int fd, const QByteArray& data) {
    const char* p = data.constData();
    qint64 left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(std::min<qint64>(left, 1 << 30)));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        left -= n;
    }
    return true;
}

// A temporary file beside `path`, made with `mode` before anything is written to it.
int makeTemporary(const QString& path, unsigned mode, QByteArray* tempName) {
    const QFileInfo info(path);
    QByteArray templ = toNative(info.absolutePath() + QStringLiteral("/.") + info.fileName() +
                                QStringLiteral(".XXXXXX"));
    // mkstemp makes the file 0600 whatever the umask.
    const int fd = ::mkstemp(templ.data());
    if (fd < 0) return -1;
    if (::fchmod(fd, mode) != 0) {
        ::close(fd);
        ::unlink(templ.constData());
        return -1;
    }
    *tempName = templ;
    return fd;
}

} // namespace

QString fromNative(const QByteArray& bytes) {
    QString out;
    out.reserve(bytes.size());
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
    const qsizetype n = bytes.size();
    qsizetype i = 0;
    while (i < n) {
        const unsigned char c = p[i];
        if (c < 0x80) {
            out += QChar(c);
            ++i;
            continue;
        }
        // The length of a well-formed UTF-8 sequence starting here, or 0.
        int len = 0;
        char32_t cp = 0;
        if (c >= 0xC2 && c <= 0xDF) {
            len = 2;
            cp = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            len = 3;
            cp = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            len = 4;
            cp = c & 0x07;
        }
        bool valid = len > 0 && i + len <= n;
        for (int k = 1; valid && k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) valid = false;
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not valid UTF-8.
        if (valid && ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
                      (cp >= 0xD800 && cp <= 0xDFFF)))
            valid = false;
        if (!valid) {
            out += QChar(char16_t(0xDC00 + c));
            ++i;
            continue;
        }
        out += QString::fromUcs4(&cp, 1);
        i += len;
    }
    return out;
}

QByteArray toNative(const QString& path) {
    QByteArray out;
    out.reserve(path.size());
    const qsizetype n = path.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t u = path.at(i).unicode();
        if (u >= 0xDC80 && u <= 0xDCFF) { // an escaped byte
            out += char(u - 0xDC00);
            continue;
        }
        qsizetype len = 1;
        if (QChar::isHighSurrogate(u) && i + 1 < n && path.at(i + 1).isLowSurrogate()) len = 2;
        out += QStringView(path).mid(i, len).toUtf8();
        i += len - 1;
    }
    return out;
}

bool writeFileAtomically(const QString& path, const QByteArray& data, unsigned mode) {
    QByteArray temp;
    const int fd = makeTemporary(path, mode, &temp);
    if (fd < 0) return false;
    bool ok = writeAll(fd, data) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok) ok = ::rename(temp.constData(), toNative(path).constData()) == 0;
    if (!ok) ::unlink(temp.constData());
    return ok;
}

QString writeNewFile(const QString& path, const QByteArray& data, unsigned mode) {
    QByteArray temp;
    const int fd = makeTemporary(path, mode, &temp);
    if (fd < 0) return {};
    bool ok = writeAll(fd, data) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    QString written;
    // link() fails when the name exists: the first free name is taken without a race.
    for (int n = 1; ok && n < 10000; ++n) {
        const QString candidate = n == 1 ? path : path + QLatin1Char('.') + QString::number(n);
        if (::link(temp.constData(), toNative(candidate).constData()) == 0) {
            written = candidate;
            break;
        }
        if (errno != EEXIST) break;
    }
    ::unlink(temp.constData());
    return written;
}

bool makePrivateFolder(const QString& path, unsigned mode) {
    if (!QDir().mkpath(path)) return false;
    return ::chmod(toNative(path).constData(), mode) == 0;
}

std::optional<FileStamp> stamp(const QString& path) {
    struct stat st {};
    if (::stat(toNative(path).constData(), &st) != 0) return std::nullopt;
    return FileStamp{quint64(st.st_dev), quint64(st.st_ino), qint64(st.st_size),
                     qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

OpenResult openRegularFile(const QString& path) {
    OpenResult r;
    // Non-blocking, so that opening a pipe does not wait for a writer.
    r.fd = openNative(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (r.fd < 0) {
        r.status = errno == ENOENT ? ReadResult::Status::Missing : ReadResult::Status::Unreadable;
        r.error = QString::fromLocal8Bit(std::strerror(errno));
        // A name that exists (a dangling or looping link counts) but cannot be opened.
        struct stat link {};
        if (r.status == ReadResult::Status::Missing &&
            ::lstat(toNative(path).constData(), &link) == 0)
            r.status = ReadResult::Status::Unreadable;
        return r;
    }
    struct stat st {};
    if (::fstat(r.fd, &st) != 0) {
        r.status = ReadResult::Status::Unreadable;
        r.error = QString::fromLocal8Bit(std::strerror(errno));
    } else if (!S_ISREG(st.st_mode)) {
        r.status = ReadResult::Status::NotRegular;
    } else {
        r.status = ReadResult::Status::Ok;
        r.size = st.st_size;
        return r;
    }
    ::close(r.fd);
    r.fd = -1;
    return r;
}

bool copyFileAtomically(const QString& source, const QString& path, const QByteArray& head,
                        qint64 from, qint64 bytes, const std::atomic<bool>* cancel, unsigned mode) {
    const OpenResult in = openRegularFile(source);
    if (!in.ok()) return false;
    QByteArray temp;
    const int fd = makeTemporary(path, mode, &temp);
    bool ok = fd >= 0 && in.size >= from + bytes && writeAll(fd, head);
    QByteArray block(1 << 20, Qt::Uninitialized);
    qint64 at = 0;
    while (ok && at < bytes) {
        if (cancel && cancel->load()) {
            ok = false;
            break;
        }
        const auto want = size_t(std::min<qint64>(block.size(), bytes - at));
        const ssize_t n = ::pread(in.fd, block.data(), want, from + at);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        const QByteArray piece = QByteArray::fromRawData(block.constData(), n);
        // Zeros are skipped: the hole reads as zeros once the size is set below.
        if (std::any_of(piece.begin(), piece.end(), [](char c) { return c != 0; }))
            ok = ::lseek(fd, head.size() + at, SEEK_SET) >= 0 && writeAll(fd, piece);
        at += n;
    }
    ::close(in.fd);
    if (fd < 0) return false;
    ok = ok && ::ftruncate(fd, head.size() + bytes) == 0 && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok) ok = ::rename(temp.constData(), toNative(path).constData()) == 0;
    if (!ok) ::unlink(temp.constData());
    return ok;
}

ReadResult readRegularFile(const QString& path, qint64 maxBytes) {
    ReadResult r;
    OpenResult file = openRegularFile(path);
    r.status = file.status;
    r.error = file.error;
    if (!file.ok()) return r;
    const int fd = file.fd;
    if (file.size > maxBytes) {
        r.status = ReadResult::Status::TooLarge;
    } else {
        // The size may change while reading: never more than the cap plus one byte is read.
        QByteArray bytes(qsizetype(file.size), Qt::Uninitialized);
        qint64 have = 0;
        for (;;) {
            if (have == bytes.size()) {
                if (have > maxBytes) {
                    r.status = ReadResult::Status::TooLarge;
                    break;
                }
                bytes.resize(have +
                             std::min<qint64>(std::max<qint64>(have, 4096), maxBytes + 1 - have));
            }
            const ssize_t n = ::read(fd, bytes.data() + have, size_t(bytes.size() - have));
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n < 0) {
                r.status = ReadResult::Status::Unreadable;
                r.error = QString::fromLocal8Bit(std::strerror(errno));
                break;
            }
            if (n == 0) break;
            have += n;
        }
        if (r.status == ReadResult::Status::Ok) {
            bytes.resize(have);
            r.bytes = std::move(bytes);
        }
    }
    ::close(fd);
    return r;
}

FileLock::FileLock(const QString& path) {
    fd_ = openNative(path, O_RDWR | O_CREAT, kPrivateFileMode);
    if (fd_ < 0) return;
    while (::flock(fd_, LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        ::close(fd_);
        fd_ = -1;
        return;
    }
}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_); // releases the lock
}

} // namespace ombry::Paths
