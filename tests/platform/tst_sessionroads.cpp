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

// The roads chosen for the offer are these; the journal's line says which are not.
bool choose(const SessionOffer& offer, const SessionRoads& expected) {
    const SessionRoads roads = chooseRoads(offer);
    if (roads != expected) qWarning("%s", qPrintable(describeForJournal(offer, roads)));
    return roads == expected;
}

} // namespace

class TstSessionRoads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void eachDesktopGetsItsBestRoads() {
        using K = KeyRoad;
        using P = PostRoad;
        using C = ClipboardRoad;
        using F = FrontRoad;
        SessionOffer x11;
        x11.display = SessionOffer::Display::X11;
        QVERIFY(choose(x11, {K::X11, P::X11, C::X11, F::X11, StripRoad::X11}));

        // Plasma 5.27: portal shortcuts, the RemoteDesktop portal, data-control without PRIMARY.
        SessionOffer kde = wayland(D::KDE);
        kde.globalShortcutsPortal = kde.dataControl = kde.layerShell = true;
        kde.remoteDesktopPortalVersion = 2;
        QVERIFY(choose(kde, {K::Portal, P::RemoteDesktop, C::DataControl, F::AccessibilityBus,
                             StripRoad::LayerShell}));
        const QString line = describeForJournal(kde, chooseRoads(kde));
        QVERIFY2(line.startsWith("bureau: wayland KDE") && line.contains("touche=portail"),
                 qPrintable(line));

        // GNOME 43: no shortcut portal and no clipboard without focus: a toggle, and the text
        // typed through the portal.
        SessionOffer gnome = wayland(D::GNOME);
        gnome.remoteDesktopPortalVersion = 1;
        const SessionRoads typed{K::Toggle,           P::RemoteDesktop,  C::None,
                                 F::AccessibilityBus, StripRoad::Window, true};
        QVERIFY(choose(gnome, typed));
        // The user's opt-ins count only where the devices can be opened.
        gnome.evdevChosen = true;
        QVERIFY(choose(gnome, typed));
        gnome.canReadInput = true;
        QVERIFY(choose(gnome, {K::Evdev, typed.post, C::None, typed.front, typed.strip, true}));
        // GNOME 48: the shortcut portal, the clipboard through the portal inside the
        // RemoteDesktop session and pasted; typed again where the user unticked the clipboard.
        gnome.globalShortcutsPortal = gnome.clipboardPortal = true;
        gnome.evdevChosen = false;
        gnome.remoteDesktopPortalVersion = 2;
        QVERIFY(choose(gnome, {K::Portal, typed.post, C::Portal, typed.front, typed.strip}));
        QVERIFY(describeForJournal(gnome, chooseRoads(gnome)).contains("=portail presse-papiers"));
        gnome.clipboardPortalRefused = true;
        QVERIFY(choose(gnome, {K::Portal, typed.post, C::None, typed.front, typed.strip, true}));

        // sway: its bindings, its virtual keyboard (before any portal), data-control.
        SessionOffer sway = wayland(D::Sway);
        sway.virtualKeyboard = sway.dataControl = sway.dataControlPrimary = sway.swayIpc = true;
        sway.remoteDesktopPortalVersion = 2;
        sway.accessibilityBus = false;
        QVERIFY(choose(sway, {K::Bindings, P::VirtualKeyboard, C::DataControl, F::SwayIpc}));
        SessionOffer bare = wayland(D::Other);
        bare.accessibilityBus = false;
        bare.uinputChosen = bare.canWriteUinput = true;
        QVERIFY(choose(bare, {K::Bindings, P::Uinput, C::None, F::None}));
    }

    // A Wayland session stays one with an X server beside it (XWayland); the desktop comes from
    // the compositor's own variables first, then XDG_CURRENT_DESKTOP in any case.
    void sessionFromTheEnvironment() {
        const char* names[] = {"WAYLAND_DISPLAY", "DISPLAY", "XDG_CURRENT_DESKTOP", "SWAYSOCK"};
        QByteArray kept[4];
        for (int i = 0; i < 4; ++i)
            kept[i] = qgetenv(names[i]);
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
        for (int i = 0; i < 4; ++i)
            kept[i].isNull() ? qunsetenv(names[i]) : qputenv(names[i], kept[i]);
    }
};

QTEST_GUILESS_MAIN(TstSessionRoads)
#include "tst_sessionroads.moc"
