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

} // namespace ombry::linux_platform
