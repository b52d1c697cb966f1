#include "platform/SessionRoads.h"

namespace ombry {
namespace {

KeyRoad keyRoad(const SessionOffer& o) {
    if (o.evdevChosen && o.canReadInput) return KeyRoad::Evdev;
    if (o.globalShortcutsPortal) return KeyRoad::Portal;
    // GNOME and Plasma run a command only on the press of a custom shortcut: the key then
    // works hands-free. Every other compositor is taken to run commands on press and release.
    if (o.desktop == SessionOffer::Desktop::GNOME || o.desktop == SessionOffer::Desktop::KDE)
        return KeyRoad::Toggle;
    return KeyRoad::Bindings;
}

PostRoad postRoad(const SessionOffer& o) {
    if (o.virtualKeyboard) return PostRoad::VirtualKeyboard;
    if (o.remoteDesktopPortalVersion > 0) return PostRoad::RemoteDesktop;
    if (o.uinputChosen && o.canWriteUinput) return PostRoad::Uinput;
    return PostRoad::None;
}

const char* name(KeyRoad r) {
    switch (r) {
    case KeyRoad::X11:
        return "x11";
    case KeyRoad::Portal:
        return "portail";
    case KeyRoad::Bindings:
        return "raccourcis du compositeur";
    case KeyRoad::Toggle:
        return "raccourci (sans les mains)";
    case KeyRoad::Evdev:
        return "evdev";
    case KeyRoad::None:
        break;
    }
    return "aucune";
}

const char* name(PostRoad r) {
    switch (r) {
    case PostRoad::X11:
        return "x11";
    case PostRoad::VirtualKeyboard:
        return "clavier virtuel";
    case PostRoad::RemoteDesktop:
        return "portail bureau à distance";
    case PostRoad::Uinput:
        return "uinput";
    case PostRoad::None:
        break;
    }
    return "aucune";
}

const char* name(ClipboardRoad r) {
    switch (r) {
    case ClipboardRoad::X11:
        return "x11";
    case ClipboardRoad::DataControl:
        return "data-control";
    case ClipboardRoad::Portal:
        return "portail presse-papiers";
    case ClipboardRoad::None:
        break;
    }
    return "aucune";
}

const char* name(FrontRoad r) {
    switch (r) {
    case FrontRoad::X11:
        return "x11";
    case FrontRoad::AccessibilityBus:
        return "accessibilité";
    case FrontRoad::SwayIpc:
        return "sway";
    case FrontRoad::Hyprland:
        return "hyprland";
    case FrontRoad::None:
        break;
    }
    return "aucune";
}

const char* name(StripRoad r) {
    switch (r) {
    case StripRoad::X11:
        return "x11";
    case StripRoad::LayerShell:
        return "layer-shell";
    case StripRoad::Window:
        break;
    }
    return "fenêtre";
}

const char* name(SessionOffer::Desktop d) {
    switch (d) {
    case SessionOffer::Desktop::KDE:
        return "KDE";
    case SessionOffer::Desktop::GNOME:
        return "GNOME";
    case SessionOffer::Desktop::Sway:
        return "sway";
    case SessionOffer::Desktop::Hyprland:
        return "Hyprland";
    case SessionOffer::Desktop::Wlroots:
        return "wlroots";
    case SessionOffer::Desktop::Other:
        break;
    }
    return "autre";
}

} // namespace

SessionRoads chooseRoads(const SessionOffer& o) {
    SessionRoads r;
    if (o.display == SessionOffer::Display::X11) {
        r.key = KeyRoad::X11;
        r.post = PostRoad::X11;
        r.clipboard = ClipboardRoad::X11;
        r.front = FrontRoad::X11;
        r.strip = StripRoad::X11;
        return r;
    }
    if (o.display != SessionOffer::Display::Wayland) return r;
    r.key = keyRoad(o);
    r.post = postRoad(o);
    // The Clipboard portal (GNOME 48) works only inside the RemoteDesktop session that posts
    // the keys, and only where the user let the desktop's dialog grant it.
    if (o.dataControl)
        r.clipboard = ClipboardRoad::DataControl;
    else if (o.clipboardPortal && !o.clipboardPortalRefused && r.post == PostRoad::RemoteDesktop)
        r.clipboard = ClipboardRoad::Portal;
    // Without a clipboard the portal types the text itself, which keeps the user's clipboard.
    r.typeInsteadOfPaste = r.clipboard == ClipboardRoad::None && r.post == PostRoad::RemoteDesktop;
    if (o.accessibilityBus)
        r.front = FrontRoad::AccessibilityBus;
    else if (o.swayIpc)
        r.front = FrontRoad::SwayIpc;
    else if (o.hyprlandIpc)
        r.front = FrontRoad::Hyprland;
    r.strip = o.layerShell ? StripRoad::LayerShell : StripRoad::Window;
    return r;
}

QString describeForJournal(const SessionOffer& o, const SessionRoads& r) {
    QString session;
    switch (o.display) {
    case SessionOffer::Display::X11:
        session = QStringLiteral("x11");
        break;
    case SessionOffer::Display::Wayland:
        session = QStringLiteral("wayland %1").arg(QString::fromUtf8(name(o.desktop)));
        if (o.desktopVersion > 0) session += QStringLiteral(" %1").arg(o.desktopVersion);
        break;
    case SessionOffer::Display::None:
        session = QStringLiteral("aucun affichage");
        break;
    }
    return QStringLiteral("bureau: %1, touche=%2, collage=%3%4, presse-papiers=%5, "
                          "fenêtre=%6, bandeau=%7")
        .arg(session, QString::fromUtf8(name(r.key)), QString::fromUtf8(name(r.post)),
             r.typeInsteadOfPaste ? QStringLiteral(" (frappe du texte)") : QString(),
             QString::fromUtf8(name(r.clipboard)), QString::fromUtf8(name(r.front)),
             QString::fromUtf8(name(r.strip)));
}

SessionOffer::Display displayFromEnvironment() {
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return SessionOffer::Display::Wayland;
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) return SessionOffer::Display::X11;
    return SessionOffer::Display::None;
}

SessionOffer::Desktop desktopFromEnvironment() {
    if (!qEnvironmentVariableIsEmpty("SWAYSOCK")) return SessionOffer::Desktop::Sway;
    if (!qEnvironmentVariableIsEmpty("HYPRLAND_INSTANCE_SIGNATURE"))
        return SessionOffer::Desktop::Hyprland;
    const QStringList names = qEnvironmentVariable("XDG_CURRENT_DESKTOP")
                                  .toLower()
                                  .split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& n : names) {
        if (n == QLatin1String("kde")) return SessionOffer::Desktop::KDE;
        if (n == QLatin1String("gnome")) return SessionOffer::Desktop::GNOME;
        if (n == QLatin1String("sway")) return SessionOffer::Desktop::Sway;
        if (n == QLatin1String("hyprland")) return SessionOffer::Desktop::Hyprland;
        if (n == QLatin1String("wlroots") || n == QLatin1String("river") ||
            n == QLatin1String("wayfire") || n == QLatin1String("labwc"))
            return SessionOffer::Desktop::Wlroots;
    }
    return SessionOffer::Desktop::Other;
}

} // namespace ombry
