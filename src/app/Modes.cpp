#include "app/Modes.h"

#include "app/ChunkMode.h"
#include "app/CorrectMode.h"
#include "app/LocalModes.h"
#include "app/OmbryIcon.h"
#include "app/Output.h"
#include "app/Snapshot.h"
#include "app/SpeechModes.h"
#include "app/UpdateMode.h"

#include <exception>

namespace ombry {
namespace {

QCoro::Task<void> notAvailable(Mode mode) {
    printError(QStringLiteral("le mode %1 n'est pas disponible dans cette version")
                   .arg(QLatin1String(switchName(mode))));
    co_return;
}

// --icon: the icon set in the accent colour.
void runIcon(const QString& folder) {
    // An empty argument would put the icons at the root of the file system.
    if (folder.trimmed().isEmpty()) {
        printError(QStringLiteral("--icon demande un dossier"));
        return;
    }
    QString error;
    const QColor accent = QColor::fromRgbF(0.0f, 184 / 255.0f, 169 / 255.0f, 1.0f);
    if (!OmbryIcon::writeIconset(folder, accent, 0, &error)) printError(error);
}

// --snapshot: pictures of every page of the main window.
void runSnapshot(const QString& folder) {
    QString error;
    if (!Snapshot::render(folder, &error)) printLine(QStringLiteral("erreur: ") + error);
}

} // namespace

QCoro::Task<void> runMode(CommandLineSwitch sw) {
    try {
        switch (sw.mode) {
        case Mode::ChunkTest:
            co_await runChunkTestMode(sw.args.value(0));
            break;
        case Mode::Update:
            co_await runUpdateMode();
            break;
        case Mode::FastTest:
            co_await runFastTestMode(sw.args.value(0));
            break;
        case Mode::CallTest:
            co_await runCallTestMode(sw.args.value(0));
            break;
        case Mode::Command:
            co_await runCommandMode(sw.args.value(0), sw.args.value(1));
            break;
        case Mode::Translate:
            co_await runTranslateMode(sw.args.value(0));
            break;
        case Mode::Test:
            co_await runTestMode(sw.args.value(0));
            break;
        case Mode::Correct:
            co_await runCorrectMode(sw.args.value(0));
            break;
        case Mode::Icon:
            runIcon(sw.args.value(0));
            break;
        case Mode::Snapshot:
            runSnapshot(sw.args.value(0));
            break;
        default:
            co_await notAvailable(sw.mode);
        }
    } catch (const std::exception& e) {
        printError(e);
    }
}

} // namespace ombry
