#include "app/Modes.h"

#include "app/Output.h"

#include <exception>

namespace ombry {
namespace {

QCoro::Task<void> notAvailable(Mode mode) {
    printLine(QStringLiteral("erreur: le mode %1 n'est pas disponible dans cette version")
                  .arg(QLatin1String(switchName(mode))));
    co_return;
}

} // namespace

QCoro::Task<void> runMode(Switch sw) {
    try {
        switch (sw.mode) {
        default:
            co_await notAvailable(sw.mode);
        }
    } catch (const std::exception& e) {
        printLine(QStringLiteral("erreur: ") + QString::fromUtf8(e.what()));
    }
}

} // namespace ombry
