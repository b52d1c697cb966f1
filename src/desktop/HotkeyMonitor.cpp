#include "desktop/HotkeyMonitor.h"

#include "data/Settings.h"
#include "desktop/Log.h"
#include "desktop/SessionGuide.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>
#include <unistd.h>

namespace ombry {
namespace {

constexpr uint64_t kCtrlAlt = modifier::Control | modifier::Option;

struct KeyInfo {
    uint16_t keyCode;
    uint64_t deviceBit;
    const char* logName;
};

KeyInfo keyInfo(DictationKey key) {
    switch (key) {
    case DictationKey::RightOption:
        return {keycode::RightOption, modifier::RightOptionDown, "rightOption"};
    case DictationKey::RightCommand:
        return {keycode::RightCommand, modifier::RightCommandDown, "rightCommand"};
    case DictationKey::RightControl:
        return {keycode::RightControl, modifier::RightControlDown, "rightControl"};
    case DictationKey::Fn:
        return {keycode::Fn, modifier::FnDown, "fn"};
    }
    return {keycode::RightOption, modifier::RightOptionDown, "rightOption"};
}

KeyboardHook& keyboard() {
    return Platform::current().keyboard();
}

// A key posted by another program (XTEST, or a known process other than this one).
bool postedByOther(const KeyEvent& e) {
    if (e.postedBySelf) return false;
    return e.sourcePid < 0 || (e.sourcePid > 0 && e.sourcePid != int64_t(::getpid()));
}

QString sourceName(const KeyEvent& e) {
    if (e.postedBySelf) return QCoreApplication::applicationName();
    if (e.sourcePid == 0) return QStringLiteral("clavier");
    if (e.sourcePid < 0) return QStringLiteral("programme (XTEST)");
    const QString name = Platform::current().windows().applicationName(e.sourcePid);
    return name.isEmpty() ? QStringLiteral("pid %1").arg(e.sourcePid) : name;
}

} // namespace

HotkeyMonitor::HotkeyMonitor(AppSettings* settings, QObject* parent)
    : QObject(parent), settings_(settings) {
    // The platform is made first so that it is destroyed after a monitor that lives until the
    // end of the process: the destructor still stops the hook.
    Platform::current();
    AppSettings& s = this->settings();
    for (auto signal :
         {&AppSettings::correctionShortcutChanged, &AppSettings::correctionKeyCodeChanged,
          &AppSettings::correctionModifiersChanged, &AppSettings::correctionDoubleCopyChanged})
        connect(&s, signal, this, &HotkeyMonitor::refresh);
    connect(&s, &AppSettings::keyChanged, this, &HotkeyMonitor::refresh);
    connect(&s, &AppSettings::portalShortcutChanged, this, [this] {
        if (started_ && Platform::current().session().roads().key == KeyRoad::Portal)
            bindDesktopShortcuts();
    });
    connect(&s, &AppSettings::acceptPostedKeysChanged, this,
            [this] { keyboard().setAcceptPostedKeys(this->settings().acceptPostedKeys()); });
}

HotkeyMonitor::~HotkeyMonitor() {
    if (started_) keyboard().stop();
}

AppSettings& HotkeyMonitor::settings() const {
    return settings_ ? *settings_ : AppSettings::shared();
}

bool HotkeyMonitor::dictating() const {
    return isDictating && isDictating();
}

void HotkeyMonitor::start() {
    KeyboardHook& hook = keyboard();
    hook.setAcceptPostedKeys(settings().acceptPostedKeys());
    const bool first = !started_;
    started_ = true;
    if (hook.start([this](const KeyEvent& e) { onEvent(e); })) {
        Log::write(QStringLiteral("hotkey: clavier global actif"));
        lastFailure_.clear();
    } else if (hook.reason() != lastFailure_) {
        // The hook is tried again every 2 s while it does not run: said once.
        lastFailure_ = hook.reason();
        Log::write(QStringLiteral("hotkey: clavier global indisponible (%1)").arg(lastFailure_));
    }
    refresh();
    if (!first) return;
    // Where no hook sees the keys, the desktop brings them: its shortcut service, or its own
    // bindings calling the program (which are there once the user has pasted them).
    switch (Platform::current().session().roads().key) {
    case KeyRoad::Portal:
        bindDesktopShortcuts();
        break;
    case KeyRoad::Bindings:
    case KeyRoad::Toggle:
        desktopKeys_ = true;
        break;
    default:
        break;
    }
}

void HotkeyMonitor::bindDesktopShortcuts() {
    const AppSettings& s = settings();
    QList<ShortcutRequest> requests{
        {ShortcutAction::Dictate, QStringLiteral("dictate"), QStringLiteral("Dicter (maintenir)"),
         s.portalShortcut()},
        {ShortcutAction::PasteLast, QStringLiteral("paste-last"),
         QStringLiteral("Coller la dernière dictée"), QStringLiteral("CTRL+ALT+V")},
        {ShortcutAction::Speak, QStringLiteral("speak"), QStringLiteral("Lire la sélection"),
         QStringLiteral("CTRL+ALT+R")}};
    if (s.correctionShortcut() && !s.correctionDoubleCopy())
        requests.append({ShortcutAction::Correct, QStringLiteral("correct"),
                         QStringLiteral("Corriger la sélection"),
                         s.correctionLabel().toUpper().remove(QLatin1Char(' '))});
    QPointer<HotkeyMonitor> self(this);
    auto onAction = [self](ShortcutAction action, bool pressed) {
        if (!self) return;
        switch (action) {
        case ShortcutAction::Dictate:
            self->keyFromDesktop(pressed, QStringLiteral("portail"));
            return;
        case ShortcutAction::PasteLast:
            if (pressed && !self->recording_ && self->onPasteLast) self->onPasteLast();
            return;
        case ShortcutAction::Speak:
            if (pressed && !self->recording_ && self->onSpeak) self->onSpeak();
            return;
        case ShortcutAction::Correct:
            if (pressed && !self->recording_ && self->onCorrect) self->onCorrect();
            return;
        }
    };
    auto onBound = [self](bool ok, const QString& message) {
        if (!self) return;
        self->desktopKeys_ = ok;
        SessionStatus::shared().setShortcutsProblem(ok ? std::nullopt
                                                       : std::optional<QString>(message));
        if (ok) {
            const QString trigger =
                Platform::current().shortcuts().trigger(QStringLiteral("dictate"));
            Log::write(QStringLiteral("hotkey: raccourci du bureau actif (%1)")
                           .arg(trigger.isEmpty() ? QStringLiteral("sans touche") : trigger));
        } else {
            Log::write(QStringLiteral("hotkey: raccourci du bureau refusé (%1)").arg(message));
        }
    };
    Platform::current().shortcuts().bind(requests, onAction, onBound);
}

void HotkeyMonitor::keyFromDesktop(bool pressed, const QString& source) {
    Log::write(QStringLiteral("touche: dictée %1 (%2)")
                   .arg(pressed ? QStringLiteral("enfoncée") : QStringLiteral("relâchée"), source));
    setDown(pressed);
    downByHook_ = false;
}

void HotkeyMonitor::toggleFromDesktop(const QString& source) {
    Log::write(QStringLiteral("touche: dictée bascule (%1)").arg(source));
    setDown(true);
    setDown(false);
    downByHook_ = false;
}

void HotkeyMonitor::setDown(bool isDown) {
    if (isDown == down_) return;
    down_ = isDown;
    if (keyTest) {
        keyTest(isDown);
        return;
    }
    const auto& callback = isDown ? onPress : onRelease;
    if (callback) callback();
}

void HotkeyMonitor::restart() {
    keyboard().stop();
    // Only a key the hook reported is forgotten: one that the desktop brings (its shortcuts,
    // `--press` through the socket), held across the restart, still gets its release.
    if (downByHook_) down_ = false;
    downByHook_ = false;
    start();
}

bool HotkeyMonitor::running() const {
    return keyboard().running() || desktopKeys_;
}

uint64_t HotkeyMonitor::lastModifierFlags() {
    return keyboard().lastModifierFlags();
}

void HotkeyMonitor::setRecording(bool recording) {
    if (recording_ == recording) return;
    recording_ = recording;
    refresh();
}

QList<KeyCombo> HotkeyMonitor::swallowList() const {
    QList<KeyCombo> combos;
    auto add = [&combos](KeyCombo c) {
        if (!combos.contains(c)) combos << c;
    };
    // Whatever is held: in hold-to-talk the dictation key, a modifier itself, is down.
    if (dictating()) add(KeyCombo::withAnyModifiers(keycode::Escape));
    // The Menu key opens the context menu of the application in front, which would then take
    // the keyboard and the paste: as the dictation key, it never reaches the application.
    if (settings().key() == DictationKey::Fn) add(KeyCombo::withAnyModifiers(keycode::Fn));
    if (recording_) return combos;
    add({keycode::V, kCtrlAlt});
    add({keycode::R, kCtrlAlt});
    const AppSettings& s = settings();
    if (s.correctionShortcut() && !s.correctionDoubleCopy() && s.correctionKeyCode() >= 0 &&
        s.correctionKeyCode() <= 0xFFFF)
        add({uint16_t(s.correctionKeyCode()), s.correctionModifiers() & modifier::Mask});
    return combos;
}

void HotkeyMonitor::refresh() {
    keyboard().setSwallowed(swallowList());
}

void HotkeyMonitor::onEvent(const KeyEvent& event) {
    if (event.type == KeyEvent::Type::FlagsChanged)
        handleFlags(event);
    else
        handleKeyDown(event);
}

// The dictation key: one press and one release callback per real change of its device bit.
void HotkeyMonitor::handleFlags(const KeyEvent& e) {
    const KeyInfo key = keyInfo(settings().key());
    if (e.keyCode != key.keyCode) return;
    const bool isDown = (e.flags & key.deviceBit) != 0;
    Log::write(QStringLiteral("touche: %1 %2 (0x%3, source %4, état %5)")
                   .arg(QLatin1String(key.logName),
                        isDown ? QStringLiteral("enfoncée") : QStringLiteral("relâchée"),
                        QString::number(e.flags, 16), sourceName(e))
                   .arg(e.sourceState));
    if (postedByOther(e) && !settings().acceptPostedKeys()) return;
    setDown(isDown);
    downByHook_ = down_;
}

void HotkeyMonitor::handleKeyDown(const KeyEvent& e) {
    // Callbacks run on a later turn of the event loop, never inside the hook's delivery.
    auto later = [this](std::function<void()> HotkeyMonitor::*callback) {
        QTimer::singleShot(0, this, [this, callback] {
            if (this->*callback) (this->*callback)();
        });
    };
    // With the dictation key held, any other key may make its press a chord.
    if (down_ && !e.autoRepeat && !e.postedBySelf &&
        !(postedByOther(e) && !settings().acceptPostedKeys()) && onKeyDuringHold)
        onKeyDuringHold();
    if (e.keyCode == keycode::Escape && dictating()) {
        later(&HotkeyMonitor::onCancel);
        return;
    }
    const uint64_t m = e.flags & modifier::Mask;
    if (!recording_ && m == kCtrlAlt && (e.keyCode == keycode::V || e.keyCode == keycode::R)) {
        if (!e.autoRepeat)
            later(e.keyCode == keycode::V ? &HotkeyMonitor::onPasteLast : &HotkeyMonitor::onSpeak);
        return;
    }
    if (recording_) return;
    const AppSettings& s = settings();
    if (!s.correctionShortcut()) return;
    if (s.correctionDoubleCopy()) {
        // Only the user's own Ctrl+C count: the copy this program posts to read a selection
        // must not start or lengthen a run.
        const bool real =
            !e.postedBySelf && (e.sourcePid == 0 || (s.acceptPostedKeys() && postedByOther(e)));
        if (e.keyCode == keycode::C && m == modifier::Primary && !e.autoRepeat && real) copyRun();
        return;
    }
    if (e.keyCode != s.correctionKeyCode() || m != (s.correctionModifiers() & modifier::Mask))
        return;
    if (!e.autoRepeat) later(&HotkeyMonitor::onCorrect);
}

// Two Ctrl+C within half a second make a double, reported 0.4 s after the second unless a
// third comes first; three make a triple, reported at once.
void HotkeyMonitor::copyRun() {
    const int64_t now = Platform::current().clock().elapsedMs();
    if (lastCopyMs_ && now - *lastCopyMs_ < kCopyRunWindowMs)
        ++copyCount_;
    else
        copyCount_ = 1;
    lastCopyMs_ = now;
    if (copyCount_ == 3) {
        copyCount_ = 0;
        lastCopyMs_.reset();
        QTimer::singleShot(0, this, [this] {
            if (onTripleCopy) onTripleCopy();
        });
    } else if (copyCount_ == 2) {
        QTimer::singleShot(kDoubleCopyDelayMs, this, [this] {
            if (copyCount_ != 2) return;
            copyCount_ = 0;
            lastCopyMs_.reset();
            if (onDoubleCopy) onDoubleCopy();
        });
    }
}

} // namespace ombry
