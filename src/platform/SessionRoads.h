#pragma once

#include <QString>
#include <QStringList>

namespace ombry {

// What the display session offers the program, as found at start: the kind of session and
// desktop, the portals on the session bus, the compositor's protocols, and the devices the user
// may open. Plain facts; chooseRoads() decides.
struct SessionOffer {
    enum class Display { None, X11, Wayland };
    enum class Desktop { Other, KDE, GNOME, Sway, Hyprland, Wlroots };
    Display display = Display::None;
    Desktop desktop = Desktop::Other;
    int desktopVersion = 0; // the desktop's major version where known (GNOME 43, Plasma 5)

    bool globalShortcutsPortal = false;
    int remoteDesktopPortalVersion = 0; // 0: no RemoteDesktop portal
    bool clipboardPortal = false;
    // The desktop left the clipboard out of the RemoteDesktop session (its dialog's box
    // unticked): for this session the text is typed.
    bool clipboardPortalRefused = false;

    bool virtualKeyboard = false;    // zwp_virtual_keyboard_manager_v1
    bool dataControl = false;        // wlr or ext data-control: the clipboard without focus
    bool dataControlPrimary = false; // ... and the PRIMARY selection
    bool layerShell = false;         // zwlr_layer_shell_v1
    bool swayIpc = false;            // SWAYSOCK answers
    bool hyprlandIpc = false;        // Hyprland's socket answers
    bool accessibilityBus = false;

    bool canReadInput = false; // the keyboard devices can be opened (the input group)
    bool canWriteUinput = false;
    bool evdevChosen = false;  // the user chose to let the program read the keyboard devices
    bool uinputChosen = false; // the user chose uinput for posting keys
};

// The road each service of the program takes on this session.
enum class KeyRoad { X11, Portal, Bindings, Toggle, Evdev, None };
enum class PostRoad { X11, VirtualKeyboard, RemoteDesktop, Uinput, None };
enum class ClipboardRoad { X11, DataControl, Portal, None };
enum class FrontRoad { X11, AccessibilityBus, SwayIpc, Hyprland, None };
enum class StripRoad { X11, LayerShell, Window };

struct SessionRoads {
    KeyRoad key = KeyRoad::None;
    PostRoad post = PostRoad::None;
    ClipboardRoad clipboard = ClipboardRoad::None;
    FrontRoad front = FrontRoad::None;
    StripRoad strip = StripRoad::Window;
    // Where the clipboard has no road but keys can be posted, the text is typed key by key.
    bool typeInsteadOfPaste = false;
    bool operator==(const SessionRoads&) const = default;
};

// The best road for each service from what the session offers.
SessionRoads chooseRoads(const SessionOffer& offer);

// One line for the journal: "bureau: wayland KDE 5, touche=portail, ...".
QString describeForJournal(const SessionOffer& offer, const SessionRoads& roads);

// The session the process runs in, from its environment alone (no connection is made):
// Wayland whenever WAYLAND_DISPLAY names a compositor, even with an X server beside it
// (XWayland), X11 with DISPLAY alone.
SessionOffer::Display displayFromEnvironment();
SessionOffer::Desktop desktopFromEnvironment();

} // namespace ombry
