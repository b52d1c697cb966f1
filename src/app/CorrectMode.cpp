#include "app/CorrectMode.h"

#include "app/Output.h"
#include "correction/Analyzer.h"

namespace ombry {

// One clock from the start; a failure of the analysis or of the rewrite reaches the mode
// runner, which prints the one error line.
QCoro::Task<void> runCorrectMode(QString text) {
    const QString language = QStringLiteral("français");
    QElapsedTimer timer;
    timer.start();

    const Analysis analysis = co_await Analyzer::analyze(text, language, {});
    printLine(QStringLiteral("correction en %1 s").arg(secondsSince(timer)));

    const QList<Fix> fixes = co_await Analyzer::explain(analysis.fixes, text, language);
    printLine(QStringLiteral("analyse (%1 s): %2").arg(secondsSince(timer), analysis.corrected));
    for (const Fix& fix : fixes)
        printLine(QStringLiteral("  [%1] %2 → %3 : %4")
                      .arg(fix.kind, fix.original, fix.correction, fix.explanation));

    const QString formal =
        co_await Analyzer::rewrite(text, TextAction::Formal, language, std::nullopt);
    printLine(QStringLiteral("formel: ") + formal);
}

} // namespace ombry
