#include "app/CorrectMode.h"

#include "app/Output.h"
#include "correction/Analyzer.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

#include <exception>

namespace ombry {
QCoro::Task<void> runCorrectMode(QString text) {
    const QString language = QStringLiteral("français");
    const Clock& clock = Platform::current().clock();
    const int64_t start = clock.elapsedMs();
    auto seconds = [&] {
        return QString::asprintf("%.1f", double(clock.elapsedMs() - start) / 1000.0);
    };

    Analysis analysis;
    QString failure;
    try {
        analysis = co_await Analyzer::analyze(text, language, {});
    } catch (const std::exception& e) {
        failure = QString::fromUtf8(e.what());
    }
    if (!failure.isNull()) {
        printLine(QStringLiteral("erreur: ") + failure);
        co_return;
    }
    printLine(QStringLiteral("correction en %1 s").arg(seconds()));

    const QList<Fix> fixes = co_await Analyzer::explain(analysis.fixes, text, language);
    printLine(QStringLiteral("analyse (%1 s): %2").arg(seconds(), analysis.corrected));
    for (const Fix& fix : fixes)
        printLine(QStringLiteral("  [%1] %2 → %3 : %4")
                      .arg(fix.kind, fix.original, fix.correction, fix.explanation));

    try {
        const QString formal =
            co_await Analyzer::rewrite(text, TextAction::Formal, language, std::nullopt);
        printLine(QStringLiteral("formel: ") + formal);
    } catch (const std::exception& e) {
        printLine(QStringLiteral("erreur: ") + QString::fromUtf8(e.what()));
    }
}

} // namespace ombry
