#include "app/DesktopApp.h"

#include "app/AppShell.h"
#include "app/Output.h"
#include "app/SingleInstance.h"
#include "calls/CallTranslator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/DeviceProfile.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "desktop/LoginItem.h"
#include "desktop/Notify.h"
#include "desktop/SessionGuide.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "net/Net.h"
#include "online/Credits.h"
#include "online/Updater.h"
#include "platform/Platform.h"
#include "platform/x11/X11Platform.h"
#include "views/overlay/BubbleController.h"
#include "views/overlay/OverlayBinding.h"
#include "views/overlay/OverlayController.h"
#include "views/overlay/OverlayView.h"
#include "views/subtitles/SubtitleWindow.h"

#include <QApplication>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace ombry {

namespace {

const QString kAppName = QStringLiteral("Ombry Voice");
constexpr int kWarmUpEveryMs = 240 * 1000;
// What a dictation still being processed when the program ends says in the history.
const QString kInterrupted = QStringLiteral("Ombry Voice s'est arrêté pendant la transcription");

// SIGTERM, SIGINT and SIGHUP (the terminal closed, the session ends) end the program through
// the event loop, so that the store is written: the handler only writes a byte into a pipe
// that the main thread watches.
int signalPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}

void quitOnSignals(QApplication& app) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [&app, notifier] {
        char byte = 0;
        [[maybe_unused]] const ssize_t n = ::read(signalPipe[0], &byte, 1);
        notifier->setEnabled(false);
        app.quit();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

// The end of the program when its event loop never returns: the display's connection broke
// (the X server went away) and the toolkit, or Xlib, ends the process from inside the loop
// with exit(). Set while the loop runs; the exit handler does what the loop's return would.
std::function<void()> endInsideLoop;

void onExit() {
    const std::function<void()> end = std::move(endInsideLoop);
    endInsideLoop = nullptr;
    if (end) end();
}

// What every end writes: a dictation still being processed stays in the history as failed,
// with its audio, and the lists are written now.
void writeStore() {
    Store::shared().failInterrupted(kInterrupted);
    Store::shared().flush();
}

// Says clearly that the dictation key is not heard, instead of a program that silently hears
// nothing: the journal, a desktop notification that stays in the list, and a flash with the
// error sound.
void warnAboutKeyboard(DictationController& controller) {
    KeyboardHook& keyboard = Platform::current().keyboard();
    const std::optional<QString> warning = keyboardWarning(
        Platform::current().session().roads().key, keyboard.running(), keyboard.reason());
    if (!warning) return;
    Log::write(QStringLiteral("hotkey: %1").arg(*warning));
    Notify::post(QStringLiteral("Ombry Voice : touche de dictée indisponible"), *warning);
    controller.fail(QStringLiteral("Touche de dictée indisponible"));
}

// Says which road each service takes on this desktop, and opens the road of posted keys now:
// a desktop that asks the user does it at start, not in the middle of the first dictation.
void openDesktopRoads(DictationController& controller) {
    Platform& p = Platform::current();
    Log::write(describeForJournal(p.session().offer(), p.session().roads()));
    if (p.session().offer().display != SessionOffer::Display::Wayland) return;
    // Applications say which of their windows is active on the accessibility bus; those
    // started from now on say it once the bus is switched on.
    p.accessibility().followActiveWindow();
    Log::write(QStringLiteral("fenêtre: une application Wayland ne peut pas en activer une "
                              "autre, la fenêtre de départ ne sera pas ramenée"));
    QPointer<DictationController> guard(&controller);
    p.keyPoster().prepare([guard](bool ok, const QString& message) {
        SessionStatus::shared().setPostProblem(ok ? std::nullopt : std::optional<QString>(message));
        if (ok) {
            Log::write(QStringLiteral("collage: envoi des touches prêt"));
            if (!message.isEmpty()) Log::write(QStringLiteral("collage: %1").arg(message));
            return;
        }
        Log::write(QStringLiteral("collage: envoi des touches impossible (%1)").arg(message));
        if (guard) guard->fail(QStringLiteral("Envoi des touches refusé"));
    });
}

} // namespace

bool prepareDesktopSession() {
    const bool x11 = !qEnvironmentVariableIsEmpty("DISPLAY");
    const bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        // Windows of a Wayland client cannot place themselves on the screen; through XWayland
        // the strip stands where it should.
        if (x11)
            qputenv("QT_QPA_PLATFORM", "xcb");
        else if (!wayland)
            return false;
    }
    return true;
}

std::optional<QString> keyboardWarning(KeyRoad road, bool hookRunning, const QString& reason) {
    switch (road) {
    case KeyRoad::X11:
        if (hookRunning) return std::nullopt;
        if (!reason.isEmpty()) return reason;
        return QStringLiteral("Le clavier global n'est pas disponible : la touche de dictée "
                              "n'est pas entendue.");
    case KeyRoad::None:
        return QStringLiteral("Ce bureau ne transmet pas la touche de dictée à Ombry Voice "
                              "(Réglages, carte « Ce bureau »).");
    default:
        return std::nullopt;
    }
}

int runDesktop(QApplication& app) {
    app.setQuitOnLastWindowClosed(false);
    app.setApplicationDisplayName(kAppName);
    app.setDesktopFileName(QStringLiteral("ombry-voice"));

    // Let go (its lock and socket removed) at any end, also one from inside the loop.
    auto instance = std::make_unique<SingleInstance>();
    if (!instance->claim()) {
        printLine(QStringLiteral("Ombry Voice est déjà lancé."));
        return 0;
    }
    // From here on: a session that ends the program while it starts (its start lines written,
    // the window not yet shown) must not kill it before the store is written.
    quitOnSignals(app);

    DictationController& controller = DictationController::shared();
    // The tray icon and its menu; the main window with its menu bar is made when first shown.
    AppShell shell(controller);
    shell.setUpTray();
    controller.onNeedsAttention = [&controller, &shell] {
        // The settings page is where the user acts; the desktop notification keeps the reason
        // in sight after the flash is gone, also when the window is behind others.
        if (const std::optional<QString> error = controller.lastError())
            Notify::post(kAppName, *error);
        shell.needsAttention();
    };
    BubbleController::shared().setInputWatch(x11::makeInputWatch());
    controller.onBubble = [](const QString& title, const QString& original, const QString& text) {
        BubbleController::shared().show(title, original, text);
    };
    controller.onRecordingBegins = [] { OverlayController::shared().position(); };
    // The user's choices of the keyboard devices (the key) and of uinput (posted keys) decide
    // those roads on Wayland.
    AppSettings& settings = AppSettings::shared();
    auto applyChoices = [&settings] {
        Platform::current().session().setChoices(settings.readKeyboardDevices(),
                                                 settings.uinputKeys());
    };
    applyChoices();
    QObject::connect(&settings, &AppSettings::readKeyboardDevicesChanged, &app,
                     [&controller, applyChoices] {
                         applyChoices();
                         controller.hotkey().restart();
                     });
    QObject::connect(&settings, &AppSettings::uinputKeysChanged, &app, [applyChoices] {
        applyChoices();
        Platform::current().keyPoster().prepare([](bool ok, const QString& message) {
            SessionStatus::shared().setPostProblem(ok ? std::nullopt
                                                      : std::optional<QString>(message));
        });
    });
    controller.start();

    // The strip, bound to the controller, at the bottom of the screen under the pointer.
    auto* overlay = new OverlayView;
    new OverlayBinding(controller, *overlay);
    OverlayController::shared().setPanel(overlay);
    OverlayController::shared().position();

    // A second start (the menu entry clicked again, a login item and a manual start) brings
    // the running program's window forward.
    instance->onAnotherStart = [&shell] {
        Log::write(
            QStringLiteral("démarrage: déjà lancé, second démarrage ignoré, fenêtre affichée"));
        shell.showWindow();
    };
    // The dictation key from the desktop's bindings and shortcuts (`--press`, `--release`,
    // `--toggle`).
    instance->onKey = [&controller](SingleInstance::Message message) {
        HotkeyMonitor& hotkey = controller.hotkey();
        const QString source = QStringLiteral("commande");
        if (message == SingleInstance::Message::Toggle)
            hotkey.toggleFromDesktop(source);
        else
            hotkey.keyFromDesktop(message == SingleInstance::Message::Press, source);
    };
    // `--retry` (a shortcut of the desktop, a terminal): the newest failed dictation again.
    instance->onRetry = [&controller] {
        if (const std::optional<Dictation> failed = Store::shared().lastFailed())
            controller.retry(failed->id);
        else
            Log::write(QStringLiteral("réessai: aucune dictée échouée à réessayer"));
    };
    LoginItem::applyDefault();

    openDesktopRoads(controller);
    warnAboutKeyboard(controller);

    // Dictations that the last run left in processing (it was killed) are failed, to retry.
    if (const int interrupted = Store::shared().failInterrupted(kInterrupted))
        Log::write(QStringLiteral("historique: %1 dictée(s) interrompue(s), gardée(s) pour "
                                  "réessayer")
                       .arg(interrupted));
    Store::shared().pruneAudio();
    // The subtitle panel comes up when the call subtitles start; a meeting that the last run
    // left recording or unfinished is finished now.
    CallTranslator::shared().onShowWindow = [] { SubtitleWindow::shared().show(); };
    MeetingRecorder::shared().resumePending();
    controller.warmUpAudio();
    Log::write(DeviceProfile::launchLine());
    Net::warmUp();
    QTimer::singleShot(0, &app, [] { Credits::shared().refresh(); });
    Updater::shared().start();

    // Connections to the services go stale when idle; keep them warm for the next dictation.
    auto* warmUp = new QTimer(&app);
    warmUp->setInterval(kWarmUpEveryMs);
    QObject::connect(warmUp, &QTimer::timeout, [] { Net::warmUp(); });
    warmUp->start();

    // The main window at every normal start.
    shell.showWindow();

    endInsideLoop = [&instance] {
        Log::write(QStringLiteral("affichage: connexion perdue, fin du programme"));
        // A meeting being recorded keeps its audio for the next start, as at a quit.
        delete &MeetingRecorder::shared();
        writeStore();
        instance.reset();
    };
    static const bool exitHandled = std::atexit(onExit) == 0;
    Q_UNUSED(exitHandled);
    const int status = app.exec();
    endInsideLoop = nullptr;
    controller.onNeedsAttention = nullptr; // it reaches the shell, which goes with this function
    BubbleController::shared().close();
    BubbleController::shared().setInputWatch(nullptr);
    writeStore();
    OverlayController::shared().setPanel(nullptr);
    delete overlay;
    return status;
}

} // namespace ombry
