#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "platform/linux/DesktopFiles.h"
#include "platform/wayland/CompositorIpc.h"
#include "platform/wayland/WaylandPlatform.h"

using namespace ombry;
using namespace ombry::wayland;

// The replies of sway's and Hyprland's IPC, as they come, and the window the program makes of
// them.
class TstWaylandIpc : public QObject {
    Q_OBJECT

    QTemporaryDir data_; // XDG_DATA_HOME

private Q_SLOTS:
    void swayTreeGivesTheFocusedView() {
        // A workspace holds a tiled XWayland view; the focus is on a floating Wayland view.
        const QByteArray tree = R"({"id":1,"type":"root","focused":false,"nodes":[
            {"id":3,"type":"output","name":"HEADLESS-1","focused":false,"nodes":[
              {"id":4,"type":"workspace","name":"1","focused":false,
               "nodes":[{"id":7,"type":"con","name":"Terminal","focused":false,"pid":50,
                         "app_id":null,"window_properties":{"class":"XTerm","instance":"xterm"}}],
               "floating_nodes":[{"id":9,"type":"floating_con","name":"Notes — ébauche",
                                  "focused":true,"pid":4242,"app_id":"org.example.Notes"}]}]}]})";
        const std::optional<FocusedWindow> w = focusedInSwayTree(tree);
        QVERIFY(w);
        QCOMPARE(w->id, uint64_t(9));
        QCOMPARE(w->appId, QStringLiteral("org.example.Notes"));
        QCOMPARE(w->title, QStringLiteral("Notes — ébauche"));
        QCOMPARE(w->pid, int64_t(4242));

        // The same tree with the focus on the XWayland view.
        QByteArray x11 = tree;
        x11.replace(R"("focused":false,"pid":50)", R"("focused":true,"pid":50)");
        x11.replace(R"("focused":true,"pid":4242)", R"("focused":false,"pid":4242)");
        const std::optional<FocusedWindow> x = focusedInSwayTree(x11);
        QVERIFY(x);
        QCOMPARE(x->id, uint64_t(7));
        QVERIFY(x->appId.isEmpty());
        QCOMPARE(x->x11Class, QStringLiteral("XTerm"));
        QCOMPARE(x->x11Instance, QStringLiteral("xterm"));

        // An empty workspace has the focus: no window.
        QVERIFY(!focusedInSwayTree(
            R"({"id":1,"type":"root","nodes":[{"id":4,"type":"workspace","focused":true}]})"));
        QVERIFY(!focusedInSwayTree("not json"));
    }

    void hyprlandActiveWindow_() {
        const std::optional<FocusedWindow> w = hyprlandActiveWindow(
            R"({"address":"0x55d0c2a3e6f0","mapped":true,"class":"kitty","title":"~","pid":812,
                "xwayland":false,"workspace":{"id":1,"name":"1"}})");
        QVERIFY(w);
        QCOMPARE(w->id, uint64_t(0x55d0c2a3e6f0));
        QCOMPARE(w->appId, QStringLiteral("kitty"));
        QCOMPARE(w->pid, int64_t(812));
        const std::optional<FocusedWindow> x = hyprlandActiveWindow(
            R"({"address":"0x1","class":"Gimp-2.10","title":"GIMP","pid":9,"xwayland":true})");
        QVERIFY(x);
        QVERIFY(x->appId.isEmpty());
        QCOMPARE(x->x11Class, QStringLiteral("Gimp-2.10"));
        // Nothing is active.
        QVERIFY(!hyprlandActiveWindow("{}"));
        QVERIFY(!hyprlandActiveWindow("Invalid"));
    }

    // The desktop file of the application names it; without one the app_id (an X11 class in
    // lower case) and the title stand in.
    void windowFromTheDesktopFiles() {
        qputenv("XDG_DATA_HOME", data_.path().toLocal8Bit());
        const QString applications = data_.path() + "/applications";
        QDir().mkpath(applications);
        QFile desktop(applications + "/org.example.Notes.desktop");
        QVERIFY(desktop.open(QIODevice::WriteOnly));
        // Its program under a folder with a space, quoted in Exec as the desktop-entry rules
        // say (a split at the first space once made it "My").
        const QString program = data_.path() + "/My App/notes";
        QDir().mkpath(data_.path() + "/My App");
        QFile script(program);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        desktop.write("[Desktop Entry]\nType=Application\nName=Notes\nName[fr]=Bloc-notes\n"
                      "Exec=\"" +
                      program.toUtf8() + "\" %U\n");
        desktop.close();
        QCOMPARE(linux_platform::DesktopFiles()
                     .forProgram("notes")
                     .value_or(linux_platform::DesktopEntry{})
                     .id,
                 QStringLiteral("org.example.Notes"));

        FocusedWindow notes;
        notes.appId = "org.example.Notes";
        notes.title = "Liste de courses";
        const AppWindow w = toAppWindow(notes);
        QCOMPARE(w.appId, QStringLiteral("org.example.Notes"));
        // The file has no name in the user's language: the French one.
        QCOMPARE(w.name, QStringLiteral("Bloc-notes"));

        FocusedWindow x11;
        x11.x11Class = "Inconnu";
        x11.title = "Fenêtre";
        const AppWindow x = toAppWindow(x11);
        QCOMPARE(x.appId, QStringLiteral("inconnu"));
        QCOMPARE(x.windowClass, QStringLiteral("Inconnu"));
        QCOMPARE(x.name, QStringLiteral("Fenêtre"));
    }

    void noCompositorNoWindow() {
        qputenv("SWAYSOCK", "/nonexistent/sway-ipc.sock");
        QVERIFY(!swayFocused());
        qputenv("HYPRLAND_INSTANCE_SIGNATURE", "absent");
        QVERIFY(!hyprlandActive());
    }
};

QTEST_GUILESS_MAIN(TstWaylandIpc)
#include "tst_waylandipc.moc"
