// Qt's headers go before Xlib's, which define Status and Bool as macros.
#include <QTest>

#include "platform/x11/X11Keys.h"

using namespace ombry::x11;
using namespace std::chrono_literals;

// The ledger through which the keyboard hook knows this process's posted keys from those of
// other programs. Its times are given, so the time-out needs no waiting.
class TstX11Keys : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void ownKeysAreClaimedOnceInOrder() {
        OwnKeyLedger ledger;
        const auto t = OwnKeyLedger::Clock::now();
        ledger.expect(37, true, {}, t);
        ledger.expect(55, true, {false, 0x40000}, t);
        ledger.expect(55, false, {}, t);
        ledger.expect(37, false, {}, t);
        // Another program's key between ours is not claimed.
        QCOMPARE(ledger.claim(38, true, t).claim, KeyClaim::Foreign);
        QCOMPARE(ledger.claim(37, true, t).claim, KeyClaim::Own);
        const ClaimedKey v = ledger.claim(55, true, t);
        QCOMPARE(v.claim, KeyClaim::Own);
        QCOMPARE(v.flags.value_or(0), uint64_t(0x40000));
        // The same key again is not ours a second time.
        QCOMPARE(ledger.claim(55, true, t).claim, KeyClaim::Foreign);
        QCOMPARE(ledger.pending(), size_t(2));
        // An event that did not come back (the hook was not listening) is passed over.
        QCOMPARE(ledger.claim(37, false, t).claim, KeyClaim::Own);
        QCOMPARE(ledger.pending(), size_t(0));

        // Forgotten after the time-out.
        ledger.expect(64, false, {true, std::nullopt}, t);
        ledger.expect(55, true, {}, t);
        QCOMPARE(ledger.claim(64, false, t + 1s).claim, KeyClaim::Transparent);
        QCOMPARE(ledger.claim(55, true, t + OwnKeyLedger::timeout + 1ms).claim, KeyClaim::Foreign);
        QCOMPARE(ledger.pending(), size_t(0));
    }

    void heldModifiersMakeTheFlags() {
        ModifierState held;
        held.press(64, ombry::keycode::LeftOption);
        held.press(108, ombry::keycode::RightOption);
        QCOMPARE(held.flags(), ombry::modifier::Option | ombry::modifier::RightOptionDown | 0x20);
        held.release(108);
        QCOMPARE(held.flags(), ombry::modifier::Option | 0x20);
        held.press(135, ombry::keycode::Fn);
        held.press(66, 57); // Caps Lock is a lock, not a held modifier
        QCOMPARE(held.flags(), ombry::modifier::Option | 0x20 | ombry::modifier::FnDown);
        held.clear();
        QCOMPARE(held.flags(), uint64_t(0));
    }
};

QTEST_GUILESS_MAIN(TstX11Keys)
#include "tst_x11keys.moc"
