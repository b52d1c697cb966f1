// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include "platform/x11/X11Keyboard.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <cstring>

namespace ombry::x11 {

using x11::NoKey;

X11KeyboardHook::X11KeyboardHook() = default;

X11KeyboardHook::~X11KeyboardHook() {
    stop();
}

bool X11KeyboardHook::start(Handler handler) {
    if (connection_) {
        handler_ = std::move(handler);
        return true;
    }
    reason_.clear();
    if (!QCoreApplication::instance()) {
        // The connection is watched from the event loop of the application.
        reason_ = QStringLiteral("Le clavier global demande la boucle d'événements du programme.");
        return false;
    }
    if (const QString wayland = x11::waylandSessionReason(); !wayland.isEmpty()) {
        reason_ = wayland;
        return false;
    }
    if (!connection_.open()) {
        reason_ = x11::displayName().isEmpty()
                      ? QStringLiteral("Pas d'affichage X11 (DISPLAY n'est pas défini) : le "
                                       "clavier global n'est pas disponible.")
                      : QStringLiteral("L'affichage X11 %1 ne répond pas : le clavier global "
                                       "n'est pas disponible.")
                            .arg(x11::displayName());
        return false;
    }
    Display* display = connection_.get();
    int event = 0, error = 0;
    int major = 2, minor = 2;
    if (!XQueryExtension(display, "XInputExtension", &xiOpcode_, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success || major < 2 ||
        (major == 2 && minor < 1)) {
        // Raw events reach every client whatever the grabs only from XInput 2.1 on.
        reason_ = QStringLiteral("Le serveur X n'offre pas XInput 2.1 : le clavier global n'est "
                                 "pas disponible.");
        connection_.close();
        return false;
    }
    int xtestEvent = 0, xtestError = 0, xtestMajor = 0, xtestMinor = 0;
    if (!XTestQueryExtension(display, &xtestEvent, &xtestError, &xtestMajor, &xtestMinor)) {
        reason_ = QStringLiteral("Le serveur X n'offre pas XTest : les touches ne peuvent pas "
                                 "être envoyées, le clavier global n'est pas disponible.");
        connection_.close();
        return false;
    }

    // Raw events of the master keyboards only: selecting the slaves as well would bring each
    // key twice. The source device still tells a real keyboard from XTEST.
    unsigned char rawMask[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(rawMask, XI_RawKeyPress);
    XISetMask(rawMask, XI_RawKeyRelease);
    unsigned char hierarchyMask[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(hierarchyMask, XI_HierarchyChanged);
    XIEventMask masks[2];
    masks[0] = {XIAllMasterDevices, sizeof rawMask, rawMask};
    masks[1] = {XIAllDevices, sizeof hierarchyMask, hierarchyMask};
    XISelectEvents(display, connection_.root(), masks, 2);
    // A key held during one of our grabs repeats as core events: without this, each repeat is
    // a release and a press, and the dictation key held would go up and down.
    Bool detectable = False;
    XkbSetDetectableAutoRepeat(display, True, &detectable);

    keys_.rebuild(display);
    readModifierMasks();
    findPostingDevices();
    seedHeldModifiers();
    XSync(display, False);

    handler_ = std::move(handler);
    notifier_ = std::make_unique<QSocketNotifier>(ConnectionNumber(display), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(),
                     [this] { readEvents(); });
    grab();
    // Xlib may already have queued events while answering the requests above.
    readEvents();
    return true;
}

void X11KeyboardHook::stop() {
    ++generation_;
    if (notifier_) {
        // stop() may come from the handler, inside the notifier's own signal; without an
        // application any more (a hook that lives to the end of the process) there is none.
        notifier_->setEnabled(false);
        if (QCoreApplication::instance())
            notifier_.release()->deleteLater();
        else
            notifier_.reset();
    }
    if (connection_) {
        ungrab();
        connection_.close();
    }
    handler_ = {};
    pending_.clear();
    modifiers_.clear();
    keysDown_.clear();
    lastRawPress_ = {0, 0};
    lastFlags_ = 0;
}

void X11KeyboardHook::setSwallowed(const QList<KeyCombo>& combos) {
    if (combos == swallowed_) return;
    swallowed_ = combos;
    if (!connection_) return;
    ungrab();
    grab();
    readEvents();
}

void X11KeyboardHook::readModifierMasks() {
    Display* display = connection_.get();
    altMask_ = Mod1Mask;
    superMask_ = Mod4Mask;
    numLockMask_ = Mod2Mask;
    altGrMask_ = 0;
    // The key at Right Alt's place on a PC keyboard (evdev KEY_RIGHTALT): AltGr where the
    // layout gives it the third level, a plain Alt elsewhere (US).
    constexpr int rightAlt = 100 + 8;
    switch (XkbKeycodeToKeysym(display, KeyCode(rightAlt), 0, 0)) {
    case XK_ISO_Level3_Shift:
    case XK_Mode_switch:
        rightAltIsAltGr_ = true;
        break;
    case XK_Alt_R:
    case XK_Alt_L:
    case XK_Meta_R:
    case XK_Meta_L:
        rightAltIsAltGr_ = false;
        break;
    default:
        rightAltIsAltGr_.reset(); // a Compose key, or nothing
    }
    XModifierKeymap* map = XGetModifierMapping(display);
    if (!map) return;
    const KeyCode alt = XKeysymToKeycode(display, XK_Alt_L);
    const KeyCode super = XKeysymToKeycode(display, XK_Super_L);
    const KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
    for (int mod = Mod1MapIndex; mod <= Mod5MapIndex; ++mod) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode kc = map->modifiermap[mod * map->max_keypermod + i];
            if (!kc) continue;
            if (kc == alt) altMask_ = 1u << mod;
            if (kc == super) superMask_ = 1u << mod;
            if (kc == numLock) numLockMask_ = 1u << mod;
            // AltGr's modifier (Mod5 usually), whichever key carries it in the map: on a
            // French layout Right Alt gives this state, not Alt's.
            const KeySym sym = XkbKeycodeToKeysym(display, kc, 0, 0);
            if (sym == XK_ISO_Level3_Shift || sym == XK_Mode_switch) altGrMask_ |= 1u << mod;
        }
    }
    XFreeModifiermap(map);
    if (altGrMask_ == altMask_) altGrMask_ = 0;
}

void X11KeyboardHook::findPostingDevices() {
    postingDevices_.clear();
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(connection_.get(), XIAllDevices, &count);
    for (int i = 0; i < count; ++i) {
        // "Virtual core XTEST keyboard" and the XTEST keyboard of any further master.
        if (devices[i].use == XISlaveKeyboard && devices[i].name &&
            std::strstr(devices[i].name, "XTEST keyboard"))
            postingDevices_.insert(devices[i].deviceid);
    }
    if (devices) XIFreeDeviceInfo(devices);
}

void X11KeyboardHook::seedHeldModifiers() {
    // A modifier already held when the hook starts still counts until it is released.
    char keys[32] = {};
    XQueryKeymap(connection_.get(), keys);
    modifiers_.clear();
    for (int kc = 0; kc < 256; ++kc) {
        if (!(keys[kc / 8] & (1 << (kc % 8)))) continue;
        const uint16_t code = keys_.code(kc);
        if (x11::isModifierKey(code)) modifiers_.press(kc, code);
    }
    lastFlags_ = modifiers_.flags();
}

void X11KeyboardHook::grab() {
    Display* display = connection_.get();
    const Window root = connection_.root();
    const unsigned locks[] = {0u, unsigned(LockMask), numLockMask_, LockMask | numLockMask_};
    bool taken = false;
    {
        x11::ErrorTrap trap(display);
        for (const KeyCombo& combo : swallowed_) {
            if (combo.anyModifiers) continue;
            unsigned mods = 0;
            if (combo.modifiers & modifier::Shift) mods |= ShiftMask;
            if (combo.modifiers & modifier::Control) mods |= ControlMask;
            if (combo.modifiers & modifier::Command) mods |= superMask_;
            // Alt, or AltGr in its place: Ctrl+AltGr+V is the Ctrl+Alt+V of many French users.
            std::vector<unsigned> variants{mods};
            if (combo.modifiers & modifier::Option) {
                variants = {mods | altMask_};
                if (altGrMask_) variants.push_back(mods | altGrMask_);
            }
            for (const int kc : keys_.keycodes(combo.keyCode)) {
                for (const unsigned variant : variants) {
                    for (const unsigned lock : locks) {
                        XGrabKey(display, kc, variant | lock, root, False, GrabModeAsync,
                                 GrabModeAsync);
                        grabbed_.emplace_back(kc, variant | lock);
                    }
                }
            }
        }
        // A combination that another client already grabbed gives BadAccess: that key is then
        // not swallowed, but the others are and the keys are still heard.
        taken = trap.failed();
    }
    if (taken) qWarning("clavier: une combinaison est déjà prise par un autre programme");

    // A key taken whatever the modifiers: one grab for each state of the eight modifiers, as
    // a single AnyModifier grab fails whole when another client holds the key with one of
    // them (openbox takes Alt+Escape). Those states stay with their owner, without a warning.
    x11::ErrorTrap trap(display);
    for (const KeyCombo& combo : swallowed_) {
        if (!combo.anyModifiers) continue;
        for (const int kc : keys_.keycodes(combo.keyCode)) {
            for (unsigned state = 0; state < 0x100; ++state)
                XGrabKey(display, kc, state, root, False, GrabModeAsync, GrabModeAsync);
            // Our grabs of the key, whatever their modifiers, go with one request.
            grabbed_.emplace_back(kc, unsigned(AnyModifier));
        }
    }
}

void X11KeyboardHook::ungrab() {
    Display* display = connection_.get();
    x11::ErrorTrap trap(display);
    for (const auto& [kc, mods] : grabbed_)
        XUngrabKey(display, kc, mods, connection_.root());
    grabbed_.clear();
}

void X11KeyboardHook::readEvents() {
    if (!connection_) return;
    Display* display = connection_.get();
    // The requests of a new key map (the map, the grabs made again) read the events that came
    // meanwhile into Xlib's queue, where the socket's notifier no longer sees them: read again
    // until the queue stays empty, or those keys would wait for the next one typed.
    for (bool remap = true; remap;) {
        remap = false;
        while (XPending(display)) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == MappingNotify) {
                XRefreshKeyboardMapping(&event.xmapping);
                remap = true;
                continue;
            }
            // While one of our grabs holds the keyboard (from the press of its key to the
            // release), the server sends this client core events in place of raw ones: the
            // press that began the grab was reported raw, the other keys come only here.
            if (event.type == KeyPress) {
                handleGrabbedPress(int(event.xkey.keycode), event.xkey.time);
                continue;
            }
            if (event.type == KeyRelease) {
                handleGrabbedRelease(int(event.xkey.keycode));
                continue;
            }
            if (event.type != GenericEvent || event.xcookie.extension != xiOpcode_) continue;
            if (!XGetEventData(display, &event.xcookie)) continue;
            switch (event.xcookie.evtype) {
            case XI_RawKeyPress:
            case XI_RawKeyRelease:
                handleRawKey(event.xcookie.evtype, event.xcookie.data);
                break;
            case XI_HierarchyChanged:
                findPostingDevices();
                break;
            default:
                break;
            }
            XFreeEventData(display, &event.xcookie);
        }
        if (remap) {
            keys_.rebuild(display);
            readModifierMasks();
            ungrab();
            grab();
        }
    }
    // The handler may stop the hook, or change the swallowed keys, which reads the connection
    // again: events read meanwhile wait behind the ones being delivered, so the order holds.
    if (delivering_) return;
    delivering_ = true;
    const uint64_t generation = generation_;
    while (!pending_.empty() && generation == generation_ && handler_) {
        const KeyEvent event = pending_.front();
        pending_.pop_front();
        if (event.type == KeyEvent::Type::FlagsChanged) lastFlags_ = event.flags;
        Handler handler = handler_;
        handler(event);
    }
    delivering_ = false;
    // A hook stopped and started again by the handler delivers what it read since later.
    if (!pending_.empty() && notifier_)
        QTimer::singleShot(0, notifier_.get(), [this] { readEvents(); });
}

void X11KeyboardHook::handleRawKey(int evtype, const void* rawEvent) {
    const auto* raw = static_cast<const XIRawEvent*>(rawEvent);
    const int kc = raw->detail;
    const bool press = evtype == XI_RawKeyPress;
    const bool fromXTest = postingDevices_.count(raw->sourceid) > 0;
    const x11::ClaimedKey claimed =
        fromXTest ? x11::OwnKeyLedger::shared().claim(kc, press) : x11::ClaimedKey{};
    // The poster lifted a modifier that the user holds, or put it back: for the user it is
    // still held, and nothing happened.
    if (claimed.claim == x11::KeyClaim::Transparent) return;
    const bool own = claimed.claim == x11::KeyClaim::Own;
    const uint16_t code = keys_.code(kc);

    KeyEvent event;
    event.keyCode = code;
    event.postedBySelf = own;
    event.sourcePid = fromXTest && !own && !acceptPosted_ ? -1 : 0;
    event.sourceState = raw->sourceid;

    if (press) {
        lastRawPress_ = {kc, raw->time};
        // A key this process posted while lifting held modifiers reached the application with
        // the modifiers it was posted with.
        keyPressed(kc, event, (raw->flags & XIKeyRepeat) != 0, claimed.flags);
        return;
    }
    if (x11::isModifierKey(code)) {
        if (!modifiers_.held(kc)) return; // its release came already, during a grab
        modifiers_.release(kc);
        event.type = KeyEvent::Type::FlagsChanged;
        event.flags = modifiers_.flags();
        pending_.push_back(event);
        return;
    }
    keysDown_.erase(kc);
}

void X11KeyboardHook::keyPressed(int kc, KeyEvent event, bool repeat,
                                 std::optional<uint64_t> flags) {
    if (x11::isModifierKey(event.keyCode)) {
        if (modifiers_.held(kc)) return; // a held modifier repeating
        modifiers_.press(kc, event.keyCode);
        event.type = KeyEvent::Type::FlagsChanged;
        event.flags = modifiers_.flags();
        pending_.push_back(event);
        return;
    }
    event.type = KeyEvent::Type::KeyDown;
    event.autoRepeat = keysDown_.count(kc) > 0 || repeat;
    keysDown_.insert(kc);
    event.flags = flags.value_or(modifiers_.flags());
    if (event.keyCode != NoKey) pending_.push_back(event);
}

void X11KeyboardHook::handleGrabbedPress(int kc, unsigned long time) {
    // The press that began the grab, delivered again as the grab's first event.
    if (lastRawPress_ == std::pair(kc, time)) return;
    // The core event does not name its device: a key during our grab counts as the user's.
    KeyEvent event;
    event.keyCode = keys_.code(kc);
    keyPressed(kc, event, false, std::nullopt);
}

void X11KeyboardHook::handleGrabbedRelease(int kc) {
    keysDown_.erase(kc);
    if (!modifiers_.held(kc)) return;
    modifiers_.release(kc);
    KeyEvent event;
    event.type = KeyEvent::Type::FlagsChanged;
    event.keyCode = keys_.code(kc);
    event.flags = modifiers_.flags();
    pending_.push_back(event);
}

bool X11KeyPoster::ensureConnected() {
    if (connection_) {
        // Follow a change of keyboard layout: the server tells every client.
        Display* display = connection_.get();
        bool remap = false;
        while (XPending(display)) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == MappingNotify) {
                XRefreshKeyboardMapping(&event.xmapping);
                remap = true;
            }
        }
        if (remap) keys_.rebuild(display);
        return true;
    }
    if (!connection_.open()) return false;
    int event = 0, error = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(connection_.get(), &event, &error, &major, &minor)) {
        connection_.close();
        return false;
    }
    keys_.rebuild(connection_.get());
    return true;
}

void X11KeyPoster::send(int xkeycode, bool press, x11::PostedKey how) {
    x11::OwnKeyLedger::shared().expect(xkeycode, press, how);
    XTestFakeKeyEvent(connection_.get(), unsigned(xkeycode), press ? True : False, CurrentTime);
}

bool X11KeyPoster::post(uint16_t keyCode, uint64_t modifiers) {
    if (!ensureConnected()) return false;
    Display* display = connection_.get();
    const int key = keys_.keycodeToPost(keyCode);
    if (!key) return false;
    std::vector<int> wanted;
    const std::pair<uint64_t, uint16_t> order[] = {
        {modifier::Control, keycode::LeftControl},
        {modifier::Option, keycode::LeftOption},
        {modifier::Shift, keycode::LeftShift},
        {modifier::Command, keycode::LeftCommand},
    };
    for (const auto& [flag, code] : order) {
        if (!(modifiers & flag)) continue;
        const int kc = keys_.keycodeToPost(code);
        if (!kc) return false;
        wanted.push_back(kc);
    }
    // The key must reach the application with exactly these modifiers: modifiers that the user
    // still holds (the Ctrl+Alt of a shortcut that asked for a paste) are lifted for the time
    // of the key and put back after, as the user holds them.
    // A wanted modifier whose very key the user holds is left alone: releasing it after the
    // key would take it from under the user's finger.
    std::vector<int> lifted;
    char keymap[32] = {};
    XQueryKeymap(display, keymap);
    const auto isDown = [&](int kc) { return (keymap[kc / 8] & (1 << (kc % 8))) != 0; };
    for (int kc = 0; kc < 256; ++kc) {
        if (!isDown(kc)) continue;
        const uint64_t flag = x11::flagsOfModifierKey(keys_.code(kc)) & modifier::Mask;
        if (flag && !(modifiers & flag)) lifted.push_back(kc);
    }
    std::erase_if(wanted, isDown);
    // The flags the application sees with the key: those of the modifier keys down then.
    const auto contains = [](const std::vector<int>& list, int kc) {
        return std::find(list.begin(), list.end(), kc) != list.end();
    };
    uint64_t flags = 0;
    for (int kc = 0; kc < 256; ++kc) {
        if ((isDown(kc) && !contains(lifted, kc)) || contains(wanted, kc))
            flags |= x11::flagsOfModifierKey(keys_.code(kc));
    }
    const x11::PostedKey transparent{true, std::nullopt};
    const x11::PostedKey withFlags{false, lifted.empty() ? std::nullopt : std::optional(flags)};
    for (const int kc : lifted)
        send(kc, false, transparent);
    for (const int kc : wanted)
        send(kc, true);
    send(key, true, withFlags);
    send(key, false);
    for (auto it = wanted.rbegin(); it != wanted.rend(); ++it)
        send(*it, false);
    for (const int kc : lifted)
        send(kc, true, transparent);
    // Wait until the server has taken them, so that what the caller does next (restoring the
    // clipboard, another post) comes after the keys.
    XSync(display, False);
    return true;
}

} // namespace ombry::x11
