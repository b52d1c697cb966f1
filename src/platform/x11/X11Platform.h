#pragma once

#include "platform/InputWatch.h"
#include "platform/Platform.h"

#include <memory>

// The services that only an X11 session has: the keyboard hook, posted keys, the clipboard, the
// windows, and the watch of every click and key. Making one is cheap and touches no display:
// each connects when it is first used, so headless runs never need one.
namespace ombry::x11 {

std::unique_ptr<KeyboardHook> makeKeyboardHook();
std::unique_ptr<KeyPoster> makeKeyPoster();
std::unique_ptr<Clipboard> makeClipboard();
std::unique_ptr<Windows> makeWindows();
// XInput 2 raw events of the master devices on the root window: every click and key of the
// session reaches it, whatever window has the focus or a grab.
std::unique_ptr<InputWatch> makeInputWatch();

} // namespace ombry::x11
