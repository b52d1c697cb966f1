#pragma once

#include "platform/Platform.h"

#include <memory>

namespace ombry {

// The display session as the environment, the compositor and the session bus describe it.
std::unique_ptr<DisplaySession> makeDisplaySession();

// The shortcut service of a session that has none (X11, where the keyboard hook sees every key).
std::unique_ptr<GlobalShortcuts> makeNoShortcuts();

} // namespace ombry
