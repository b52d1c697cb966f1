#include "platform/x11/X11Platform.h"

#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Keyboard.h"
#include "platform/x11/X11Windows.h"

namespace ombry::x11 {

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

} // namespace ombry::x11
