// The strip's shared-memory pictures: the scale and sizes the compositor is told, and which of
// the two buffers the next picture goes into.
#include "platform/wayland/ShmFrames.h"

#include <QTest>
#include <array>

using namespace ombry::wayland;

class TstWaylandFrames : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void layoutForTheScale_data() {
        QTest::addColumn<QSize>("pixels");
        QTest::addColumn<qreal>("ratio");
        QTest::addColumn<int>("scale");
        QTest::addColumn<QSize>("logical");
        QTest::addColumn<QSize>("buffer");
        QTest::newRow("1x") << QSize(301, 44) << 1.0 << 1 << QSize(301, 44) << QSize(301, 44);
        QTest::newRow("2x") << QSize(602, 88) << 2.0 << 2 << QSize(301, 44) << QSize(602, 88);
        // A fractional ratio is drawn at the next whole scale.
        QTest::newRow("1.5x") << QSize(450, 66) << 1.5 << 2 << QSize(225, 33) << QSize(450, 66);
        // An odd picture at 2x is padded to whole logical pixels.
        QTest::newRow("odd at 2x")
            << QSize(601, 87) << 2.0 << 2 << QSize(301, 44) << QSize(602, 88);
        QTest::newRow("no ratio") << QSize(10, 10) << 0.0 << 1 << QSize(10, 10) << QSize(10, 10);
    }

    void layoutForTheScale() {
        QFETCH(QSize, pixels);
        QFETCH(qreal, ratio);
        const FrameLayout f = frameLayout(pixels, ratio);
        QTEST(f.scale, "scale");
        QTEST(f.logical, "logical");
        QTEST(f.buffer, "buffer");
        QCOMPARE(f.stride, f.buffer.width() * 4);
    }

    void nextBuffer() {
        const QSize strip(300, 44), grown(300, 62);
        std::array<Slot, 2> s{};
        QCOMPARE(pickSlot(s, strip), 0); // none made yet: the first
        s[0] = {true, strip};
        QCOMPARE(pickSlot(s, strip), 1); // the first is on screen
        s[1] = {false, strip};
        s[0].busy = false;
        // Both free: the one of the right size, whichever it is; the other is not remade.
        s[0].size = grown;
        QCOMPARE(pickSlot(s, strip), 1);
        QCOMPARE(pickSlot(s, grown), 0);
        // A size no buffer has: the first free one is made again.
        QCOMPARE(pickSlot(s, QSize(10, 10)), 0);
        s[0].busy = true;
        s[1].busy = true;
        QCOMPARE(pickSlot(s, strip), -1); // wait for a release
    }
};

QTEST_GUILESS_MAIN(TstWaylandFrames)
#include "tst_waylandframes.moc"
