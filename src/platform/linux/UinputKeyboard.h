#pragma once

#include "platform/Desktop.h"

#include <linux/input.h>
#include <vector>

namespace ombry::linux_platform {

// The kernel events of one posted key with its modifiers: the modifiers pressed (left keys),
// the key down then up, the modifiers released, each step closed by a report. Empty when the
// key has no place on a PC keyboard.
std::vector<input_event> keyEvents(uint16_t keyCode, uint64_t modifiers);

// Keys posted through a virtual keyboard device of the kernel (/dev/uinput), which only a
// user allowed to write there may create (the input group on most systems): the compositor
// reads it as one more keyboard, whatever the desktop. Keys go by their place on the keyboard,
// read with the user's layout.
class UinputKeyboard final : public KeyPoster {
public:
    ~UinputKeyboard() override;
    bool post(uint16_t keyCode, uint64_t modifiers) override;
    // Creates the device ahead of the first key: a compositor takes a moment to adopt it.
    void prepare(ReadyHandler onReady) override;

private:
    bool open();
    int fd_ = -1;
};

} // namespace ombry::linux_platform
