#pragma once

#include "platform/Accessibility.h"
#include "platform/Desktop.h"

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

#include <QCoroTask>

namespace ombry {

// Reads the selection of the application in front and writes text at its cursor by posing as
// the user: text on the clipboard, the paste or copy keys posted, the user's clipboard put
// back afterwards. No state of its own; main thread only.
namespace Paster {

// How a window takes a paste.
enum class PasteKeys {
    ControlV,      // ordinary applications
    ControlShiftV, // terminal emulators that paste the clipboard with Ctrl+Shift+V
    ShiftInsert,   // xterm, rxvt, mlterm: Shift+Insert pastes the PRIMARY selection
};

// How a window copies its selection to the clipboard.
enum class CopyKeys {
    ControlC,      // ordinary applications
    ControlShiftC, // the Ctrl+Shift+V terminals: Ctrl+C would interrupt the running job
    None,          // xterm, rxvt, mlterm: no copy key; what they select is PRIMARY already
};

// The keys of a window, found by its WM_CLASS class or its application id (any case).
PasteKeys pasteKeysFor(const AppWindow& window);
CopyKeys copyKeysFor(const AppWindow& window);

// Deep copy of the clipboard, the main loop turning while its owner answers (about a second
// at most; formats not given by then are left out, and the journal says so).
QCoro::Task<ClipboardSnapshot> snapshot();

// Called once a paste is settled, when the user's clipboard comes back (or, without restore,
// when it would have): whether the application of the target window read the text by then.
using PasteSettled = std::function<void(bool targetFetched)>;

// Puts text on the clipboard and posts the paste keys the window in front understands, once
// no modifier of the user is held any more (waits at most 2 s). With restore, the former
// clipboard (saved, or a snapshot taken now; for a Shift+Insert paste the PRIMARY selection
// too) comes back once the target has read the text: kAfterFetchMs after the last read by
// the target's own application, and not before kMinHoldMs after the keys; reads by other
// applications (clipboard managers copy every new content at once) do not count. Without any
// read by the target, it comes back kRestoreTimeoutMs after the keys. Times are those of the
// platform clock. The task ends when the keys were posted; it may be dropped without awaiting.
QCoro::Task<void> paste(QString text, bool restore,
                        std::optional<ClipboardSnapshot> saved = std::nullopt,
                        PasteSettled onSettled = {});

// paste(), then a look at whether the text arrived: in the focused element of the window in
// front, where its application exposes its text; elsewhere, by whether the target read the
// clipboard before it came back (a target that takes no text never does). When it did not
// arrive, the journal says "collage: non arrivé ({app})" and `onLost` is called (the caller
// shows the text to copy). The task ends when the keys were posted; the look goes on after.
QCoro::Task<void> pasteAndCheck(QString text, bool restore, std::optional<ClipboardSnapshot> saved,
                                std::function<void()> onLost);

// Posts Ctrl+key at once (key 9 is V, 8 is C).
bool command(uint16_t key);

// The focused element of the window in front, as its application reports it on the
// accessibility bus; none when the application in front exposes nothing (or does not answer
// in time). Never waits long: every question has a short deadline.
QCoro::Task<std::optional<FocusedElement>> focusedInFront();

// The text selected in the window in front: the selection of its focused element; where its
// application exposes nothing, the PRIMARY selection when the window in front owns it (never a
// selection left in another window). nullopt when none.
QCoro::Task<std::optional<QString>> selectedTextViaAX();

// Whether the focused element of the window in front takes text; nullopt when its
// application does not say.
QCoro::Task<std::optional<bool>> focusedIsEditable();

// Whether `text`, pasted into the element described by `before`, is there now: its text grew
// by the pasted length (less the selection it replaced), or the text before its caret is the
// pasted text. `after` is the element asked again, `beforeCaret` its text ending at the caret.
bool landed(const FocusedElement& before, const FocusedElement& after, const QString& text,
            const std::optional<QString>& beforeCaret);

// After a paste into `before`: asks the element again for a moment and tells whether the text
// arrived; nullopt when the element cannot tell (it exposes no text).
QCoro::Task<std::optional<bool>> checkLanded(FocusedElement before, QString text);

// The selection by any means: the PRIMARY selection, else the window's copy keys (Ctrl+C,
// Ctrl+Shift+C in a terminal) and the clipboard. Clears the clipboard and leaves the copied
// text on it: the caller snapshots before and restores. A terminal without a copy key gives
// nullopt at once.
QCoro::Task<std::optional<QString>> copySelection();

// Waits, without blocking the event loop, until no modifier is held (at most 80 x 25 ms),
// then 60 ms more, so posted keys do not combine with keys the user still holds.
QCoro::Task<void> modifierWait();

inline constexpr int kAfterFetchMs = 150;
inline constexpr int kMinHoldMs = 600;
inline constexpr int kRestoreTimeoutMs = 2000;

} // namespace Paster
} // namespace ombry
