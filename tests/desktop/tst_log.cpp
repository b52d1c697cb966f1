// The support journal: line format, the once-per-run size rule, and whole lines from many
// threads.
#include "FakePlatform.h"
#include "desktop/Log.h"
#include "platform/Paths.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <thread>
#include <vector>

using namespace ombry;

namespace {

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& data) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(data), data.size());
}

} // namespace

class TstLog : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString path_;

private Q_SLOTS:
    void init() {
        path_ =
            dir_.filePath(QStringLiteral("run%1/journal.log").arg(QTest::currentTestFunction()));
        Log::resetForTests(path_);
    }
    void cleanupTestCase() { Log::resetForTests(); }

    void defaultLocationIsTheDataFolder() {
        Log::resetForTests();
        QCOMPARE(Log::url(), Paths::dataFolder() + QStringLiteral("/journal.log"));
    }

    void lineFormat() {
        test::FakePlatform platform;
        platform.clock().advance(123);
        Log::write(QStringLiteral("audio: début"));
        // The stamp is the moment of the call, not of the write.
        Log::write(QStringLiteral("deux\nlignes"));
        platform.clock().advance(1000);
        Log::sync();
        QCOMPARE(readAll(path_), QByteArray("2026-03-14T09:26:53.123Z audio: d\xc3\xa9"
                                            "but\n"
                                            "2026-03-14T09:26:53.123Z deux\nlignes\n"));
    }

    void sizeRuleAtFirstWrite_data() {
        QTest::addColumn<int>("existing");
        QTest::addColumn<bool>("kept");
        QTest::newRow("small journal appended to") << 10 << true;
        QTest::newRow("2,000,000 bytes kept") << 2'000'000 << true;
        QTest::newRow("2,000,001 bytes deleted") << 2'000'001 << false;
    }
    void sizeRuleAtFirstWrite() {
        QFETCH(int, existing);
        QFETCH(bool, kept);
        test::FakePlatform platform;
        QDir().mkpath(QFileInfo(path_).absolutePath());
        writeBytes(path_, QByteArray(existing, 'x'));

        Log::write(QStringLiteral("premier"));
        Log::sync();
        const QByteArray line = "2026-03-14T09:26:53.000Z premier\n";
        const QByteArray content = readAll(path_);
        QCOMPARE(content.size(), (kept ? existing : 0) + line.size());
        QVERIFY(content.endsWith(line));

        // Past the limit within the run, nothing is deleted: the check is once per run.
        Log::write(QString(2'100'000, QLatin1Char('y')));
        Log::write(QStringLiteral("suite"));
        Log::sync();
        QVERIFY(readAll(path_).endsWith("Z suite\n"));
        QVERIFY(readAll(path_).size() > 2'100'000);

        // The next run drops it.
        Log::resetForTests(path_);
        Log::write(QStringLiteral("nouveau"));
        Log::sync();
        QCOMPARE(readAll(path_), QByteArray("2026-03-14T09:26:53.000Z nouveau\n"));
    }

    void unopenableJournalDropsLinesForTheRun() {
        test::FakePlatform platform;
        // The journal's folder cannot be made: a plain file stands in its way.
        const QString blocker = dir_.filePath(QStringLiteral("blocker"));
        writeBytes(blocker, "file");
        const QString path = blocker + QStringLiteral("/journal.log");
        Log::resetForTests(path);
        Log::write(QStringLiteral("perdu"));
        Log::sync();

        // Even once the way is clear, this run does not try again.
        QVERIFY(QFile::remove(blocker));
        QVERIFY(QDir().mkpath(blocker));
        Log::write(QStringLiteral("perdu aussi"));
        Log::sync();
        QVERIFY(!QFile::exists(path));
    }

    void linesFromManyThreadsStayWhole() {
        test::FakePlatform platform;
        constexpr int kThreads = 8, kLines = 400;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < kLines; ++i)
                    Log::write(QStringLiteral("fil%1 ligne%2 ").arg(t).arg(i) +
                               QString(300, QChar(u'a' + t)));
            });
        }
        for (auto& th : threads)
            th.join();
        Log::sync();

        const QList<QByteArray> lines = readAll(path_).split('\n');
        QCOMPARE(lines.size(), kThreads * kLines + 1);
        QVERIFY(lines.last().isEmpty());
        const QRegularExpression shape(
            QStringLiteral("^2026-03-14T09:26:53\\.000Z fil(\\d) ligne(\\d+) ([a-h])\\3{299}$"));
        std::vector<int> next(kThreads, 0);
        for (int i = 0; i < kThreads * kLines; ++i) {
            const QRegularExpressionMatch m = shape.match(QString::fromUtf8(lines[i]));
            QVERIFY2(m.hasMatch(), lines[i].left(80).constData());
            const int t = m.captured(1).toInt();
            QCOMPARE(m.captured(3).at(0), QChar(u'a' + t));
            // Each thread's lines keep the order in which it wrote them.
            QCOMPARE(m.captured(2).toInt(), next[size_t(t)]++);
        }
    }
};

QTEST_GUILESS_MAIN(TstLog)
#include "tst_log.moc"
