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
    // Delayed items wait for the platform clock and run in order of due time, then of arrival;
    // a cancelled one never runs.
    void delayedItemsRunInOrderOnTheClock() {
        SerialQueue q(QStringLiteral("verlo.test"));
        std::vector<int> order;
        const auto item = [&](int n) {
            return std::make_shared<WorkItem>([&, n] { order.push_back(n); });
        };
        const auto cancelled = item(0);
        q.asyncAfter(400, item(3));
        q.asyncAfter(100, cancelled);
        q.asyncAfter(10, item(1));
        q.asyncAfter(10, item(2));
        cancelled->cancel();
        platform.clock().advance(399);
        q.sync([] {});
        QCOMPARE(order, (std::vector<int>{1, 2}));
        platform.clock().advance(1);
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
