// The keyboard read from the kernel's input devices: records cut anywhere between two reads,
// modifiers with their device bits, repeats, and a device that goes away. A pipe stands in
// for /dev/input/event*, which a test machine may not have. And the keys posted to a virtual
// device (/dev/uinput), read back through the same decoding.
#include "platform/linux/EvdevKeyboard.h"
#include "platform/linux/UinputKeyboard.h"

#include <QTest>
#include <linux/input.h>
#include <unistd.h>

using namespace ombry;
using namespace ombry::linux_platform;

namespace {

QByteArray record(uint16_t type, uint16_t code, int32_t value) {
    input_event e{};
    e.type = type;
    e.code = code;
    e.value = value;
    return QByteArray(reinterpret_cast<const char*>(&e), sizeof(e));
}

QByteArray key(uint16_t code, int32_t value) {
    return record(EV_KEY, code, value) + record(EV_SYN, SYN_REPORT, 0);
}

} // namespace

class TstEvdevKeyboard : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keysFromADevice() {
        int fds[2];
        QVERIFY(::pipe(fds) == 0);
        EvdevKeyboard keyboard;
        QList<KeyEvent> seen;
        keyboard.start([&seen](const KeyEvent& e) { seen << e; }); // no real device here
        keyboard.watch(fds[0], QStringLiteral("pipe"));
        QVERIFY(keyboard.running());

        // AltGr held, Ctrl+V with a repeat, both released; a record cut in two writes.
        const QByteArray stream = key(KEY_RIGHTALT, 1) + key(KEY_LEFTCTRL, 1) + key(KEY_V, 1) +
                                  key(KEY_V, 2) + key(KEY_V, 0) + key(KEY_LEFTCTRL, 0) +
                                  key(KEY_RIGHTALT, 2) + key(KEY_RIGHTALT, 0);
        QVERIFY(::write(fds[1], stream.constData(), 30) == 30);
        QTest::qWait(50);
        QVERIFY(::write(fds[1], stream.constData() + 30, stream.size() - 30) == stream.size() - 30);
        QTRY_COMPARE(seen.size(), 6);
        QCOMPARE(seen[0].type, KeyEvent::Type::FlagsChanged);
        QCOMPARE(seen[0].keyCode, keycode::RightOption);
        QCOMPARE(seen[0].flags & (modifier::Option | modifier::RightOptionDown),
                 modifier::Option | modifier::RightOptionDown);
        QCOMPARE(seen[2].type, KeyEvent::Type::KeyDown);
        QCOMPARE(seen[2].keyCode, keycode::V);
        QCOMPARE(seen[2].flags & modifier::Mask, modifier::Control | modifier::Option);
        QVERIFY(!seen[2].autoRepeat);
        QVERIFY(seen[3].autoRepeat);
        QCOMPARE(seen[4].flags & modifier::Mask, modifier::Option);
        QCOMPARE(seen[5].flags, uint64_t(0));
        QCOMPARE(keyboard.lastModifierFlags(), uint64_t(0));

        // Unplugged: the device is dropped, and with it the keyboard.
        ::close(fds[1]);
        QTRY_VERIFY(!keyboard.running());
    }

    // Ctrl+Shift+V posted as kernel events reads back as the same keys, modifiers released
    // last; a key with no place on the keyboard posts nothing.
    void postedKeysReadBack() {
        const std::vector<input_event> events =
            keyEvents(keycode::V, modifier::Control | modifier::Shift);
        EvdevDecoder decoder;
        QList<KeyEvent> seen;
        for (const input_event& e : events)
            if (const auto k = decoder.decode(e.type, e.code, e.value)) seen << *k;
        QCOMPARE(seen.size(), 5); // Ctrl, Shift, V, Shift up, Ctrl up
        QCOMPARE(seen[2].keyCode, keycode::V);
        QCOMPARE(seen[2].flags & modifier::Mask, modifier::Control | modifier::Shift);
        QCOMPARE(seen[4].flags, uint64_t(0));
        QCOMPARE(events.back().type, uint16_t(EV_SYN));
        QVERIFY(keyEvents(0xFFF0, 0).empty());
    }
};

QTEST_GUILESS_MAIN(TstEvdevKeyboard)
#include "tst_evdevkeyboard.moc"
