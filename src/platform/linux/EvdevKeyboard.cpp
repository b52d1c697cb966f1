#include "platform/linux/EvdevKeyboard.h"
#include "platform/linux/LinuxPlatform.h"

#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <QTimer>
#include <cerrno>
#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ombry::linux_platform {
namespace {

constexpr int kRescanMs = 3000;
constexpr uint16_t kNoKey = 0xFFFF;

bool hasBit(const unsigned long* bits, int bit) {
    constexpr int per = int(sizeof(unsigned long) * 8);
    return (bits[bit / per] >> (bit % per)) & 1UL;
}

} // namespace

std::optional<KeyEvent> EvdevDecoder::decode(uint16_t type, uint16_t code, int32_t value) {
    if (type != EV_KEY) return std::nullopt;
    const uint16_t key = codeForEvdevKey(code);
    if (key == kNoKey) return std::nullopt;
    KeyEvent e;
    e.keyCode = key;
    e.sourceState = 0;
    if (isModifierKey(key)) {
        if (value == 2) return std::nullopt; // a held modifier repeats nothing
        if (value == 1)
            modifiers_.press(code, key);
        else
            modifiers_.release(code);
        e.type = KeyEvent::Type::FlagsChanged;
        e.flags = modifiers_.flags();
        return e;
    }
    if (value == 0) return std::nullopt;
    e.type = KeyEvent::Type::KeyDown;
    e.flags = modifiers_.flags();
    e.autoRepeat = value == 2;
    return e;
}

bool isKeyboardDevice(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    unsigned long bits[(KEY_MAX + 1) / (sizeof(unsigned long) * 8) + 1] = {};
    const bool ok = ::ioctl(fd, EVIOCGBIT(EV_KEY, sizeof(bits)), bits) >= 0;
    ::close(fd);
    return ok && hasBit(bits, KEY_A) && hasBit(bits, KEY_Z) && hasBit(bits, KEY_ENTER);
}

struct EvdevKeyboard::Device {
    int fd = -1;
    QString path;
    std::unique_ptr<QSocketNotifier> notifier;
    QByteArray partial; // a record cut between two reads
};

EvdevKeyboard::EvdevKeyboard() = default;

EvdevKeyboard::~EvdevKeyboard() {
    stop();
}

bool EvdevKeyboard::start(Handler handler) {
    stop();
    handler_ = std::move(handler);
    scan();
    if (!rescan_) {
        rescan_ = new QTimer(this);
        rescan_->setInterval(kRescanMs);
        connect(rescan_, &QTimer::timeout, this, [this] { scan(); });
    }
    rescan_->start();
    if (devices_.isEmpty()) {
        reason_ = QStringLiteral("Aucun clavier lisible dans /dev/input : il faut être membre du "
                                 "groupe input (puis rouvrir la session).");
        return false;
    }
    reason_.clear();
    return true;
}

void EvdevKeyboard::stop() {
    if (rescan_) rescan_->stop();
    while (!devices_.isEmpty())
        drop(*devices_.first());
    handler_ = {};
    decoder_.clear();
}

bool EvdevKeyboard::running() const {
    return handler_ && !devices_.isEmpty();
}

void EvdevKeyboard::scan() {
    const QStringList names =
        QDir(QStringLiteral("/dev/input")).entryList({QStringLiteral("event*")}, QDir::System);
    for (const QString& name : names) {
        const QString path = QStringLiteral("/dev/input/") + name;
        bool known = false;
        for (const auto& d : std::as_const(devices_))
            known = known || d->path == path;
        if (known || !isKeyboardDevice(path)) continue;
        const int fd =
            ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) watch(fd, path);
    }
}

void EvdevKeyboard::watch(int fd, const QString& path) {
    // Read until it would block, never waiting in read().
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    auto device = std::make_shared<Device>();
    device->fd = fd;
    device->path = path;
    device->notifier = std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read);
    Device* raw = device.get();
    connect(device->notifier.get(), &QSocketNotifier::activated, this,
            [this, raw] { readFrom(*raw); });
    devices_ << device;
}

void EvdevKeyboard::readFrom(Device& device) {
    char buffer[sizeof(input_event) * 64];
    for (;;) {
        const ssize_t n = ::read(device.fd, buffer, sizeof(buffer));
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (n <= 0) { // unplugged (ENODEV), or the end of the stream
            drop(device);
            return;
        }
        device.partial.append(buffer, n);
        qsizetype at = 0;
        for (; at + qsizetype(sizeof(input_event)) <= device.partial.size();
             at += sizeof(input_event)) {
            input_event ev;
            memcpy(&ev, device.partial.constData() + at, sizeof(ev));
            const std::optional<KeyEvent> e = decoder_.decode(ev.type, ev.code, ev.value);
            if (e && handler_) handler_(*e);
        }
        device.partial.remove(0, at);
    }
}

void EvdevKeyboard::drop(Device& device) {
    // It may be the notifier that is calling: it goes once its signal has returned.
    if (device.notifier) {
        device.notifier->setEnabled(false);
        device.notifier.release()->deleteLater();
    }
    if (device.fd >= 0) ::close(device.fd);
    device.fd = -1;
    for (qsizetype i = 0; i < devices_.size(); ++i)
        if (devices_[i].get() == &device) {
            devices_.removeAt(i);
            break;
        }
}

std::unique_ptr<KeyboardHook> makeEvdevKeyboard() {
    return std::make_unique<EvdevKeyboard>();
}

} // namespace ombry::linux_platform
