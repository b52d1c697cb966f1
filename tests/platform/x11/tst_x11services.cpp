#include "platform/x11/X11Platform.h"

#include "DesktopSession.h"
#include "XClients.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <unistd.h>

using namespace ombry;
using test::DesktopSession;

namespace {

QByteArray formatOf(const ClipboardSnapshot& snapshot, const QString& format) {
    for (const auto& [f, bytes] : snapshot)
        if (f == format) return bytes;
    return {};
}

} // namespace

// The X11 services of the program on a private Xvfb desktop: the clipboard and PRIMARY, the
// windows and the applications that own them.
class TstX11Services : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }
    QByteArray read(const QString& format = {}, const QString& selection = "clipboard") {
        return desktop().readClipboard(format, selection).value_or("?");
    }

    QString applicationsDir() const {
        return qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/applications");
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        QVERIFY(!qEnvironmentVariableIsEmpty("XDG_DATA_HOME"));
        QDir(applicationsDir()).removeRecursively();
    }

    void snapshotAndRestoreKeepEveryFormat() {
        auto clipboard = x11::makeClipboard();
        const uint64_t before = clipboard->changeCount();

        // Another application's HTML copy: the snapshot has its bytes under its own type.
        QVERIFY(desktop().setClipboard("<b>gras</b>", QStringLiteral("text/html")));
        QTRY_VERIFY(clipboard->changeCount() > before);
        const ClipboardSnapshot html = clipboard->snapshot();
        QCOMPARE(formatOf(html, QStringLiteral("text/html")), QByteArray("<b>gras</b>"));
        for (const auto& [format, bytes] : html)
            QVERIFY2(format != "TARGETS" && format != "TIMESTAMP" && !bytes.isEmpty(),
                     qPrintable(format));

        // Several formats at once, binary ones byte for byte, served to other clients.
        const ClipboardSnapshot several{
            {QStringLiteral("text/plain"), QStringLiteral("déjà là").toUtf8()},
            {QStringLiteral("text/html"), QByteArray("<i>déjà</i>")},
            {QStringLiteral("image/png"),
             QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\x00\x80", 20)},
            {QStringLiteral("application/x-ombry-test"), QByteArray("\0\1\2", 3)},
        };
        clipboard->restore(several);
        for (const auto& [format, bytes] : several)
            QCOMPARE(read(format), bytes);
        QCOMPARE(read(), QStringLiteral("déjà là").toUtf8());
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("déjà là"));

        // The HTML copy comes back after another owner took the clipboard.
        QVERIFY(desktop().setClipboard("autre"));
        clipboard->restore(html);
        QCOMPARE(read("text/html"), QByteArray("<b>gras</b>"));

        // An empty snapshot leaves the clipboard empty.
        clipboard->restore({});
        QVERIFY(!desktop().readClipboard(QString(), QStringLiteral("clipboard"), 2000));
        QVERIFY(!clipboard->text() && clipboard->snapshot().isEmpty());
    }

    // Each read by another client is told once, with whether it is the application of a
    // given window: that application reads with a hidden window of its own, a clipboard
    // manager or xclip are other clients.
    void eachFetchTellsWhoseApplicationReadIt() {
        auto clipboard = x11::makeClipboard();
        test::PasteTarget target;
        QVERIFY(target.valid());
        const AppWindow targetWindow{target.window(), {}, {}, {}, 0};
        QList<bool> fetches; // by the target's application or not
        const uint64_t before = clipboard->changeCount();
        clipboard->setText(QStringLiteral("Bonjour à tous"), true, [&](const ClipboardFetch& f) {
            fetches << f.byApplicationOf(targetWindow);
            QVERIFY(!f.byApplicationOf(AppWindow{})); // no window: nobody's
        });
        QVERIFY(clipboard->changeCount() > before);
        const QByteArray utf8 = QStringLiteral("Bonjour à tous").toUtf8();

        // Reading it from this process is not a fetch.
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("Bonjour à tous"));
        QVERIFY(!clipboard->snapshot().isEmpty());
        QCOMPARE(read(), utf8);
        QCOMPARE(desktop().readClipboardAsManager().value_or(""), utf8);
        QCOMPARE(target.read("CLIPBOARD").value_or(""), utf8);
        // The selection holds the same text and tells the same way.
        QCOMPARE(target.read("PRIMARY").value_or(""), utf8);
        QTRY_COMPARE(fetches, (QList<bool>{false, false, true, true}));
        // The program's own PRIMARY is the text it pasted, not a selection of the user's.
        QVERIFY(!clipboard->selectedText());

        // Without alsoPrimary, only the clipboard changes; the former text is told no more.
        clipboard->setText(QStringLiteral("seul"), false);
        QCOMPARE(read(), QByteArray("seul"));
        QCOMPARE(target.read("PRIMARY").value_or(""), utf8);
        clipboard->setText(QStringLiteral("encore"), false);
        QCOMPARE(target.read("CLIPBOARD").value_or(""), QByteArray("encore"));
        QTest::qWait(100);
        QCOMPARE(fetches.size(), 5); // one request, one fetch
    }

    // PRIMARY is saved and put back as the clipboard is, and its changes are counted; another
    // application's selection and copy are read as they are.
    void theSelection() {
        auto clipboard = x11::makeClipboard();
        QVERIFY(desktop().setClipboard("mot choisi", {}, QStringLiteral("primary")));
        QCOMPARE(clipboard->selectedText().value_or(QString()), QStringLiteral("mot choisi"));
        const ClipboardSnapshot chosen = clipboard->selectionSnapshot();
        QCOMPARE(formatOf(chosen, QStringLiteral("text/plain")), QByteArray("mot choisi"));
        const uint64_t count = clipboard->selectionChangeCount();
        clipboard->setText(QStringLiteral("collé"), true);
        QVERIFY(clipboard->selectionChangeCount() > count);
        QCOMPARE(read({}, "primary"), QStringLiteral("collé").toUtf8());

        clipboard->restoreSelection(chosen);
        QCOMPARE(read({}, "primary"), QByteArray("mot choisi"));
        clipboard->restoreSelection({});
        QVERIFY(!desktop().readClipboard({}, QStringLiteral("primary"), 2000));
        QVERIFY(clipboard->selectionSnapshot().isEmpty());

        const uint64_t mine = clipboard->selectionChangeCount();
        QVERIFY(desktop().setClipboard("ailleurs", {}, QStringLiteral("primary")));
        QTRY_VERIFY(clipboard->selectionChangeCount() > mine);
        const uint64_t copies = clipboard->changeCount();
        QVERIFY(desktop().setClipboard("copié ailleurs"));
        QTRY_VERIFY(clipboard->changeCount() > copies);
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("copié ailleurs"));
        clipboard->clear();
        QVERIFY(!clipboard->text());
    }

    void frontmostAndActivation() {
        auto windows = x11::makeWindows();
        QVERIFY2(desktop().openTarget(QStringLiteral("Cible")), qPrintable(desktop().error()));
        const qulonglong field = desktop().targetWindow();

        const AppWindow remembered = windows->frontmost().value_or(AppWindow{});
        QCOMPARE(remembered.id, uint64_t(field));
        QCOMPARE(remembered.pid, desktop().targetPid());
        // No desktop file: the window class names it.
        QCOMPARE(QStringList({remembered.windowClass, remembered.appId, remembered.name}),
                 QStringList({"Zenity", "zenity", "Zenity"}));

        // Another window comes in front; activating the remembered one brings it back.
        QVERIFY2(desktop().openTarget(QStringLiteral("Autre")), qPrintable(desktop().error()));
        QVERIFY(desktop().targetWindow() != field);
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).id, uint64_t(desktop().targetWindow()));
        QVERIFY(windows->activate(remembered));
        QTRY_COMPARE(desktop().activeWindow(), field);
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).id, uint64_t(field));

        // A window that is gone cannot be activated.
        AppWindow gone = remembered;
        gone.id = 0x3ffffff0;
        QVERIFY(!windows->activate(gone) && !windows->activate(AppWindow{}));
    }

    void desktopFilesNameTheApplication() {
        auto windows = x11::makeWindows();
        QVERIFY2(desktop().openTarget(QStringLiteral("Saisie")), qPrintable(desktop().error()));
        QCOMPARE(windows->frontmost().value_or(AppWindow{}).appId, QStringLiteral("zenity"));

        // Installed while the program runs: found by its StartupWMClass, named in French.
        QVERIFY(QDir().mkpath(applicationsDir() + QStringLiteral("/tools")));
        QFile file(applicationsDir() + QStringLiteral("/tools/org.example.Saisie.desktop"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[Desktop Entry]\nType=Application\nName=Text entry\n"
                   "Name[fr]=Champ de saisie\nExec=/usr/bin/zenity --entry\n"
                   "StartupWMClass=Zenity\n\n[Desktop Action New]\nName=Autre nom\n");
        file.close();
        // The system tells of it through the main loop.
        QTRY_COMPARE(windows->frontmost().value_or(AppWindow{}).appId,
                     QStringLiteral("tools-org.example.Saisie"));
        const AppWindow front = windows->frontmost().value_or(AppWindow{});
        QCOMPARE(QStringList({front.name, front.windowClass}),
                 QStringList({"Champ de saisie", "Zenity"}));
        QCOMPARE(windows->applicationName(desktop().targetPid()),
                 QStringLiteral("Champ de saisie"));

        QDir(applicationsDir()).removeRecursively();
    }

    void applicationNameOfProcesses() {
        auto windows = x11::makeWindows();
        QCOMPARE(windows->applicationName(getpid()), QStringLiteral("tst_x11services"));
        for (const int64_t none : {0, -1, 0x3ffffff})
            QCOMPARE(windows->applicationName(none), QString());
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstX11Services)
#include "tst_x11services.moc"
