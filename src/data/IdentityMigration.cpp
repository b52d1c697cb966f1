#include "data/IdentityMigration.h"

#include "data/UserDefaults.h"
#include "platform/Paths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <mutex>

namespace ombry::IdentityMigration {

void moveDataFolder(const QString& to) {
    // The store, the key store and the journal each ask for the folder, possibly from
    // different threads: one move, with its rename of the journal, ends before another looks.
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    const QFileInfo target(to);
    const QString old =
        target.absolutePath() + QLatin1Char('/') + QLatin1String(Paths::kFormerDataFolderName);
    // With both folders present nothing moves: the present one is the user's.
    if (target.exists() || !QFileInfo::exists(old)) return;
    if (!QDir().rename(old, to)) return;
    QFile::rename(to + QStringLiteral("/talvo.log"), to + QStringLiteral("/journal.log"));
}

void run(UserDefaults& defaults, const QString& formerDefaultsFile, const QString& cacheHome) {
    if (defaults.boolValue(QStringLiteral("identityMigrated")) != true) {
        if (QFileInfo::exists(formerDefaultsFile)) {
            if (const auto former = UserDefaults::readFile(formerDefaultsFile)) {
                QJsonObject missing;
                for (auto it = former->begin(); it != former->end(); ++it)
                    if (!defaults.contains(it.key())) missing.insert(it.key(), it.value());
                if (!missing.isEmpty()) defaults.merge(missing);
                QFile::remove(formerDefaultsFile);
            } else {
                // Unreadable former settings are set aside rather than destroyed.
                const QString aside = formerDefaultsFile + QStringLiteral(".damaged");
                QFile::remove(aside);
                QFile::rename(formerDefaultsFile, aside);
            }
        }
        // The login item is set afresh for the new identity.
        defaults.remove(QStringLiteral("loginItemSetOmbry"));
        defaults.setValue(QStringLiteral("identityMigrated"), true);
    }
    // At every launch: the former identity's caches.
    QDir(cacheHome + QLatin1Char('/') + QLatin1String(Paths::kFormerDomain)).removeRecursively();
}

void run() {
    run(UserDefaults::standard(), Paths::formerDefaultsFile(), Paths::cacheHome());
}

} // namespace ombry::IdentityMigration
