#pragma once

#include "net/Errors.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

// The blocking steps of an update, each on files: the archive's signature, its unpacking into a
// folder of its own, finding and judging the program inside, and the swap of the installed
// program. They run on a worker thread, never on the main one.
//
// A program folder (installed or in an archive) is a folder that holds the executable
// `bin/ombry-voice` and a text file `identifier` naming the program
// ("com.quennard.ombryvoice"); everything else in it is the program's own business.
namespace ombry {

// The failure of an update step: `message` is what the user reads.
class UpdateFail : public Error {
public:
    explicit UpdateFail(const QString& message) : Error(message) {}
    QString message() const { return description(); }
    QString errorDescription() const { return description(); }
};

namespace UpdatePackage {

inline const QString kExecutable = QStringLiteral("bin/ombry-voice");
inline const QString kIdentifierFile = QStringLiteral("identifier");

// True when `signature` (64 bytes, or their base64 text) is the Ed25519 signature of `data` by
// `publicKey` (32 bytes). An empty key verifies nothing.
bool signatureOK(const QByteArray& data, const QByteArray& signature, const QByteArray& publicKey);

// Unpacks the .tar.gz whose bytes are `archive` (those whose signature was checked, never the
// file read again) into `folder`, which must not exist yet. Every member is
// judged before anything is written: only folders, regular files and symbolic links are taken;
// an absolute name, a name with "..", a name that passes through a link, a link whose target
// leaves the folder (or passes through another link), a hard link, a device, a pipe or a
// duplicate name refuse the whole archive with UpdateFail "archive : …". Owners and special
// permission bits are not restored.
void extract(const QByteArray& archive, const QString& folder);

// The first program folder (in name order) among the entries of `folder`; empty when none.
QString findProgram(const QString& folder);

// The identifier in the program folder's `identifier` file, trimmed; empty when unreadable.
QString identifierOf(const QString& programFolder);

// True when every ELF file in `folder` (at any depth) is built for the processor of the ELF
// file `reference` (machine, word size, byte order). The reference is the running program.
bool fitsProcessor(const QString& folder, const QString& reference);

// Exchanges two names in one step (renameat2 with RENAME_EXCHANGE); 0, or -1 with errno.
int exchangeNames(const char* from, const char* to);
using ExchangeFn = int (*)(const char* from, const char* to);

// Puts `staging` in the place of `installed` in one step (an exchange of the two names), then
// deletes the former program, now at `staging`. Where the disk cannot exchange names, the new
// program goes inside `installed` as a folder of its own (kVersionPrefix…) and the entry point
// `bin/ombry-voice` becomes a link to its executable, in one rename; then what the former
// program left there goes. Either way, whenever the machine stops, `installed` starts a whole
// program. Throws UpdateFail.
inline const QString kVersionPrefix = QStringLiteral(".version-");
void swapIn(const QString& staging, const QString& installed, ExchangeFn exchange = &exchangeNames);

// The program folder of the running `executable` (resolved, links followed): the folder of
// its `bin`, or the program folder whose entry point links into it; empty when the executable
// is not in a `bin` folder.
QString programFolderOf(const QString& executable);

// Deletes a file or folder tree, ignoring failures; links are removed, never followed.
void removeTree(const QString& path);

} // namespace UpdatePackage
} // namespace ombry
