#include "app/DesktopApp.h"
#include "app/Modes.h"
#include "app/Output.h"
#include "app/SingleInstance.h"
#include "app/Startup.h"
#include "app/Switches.h"
#include "app/Usage.h"
#include "data/Problems.h"
#include "desktop/Log.h"
#include "platform/Paths.h"
#include "platform/SerialQueue.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QTimer>
#include <cstdio>
#include <memory>

using namespace ombry;

namespace {

QCoro::Task<void> runAndExit(CommandLineSwitch sw) {
    co_await runMode(std::move(sw));
    // Work that the mode posted to the main thread (a cost to record) runs before the end.
    QCoreApplication::processEvents();
    finishHeadlessRun();
    QCoreApplication::exit(0);
}

// Every way out of main passes here before static objects are destroyed: the worker threads
// (list saves, journal) are stopped and joined while the clock and the platform they read
// still exist.
struct ThreadsStoppedAtExit {
    ~ThreadsStoppedAtExit() { SerialQueue::stopAll(); }
};

// Tells the running program of a press or release of the dictation key, or of a retry. Nothing
// is printed on success, so a compositor's binding leaves no trace.
int forwardKey(int argc, char** argv, Mode mode) {
    const QCoreApplication app(argc, argv);
    const SingleInstance::Message message = mode == Mode::Press ? SingleInstance::Message::Press
                                            : mode == Mode::Release
                                                ? SingleInstance::Message::Release
                                            : mode == Mode::Retry ? SingleInstance::Message::Retry
                                                                  : SingleInstance::Message::Toggle;
    if (SingleInstance::send(message)) return 0;
    printError(QStringLiteral("Ombry Voice n'est pas lancé"));
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    QStringList arguments;
    // File names are bytes: kept whole even when they are not valid in the locale's encoding.
    for (int i = 0; i < argc; ++i)
        arguments << Paths::fromNative(QByteArray(argv[i]));
    const std::optional<CommandLineSwitch> sw = findSwitch(arguments);
    // The help touches nothing: no settings read, no data folder made.
    if (sw && sw->mode == Mode::Help) {
        std::fputs(usage::helpText(OMBRY_VERSION).c_str(), stdout);
        return 0;
    }
    // The desktop's shortcuts call the program on each press: forwarded, and gone at once.
    if (sw && (sw->mode == Mode::Press || sw->mode == Mode::Release || sw->mode == Mode::Toggle ||
               sw->mode == Mode::Retry))
        return forwardKey(argc, argv, sw->mode);

    // The modes that draw need a GUI application but never a window or a display.
    std::unique_ptr<QCoreApplication> app;
    if (!sw) {
        // The desktop program draws on the user's screen.
        if (!prepareDesktopSession()) {
            printLine(QStringLiteral("Ombry Voice : aucun affichage (DISPLAY et WAYLAND_DISPLAY "
                                     "sont vides). L'application de bureau a besoin d'une "
                                     "session graphique ; les modes en ligne de commande sont "
                                     "listés par ombry-voice --help."));
            return 1;
        }
        app = std::make_unique<QApplication>(argc, argv);
    } else if (sw->mode == Mode::Snapshot) {
        // Pictures of the window's widgets, drawn without any display.
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QApplication>(argc, argv);
    } else if (sw->mode == Mode::Icon) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("Ombry Voice"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quennard.com"));
    QCoreApplication::setApplicationVersion(QStringLiteral(OMBRY_VERSION));
    // Destroyed before the application and before static objects.
    const ThreadsStoppedAtExit threadsStopped;

    // What the data layer cannot do with a file goes to the journal.
    DataProblems::setReporter(&Log::write);
    runStartupHead();

    if (!sw) return runDesktop(static_cast<QApplication&>(*app));
    QTimer::singleShot(0, app.get(), [s = *sw] { runAndExit(s); });
    app->exec();
    return 0;
}
