#pragma once

#include "platform/Desktop.h"
#include "platform/KeyCodes.h"

#include <QList>
#include <QObject>
#include <QString>
#include <memory>
#include <optional>

class QSocketNotifier;
class QTimer;

namespace ombry::linux_platform {

// One key of the kernel's input events turned into the program's key event: modifiers as
// flags-changed events with their device bits, other keys as key-downs (repeats marked), key
// releases of other keys dropped. Keeps the modifiers held across events of every keyboard.
class EvdevDecoder {
public:
    // type, code and value of one struct input_event.
    std::optional<KeyEvent> decode(uint16_t type, uint16_t code, int32_t value);
    uint64_t flags() const { return modifiers_.flags(); }
    void clear() { modifiers_.clear(); }

private:
    ModifierState modifiers_;
};

// The keyboard read from the keyboard devices (/dev/input/event*), which only a member of the
// `input` group may open: every key of the session whatever the display server, including a
// lone modifier held. Nothing can be taken away from the application in front this way
// (setSwallowed does nothing), and every program of the user can read the same devices: the
// user chooses it knowingly. Keyboards plugged later are found within a few seconds.
class EvdevKeyboard final : public QObject, public KeyboardHook {
    Q_OBJECT
public:
    EvdevKeyboard();
    ~EvdevKeyboard() override;

    bool start(Handler handler) override;
    void stop() override;
    bool running() const override;
    QString reason() const override { return reason_; }
    void setSwallowed(const QList<KeyCombo>&) override {}
    void setAcceptPostedKeys(bool) override {}
    uint64_t lastModifierFlags() const override { return decoder_.flags(); }
    std::optional<bool> rightAltIsAltGr() const override { return std::nullopt; }

    // Reads key events from an open device (or anything that gives struct input_event records);
    // takes the descriptor. For start() and the tests.
    void watch(int fd, const QString& path);

private:
    struct Device;
    void scan();
    void readFrom(Device& device);
    void drop(Device& device);

    Handler handler_;
    EvdevDecoder decoder_;
    QList<std::shared_ptr<Device>> devices_;
    QTimer* rescan_ = nullptr;
    QString reason_;
};

// Whether a device path is a keyboard (it has letter keys and Enter); false when it cannot be
// opened.
bool isKeyboardDevice(const QString& path);

} // namespace ombry::linux_platform
