#pragma once

#include "platform/Platform.h"

#include <memory>

// The Linux implementations of the platform services: Secret Service, freedesktop
// notifications over D-Bus, /proc and /sys, xdg-open.
namespace ombry::linux_platform {

std::unique_ptr<Keychain> makeKeychain();
std::unique_ptr<Notifier> makeNotifier();
std::unique_ptr<MachineInfo> makeMachineInfo();
std::unique_ptr<Browser> makeBrowser();

// The desktop services: X11 (keyboard, posted keys, clipboard, windows) and PulseAudio (capture,
// playback), espeak-ng (speech). Making one is cheap and touches no server: each connects when
// it is first used, so headless runs never need a display or a sound server.
std::unique_ptr<KeyboardHook> makeKeyboardHook();
std::unique_ptr<KeyPoster> makeKeyPoster();
std::unique_ptr<Clipboard> makeClipboard();
std::unique_ptr<Windows> makeWindows();
std::unique_ptr<AudioSystem> makeAudioSystem();
std::unique_ptr<SpeechOutput> makeSpeechOutput();

} // namespace ombry::linux_platform
