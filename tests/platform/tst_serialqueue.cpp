#include "platform/Paths.h"
#include "platform/SerialQueue.h"

#include "FakePlatform.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <atomic>
#include <vector>

using namespace ombry;

class TstSerialQueue : public QObject {
    Q_OBJECT
    test::FakePlatform platform;

private Q_SLOTS:
    void delayedItemsWaitForTheClock() {
        SerialQueue q(QStringLiteral("verlo.test"));
        std::atomic<int> ran{0};
        q.asyncAfter(400, std::make_shared<WorkItem>([&] { ++ran; }));
        q.sync([] {});
        QCOMPARE(ran.load(), 0);
        platform.clock().advance(399);
        q.sync([] {});
        QCOMPARE(ran.load(), 0);
        platform.clock().advance(1);
        q.sync([] {});
        QCOMPARE(ran.load(), 1);
    }

    void cancelledItemsNeverRun() {
        SerialQueue q(QStringLiteral("verlo.test"));
        std::atomic<int> ran{0};
        auto item = std::make_shared<WorkItem>([&] { ++ran; });
        q.asyncAfter(100, item);
        item->cancel();
        platform.clock().advance(200);
        q.sync([] {});
        QCOMPARE(ran.load(), 0);
    }

    void runsInOrderOfDueTimeThenArrival() {
        SerialQueue q(QStringLiteral("verlo.test"));
        std::vector<int> order;
        q.asyncAfter(50, std::make_shared<WorkItem>([&] { order.push_back(3); }));
        q.asyncAfter(10, std::make_shared<WorkItem>([&] { order.push_back(1); }));
        q.asyncAfter(10, std::make_shared<WorkItem>([&] { order.push_back(2); }));
        platform.clock().advance(60);
        q.sync([&] { order.push_back(4); });
        QCOMPARE(order, (std::vector<int>{1, 2, 3, 4}));
    }

    void atomicWriteReplacesWholeFile() {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("a.json"));
        QVERIFY(Paths::writeFileAtomically(path, "[1,2,3]"));
        QVERIFY(Paths::writeFileAtomically(path, "[]"));
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("[]"));
        QVERIFY(!Paths::writeFileAtomically(dir.filePath(QStringLiteral("missing/a.json")), "x"));
    }

    void stoppedQueuesRunLateWorkInPlace() {
        SerialQueue q(QStringLiteral("verlo.test"));
        std::atomic<int> delayed{0}, late{0};
        q.asyncAfter(100, std::make_shared<WorkItem>([&] { ++delayed; }));
        SerialQueue::stopAll(); // as the end of the program does
        QVERIFY(q.stopped());
        q.async([&] { ++late; });
        q.sync([&] { ++late; }); // does not wait for a thread that is gone
        platform.clock().advance(200);
        QCOMPARE(late.load(), 2);
        QCOMPARE(delayed.load(), 0);
    }
};

QTEST_GUILESS_MAIN(TstSerialQueue)
#include "tst_serialqueue.moc"
