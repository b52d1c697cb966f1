#pragma once

#include "platform/Desktop.h"

#include <QCoroTask>
#include <QPointer>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

namespace ombry {

class Clock;

// Small pieces shared by the key's state machine, the processing of a recording and the
// actions on the selection.
namespace dictation {

// Whether the window is one of this program's own, told by its process (its application id
// exists only where the program is installed): a selection there is no voice command target,
// and a text is never sent back to it by activation.
bool isOwnWindow(const std::optional<AppWindow>& window);

Clock& clock();

QCoro::Task<void> sleepMs(int ms);

// Runs `fn` once `ms` of the platform clock have passed, unless `owner` is gone by then. On
// the system clock this is one timer; a manual clock (tests) is looked at every millisecond
// until a test has moved it far enough.
QCoro::Task<void> afterOnClock(QPointer<QObject> owner, int64_t ms, std::function<void()> fn);

// The text trimmed at both ends; empty for none.
QString trimmed(const std::optional<QString>& text);

// The window's application id, or nothing when it has none.
std::optional<QString> appIdOf(const std::optional<AppWindow>& app);

} // namespace dictation
} // namespace ombry
