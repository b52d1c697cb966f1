#pragma once

#include "platform/Accessibility.h"
#include "platform/Desktop.h"
#include "platform/SessionRoads.h"
#include "platform/Shortcuts.h"

#include <QString>
#include <QUrl>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace ombry {

class Clock;

// The former build's keychain, read only (Secret Service on Linux).
class Keychain {
public:
    virtual ~Keychain() = default;
    // The secret stored under (service, account), or nothing.
    virtual std::optional<QString> genericPassword(const QString& service,
                                                   const QString& account) = 0;
};

// Desktop notifications; silent when nobody can show them.
class Notifier {
public:
    virtual ~Notifier() = default;
    virtual void post(const QString& title, const QString& body) = 0;
};

// What the machine is: read by the device profile and the hosted-service identity.
class MachineInfo {
public:
    virtual ~MachineInfo() = default;
    virtual uint64_t physicalMemoryBytes() = 0;
    virtual int activeProcessorCount() = 0;
    virtual QString cpuBrand() = 0;          // empty when unknown
    virtual bool lowPowerMode() = 0;         // power-saver profile
    virtual int thermalState() = 0;          // 0 nominal, 1 fair, 2 serious, 3 critical
    virtual QString machineIdentifier() = 0; // stable per machine; empty when unknown
};

// Opens an address in the user's browser.
class Browser {
public:
    virtual ~Browser() = default;
    virtual bool open(const QUrl& url) = 0;
};

// The display session the program runs in.
class DisplaySession {
public:
    virtual ~DisplaySession() = default;
    // What the session offers, found at the first call (which may ask the compositor and the
    // session bus, briefly) and kept.
    virtual const SessionOffer& offer() = 0;
    // The user's choices of the opt-in roads (the keyboard devices, uinput).
    virtual void setChoices(bool evdev, bool uinput) = 0;
    // The desktop's answer on the clipboard inside the RemoteDesktop session, known once that
    // session has started: a refusal takes the clipboard's road away until another answer.
    void setClipboardPortalRefused(bool refused) { clipboardPortalRefused_ = refused; }
    SessionRoads roads() {
        SessionOffer o = offer();
        o.clipboardPortalRefused = clipboardPortalRefused_;
        return chooseRoads(o);
    }

private:
    bool clipboardPortalRefused_ = false;
};

// Every service of the operating system that the logic needs, behind one injectable object.
// The process uses the Linux implementation; tests replace any part with a fake.
class Platform {
public:
    static Platform& current();

    Clock& clock() { return *clock_; }
    Keychain& keychain() { return *keychain_; }
    Notifier& notifier() { return *notifier_; }
    MachineInfo& machine() { return *machine_; }
    Browser& browser() { return *browser_; }
    KeyboardHook& keyboard() { return *keyboard_; }
    KeyPoster& keyPoster() { return *keyPoster_; }
    Clipboard& clipboard() { return *clipboard_; }
    Windows& windows() { return *windows_; }
    AudioSystem& audio() { return *audio_; }
    SpeechOutput& speech() { return *speech_; }
    Accessibility& accessibility() { return *accessibility_; }
    GlobalShortcuts& shortcuts() { return *shortcuts_; }
    DisplaySession& session() { return *session_; }
    // A new surface for the dictation strip or the result card where the session has one (the
    // compositor's layer shell); null elsewhere: each is then a window of its own.
    std::unique_ptr<OverlaySurface>
    makeOverlaySurface(OverlaySurface::Role role = OverlaySurface::Role::Strip);

    // Replacing a service; the previous one is destroyed. For start-up and tests only.
    void setClock(std::unique_ptr<Clock> c);
    void setKeychain(std::unique_ptr<Keychain> k);
    void setNotifier(std::unique_ptr<Notifier> n);
    void setMachine(std::unique_ptr<MachineInfo> m);
    void setBrowser(std::unique_ptr<Browser> b);
    void setKeyboard(std::unique_ptr<KeyboardHook> k);
    void setKeyPoster(std::unique_ptr<KeyPoster> p);
    void setClipboard(std::unique_ptr<Clipboard> c);
    void setWindows(std::unique_ptr<Windows> w);
    void setAudio(std::unique_ptr<AudioSystem> a);
    void setSpeech(std::unique_ptr<SpeechOutput> s);
    void setAccessibility(std::unique_ptr<Accessibility> a);
    void setShortcuts(std::unique_ptr<GlobalShortcuts> s);
    void setSession(std::unique_ptr<DisplaySession> s);
    using OverlaySurfaceFactory =
        std::function<std::unique_ptr<OverlaySurface>(OverlaySurface::Role)>;
    void setOverlaySurfaces(OverlaySurfaceFactory factory);

private:
    Platform();
    std::unique_ptr<Clock> clock_;
    std::unique_ptr<Keychain> keychain_;
    std::unique_ptr<Notifier> notifier_;
    std::unique_ptr<MachineInfo> machine_;
    std::unique_ptr<Browser> browser_;
    std::unique_ptr<KeyboardHook> keyboard_;
    std::unique_ptr<KeyPoster> keyPoster_;
    std::unique_ptr<Clipboard> clipboard_;
    std::unique_ptr<Windows> windows_;
    std::unique_ptr<AudioSystem> audio_;
    std::unique_ptr<SpeechOutput> speech_;
    std::unique_ptr<Accessibility> accessibility_;
    std::unique_ptr<GlobalShortcuts> shortcuts_;
    std::unique_ptr<DisplaySession> session_;
    OverlaySurfaceFactory overlaySurfaces_;
};

} // namespace ombry
