#pragma once

#include <QString>

namespace ombry {
class UserDefaults;
}

// The move from the former identity (com.quennard.talvo, data folder "Talvo") to the present
// one (com.quennard.ombryvoice, "Ombry Voice").
namespace ombry::IdentityMigration {

// Before the data folder `to` is first made: moves the former folder beside it into place
// when only the former one exists, and renames its talvo.log to journal.log.
void moveDataFolder(const QString& to);

// At the very start of every launch, before settings and store are touched: carries the
// former defaults over once (entries the present domain lacks), removes the former domain,
// resets the login item flag; then, at every launch, deletes the former identity's leftovers.
void run();
// The same on a given defaults domain, former domain file and cache folder.
void run(UserDefaults& defaults, const QString& formerDefaultsFile, const QString& cacheHome);

} // namespace ombry::IdentityMigration
