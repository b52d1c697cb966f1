#pragma once

#include "platform/InputWatch.h"

#include <memory>

namespace ombry::linux_platform {

// XInput 2 raw events of the master devices on the root window: every click and key of the
// session reaches it, whatever window has the focus or a grab.
std::unique_ptr<InputWatch> makeInputWatch();

} // namespace ombry::linux_platform
