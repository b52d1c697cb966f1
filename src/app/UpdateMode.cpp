#include "app/UpdateMode.h"

#include "app/Output.h"
#include "online/Updater.h"

namespace ombry {

QCoro::Task<void> runUpdateMode() {
    Updater& updater = Updater::shared();
    const bool found = co_await updater.check();
    if (!found) {
        printLine(QStringLiteral("déjà à jour"));
        co_return;
    }
    const std::optional<Release> release = updater.available();
    printLine(QStringLiteral("mise à jour %1 trouvée, installation…")
                  .arg(release ? release->version : QString()));
    co_await updater.install();
    printLine(updater.error().value_or(QString()));
}

} // namespace ombry
