// The road of each service from what the desktop offers, for the desktops users run, and the
// session read from the environment.
#include "platform/SessionRoads.h"

#include <QTest>

using namespace ombry;
using D = SessionOffer::Desktop;

namespace {

SessionOffer wayland(D desktop) {
    SessionOffer o;
    o.display = SessionOffer::Display::Wayland;
    o.desktop = desktop;
    o.accessibilityBus = true;
    return o;
}

} // namespace

class TstSessionRoads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void eachDesktopGetsItsBestRoads() {
        SessionOffer x11;
        x11.display = SessionOffer::Display::X11;
        const SessionRoads onX11 = chooseRoads(x11);
        QCOMPARE(onX11.key, KeyRoad::X11);
        QCOMPARE(onX11.post, PostRoad::X11);
        QCOMPARE(onX11.clipboard, ClipboardRoad::X11);

        // Plasma 5.27: portal shortcuts, the RemoteDesktop portal, data-control without PRIMARY.
        SessionOffer kde = wayland(D::KDE);
        kde.globalShortcutsPortal = true;
        kde.remoteDesktopPortalVersion = 2;
        kde.dataControl = true;
        kde.layerShell = true;
        const SessionRoads onKde = chooseRoads(kde);
        QCOMPARE(onKde.key, KeyRoad::Portal);
        QCOMPARE(onKde.post, PostRoad::RemoteDesktop);
        QCOMPARE(onKde.clipboard, ClipboardRoad::DataControl);
        QVERIFY(!onKde.typeInsteadOfPaste);
        QCOMPARE(onKde.strip, StripRoad::LayerShell);

        // GNOME 43: no shortcut portal and no clipboard without focus: a toggle, and the text
        // typed through the portal.
        SessionOffer gnome43 = wayland(D::GNOME);
        gnome43.remoteDesktopPortalVersion = 1;
        const SessionRoads onGnome43 = chooseRoads(gnome43);
        QCOMPARE(onGnome43.key, KeyRoad::Toggle);
        QCOMPARE(onGnome43.post, PostRoad::RemoteDesktop);
        QCOMPARE(onGnome43.clipboard, ClipboardRoad::None);
        QVERIFY(onGnome43.typeInsteadOfPaste);
        QCOMPARE(onGnome43.strip, StripRoad::Window);

        // GNOME 48: the shortcut portal, the clipboard through the portal's RemoteDesktop
        // session and pasted; typed again where the user unticked the clipboard.
        SessionOffer gnome48 = gnome43;
        gnome48.globalShortcutsPortal = true;
        gnome48.remoteDesktopPortalVersion = 2;
        gnome48.clipboardPortal = true;
        const SessionRoads onGnome48 = chooseRoads(gnome48);
        QCOMPARE(onGnome48.key, KeyRoad::Portal);
        QCOMPARE(onGnome48.clipboard, ClipboardRoad::Portal);
        QVERIFY(!onGnome48.typeInsteadOfPaste);
        QVERIFY(describeForJournal(gnome48, onGnome48).contains("presse-papiers=portail presse"));
        gnome48.clipboardPortalRefused = true;
        QCOMPARE(chooseRoads(gnome48).clipboard, ClipboardRoad::None);
        QVERIFY(chooseRoads(gnome48).typeInsteadOfPaste);

        // sway: its bindings, its virtual keyboard (before any portal), data-control.
        SessionOffer sway = wayland(D::Sway);
        sway.virtualKeyboard = sway.dataControl = sway.dataControlPrimary = true;
        sway.remoteDesktopPortalVersion = 2;
        sway.swayIpc = true;
        sway.accessibilityBus = false;
        const SessionRoads onSway = chooseRoads(sway);
        QCOMPARE(onSway.key, KeyRoad::Bindings);
        QCOMPARE(onSway.post, PostRoad::VirtualKeyboard);
        QCOMPARE(onSway.clipboard, ClipboardRoad::DataControl);
        QCOMPARE(onSway.front, FrontRoad::SwayIpc);

        // The user's opt-ins count only where the devices can be opened.
        gnome43.evdevChosen = true;
        QCOMPARE(chooseRoads(gnome43).key, KeyRoad::Toggle);
        gnome43.canReadInput = true;
        QCOMPARE(chooseRoads(gnome43).key, KeyRoad::Evdev);
        SessionOffer bare = wayland(D::Other);
        bare.accessibilityBus = false;
        bare.uinputChosen = bare.canWriteUinput = true;
        const SessionRoads onBare = chooseRoads(bare);
        QCOMPARE(onBare.post, PostRoad::Uinput);
        QCOMPARE(onBare.front, FrontRoad::None);
        QVERIFY(!onBare.typeInsteadOfPaste);

        const QString line = describeForJournal(kde, onKde);
        QVERIFY2(line.startsWith("bureau: wayland KDE"), qPrintable(line));
        QVERIFY2(line.contains("touche=portail"), qPrintable(line));
    }

    // A Wayland session stays one with an X server beside it (XWayland); the desktop comes from
    // the compositor's own variables first, then XDG_CURRENT_DESKTOP in any case.
    void sessionFromTheEnvironment() {
        const QByteArray keep[] = {qgetenv("WAYLAND_DISPLAY"), qgetenv("DISPLAY"),
                                   qgetenv("XDG_CURRENT_DESKTOP"), qgetenv("SWAYSOCK")};
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        qputenv("DISPLAY", ":0");
        qunsetenv("SWAYSOCK");
        QCOMPARE(displayFromEnvironment(), SessionOffer::Display::Wayland);
        qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
        QCOMPARE(desktopFromEnvironment(), D::GNOME);
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        QCOMPARE(desktopFromEnvironment(), D::KDE);
        qputenv("SWAYSOCK", "/run/user/1000/sway-ipc.sock");
        QCOMPARE(desktopFromEnvironment(), D::Sway);
        qunsetenv("WAYLAND_DISPLAY");
        QCOMPARE(displayFromEnvironment(), SessionOffer::Display::X11);
        qunsetenv("DISPLAY");
        QCOMPARE(displayFromEnvironment(), SessionOffer::Display::None);
        const char* names[] = {"WAYLAND_DISPLAY", "DISPLAY", "XDG_CURRENT_DESKTOP", "SWAYSOCK"};
        for (int i = 0; i < 4; ++i)
            if (keep[i].isNull())
                qunsetenv(names[i]);
            else
                qputenv(names[i], keep[i]);
    }
};

QTEST_GUILESS_MAIN(TstSessionRoads)
#include "tst_sessionroads.moc"
