#include "desktop/Paster.h"

#include "desktop/HotkeyMonitor.h"
#include "desktop/Log.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QCoroTimer>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <memory>

namespace ombry::Paster {
namespace {

using namespace std::chrono_literals;

Clipboard& clipboard() {
    return Platform::current().clipboard();
}

// Terminal emulators by WM_CLASS class or application id (compared in lower case), with the
// way they paste. Everything else takes Ctrl+V, which a terminal would pass to the shell as a
// control character. A terminal that pastes with Ctrl+Shift+V copies with Ctrl+Shift+C (Ctrl+C
// would interrupt the running job); those that paste PRIMARY with Shift+Insert have no copy
// key by default (Ctrl+Insert would reach the shell as an escape sequence), and what is
// selected in them is already the PRIMARY selection.
struct TerminalEntry {
    const char* name;
    PasteKeys keys;
};
constexpr TerminalEntry kTerminals[] = {
    // VTE-based terminals.
    {"gnome-terminal", PasteKeys::ControlShiftV},
    {"gnome-terminal-server", PasteKeys::ControlShiftV},
    {"org.gnome.terminal", PasteKeys::ControlShiftV},
    {"org.gnome.console", PasteKeys::ControlShiftV},
    {"kgx", PasteKeys::ControlShiftV},
    {"ptyxis", PasteKeys::ControlShiftV}, // WM_CLASS "ptyxis", "Ptyxis"
    {"org.gnome.ptyxis", PasteKeys::ControlShiftV},
    {"org.gnome.ptyxis.devel", PasteKeys::ControlShiftV},
    {"blackbox", PasteKeys::ControlShiftV}, // Black Box: WM_CLASS "blackbox", "Blackbox"
    {"com.raggesilver.blackbox", PasteKeys::ControlShiftV},
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
    // Ghostty: WM_CLASS "ghostty", "com.mitchellh.ghostty".
    {"com.mitchellh.ghostty", PasteKeys::ControlShiftV},
    {"ghostty", PasteKeys::ControlShiftV},
    {"st-256color", PasteKeys::ControlShiftV}, // st: WM_CLASS is its TERM name
    {"st", PasteKeys::ControlShiftV},
    {"tabby", PasteKeys::ControlShiftV},
    {"hyper", PasteKeys::ControlShiftV},
    {"cool-retro-term", PasteKeys::ControlShiftV},
    // Terminals that paste the PRIMARY selection with Shift+Insert.
    {"xterm", PasteKeys::ShiftInsert},
    {"uxterm", PasteKeys::ShiftInsert},
    {"rxvt", PasteKeys::ShiftInsert},
    {"urxvt", PasteKeys::ShiftInsert},
    {"urxvt-unicode", PasteKeys::ShiftInsert},
    {"rxvt-unicode", PasteKeys::ShiftInsert},
    {"mlterm", PasteKeys::ShiftInsert},
};

std::optional<PasteKeys> terminalKeys(const QString& name) {
    const QString key = name.trimmed().toLower();
    if (key.isEmpty()) return std::nullopt;
    for (const TerminalEntry& t : kTerminals)
        if (key == QLatin1String(t.name)) return t.keys;
    return std::nullopt;
}

// One paste until it is settled: what the restore puts back, and when. Settled once, by the
// first of: its time has come (see dueAt), or its text left the clipboard.
struct PendingPaste {
    ClipboardSnapshot previous;
    std::optional<ClipboardSnapshot> previousSelection; // PRIMARY, for a Shift+Insert paste
    bool restore = false;
    Clipboard* board = nullptr; // the clipboard the text went to
    uint64_t changeCount = 0;
    uint64_t selectionChangeCount = 0;
    std::optional<AppWindow> target; // the window in front; unknown: any reader counts
    int64_t keysPostedAt = 0;        // on the platform clock
    std::optional<int64_t> targetFetchedAt;
    PasteSettled onSettled;
    bool done = false;

    // The target reads at its own pace after the keys, and may ask for several formats one
    // after the other: the restore waits kAfterFetchMs after its last read, never less than
    // kMinHoldMs after the keys, and at most kRestoreTimeoutMs.
    int64_t dueAt() const {
        const int64_t latest = keysPostedAt + kRestoreTimeoutMs;
        if (!targetFetchedAt) return latest;
        return std::min(latest,
                        std::max(*targetFetchedAt + kAfterFetchMs, keysPostedAt + kMinHoldMs));
    }
};

// The last paste not yet settled: a paste that follows before it must save the user's
// clipboard, not the text of the former paste.
std::weak_ptr<PendingPaste>& lastPending() {
    static std::weak_ptr<PendingPaste> pending;
    return pending;
}

// Whether the clipboard still holds the paste's text (and PRIMARY, where the target reads a
// Shift+Insert paste).
bool clipboardUnchanged(const PendingPaste& p) {
    Clipboard& c = clipboard();
    return &c == p.board && c.changeCount() == p.changeCount;
}
bool selectionUnchanged(const PendingPaste& p) {
    Clipboard& c = clipboard();
    return &c == p.board && c.selectionChangeCount() == p.selectionChangeCount;
}

void settle(const std::shared_ptr<PendingPaste>& p) {
    if (p->done) return;
    p->done = true;
    if (p->restore) {
        // Someone copied or selected something after the paste: theirs is newer, keep it.
        if (clipboardUnchanged(*p)) clipboard().restore(p->previous);
        if (p->previousSelection && selectionUnchanged(*p))
            clipboard().restoreSelection(*p->previousSelection);
    }
    if (p->onSettled) p->onSettled(p->targetFetchedAt.has_value());
}

// Settles the paste when its time has come on the platform clock, looking again as the clock
// moves; called anew when a read moves the time.
void settleWhenDue(const std::shared_ptr<PendingPaste>& p) {
    if (p->done) return;
    // Its text is gone from where the target reads it: there is nothing left to wait for.
    if (!(p->previousSelection ? selectionUnchanged(*p) : clipboardUnchanged(*p))) {
        settle(p);
        return;
    }
    const Clock& clock = Platform::current().clock();
    const int64_t left = p->dueAt() - clock.elapsedMs();
    if (left <= 0) {
        settle(p);
        return;
    }
    QTimer::singleShot(int(std::max<int64_t>(1, clock.maxSleepMs(left))), Qt::PreciseTimer,
                       [p] { settleWhenDue(p); });
}

// A snapshot of the clipboard or of PRIMARY from its owner; what the owner did not give in
// time is left out, and the journal says which.
QCoro::Task<ClipboardSnapshot> readSnapshot(bool primary) {
    ClipboardRead read = co_await clipboard().readSnapshot(primary);
    if (!read.late.isEmpty())
        Log::write(QStringLiteral("presse-papiers: le propriétaire n'a pas donné à temps %1, "
                                  "laissé de côté")
                       .arg(read.late.join(QStringLiteral(", "))));
    co_return std::move(read.formats);
}

// The PRIMARY selection before a paste takes it: while a former Shift+Insert paste waits for
// its restore, the selection it saved.
QCoro::Task<ClipboardSnapshot> selectionSnapshot() {
    if (const auto pending = lastPending().lock();
        pending && !pending->done && pending->previousSelection && selectionUnchanged(*pending))
        co_return *pending->previousSelection;
    const ClipboardSnapshot read = co_await readSnapshot(true);
    co_return read;
}

} // namespace

PasteKeys pasteKeysFor(const AppWindow& window) {
    return terminalKeys(window.windowClass)
        .value_or(terminalKeys(window.appId).value_or(PasteKeys::ControlV));
}

CopyKeys copyKeysFor(const AppWindow& window) {
    switch (pasteKeysFor(window)) {
    case PasteKeys::ControlV:
        return CopyKeys::ControlC;
    case PasteKeys::ControlShiftV:
        return CopyKeys::ControlShiftC;
    case PasteKeys::ShiftInsert:
        return CopyKeys::None;
    }
    return CopyKeys::ControlC;
}

QCoro::Task<ClipboardSnapshot> snapshot() {
    // While our pasted text waits for its restore, the user's clipboard is the one saved.
    if (const auto pending = lastPending().lock();
        pending && !pending->done && pending->restore && clipboardUnchanged(*pending))
        co_return pending->previous;
    const ClipboardSnapshot read = co_await readSnapshot(false);
    co_return read;
}

bool command(uint16_t key) {
    return Platform::current().keyPoster().post(key, modifier::Primary);
}

QCoro::Task<void> modifierWait() {
    for (int i = 0; i < 80 && (HotkeyMonitor::lastModifierFlags() & modifier::Mask) != 0; ++i)
        co_await QCoro::sleepFor(25ms);
    co_await QCoro::sleepFor(60ms);
}

QCoro::Task<void> paste(QString text, bool restore, std::optional<ClipboardSnapshot> saved,
                        PasteSettled onSettled) {
    auto pending = std::make_shared<PendingPaste>();
    if (saved)
        pending->previous = std::move(*saved);
    else
        pending->previous = co_await snapshot();
    pending->restore = restore;
    pending->onSettled = std::move(onSettled);
    co_await modifierWait();

    Platform& p = Platform::current();
    pending->target = p.windows().frontmost();
    if (pending->target && pending->target->id == 0) pending->target.reset();
    // Where no clipboard reaches other applications, the text is typed: the user's clipboard
    // is not touched at all.
    if (p.session().roads().typeInsteadOfPaste) {
        pending->done = true;
        const bool typed = p.keyPoster().typeText(text);
        if (!typed) Log::write(QStringLiteral("collage: frappe du texte impossible"));
        if (pending->onSettled) pending->onSettled(typed);
        co_return;
    }
    const PasteKeys keys = pending->target ? pasteKeysFor(*pending->target) : PasteKeys::ControlV;
    const bool primary = keys == PasteKeys::ShiftInsert;
    if (restore && primary) pending->previousSelection = co_await selectionSnapshot();
    const bool watch = restore || pending->onSettled;
    // The clipboard is taken only now, right before the keys, so that a read of it before
    // the paste cannot pass for the target's.
    std::function<void(const ClipboardFetch&)> onFetched;
    if (watch) {
        onFetched = [weak = std::weak_ptr<PendingPaste>(pending)](const ClipboardFetch& fetch) {
            const auto pending = weak.lock();
            if (!pending || pending->done) return;
            // Only the target's own read counts: a clipboard manager reads at once. Where the
            // reader cannot be told (Wayland), every read counts.
            if (pending->target && fetch.readerOwns && !fetch.byApplicationOf(*pending->target))
                return;
            pending->targetFetchedAt = Platform::current().clock().elapsedMs();
            settleWhenDue(pending);
        };
    }
    Clipboard& board = p.clipboard();
    board.setText(text, primary, std::move(onFetched));
    pending->board = &board;
    pending->changeCount = board.changeCount();
    pending->selectionChangeCount = board.selectionChangeCount();
    pending->keysPostedAt = p.clock().elapsedMs();
    bool posted = false;
    switch (keys) {
    case PasteKeys::ControlV:
        posted = p.keyPoster().post(keycode::V, modifier::Primary);
        break;
    case PasteKeys::ControlShiftV:
        posted = p.keyPoster().post(keycode::V, modifier::Primary | modifier::Shift);
        break;
    case PasteKeys::ShiftInsert:
        posted = p.keyPoster().post(keycode::Insert, modifier::Shift);
        break;
    }
    if (!posted) {
        // No key reached the application: the text stays on the clipboard for the user to
        // paste, and the paste is settled as unread.
        Log::write(QStringLiteral("collage: touches non envoyées, texte laissé au presse-papiers"));
        pending->restore = false;
        settle(pending);
        co_return;
    }
    if (!watch) co_return;
    lastPending() = pending;
    settleWhenDue(pending);
}

QCoro::Task<std::optional<FocusedElement>> focusedInFront() {
    Platform& p = Platform::current();
    const std::optional<AppWindow> front = p.windows().frontmost();
    // With the window in front known, only its process is asked: a focus kept by another
    // application (a browser in the background) is not the user's.
    const int64_t pid = front ? front->pid : 0;
    if (front && pid <= 0) co_return std::nullopt;
    std::optional<FocusedElement> focus = co_await p.accessibility().focused(pid);
    co_return focus;
}

QCoro::Task<std::optional<QString>> selectedTextViaAX() {
    const std::optional<FocusedElement> focus = co_await focusedInFront();
    if (focus) {
        if (!focus->selection || focus->selection->isEmpty()) co_return std::nullopt;
        co_return focus->selection;
    }
    Platform& p = Platform::current();
    const std::optional<AppWindow> front = p.windows().frontmost();
    if (!front || !clipboard().primaryOwnedBy(*front)) co_return std::nullopt;
    co_return clipboard().selectedText();
}

QCoro::Task<std::optional<bool>> focusedIsEditable() {
    const std::optional<FocusedElement> focus = co_await focusedInFront();
    if (!focus) co_return std::nullopt;
    co_return focus->editable;
}

bool landed(const FocusedElement& before, const FocusedElement& after, const QString& text,
            const std::optional<QString>& beforeCaret) {
    const int length = int(text.toUcs4().size());
    const int replaced = before.selection ? int(before.selection->toUcs4().size()) : 0;
    if (before.characterCount >= 0 && after.characterCount >= 0 &&
        after.characterCount - before.characterCount == length - replaced && length != replaced)
        return true;
    return beforeCaret && !text.isEmpty() && *beforeCaret == text;
}

QCoro::Task<std::optional<bool>> checkLanded(FocusedElement before, QString text) {
    if (!before.hasText) co_return std::nullopt;
    Accessibility& a11y = Platform::current().accessibility();
    const int length = int(text.toUcs4().size());
    // The target reads the clipboard and inserts the text at its own pace.
    for (const int waitMs : {150, 250, 400, 600}) {
        co_await QCoro::sleepFor(std::chrono::milliseconds(waitMs));
        const std::optional<FocusedElement> after = co_await a11y.reread(before.element);
        if (!after || !after->hasText) co_return std::nullopt;
        std::optional<QString> tail;
        if (after->caretOffset >= length)
            tail =
                co_await a11y.text(after->element, after->caretOffset - length, after->caretOffset);
        if (landed(before, *after, text, tail)) co_return true;
    }
    co_return false;
}

namespace {

// One paste's look at its arrival: said once, by whichever sign comes first.
struct Arrival {
    QString app;
    std::function<void()> onLost;
    std::optional<bool> elementTells; // the focused element exposes its text
    bool unread = false;              // the target never read the clipboard
    bool reported = false;
    void lost() {
        if (reported) return;
        reported = true;
        Log::write(QStringLiteral("collage: non arrivé (%1)").arg(app));
        if (onLost) onLost();
    }
};

// Looks at the element until the text is there, or says it did not arrive.
QCoro::Task<void> watchArrival(FocusedElement before, QString text,
                               std::shared_ptr<Arrival> arrival) {
    const std::optional<bool> arrived = co_await checkLanded(before, text);
    if (arrived == std::optional<bool>(false)) arrival->lost();
}

} // namespace

QCoro::Task<void> pasteAndCheck(QString text, bool restore, std::optional<ClipboardSnapshot> saved,
                                std::function<void()> onLost) {
    auto arrival = std::make_shared<Arrival>();
    const std::optional<AppWindow> front = Platform::current().windows().frontmost();
    arrival->app = front && !front->name.isEmpty() ? front->name : QStringLiteral("?");
    arrival->onLost = std::move(onLost);
    // Asked while the paste waits for the user's modifiers, so the look costs the paste nothing.
    QCoro::Task<std::optional<FocusedElement>> asking = focusedInFront();
    // Where the element says nothing of its text, a target that never read the clipboard
    // before it came back did not take the text either.
    // (Callbacks are made before the co_await: GCC 12 destroys a temporary argument of an
    // awaited coroutine twice.)
    PasteSettled settled = [arrival](bool targetFetched) {
        if (targetFetched) return;
        arrival->unread = true;
        if (arrival->elementTells == std::optional<bool>(false)) arrival->lost();
    };
    co_await paste(text, restore, std::move(saved), std::move(settled));
    const std::optional<FocusedElement> before = co_await asking;
    arrival->elementTells = before && before->hasText;
    if (!*arrival->elementTells) {
        if (arrival->unread) arrival->lost();
        co_return;
    }
    if (arrival->app == QLatin1String("?") && !before->applicationName.isEmpty())
        arrival->app = before->applicationName;
    watchArrival(*before, text, arrival);
}

QCoro::Task<std::optional<QString>> copySelection() {
    co_await modifierWait();
    Platform& p = Platform::current();
    const auto front = p.windows().frontmost();
    const QString name = front && !front->name.isEmpty() ? front->name : QStringLiteral("?");
    Log::write(QStringLiteral("sélection: appli %1, touches 0x%2")
                   .arg(name, QString::number(HotkeyMonitor::lastModifierFlags(), 16)));

    const std::optional<QString> selected = co_await selectedTextViaAX();
    if (selected && !selected->trimmed().isEmpty()) {
        Log::write(QStringLiteral("sélection lue par accessibilité (%1 caractères)")
                       .arg(selected->size()));
        co_return selected;
    }

    const CopyKeys keys = front ? copyKeysFor(*front) : CopyKeys::ControlC;
    if (keys == CopyKeys::None) {
        Log::write(QStringLiteral("sélection: rien de sélectionné dans le terminal"));
        co_return std::nullopt;
    }
    const bool terminal = keys == CopyKeys::ControlShiftC;
    Clipboard& c = p.clipboard();
    c.clear();
    const uint64_t before = c.changeCount();
    p.keyPoster().post(keycode::C, modifier::Primary | (terminal ? modifier::Shift : 0));
    for (int j = 0;; ++j) {
        co_await QCoro::sleepFor(25ms);
        if (j == 39 || c.changeCount() != before) break;
    }
    const std::optional<QString> copied = c.text();
    Log::write(QStringLiteral("sélection copiée par %1 (%2 caractères)")
                   .arg(terminal ? QStringLiteral("Ctrl+Maj+C") : QStringLiteral("Ctrl+C"))
                   .arg(copied ? copied->size() : 0));
    co_return copied;
}

} // namespace ombry::Paster
