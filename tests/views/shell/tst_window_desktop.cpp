// The real program on a private X desktop: its window at start, closed to the tray, brought
// back by a second start and by the tray menu's "Ouvrir Ombry Voice", and a picture of the
// screen. The tray host is played by this test on a private session bus, as a desktop's panel
// does (StatusNotifierWatcher), and the menu item is clicked through the menu's D-Bus
// interface, the way the panel delivers a click.
#include "DesktopSession.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using ombry::test::DesktopSession;

// The panel's side of the tray: it takes the program's registration.
class TrayWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

public:
    bool hostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const { return items_; }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { items_ << service; }
    void RegisterStatusNotifierHost(const QString&) {}

private:
    QStringList items_;
};

namespace {

struct MenuNode {
    int id = 0;
    QVariantMap props;
    QList<MenuNode> children;
};

MenuNode readNode(const QDBusArgument& arg) {
    MenuNode n;
    arg.beginStructure();
    arg >> n.id >> n.props;
    arg.beginArray();
    while (!arg.atEnd()) {
        QDBusVariant v;
        arg >> v;
        n.children << readNode(v.variant().value<QDBusArgument>());
    }
    arg.endArray();
    arg.endStructure();
    return n;
}

std::optional<int> findLabel(const MenuNode& n, const QString& label) {
    if (n.props.value(QStringLiteral("label")).toString() == label) return n.id;
    for (const MenuNode& c : n.children)
        if (const std::optional<int> id = findLabel(c, label)) return id;
    return std::nullopt;
}

} // namespace

class TstWindowDesktop : public QObject {
    Q_OBJECT

    QTemporaryDir home_;
    QProcess bus_;
    QString busAddress_;
    std::optional<QDBusConnection> connection_;
    TrayWatcher watcher_;
    QProcess program_;

    DesktopSession& desktop() { return *DesktopSession::current(); }

    QProcessEnvironment environment() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        const QString h = home_.path();
        env.insert("HOME", h);
        env.insert("XDG_CONFIG_HOME", h + "/config");
        env.insert("XDG_DATA_HOME", h + "/data");
        env.insert("XDG_CACHE_HOME", h + "/cache");
        env.insert("XDG_RUNTIME_DIR", h + "/run");
        env.insert("DISPLAY", desktop().display());
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.insert("DBUS_SESSION_BUS_ADDRESS", busAddress_);
        env.insert("PULSE_SERVER", "unix:" + h + "/run/no-sound-server"); // no sound server
        env.remove("XDG_SESSION_TYPE");
        env.remove("WAYLAND_DISPLAY");
        return env;
    }

    // The program's main window, when it is shown.
    std::optional<QString> visibleWindow() {
        const auto r =
            desktop().run("xdotool", {"search", "--onlyvisible", "--name", "^Ombry Voice$"});
        const QString id = QString::fromUtf8(r.out).trimmed().section('\n', 0, 0);
        if (r.exitCode != 0 || id.isEmpty()) return std::nullopt;
        return id;
    }

    bool waitForWindow(bool shown, int timeoutMs = 20000) {
        return DesktopSession::waitUntil([&] { return bool(visibleWindow()) == shown; }, timeoutMs);
    }

    QDBusMessage callMenu(const QString& service, const QString& path, const QString& method,
                          const QVariantList& args) {
        QDBusMessage m =
            QDBusMessage::createMethodCall(service, path, "com.canonical.dbusmenu", method);
        m.setArguments(args);
        return connection_->call(m, QDBus::Block, 5000);
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty()) QSKIP("pas de dbus-daemon");
        QDir().mkpath(home_.path() + "/config");
        QDir().mkpath(home_.path() + "/run");
        QFile::setPermissions(home_.path() + "/run",
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile settings(home_.path() + "/config/com.quennard.ombryvoice.json");
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(R"({"onboarded": true, "loginItemSetOmbry": false})");
        settings.close();

        bus_.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        QVERIFY(bus_.waitForReadyRead(5000));
        busAddress_ = QString::fromUtf8(bus_.readLine()).trimmed();
        connection_ = QDBusConnection::connectToBus(busAddress_, "tray-host");
        QVERIFY(connection_->isConnected());
        QVERIFY(connection_->registerObject("/StatusNotifierWatcher", &watcher_,
                                            QDBusConnection::ExportAllSlots |
                                                QDBusConnection::ExportAllProperties));
        QVERIFY(connection_->registerService("org.kde.StatusNotifierWatcher"));
    }

    void cleanupTestCase() {
        if (program_.state() != QProcess::NotRunning) {
            program_.terminate();
            program_.waitForFinished(10000);
        }
        if (connection_) QDBusConnection::disconnectFromBus("tray-host");
        if (bus_.state() != QProcess::NotRunning) {
            bus_.terminate();
            bus_.waitForFinished(3000);
        }
    }

    void windowFromStartSecondStartAndTrayMenu() {
        program_.setProcessEnvironment(environment());
        program_.start(qEnvironmentVariable("OMBRY_BINARY"), {});
        QVERIFY(program_.waitForStarted());
        // Every start shows the window.
        QVERIFY2(waitForWindow(true), program_.readAllStandardError().constData());

        // A picture of the screen with the window on it.
        QTest::qWait(500);
        const QImage shot = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        QVERIFY(shot.save(QDir::current().filePath("window_desktop.png")));
        QSet<QRgb> colours;
        for (int y = 100; y < shot.height() - 100; y += 7)
            for (int x = 100; x < shot.width() - 100; x += 7)
                colours.insert(shot.pixel(x, y));
        QVERIFY2(colours.size() > 30, "the screen shows no window");

        // Closed with its own key: the program goes on, the window is gone.
        const auto closeWindow = [&] {
            return desktop().xdotool({"windowactivate", "--sync", *visibleWindow()}) &&
                   desktop().xdotool({"key", "ctrl+w"}) && waitForWindow(false);
        };
        QVERIFY(closeWindow());
        QCOMPARE(program_.state(), QProcess::Running);

        // A second start brings it back and steps aside.
        QProcess second;
        second.setProcessEnvironment(environment());
        second.start(qEnvironmentVariable("OMBRY_BINARY"), {});
        QVERIFY(DesktopSession::waitUntil([&] { return second.state() == QProcess::NotRunning; },
                                          15000));
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(waitForWindow(true));
        QCOMPARE(program_.state(), QProcess::Running);

        // Closed again, then opened from the tray menu.
        QVERIFY(closeWindow());
        QVERIFY2(DesktopSession::waitUntil([&] { return !watcher_.items().isEmpty(); }, 10000),
                 "the program did not register its tray icon");
        const QString item = watcher_.items().first();
        QDBusMessage get = QDBusMessage::createMethodCall(item, "/StatusNotifierItem",
                                                          "org.freedesktop.DBus.Properties", "Get");
        get.setArguments({"org.kde.StatusNotifierItem", "Menu"});
        const QDBusMessage menuPath = connection_->call(get, QDBus::Block, 5000);
        QCOMPARE(menuPath.type(), QDBusMessage::ReplyMessage);
        const QString path = menuPath.arguments()
                                 .first()
                                 .value<QDBusVariant>()
                                 .variant()
                                 .value<QDBusObjectPath>()
                                 .path();
        // As the panel does: the menu gets ready (it is built afresh), is read, the item clicked.
        const auto clickItem = [&](const QString& label) {
            callMenu(item, path, "AboutToShow", {0});
            const QDBusMessage layout = callMenu(item, path, "GetLayout", {0, -1, QStringList()});
            if (layout.type() != QDBusMessage::ReplyMessage) return false;
            const auto id =
                findLabel(readNode(layout.arguments().at(1).value<QDBusArgument>()), label);
            if (!id) return false;
            callMenu(item, path, "Event",
                     {*id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u});
            return true;
        };
        QVERIFY(clickItem("Ouvrir Ombry Voice"));
        QVERIFY(waitForWindow(true));
        QVERIFY(clickItem("Quitter Ombry Voice"));
        QVERIFY(DesktopSession::waitUntil([&] { return program_.state() == QProcess::NotRunning; },
                                          15000));
        QCOMPARE(program_.exitStatus(), QProcess::NormalExit);
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstWindowDesktop)
#include "tst_window_desktop.moc"
