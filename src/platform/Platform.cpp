#include "platform/Platform.h"

#include "platform/Clock.h"
#include "platform/SessionProbe.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/wayland/WaylandPlatform.h"
#include "platform/x11/X11Platform.h"

namespace ombry {

Platform& Platform::current() {
    static Platform instance;
    return instance;
}

// The one place where the session's implementations are chosen: what every Linux session has
// (linux/), and the display's own services: x11/ on an X11 session, wayland/ on a Wayland one
// (even with XWayland beside it: X11 clients there see only the keys and windows of X11).
Platform::Platform()
    : clock_(std::make_unique<SystemClock>()), keychain_(linux_platform::makeKeychain()),
      notifier_(linux_platform::makeNotifier()), machine_(linux_platform::makeMachineInfo()),
      browser_(linux_platform::makeBrowser()), audio_(linux_platform::makeAudioSystem()),
      speech_(linux_platform::makeSpeechOutput()),
      accessibility_(linux_platform::makeAccessibility()), session_(makeDisplaySession()) {
    if (displayFromEnvironment() == SessionOffer::Display::Wayland) {
        keyboard_ = wayland::makeKeyboardHook(*session_);
        const auto remote = std::make_shared<wayland::RemoteDesktopSession>();
        keyPoster_ = wayland::makeKeyPoster(*session_, remote);
        clipboard_ = wayland::makeClipboard(*session_, remote);
        windows_ = wayland::makeWindows(*accessibility_);
        shortcuts_ = wayland::makePortalShortcuts();
        if (!shortcuts_) shortcuts_ = makeNoShortcuts();
        overlaySurfaces_ = [](OverlaySurface::Role role) {
            return wayland::makeLayerSurface(role);
        };
        return;
    }
    keyboard_ = x11::makeKeyboardHook();
    keyPoster_ = x11::makeKeyPoster();
    clipboard_ = x11::makeClipboard();
    windows_ = x11::makeWindows();
    shortcuts_ = makeNoShortcuts();
}

void Platform::setClock(std::unique_ptr<Clock> c) {
    clock_ = std::move(c);
}
void Platform::setKeychain(std::unique_ptr<Keychain> k) {
    keychain_ = std::move(k);
}
void Platform::setNotifier(std::unique_ptr<Notifier> n) {
    notifier_ = std::move(n);
}
void Platform::setMachine(std::unique_ptr<MachineInfo> m) {
    machine_ = std::move(m);
}
void Platform::setBrowser(std::unique_ptr<Browser> b) {
    browser_ = std::move(b);
}
void Platform::setKeyboard(std::unique_ptr<KeyboardHook> k) {
    keyboard_ = std::move(k);
}
void Platform::setKeyPoster(std::unique_ptr<KeyPoster> p) {
    keyPoster_ = std::move(p);
}
void Platform::setClipboard(std::unique_ptr<Clipboard> c) {
    clipboard_ = std::move(c);
}
void Platform::setWindows(std::unique_ptr<Windows> w) {
    windows_ = std::move(w);
}
void Platform::setAudio(std::unique_ptr<AudioSystem> a) {
    audio_ = std::move(a);
}
void Platform::setSpeech(std::unique_ptr<SpeechOutput> s) {
    speech_ = std::move(s);
}
void Platform::setAccessibility(std::unique_ptr<Accessibility> a) {
    accessibility_ = std::move(a);
}
void Platform::setShortcuts(std::unique_ptr<GlobalShortcuts> s) {
    shortcuts_ = std::move(s);
}
void Platform::setSession(std::unique_ptr<DisplaySession> s) {
    session_ = std::move(s);
}
void Platform::setOverlaySurfaces(OverlaySurfaceFactory factory) {
    overlaySurfaces_ = std::move(factory);
}

std::unique_ptr<OverlaySurface> Platform::makeOverlaySurface(OverlaySurface::Role role) {
    return overlaySurfaces_ ? overlaySurfaces_(role) : nullptr;
}

} // namespace ombry
