#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTest>
#include <functional>
#include <optional>
#include <sys/types.h>

class QProcess;

namespace ombry::test {

// A private X desktop: Xvfb on a display number of its own choosing, openbox (for
// _NET_ACTIVE_WINDOW, WM_CLASS and _NET_WM_PID), a zenity field as the application in front,
// keys typed by xdotool (the XTEST device, as a program's) or by the Xvfb keyboard (as a real
// keyboard's), the clipboard seen from other clients. DISPLAY is set in this process's
// environment; start it before the QGuiApplication (OMBRY_DESKTOP_TEST_MAIN).
class DesktopSession {
public:
    DesktopSession();
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    // The session of this test process (the last one made), or null.
    static DesktopSession* current();
    static bool xvfbInstalled();

    // Starts Xvfb and, when asked, openbox. Needs no Qt event loop.
    bool start(bool windowManager = true);
    void stop();
    // Ends the programs started through Qt (the target, xclip), while the application lives.
    void endPrograms();
    bool running() const { return xvfb_ > 0; }
    QString display() const { return display_; }
    QString error() const { return error_; }

    // The target: `zenity --entry` with this title, active and focused. Needs the event loop.
    bool openTarget(const QString& title = "Cible");
    qulonglong targetWindow() const { return targetWindow_; }
    qint64 targetPid() const;
    // The target still runs: no key closed it (Escape does, Return through closeTarget()).
    bool targetRunning() const;
    // Presses Return in the target and gives what zenity printed: the field's text.
    std::optional<QString> closeTarget(int timeoutMs = 5000);

    qulonglong activeWindow() const;
    bool activateWindow(qulonglong window);

    // Runs a program to its end while the event loop turns (this process may have to answer
    // it, as the clipboard's owner does).
    struct Result {
        bool finished = false;
        int exitCode = -1;
        QByteArray out, err;
    };
    static Result run(const QString& program, const QStringList& args, int timeoutMs = 5000);
    bool xdotool(const QStringList& args) { return run("xdotool", args).exitCode == 0; }

    // Keys of the real keyboard device ("Xvfb keyboard"), by X key code.
    int keycode(const char* keysymName);
    bool keyboardPress(int keycode) { return keyboardKey(keycode, true); }
    bool keyboardRelease(int keycode) { return keyboardKey(keycode, false); }
    // Presses the keys in order and releases them in reverse: {Control_L, Alt_L, v}.
    bool keyboardChord(const QList<int>& keycodes);
    // Types lower-case letters and digits, one key each.
    bool keyboardType(const QString& text);

    // The clipboard of another client: an xclip that owns the selection until another takes it.
    bool setClipboard(const QByteArray& bytes, const QString& target = {},
                      const QString& selection = "clipboard");
    std::optional<QByteArray> readClipboard(const QString& target = {},
                                            const QString& selection = "clipboard",
                                            int timeoutMs = 5000);
    // The clipboard's text copied by a client that owns CLIPBOARD_MANAGER.
    std::optional<QByteArray> readClipboardAsManager(int timeoutMs = 5000);

    // Turns the event loop until the condition holds or the time is out.
    static bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 5000);

private:
    bool keyboardKey(int keycode, bool down);

    pid_t xvfb_ = 0;
    pid_t windowManager_ = 0;
    QString display_;
    QString error_;
    void* connection_ = nullptr; // Display*: the harness's own connection
    void* keyboard_ = nullptr;   // XDevice* of the Xvfb keyboard
    QList<QProcess*> children_;
    QProcess* target_ = nullptr;
    qulonglong targetWindow_ = 0;
    qulonglong managerWindow_ = 0;
};

} // namespace ombry::test

#ifdef QT_WIDGETS_LIB
#include <QApplication>
#define OMBRY_DESKTOP_APPLICATION QApplication
#else
#include <QGuiApplication>
#define OMBRY_DESKTOP_APPLICATION QGuiApplication
#endif

// The main() of a desktop test: the X server first, then the application on it (offscreen when
// no server started: OMBRY_REQUIRE_DESKTOP then skips or fails). The server ends at the exit of
// the process, after the objects that live to its end have closed their connections.
#define OMBRY_DESKTOP_TEST_MAIN(TestObject)                                                        \
    int main(int argc, char** argv) {                                                              \
        static ombry::test::DesktopSession session;                                                \
        const bool up = session.start();                                                           \
        qputenv("QT_QPA_PLATFORM", up ? "xcb" : "offscreen");                                      \
        int status = 0;                                                                            \
        {                                                                                          \
            OMBRY_DESKTOP_APPLICATION app(argc, argv);                                             \
            TestObject test;                                                                       \
            QTEST_SET_MAIN_SOURCE_PATH                                                             \
            status = QTest::qExec(&test, argc, argv);                                              \
            session.endPrograms();                                                                 \
        }                                                                                          \
        return status;                                                                             \
    }

// In initTestCase: skips when Xvfb is not installed, fails when the session did not start.
#define OMBRY_REQUIRE_DESKTOP()                                                                    \
    do {                                                                                           \
        if (!ombry::test::DesktopSession::xvfbInstalled())                                         \
            QSKIP("Xvfb n'est pas installé : pas de bureau pour ce test");                         \
        auto* desktop_ = ombry::test::DesktopSession::current();                                   \
        QVERIFY2(desktop_ && desktop_->running(),                                                  \
                 qPrintable(desktop_ ? desktop_->error() : QStringLiteral("pas de session")));     \
    } while (false)
