#include "online/UpdatePackage.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QUuid>

#include <archive.h>
#include <archive_entry.h>
#include <openssl/evp.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace ombry::UpdatePackage {

namespace {

// Bounds of what one archive may unpack to: far above any release, far below a full disk.
constexpr qint64 kMaxUnpackedBytes = qint64(4) << 30;
constexpr int kMaxMembers = 200000;

[[noreturn]] void refuse(const QString& what, const QByteArray& detail = {}) {
    QString message = QStringLiteral("archive : ") + what;
    if (!detail.isEmpty())
        message += QStringLiteral(" (") + QString::fromUtf8(detail).left(120) + QLatin1Char(')');
    throw UpdateFail(message);
}

[[noreturn]] void refuseErrno(const QString& what, const QByteArray& path) {
    const int err = errno;
    refuse(what + QStringLiteral(" : ") + QString::fromLocal8Bit(std::strerror(err)), path);
}

// ---------------------------------------------------------------------------------------------
// Reading

struct ArchiveFree {
    void operator()(archive* a) const { archive_read_free(a); }
};
using ArchivePtr = std::unique_ptr<archive, ArchiveFree>;

// The archive read from the bytes in memory: the very bytes whose signature was checked.
ArchivePtr openArchive(const QByteArray& bytes) {
    ArchivePtr a(archive_read_new());
    if (!a) refuse(QStringLiteral("lecture impossible"));
    archive_read_support_filter_gzip(a.get());
    archive_read_support_format_tar(a.get());
    if (archive_read_open_memory(a.get(), bytes.constData(), size_t(bytes.size())) != ARCHIVE_OK)
        refuse(QStringLiteral("illisible"), archive_error_string(a.get()));
    return a;
}

enum class Kind { Folder, File, Link };

struct Member {
    QByteArray path; // relative, clean: no empty, "." or ".." component
    Kind kind;
    QByteArray target; // links only
    mode_t mode = 0;
    qint64 size = 0;
};

// The member's name as a clean relative path; empty for the archive's root folder ("./").
QByteArray cleanName(const QByteArray& raw) {
    if (raw.isEmpty()) refuse(QStringLiteral("membre sans nom"));
    if (raw.startsWith('/')) refuse(QStringLiteral("chemin absolu refusé"), raw);
    QList<QByteArray> parts;
    for (const QByteArray& part : raw.split('/')) {
        if (part.isEmpty() || part == ".") continue;
        if (part == "..") refuse(QStringLiteral("chemin hors du dossier refusé"), raw);
        parts << part;
    }
    return parts.join('/');
}

// The member described by the archive's current header; nothing for the root folder.
std::optional<Member> judge(archive_entry* entry) {
    const char* rawName = archive_entry_pathname(entry);
    const QByteArray raw = rawName ? QByteArray(rawName) : QByteArray();
    Member m{cleanName(raw), Kind::File, {}, archive_entry_perm(entry), archive_entry_size(entry)};
    if (archive_entry_hardlink(entry)) refuse(QStringLiteral("lien physique refusé"), raw);
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        m.kind = Kind::File;
        break;
    case AE_IFDIR:
        m.kind = Kind::Folder;
        break;
    case AE_IFLNK: {
        m.kind = Kind::Link;
        const char* target = archive_entry_symlink(entry);
        m.target = target ? QByteArray(target) : QByteArray();
        if (m.target.isEmpty()) refuse(QStringLiteral("lien sans cible"), raw);
        break;
    }
    default:
        refuse(QStringLiteral("type de fichier refusé"), raw);
    }
    if (m.path.isEmpty()) {
        if (m.kind != Kind::Folder) refuse(QStringLiteral("membre sans nom"), raw);
        return std::nullopt;
    }
    if (m.size < 0) m.size = 0;
    return m;
}

QByteArray parentOf(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArray() : path.left(slash);
}

// The whole list judged together: names that collide, names and link targets that pass
// through a link, link targets that leave the folder.
void judgeTogether(const QList<Member>& members) {
    QHash<QByteArray, Kind> kinds;
    for (const Member& m : members) {
        const auto it = kinds.constFind(m.path);
        if (it != kinds.constEnd() && !(*it == Kind::Folder && m.kind == Kind::Folder))
            refuse(QStringLiteral("nom en double"), m.path);
        kinds.insert(m.path, m.kind);
    }
    const auto isLink = [&](const QByteArray& path) {
        const auto it = kinds.constFind(path);
        return it != kinds.constEnd() && *it == Kind::Link;
    };
    for (const Member& m : members) {
        // Every folder above a member is a real folder, never a link or a file.
        for (QByteArray up = parentOf(m.path); !up.isEmpty(); up = parentOf(up)) {
            const auto it = kinds.constFind(up);
            if (it == kinds.constEnd() || *it == Kind::Folder) continue;
            refuse(*it == Kind::Link ? QStringLiteral("chemin qui passe par un lien refusé")
                                     : QStringLiteral("chemin qui passe par un fichier refusé"),
                   m.path);
        }
        if (m.kind != Kind::Link) continue;
        const QByteArray shown = m.path + " -> " + m.target;
        if (m.target.startsWith('/')) refuse(QStringLiteral("lien vers l'extérieur refusé"), shown);
        // Followed by names alone, from the link's folder: it must stay inside, and every step
        // but the last must be a real folder, so that what the system resolves is what is judged
        // here (a ".." after a link would climb from the link's target, not from its name).
        QList<QByteArray> at;
        for (const QByteArray& part : parentOf(m.path).split('/'))
            if (!part.isEmpty()) at << part;
        const QList<QByteArray> steps = m.target.split('/');
        for (qsizetype i = 0; i < steps.size(); ++i) {
            const QByteArray& step = steps[i];
            if (step.isEmpty() || step == ".") continue;
            if (step == "..") {
                if (at.isEmpty()) refuse(QStringLiteral("lien vers l'extérieur refusé"), shown);
                at.removeLast();
                continue;
            }
            at << step;
            bool last = true;
            for (qsizetype j = i + 1; j < steps.size(); ++j)
                if (!steps[j].isEmpty() && steps[j] != ".") last = false;
            if (!last && isLink(at.join('/')))
                refuse(QStringLiteral("lien qui passe par un lien refusé"), shown);
        }
    }
}

// Reads every header of the archive and judges the members, alone and together.
QList<Member> listMembers(const QByteArray& archive) {
    const ArchivePtr a = openArchive(archive);
    QList<Member> members;
    qint64 total = 0;
    archive_entry* entry = nullptr;
    int r;
    while ((r = archive_read_next_header(a.get(), &entry)) == ARCHIVE_OK) {
        if (std::optional<Member> m = judge(entry)) {
            total += m->size;
            members << *m;
        }
        if (members.size() > kMaxMembers || total > kMaxUnpackedBytes)
            refuse(QStringLiteral("trop volumineuse"));
    }
    if (r != ARCHIVE_EOF) refuse(QStringLiteral("illisible"), archive_error_string(a.get()));
    judgeTogether(members);
    return members;
}

// ---------------------------------------------------------------------------------------------
// Writing

// Makes the folders of `relative` under `root` (already existing ones must be real folders).
void makeFolders(const QByteArray& root, const QByteArray& relative) {
    QByteArray at = root;
    for (const QByteArray& part : relative.split('/')) {
        if (part.isEmpty()) continue;
        at += '/' + part;
        if (::mkdir(at.constData(), 0755) == 0) continue;
        struct stat st {};
        if (errno != EEXIST || ::lstat(at.constData(), &st) != 0 || !S_ISDIR(st.st_mode))
            refuseErrno(QStringLiteral("dossier impossible à créer"), relative);
    }
}

void writeFile(archive* a, const QByteArray& path, const Member& m, qint64& written) {
    const int fd =
        ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) refuseErrno(QStringLiteral("fichier impossible à créer"), m.path);
    const std::unique_ptr<int, void (*)(int*)> closer(new int(fd), [](int* f) {
        ::close(*f);
        delete f;
    });
    char buffer[64 * 1024];
    for (;;) {
        const la_ssize_t n = archive_read_data(a, buffer, sizeof buffer);
        if (n == 0) break;
        if (n < 0) refuse(QStringLiteral("illisible"), archive_error_string(a));
        written += n;
        if (written > kMaxUnpackedBytes) refuse(QStringLiteral("trop volumineuse"));
        for (la_ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(fd, buffer + done, size_t(n - done));
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) refuseErrno(QStringLiteral("écriture impossible"), m.path);
            done += w;
        }
    }
    // No set-id or sticky bits, and the owner can always read and write what is unpacked.
    if (::fchmod(fd, (m.mode & 0777) | 0600) != 0 || ::fsync(fd) != 0)
        refuseErrno(QStringLiteral("écriture impossible"), m.path);
}

} // namespace

bool signatureOK(const QByteArray& data, const QByteArray& signature, const QByteArray& publicKey) {
    if (publicKey.size() != 32) return false;
    QByteArray raw = signature;
    if (raw.size() != 64) {
        const auto decoded = QByteArray::fromBase64Encoding(
            signature.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded) return false;
        raw = *decoded;
    }
    if (raw.size() != 64) return false;
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                    reinterpret_cast<const unsigned char*>(publicKey.constData()),
                                    size_t(publicKey.size())),
        EVP_PKEY_free);
    if (!key) return false;
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!ctx || EVP_DigestVerifyInit(ctx.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    return EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(raw.constData()),
                            size_t(raw.size()),
                            reinterpret_cast<const unsigned char*>(data.constData()),
                            size_t(data.size())) == 1;
}

void extract(const QByteArray& archive, const QString& folder) {
    // Judged whole before the first byte is written.
    const QList<Member> members = listMembers(archive);

    const QByteArray root = QFile::encodeName(folder);
    if (::mkdir(root.constData(), 0700) != 0)
        refuseErrno(QStringLiteral("dossier impossible à créer"), root);
    const ArchivePtr a = openArchive(archive);
    archive_entry* entry = nullptr;
    qsizetype index = 0;
    qint64 written = 0;
    int r;
    while ((r = archive_read_next_header(a.get(), &entry)) == ARCHIVE_OK) {
        const std::optional<Member> m = judge(entry);
        if (!m) continue;
        // The second reading must meet the members the first one judged.
        if (index >= members.size() || members[index].path != m->path ||
            members[index].kind != m->kind || members[index].target != m->target)
            refuse(QStringLiteral("modifiée pendant la lecture"));
        ++index;
        const QByteArray path = root + '/' + m->path;
        makeFolders(root, parentOf(m->path));
        switch (m->kind) {
        case Kind::Folder:
            makeFolders(root, m->path);
            break;
        case Kind::File:
            writeFile(a.get(), path, *m, written);
            break;
        case Kind::Link:
            if (::symlink(m->target.constData(), path.constData()) != 0)
                refuseErrno(QStringLiteral("lien impossible à créer"), m->path);
            break;
        }
    }
    if (r != ARCHIVE_EOF) refuse(QStringLiteral("illisible"), archive_error_string(a.get()));
    if (index != members.size()) refuse(QStringLiteral("modifiée pendant la lecture"));
    // Folder permissions last, so that a read-only folder could still be filled; the owner
    // keeps full rights so that the program can later be replaced in turn.
    for (const Member& m : members)
        if (m.kind == Kind::Folder)
            ::chmod((root + '/' + m.path).constData(), (m.mode & 0777) | 0700);
}

QString findProgram(const QString& folder) {
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    for (const QFileInfo& entry : entries) {
        if (entry.isSymLink()) continue;
        const QFileInfo exe(QDir(entry.filePath()).filePath(kExecutable));
        if (exe.isFile() && !exe.isSymLink()) return entry.filePath();
    }
    return {};
}

QString identifierOf(const QString& programFolder) {
    QFile file(QDir(programFolder).filePath(kIdentifierFile));
    if (QFileInfo(file.fileName()).isSymLink() || !file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.read(256)).trimmed();
}

namespace {

struct ElfKind {
    char wordSize = 0;  // EI_CLASS
    char byteOrder = 0; // EI_DATA
    QByteArray machine; // e_machine, two bytes as stored
    bool operator==(const ElfKind&) const = default;
};

std::optional<ElfKind> elfKindOf(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    const QByteArray head = file.read(20);
    if (head.size() < 20 || !head.startsWith("\x7f"
                                             "ELF"))
        return std::nullopt;
    return ElfKind{head[4], head[5], head.mid(18, 2)};
}

} // namespace

bool fitsProcessor(const QString& folder, const QString& reference) {
    const std::optional<ElfKind> ours = elfKindOf(reference);
    if (!ours) return false;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) continue;
        if (!file.read(4).startsWith("\x7f"
                                     "ELF"))
            continue;
        if (elfKindOf(path) != ours) return false;
    }
    return true;
}

namespace {

[[noreturn]] void swapFailed(int err) {
    throw UpdateFail(QStringLiteral("Remplacement impossible : ") +
                     QString::fromLocal8Bit(std::strerror(err)));
}

void syncFolder(const QByteArray& path) {
    const int fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

} // namespace

int exchangeNames(const char* from, const char* to) {
    return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE);
}

namespace {

// The swap where the disk cannot exchange two names: a folder that is not empty cannot be
// replaced in one step there, and two renames would leave no program at all between them. The
// new program goes inside the installed folder, and its entry point `bin/ombry-voice` becomes,
// in one rename, a link to the new one's. Up to that rename the former program is whole; from
// it on, the new one is. What the former program leaves is deleted afterwards.
void switchEntryPoint(const QString& staging, const QString& installed) {
    const QString name =
        kVersionPrefix + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
    const QString version = QDir(installed).filePath(name);
    if (::rename(QFile::encodeName(staging).constData(), QFile::encodeName(version).constData()) !=
        0)
        swapFailed(errno);
    const QString entry = QDir(installed).filePath(kExecutable);
    const QString link = entry + QStringLiteral(".lien");
    removeTree(link);
    const QByteArray target =
        QFile::encodeName(QStringLiteral("../") + name + QLatin1Char('/') + kExecutable);
    if (::symlink(target.constData(), QFile::encodeName(link).constData()) != 0 ||
        ::rename(QFile::encodeName(link).constData(), QFile::encodeName(entry).constData()) != 0) {
        const int err = errno;
        removeTree(link);
        removeTree(version);
        swapFailed(err);
    }
    syncFolder(parentOf(QFile::encodeName(entry)));
    // The former program: all but the entry point, the identifier and the new version.
    const QDir folder(installed);
    for (const QString& e :
         folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (e == name || e == kIdentifierFile) continue;
        if (e == QFileInfo(kExecutable).path()) {
            const QDir bin(folder.filePath(e));
            for (const QString& b : bin.entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                                  QDir::NoDotAndDotDot))
                if (b != QFileInfo(kExecutable).fileName()) removeTree(bin.filePath(b));
            continue;
        }
        removeTree(folder.filePath(e));
    }
}

} // namespace

void swapIn(const QString& staging, const QString& installed, ExchangeFn exchange) {
    const QByteArray from = QFile::encodeName(staging);
    const QByteArray to = QFile::encodeName(installed);
    if (exchange(from.constData(), to.constData()) == 0) {
        syncFolder(parentOf(to));
        removeTree(staging); // the former program
        return;
    }
    const int err = errno;
    if (err != EINVAL && err != ENOSYS && err != EOPNOTSUPP) swapFailed(err);
    switchEntryPoint(staging, installed);
}

QString programFolderOf(const QString& executable) {
    const QFileInfo exe(executable);
    const QDir bin = exe.absoluteDir();
    if (bin.dirName() != QLatin1String("bin")) return {};
    const QString folder = QFileInfo(bin.absolutePath()).absolutePath();
    // A version inside a program folder, its entry point a link to this one.
    const QFileInfo info(folder);
    if (info.fileName().startsWith(kVersionPrefix)) {
        const QString outer = info.absolutePath();
        if (QFileInfo(QDir(outer).filePath(kExecutable)).isSymLink()) return outer;
    }
    return folder;
}

void removeTree(const QString& path) {
    const QFileInfo info(path);
    if (info.isSymLink() || (info.exists() && !info.isDir())) {
        QFile::remove(path);
        return;
    }
    if (info.exists()) QDir(path).removeRecursively();
}

} // namespace ombry::UpdatePackage
