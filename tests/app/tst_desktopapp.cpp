// The start of the desktop program: one program per user, and the warning when the dictation
// key cannot be heard.
#include "app/DesktopApp.h"
#include "app/SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

Q_DECLARE_METATYPE(ombry::KeyRoad)

using namespace ombry;

class TstDesktopApp : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void secondStartTellsTheFirstAndStepsAside() {
        QTemporaryDir dir;
        SingleInstance first(dir.path());
        int told = 0;
        first.onAnotherStart = [&told] { ++told; };
        QVERIFY(first.claim());
        QVERIFY(QFile::exists(first.socketPath()));

        // Each later start finds the first, tells it and does not claim.
        for (int i = 1; i <= 2; ++i) {
            SingleInstance second(dir.path());
            QVERIFY(!second.claim());
            QTRY_COMPARE(told, i);
        }
        // A stranger on the socket that says something else is not a start.
        QLocalSocket stranger;
        stranger.connectToServer(first.socketPath());
        QVERIFY(stranger.waitForConnected(1000));
        stranger.write("bonjour\n");
        stranger.flush();
        QTest::qWait(100);
        QCOMPARE(told, 2);
    }

    // Local clients that say nothing, or a line without end, or too many at once are dropped.
    void strangersCannotHoldTheSocket() {
        QTemporaryDir dir;
        SingleInstance first(dir.path());
        QList<SingleInstance::Message> keys;
        first.onKey = [&keys](SingleInstance::Message m) { keys << m; };
        QVERIFY(first.claim());
        auto closed = [](const QLocalSocket& s) {
            return s.state() != QLocalSocket::ConnectedState;
        };
        QLocalSocket endless;
        endless.connectToServer(first.socketPath());
        QVERIFY(endless.waitForConnected(1000));
        endless.write(QByteArray(1 << 20, 'x'));
        QTRY_VERIFY_WITH_TIMEOUT(closed(endless), 1000);
        std::vector<std::unique_ptr<QLocalSocket>> idle;
        for (int i = 0; i < 40; ++i) {
            idle.push_back(std::make_unique<QLocalSocket>());
            idle.back()->connectToServer(first.socketPath());
            QVERIFY(idle.back()->waitForConnected(1000));
        }
        QTRY_VERIFY_WITH_TIMEOUT(
            std::count_if(idle.begin(), idle.end(), [&](auto& s) { return closed(*s); }) >= 20,
            500);
        QTRY_VERIFY_WITH_TIMEOUT(
            std::all_of(idle.begin(), idle.end(), [&](auto& s) { return closed(*s); }), 5000);
        QVERIFY(SingleInstance::send(SingleInstance::Message::Press, dir.path()));
        QTRY_COMPARE(keys, QList<SingleInstance::Message>{SingleInstance::Message::Press});
    }

    // Another user's folders and lock in the shared temporary folder, or a runtime folder too
    // deep for a socket's address, are passed over: this program starts and hears keys.
    void folderOfNoOtherUser() {
        if (geteuid() != 0) QSKIP("another user's files need root to be made");
        QTemporaryDir tmp;
        const QByteArray savedTmp = qgetenv("TMPDIR"), savedRuntime = qgetenv("XDG_RUNTIME_DIR");
        const auto restore = qScopeGuard([&] {
            qputenv("TMPDIR", savedTmp);
            qputenv("XDG_RUNTIME_DIR", savedRuntime);
        });
        qputenv("TMPDIR", tmp.path().toUtf8());
        qunsetenv("XDG_RUNTIME_DIR");
        // Qt's fallback runtime folder and ours made by nobody, and a lock of a live process.
        for (const QString& name :
             {QStringLiteral("runtime-root"), QStringLiteral("ombry-voice-0")}) {
            QVERIFY(QDir(tmp.path()).mkdir(name));
            QVERIFY(chmod(QFile::encodeName(tmp.filePath(name)).constData(), 0700) == 0);
            QVERIFY(chown(QFile::encodeName(tmp.filePath(name)).constData(), 65534, 65534) == 0);
        }
        QFile lock(tmp.filePath(QStringLiteral("ombry-voice.lock")));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write(QByteArray::number(QCoreApplication::applicationPid()) + "\ntst_desktopapp\n" +
                   QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();
        QVERIFY(chown(QFile::encodeName(lock.fileName()).constData(), 65534, 65534) == 0);

        auto claimsAndHears = [] {
            SingleInstance instance(SingleInstance::defaultFolder());
            QList<SingleInstance::Message> keys;
            instance.onKey = [&keys](SingleInstance::Message m) { keys << m; };
            if (!instance.claim()) return false;
            return SingleInstance::send(SingleInstance::Message::Press) &&
                   QTest::qWaitFor([&] { return !keys.isEmpty(); }, 2000);
        };
        QVERIFY(claimsAndHears());
        QVERIFY(!SingleInstance::defaultFolder().startsWith(tmp.path()));

        const QString deep = tmp.filePath(QString(120, QLatin1Char('r')));
        QVERIFY(QDir().mkpath(deep));
        QVERIFY(chmod(QFile::encodeName(deep).constData(), 0700) == 0);
        qputenv("XDG_RUNTIME_DIR", deep.toUtf8());
        QVERIFY(claimsAndHears());
    }

    void programThatDiedLeavesNothingInTheWay() {
        // A crash leaves the socket file and a lock whose process is gone.
        QTemporaryDir dir;
        QFile socket(dir.filePath(QStringLiteral("ombry-voice.sock")));
        QVERIFY(socket.open(QIODevice::WriteOnly));
        socket.close();
        QFile lock(dir.filePath(QStringLiteral("ombry-voice.lock")));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("999999\nombry-voice\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();

        SingleInstance next(dir.path());
        int told = 0;
        next.onAnotherStart = [&told] { ++told; };
        QVERIFY(next.claim() && !SingleInstance(dir.path()).claim());
        QTRY_COMPARE(told, 1);
    }

    // The real program twice, without a keyboard hook: the second start tells the first and exits;
    // the first says the key is not heard, hears --press, and ends cleanly on SIGTERM.
    void secondProgramStepsAside() {
        QTemporaryDir home;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        // Folders of the test's own; the warm-ups go to a closed local port, not to the network.
        for (const char* var : {"XDG_RUNTIME_DIR", "XDG_DATA_HOME", "XDG_CONFIG_HOME"})
            env.insert(QLatin1String(var), home.filePath(QLatin1String(var)));
        for (const char* var : {"OMBRY_OPENROUTER_URL", "OMBRY_LANGUAGETOOL_URL"})
            env.insert(QLatin1String(var), QStringLiteral("http://127.0.0.1:9"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        QVERIFY(QDir(home.path()).mkdir("XDG_RUNTIME_DIR"));
        QVERIFY(chmod(QFile::encodeName(home.filePath("XDG_RUNTIME_DIR")).constData(), 0700) == 0);
        const QString binary = qEnvironmentVariable("OMBRY_BINARY");
        const QString journal =
            home.filePath(QStringLiteral("XDG_DATA_HOME/Ombry Voice/journal.log"));
        auto journalHas = [&](const QString& words) {
            QFile f(journal);
            return f.open(QIODevice::ReadOnly) && QString::fromUtf8(f.readAll()).contains(words);
        };

        QProcess first;
        first.setProcessEnvironment(env);
        first.start(binary, {});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(journalHas(QStringLiteral("ordinateur: ")), 20000);
        QVERIFY(journalHas(QStringLiteral("erreur: Touche de dictée indisponible")));

        QProcess second;
        second.setProcessEnvironment(env);
        second.start(binary, {});
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(second.readAllStandardOutput()).trimmed(),
                 QStringLiteral("Ombry Voice est déjà lancé."));
        QTRY_VERIFY_WITH_TIMEOUT(journalHas(QStringLiteral("second démarrage ignoré")), 5000);
        QCOMPARE(first.state(), QProcess::Running);

        // The desktop's bindings tell the running program of the key: silently, at once.
        auto forward = [&](const QString& sw) {
            QProcess p;
            p.setProcessEnvironment(env);
            p.start(binary, {sw});
            if (!p.waitForFinished(5000)) return QStringLiteral("(bloqué)");
            return QString::number(p.exitCode()) + QString::fromUtf8(p.readAllStandardOutput());
        };
        QCOMPARE(forward(QStringLiteral("--press")), QStringLiteral("0"));
        QTRY_VERIFY_WITH_TIMEOUT(journalHas(QStringLiteral("touche: dictée enfoncée (commande)")),
                                 5000);
        QCOMPARE(forward(QStringLiteral("--release")), QStringLiteral("0"));
        QTRY_VERIFY_WITH_TIMEOUT(journalHas(QStringLiteral("touche: dictée relâchée (commande)")),
                                 5000);

        first.terminate(); // SIGTERM
        QVERIFY(first.waitForFinished(10000));
        QCOMPARE(first.exitStatus(), QProcess::NormalExit);
        QCOMPARE(first.exitCode(), 0);
        // Nobody to tell: one line, and a failure for the desktop's binding.
        QCOMPARE(forward(QStringLiteral("--toggle")),
                 QStringLiteral("1erreur: Ombry Voice n'est pas lancé\n"));
    }

    void keyboardWarning_data() {
        QTest::addColumn<ombry::KeyRoad>("road");
        QTest::addColumn<bool>("running");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<QString>("expected"); // a word the warning holds; empty: no warning
        const auto row = [](const char* name, KeyRoad road, bool running, const char* reason,
                            const char* expected) {
            QTest::newRow(name) << road << running << reason << expected;
        };
        row("x11, hook runs", KeyRoad::X11, true, "", "");
        row("x11, hook refused, its reason", KeyRoad::X11, false, "pas de clavier global.",
            "pas de clavier");
        row("x11, hook refused without a reason", KeyRoad::X11, false, "", "n'est pas");
        // On Wayland the hook never runs: the desktop's road decides, and its answer comes later.
        row("wayland portal", KeyRoad::Portal, false, "x", "");
        row("wayland bindings", KeyRoad::Bindings, false, "x", "");
        row("wayland, no road", KeyRoad::None, false, "x", "Ce bureau");
    }

    void keyboardWarning() {
        QFETCH(ombry::KeyRoad, road);
        QFETCH(bool, running);
        QFETCH(QString, reason);
        QFETCH(QString, expected);
        const std::optional<QString> warning = ombry::keyboardWarning(road, running, reason);
        QCOMPARE(bool(warning), !expected.isEmpty());
        if (warning) QVERIFY2(warning->contains(expected), qPrintable(*warning));
    }

    void noDisplayNoDesktop() {
        const QByteArray display = qgetenv("DISPLAY"), wayland = qgetenv("WAYLAND_DISPLAY"),
                         qpa = qgetenv("QT_QPA_PLATFORM");
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        qunsetenv("QT_QPA_PLATFORM");
        QVERIFY(!prepareDesktopSession());
        // On a Wayland session with XWayland, the windows go through X11.
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        qputenv("DISPLAY", ":0");
        QVERIFY(prepareDesktopSession());
        QCOMPARE(qgetenv("QT_QPA_PLATFORM"), QByteArray("xcb"));
        // A platform the user chose is kept.
        qputenv("QT_QPA_PLATFORM", "wayland");
        QVERIFY(prepareDesktopSession());
        QCOMPARE(qgetenv("QT_QPA_PLATFORM"), QByteArray("wayland"));
        qputenv("DISPLAY", display);
        qputenv("WAYLAND_DISPLAY", wayland);
        qputenv("QT_QPA_PLATFORM", qpa);
    }
};

QTEST_GUILESS_MAIN(TstDesktopApp)
#include "tst_desktopapp.moc"
