#include "app/Startup.h"

#include "data/IdentityMigration.h"
#include "data/Settings.h"
#include "data/Store.h"

namespace ombry {

void runStartupHead() {
    // Before anything reads a setting or a data file, so that what the former identity left
    // is seen by both.
    IdentityMigration::run();
    AppSettings::shared().applyTheme();
}

void finishHeadlessRun() {
    // Only a store that a mode has used has anything to write; none is made just for this.
    if (Store* store = Store::sharedIfCreated()) store->flush();
}

} // namespace ombry
