#include "desktop/Paster.h"

#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "platform/Platform.h"

#include <QCoroTimer>
#include <QTimer>
#include <chrono>
#include <memory>

namespace ombry::Paster {
namespace {

using namespace std::chrono_literals;

Clipboard& clipboard() {
    return Platform::current().clipboard();
}

// Terminal emulators by window class (compared in lower case). Everything else takes Ctrl+V,
// which a terminal would pass to the shell as a control character.
struct TerminalEntry {
    const char* windowClass;
    PasteKeys keys;
};
constexpr TerminalEntry kTerminals[] = {
    // VTE-based terminals.
    {"gnome-terminal", PasteKeys::ControlShiftV},
    {"gnome-terminal-server", PasteKeys::ControlShiftV},
    {"org.gnome.terminal", PasteKeys::ControlShiftV},
    {"org.gnome.console", PasteKeys::ControlShiftV},
    {"kgx", PasteKeys::ControlShiftV},
    {"tilix", PasteKeys::ControlShiftV},
    {"com.gexperts.tilix", PasteKeys::ControlShiftV},
    {"terminator", PasteKeys::ControlShiftV},
    {"xfce4-terminal", PasteKeys::ControlShiftV},
    {"mate-terminal", PasteKeys::ControlShiftV},
    {"lxterminal", PasteKeys::ControlShiftV},
    {"guake", PasteKeys::ControlShiftV},
    {"sakura", PasteKeys::ControlShiftV},
    {"terminology", PasteKeys::ControlShiftV},
    {"tilda", PasteKeys::ControlShiftV},
    {"qterminal", PasteKeys::ControlShiftV},
    {"deepin-terminal", PasteKeys::ControlShiftV},
    // Terminals of their own that paste the clipboard the same way.
    {"konsole", PasteKeys::ControlShiftV},
    {"org.kde.konsole", PasteKeys::ControlShiftV},
    {"yakuake", PasteKeys::ControlShiftV},
    {"kitty", PasteKeys::ControlShiftV},
    {"alacritty", PasteKeys::ControlShiftV},
    {"org.wezfurlong.wezterm", PasteKeys::ControlShiftV},
    {"wezterm", PasteKeys::ControlShiftV},
    {"wezterm-gui", PasteKeys::ControlShiftV},
    {"foot", PasteKeys::ControlShiftV},
    {"footclient", PasteKeys::ControlShiftV},
    // Terminals that paste the PRIMARY selection with Shift+Insert.
    {"xterm", PasteKeys::ShiftInsert},
    {"uxterm", PasteKeys::ShiftInsert},
    {"rxvt", PasteKeys::ShiftInsert},
    {"urxvt", PasteKeys::ShiftInsert},
    {"urxvt-unicode", PasteKeys::ShiftInsert},
    {"rxvt-unicode", PasteKeys::ShiftInsert},
};

// What the paste left behind for the restore: done once, by the first of the fetch and the
// time-out.
struct PendingRestore {
    ClipboardSnapshot previous;
    uint64_t changeCount = 0;
    bool done = false;
};

// The restore still to come, if any: a paste that follows before it must save the user's
// clipboard, not the text of the former paste.
std::weak_ptr<PendingRestore>& lastPending() {
    static std::weak_ptr<PendingRestore> pending;
    return pending;
}

void restoreOnce(const std::shared_ptr<PendingRestore>& pending) {
    if (pending->done) return;
    pending->done = true;
    Clipboard& c = clipboard();
    // Someone copied something after the paste: theirs is the newer clipboard, keep it.
    if (c.changeCount() != pending->changeCount) return;
    c.restore(pending->previous);
}

// After the first fetch the target may still ask for further formats of the same paste:
// the former clipboard comes back a moment later.
constexpr int kAfterFetchMs = 150;

} // namespace

PasteKeys pasteKeysFor(const QString& windowClass) {
    const QString name = windowClass.trimmed().toLower();
    for (const TerminalEntry& t : kTerminals)
        if (name == QLatin1String(t.windowClass)) return t.keys;
    return PasteKeys::ControlV;
}

ClipboardSnapshot snapshot() {
    // While our pasted text waits for its restore, the user's clipboard is the one saved.
    if (const auto pending = lastPending().lock();
        pending && !pending->done && pending->changeCount == clipboard().changeCount())
        return pending->previous;
    return clipboard().snapshot();
}

bool command(uint16_t key) {
    return Platform::current().keyPoster().post(key, modifier::Primary);
}

QCoro::Task<void> modifierWait() {
    for (int i = 0; i < 80 && (HotkeyMonitor::lastModifierFlags() & modifier::Mask) != 0; ++i)
        co_await QCoro::sleepFor(25ms);
    co_await QCoro::sleepFor(60ms);
}

QCoro::Task<void> paste(QString text, bool restore, std::optional<ClipboardSnapshot> saved) {
    auto pending = std::make_shared<PendingRestore>();
    pending->previous = saved ? std::move(*saved) : snapshot();
    co_await modifierWait();

    Platform& p = Platform::current();
    const auto front = p.windows().frontmost();
    const PasteKeys keys = pasteKeysFor(front ? front->windowClass : QString());
    // The clipboard is taken only now, right before the keys, so that a read of it before
    // the paste cannot pass for the target's.
    std::function<void()> onFetched;
    if (restore)
        onFetched = [pending] {
            QTimer::singleShot(kAfterFetchMs, [pending] { restoreOnce(pending); });
        };
    p.clipboard().setText(text, keys == PasteKeys::ShiftInsert, std::move(onFetched));
    pending->changeCount = p.clipboard().changeCount();
    switch (keys) {
    case PasteKeys::ControlV:
        p.keyPoster().post(keycode::V, modifier::Primary);
        break;
    case PasteKeys::ControlShiftV:
        p.keyPoster().post(keycode::V, modifier::Primary | modifier::Shift);
        break;
    case PasteKeys::ShiftInsert:
        p.keyPoster().post(keycode::Insert, modifier::Shift);
        break;
    }
    if (!restore) co_return;
    lastPending() = pending;
    // No application asked for the text: it is no use keeping the user's clipboard away.
    QTimer::singleShot(kRestoreTimeoutMs, [pending] { restoreOnce(pending); });
}

std::optional<QString> selectedTextViaAX() {
    return clipboard().selectedText();
}

std::optional<bool> focusedIsEditable() {
    return std::nullopt;
}

QCoro::Task<std::optional<QString>> copySelection() {
    co_await modifierWait();
    Platform& p = Platform::current();
    const auto front = p.windows().frontmost();
    const QString name = front && !front->name.isEmpty() ? front->name : QStringLiteral("?");
    Log::write(QStringLiteral("sélection: appli %1, touches 0x%2")
                   .arg(name, QString::number(HotkeyMonitor::lastModifierFlags(), 16)));

    if (const auto selected = selectedTextViaAX(); selected && !selected->trimmed().isEmpty()) {
        Log::write(QStringLiteral("sélection lue dans la sélection primaire (%1 caractères)")
                       .arg(selected->size()));
        co_return selected;
    }

    Clipboard& c = p.clipboard();
    c.clear();
    const uint64_t before = c.changeCount();
    command(keycode::C);
    for (int j = 0;; ++j) {
        co_await QCoro::sleepFor(25ms);
        if (j == 39 || c.changeCount() != before) break;
    }
    const std::optional<QString> copied = c.text();
    Log::write(QStringLiteral("sélection copiée par Ctrl+C (%1 caractères)")
                   .arg(copied ? copied->size() : 0));
    co_return copied;
}

} // namespace ombry::Paster
