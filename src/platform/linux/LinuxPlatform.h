#pragma once

#include "platform/Platform.h"

#include <memory>

// What every Linux session has, X11 or Wayland: Secret Service, freedesktop notifications over
// D-Bus, /proc and /sys, xdg-open, PulseAudio (capture, playback) and espeak-ng (speech).
namespace ombry::linux_platform {

std::unique_ptr<Keychain> makeKeychain();
std::unique_ptr<Notifier> makeNotifier();
std::unique_ptr<MachineInfo> makeMachineInfo();
std::unique_ptr<Browser> makeBrowser();

// Making one is cheap and touches no server: each connects when it is first used, so headless
// runs never need a sound server.
std::unique_ptr<AudioSystem> makeAudioSystem();
std::unique_ptr<SpeechOutput> makeSpeechOutput();
// The accessibility bus (AT-SPI), for X11 and Wayland sessions alike.
std::unique_ptr<Accessibility> makeAccessibility();
// The keyboard read from the keyboard devices (the input group), whatever the display server.
std::unique_ptr<KeyboardHook> makeEvdevKeyboard();
// Keys posted through a virtual keyboard device of the kernel (/dev/uinput).
std::unique_ptr<KeyPoster> makeUinputKeyboard();

} // namespace ombry::linux_platform
