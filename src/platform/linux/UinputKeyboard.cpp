#include "platform/linux/UinputKeyboard.h"

#include "platform/KeyCodes.h"
#include "platform/linux/LinuxPlatform.h"

#include <QString>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/uinput.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ombry::linux_platform {
namespace {

input_event event(uint16_t type, uint16_t code, int32_t value) {
    input_event e{};
    e.type = type;
    e.code = code;
    e.value = value;
    return e;
}

} // namespace

std::vector<input_event> keyEvents(uint16_t keyCode, uint64_t modifiers) {
    const int key = evdevKeyFor(keyCode);
    if (key < 0) return {};
    std::vector<uint16_t> held;
    if (modifiers & modifier::Control) held.push_back(KEY_LEFTCTRL);
    if (modifiers & modifier::Shift) held.push_back(KEY_LEFTSHIFT);
    if (modifiers & modifier::Option) held.push_back(KEY_LEFTALT);
    if (modifiers & modifier::Command) held.push_back(KEY_LEFTMETA);
    std::vector<input_event> out;
    const auto report = [&out] { out.push_back(event(EV_SYN, SYN_REPORT, 0)); };
    for (uint16_t m : held)
        out.push_back(event(EV_KEY, m, 1));
    if (!held.empty()) report();
    out.push_back(event(EV_KEY, uint16_t(key), 1));
    report();
    out.push_back(event(EV_KEY, uint16_t(key), 0));
    report();
    for (auto m = held.rbegin(); m != held.rend(); ++m)
        out.push_back(event(EV_KEY, *m, 0));
    if (!held.empty()) report();
    return out;
}

UinputKeyboard::~UinputKeyboard() {
    if (fd_ < 0) return;
    ::ioctl(fd_, UI_DEV_DESTROY);
    ::close(fd_);
}

bool UinputKeyboard::open() {
    if (fd_ >= 0) return true;
    const int fd = ::open("/dev/uinput", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = ::ioctl(fd, UI_SET_EVBIT, EV_KEY) == 0 && ::ioctl(fd, UI_SET_EVBIT, EV_SYN) == 0;
    for (int k = KEY_ESC; ok && k <= KEY_MICMUTE; ++k)
        ok = ::ioctl(fd, UI_SET_KEYBIT, k) == 0;
    uinput_setup setup{};
    setup.id.bustype = BUS_VIRTUAL;
    setup.id.vendor = 0x4f56; // "OV"
    setup.id.product = 1;
    std::strncpy(setup.name, "Ombry Voice", UINPUT_MAX_NAME_SIZE - 1);
    ok = ok && ::ioctl(fd, UI_DEV_SETUP, &setup) == 0 && ::ioctl(fd, UI_DEV_CREATE) == 0;
    if (!ok) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void UinputKeyboard::prepare(ReadyHandler onReady) {
    const bool ok = open();
    if (onReady)
        onReady(ok, ok ? QString()
                       : QStringLiteral("/dev/uinput ne s'ouvre pas en écriture (%1)")
                             .arg(QString::fromLocal8Bit(std::strerror(errno))));
}

bool UinputKeyboard::post(uint16_t keyCode, uint64_t modifiers) {
    if (!open()) return false;
    const std::vector<input_event> events = keyEvents(keyCode, modifiers);
    if (events.empty()) return false;
    const size_t bytes = events.size() * sizeof(input_event);
    return ::write(fd_, events.data(), bytes) == ssize_t(bytes);
}

std::unique_ptr<KeyPoster> makeUinputKeyboard() {
    return std::make_unique<UinputKeyboard>();
}

} // namespace ombry::linux_platform
