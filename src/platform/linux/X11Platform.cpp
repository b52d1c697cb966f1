#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/X11Clipboard.h"
#include "platform/linux/X11Keyboard.h"
#include "platform/linux/X11Windows.h"

// The X11 desktop services. None of them connects to the display before it is first used.
namespace ombry::linux_platform {

std::unique_ptr<KeyboardHook> makeKeyboardHook() {
    return std::make_unique<X11KeyboardHook>();
}
std::unique_ptr<KeyPoster> makeKeyPoster() {
    return std::make_unique<X11KeyPoster>();
}
std::unique_ptr<Clipboard> makeClipboard() {
    return std::make_unique<X11Clipboard>();
}
std::unique_ptr<Windows> makeWindows() {
    return std::make_unique<X11Windows>();
}

} // namespace ombry::linux_platform
