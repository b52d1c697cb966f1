#pragma once

#include "platform/Desktop.h"

#include <QString>
#include <cstdint>
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
    ShiftInsert,   // xterm and rxvt: Shift+Insert pastes the PRIMARY selection
};

// The paste keys for a window class (WM_CLASS class or instance, any case).
PasteKeys pasteKeysFor(const QString& windowClass);

// Deep copy of the clipboard.
ClipboardSnapshot snapshot();

// Puts text on the clipboard and posts the paste keys the window in front understands, once
// no modifier of the user is held any more (waits at most 2 s). With restore, the former
// clipboard (saved, or a snapshot taken now) comes back only after the target fetched the
// text, or after kRestoreTimeoutMs when no application asks for it. The task ends when the
// keys were posted; it may be dropped without awaiting it.
QCoro::Task<void> paste(QString text, bool restore,
                        std::optional<ClipboardSnapshot> saved = std::nullopt);

// Posts Ctrl+key at once (key 9 is V, 8 is C).
bool command(uint16_t key);

// The text selected in the application in front (the PRIMARY selection).
std::optional<QString> selectedTextViaAX();

// Whether the focused element takes text; nullopt (unknown, callers treat it as yes) on X11.
std::optional<bool> focusedIsEditable();

// The selection by any means: the PRIMARY selection, else Ctrl+C and the clipboard. Clears the
// clipboard and leaves the copied text on it: the caller snapshots before and restores.
QCoro::Task<std::optional<QString>> copySelection();

// Waits, without blocking the event loop, until no modifier is held (at most 80 x 25 ms),
// then 60 ms more, so posted keys do not combine with keys the user still holds.
QCoro::Task<void> modifierWait();

inline constexpr int kRestoreTimeoutMs = 2000;

} // namespace Paster
} // namespace ombry
