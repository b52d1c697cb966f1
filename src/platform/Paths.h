#pragma once

#include <QByteArray>
#include <QString>
#include <atomic>
#include <optional>

namespace ombry::Paths {

// Where the program keeps its things, following the XDG base directories.
QString dataHome();   // $XDG_DATA_HOME or ~/.local/share
QString configHome(); // $XDG_CONFIG_HOME or ~/.config
QString cacheHome();  // $XDG_CACHE_HOME or ~/.cache

inline constexpr const char* kDataFolderName = "Ombry Voice";
inline constexpr const char* kFormerDataFolderName = "Talvo";
inline constexpr const char* kDomain = "com.quennard.ombryvoice";
inline constexpr const char* kFormerDomain = "com.quennard.talvo";

QString dataFolder();         // dataHome()/Ombry Voice: the user's lists, keys and journal
QString defaultsFile();       // configHome()/com.quennard.ombryvoice.json
QString formerDefaultsFile(); // configHome()/com.quennard.talvo.json

// A file name as the system gives it (bytes) and back, without loss: UTF-8 where the bytes are
// valid UTF-8, and each byte that is not kept as the code point U+DC80 + (byte - 0x80) (the
// "surrogate escape" of other systems). fromNative(toNative(s)) == s for such texts, and
// toNative(fromNative(b)) == b for any bytes.
QString fromNative(const QByteArray& bytes);
QByteArray toNative(const QString& path);

// Files of the user's data are readable by the user only; their folders likewise.
inline constexpr unsigned kPrivateFileMode = 0600;
inline constexpr unsigned kPrivateFolderMode = 0700;

// Writes the whole file or nothing: the data goes to a temporary file in the same folder,
// created with `mode` before any byte is written, that then replaces the target. Returns false
// on any failure.
bool writeFileAtomically(const QString& path, const QByteArray& data,
                         unsigned mode = kPrivateFileMode);

// Writes a new file at `path`, or at "path.2", "path.3"... the first name that is free: an
// existing file is never replaced, also when another process writes a copy at the same moment.
// Returns the path written; empty on failure.
QString writeNewFile(const QString& path, const QByteArray& data, unsigned mode = kPrivateFileMode);

// Makes a folder and its parents; the folder itself gets `mode` (an existing one is set to it).
bool makePrivateFolder(const QString& path, unsigned mode = kPrivateFolderMode);

// What reading a file gave.
struct ReadResult {
    enum class Status { Ok, Missing, Unreadable, NotRegular, TooLarge };
    Status status = Status::Missing;
    QByteArray bytes; // Ok only
    QString error;    // the system's reason, for Unreadable
    bool ok() const { return status == Status::Ok; }
};

// What tells one version of a file from another without reading it: a file replaced by an
// atomic write is a new inode, and one written in place changes its time or size.
struct FileStamp {
    quint64 device = 0, inode = 0;
    qint64 size = 0, modifiedNs = 0;
    bool operator==(const FileStamp&) const = default;
};
// The stamp of the file at path (links followed); nothing when it cannot be had (missing).
std::optional<FileStamp> stamp(const QString& path);

// A regular file opened for reading, without ever blocking: a pipe or a device is refused as not
// regular, as by readRegularFile. Ok holds the descriptor, which the caller closes, and the size.
struct OpenResult {
    ReadResult::Status status = ReadResult::Status::Missing;
    QString error; // the system's reason, for Unreadable
    int fd = -1;
    qint64 size = 0;
    bool ok() const { return status == ReadResult::Status::Ok; }
};
OpenResult openRegularFile(const QString& path);

// Writes `head` and then `bytes` bytes of the regular file `source` from offset `from` to
// `path`, whole or not at all as writeFileAtomically does. Blocks of zeros are left as holes, so
// that a long silence takes no room. Gives up, writing nothing, once *cancel is true or when the
// source is shorter. Returns false on any failure.
bool copyFileAtomically(const QString& source, const QString& path, const QByteArray& head,
                        qint64 from, qint64 bytes, const std::atomic<bool>* cancel = nullptr,
                        unsigned mode = kPrivateFileMode);

// Reads a whole regular file of at most maxBytes. Never blocks on a pipe or a device (they are
// refused as not regular) and never reads more than the cap.
ReadResult readRegularFile(const QString& path, qint64 maxBytes);

// An exclusive lock on a lock file, held for the object's life (flock: released by the system
// if the process dies). Blocks until the lock is had; other processes taking the same lock
// file wait for it. Makes the file if needed. Without a lock file (the folder is missing) it
// holds nothing and locked() is false.
class FileLock {
public:
    explicit FileLock(const QString& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool locked() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace ombry::Paths
