// The support journal: line format, the size rule at a run's first write, and whole lines
// from many threads.
#include "FakePlatform.h"
#include "desktop/Log.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <thread>
#include <vector>

using namespace ombry;

class TstLog : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString path_;
    int runs_ = 0;
    std::unique_ptr<test::FakePlatform> platform_; // its clock stands at 2026-03-14T09:26:53.000Z

    QByteArray journal() {
        Log::sync();
        QFile f(path_);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    // A file of an earlier run, its folder made.
    static bool earlier(const QString& path, const QByteArray& content) {
        QFile f(path);
        return QDir().mkpath(QFileInfo(path).absolutePath()) && f.open(QIODevice::WriteOnly) &&
               f.write(content) == content.size();
    }

private Q_SLOTS:
    void init() {
        // Each test opens, as a new run would, a journal whose folder does not exist yet.
        platform_ = std::make_unique<test::FakePlatform>();
        path_ = dir_.filePath(QStringLiteral("%1/journal.log").arg(++runs_));
        Log::resetForTests(path_);
    }
    void cleanup() { platform_.reset(); }
    void cleanupTestCase() { Log::resetForTests(); }

    void lineFormat() {
        platform_->clock().advance(123);
        Log::write(QStringLiteral("audio: début"));
        platform_->clock().advance(1000); // the stamp is the moment of the call
        Log::write(QStringLiteral("deux\nlignes"));
        QCOMPARE(journal(), QByteArray("2026-03-14T09:26:53.123Z audio: d\xc3\xa9"
                                       "but\n2026-03-14T09:26:54.123Z deux\nlignes\n"));
    }

    void sizeRuleAtFirstWrite_data() {
        QTest::addColumn<int>("existing");
        QTest::addColumn<bool>("kept");
        QTest::newRow("2,000,000 bytes kept") << 2'000'000 << true;
        QTest::newRow("2,000,001 bytes deleted") << 2'000'001 << false;
    }
    void sizeRuleAtFirstWrite() {
        QFETCH(int, existing);
        QFETCH(bool, kept);
        QVERIFY(earlier(path_, QByteArray(existing, 'x')));
        Log::write(QStringLiteral("premier"));
        const QByteArray line = "2026-03-14T09:26:53.000Z premier\n";
        QCOMPARE(journal(), (kept ? QByteArray(existing, 'x') : QByteArray()) + line);

        // Growing past the limit within the run deletes nothing; the next run drops it.
        Log::write(QString(2'100'000, QLatin1Char('y')));
        QVERIFY(journal().startsWith(kept ? "xxx" : "2026"));
        Log::resetForTests(path_);
        Log::write(QStringLiteral("nouveau"));
        QCOMPARE(journal(), QByteArray("2026-03-14T09:26:53.000Z nouveau\n"));
    }

    void firstLineMovesTheFormerDataFolderFirst() {
        const QString home = dir_.filePath(QStringLiteral("xdg"));
        qputenv("XDG_DATA_HOME", home.toUtf8());
        QVERIFY(earlier(home + QStringLiteral("/Talvo/talvo.log"), "ancien\n"));
        Log::resetForTests(); // the default place, as in a real run
        Log::write(QStringLiteral("premier"));
        path_ = home + QStringLiteral("/Ombry Voice/journal.log");
        QCOMPARE(journal(), QByteArray("ancien\n2026-03-14T09:26:53.000Z premier\n"));
        QVERIFY(!QFile::exists(home + QStringLiteral("/Talvo")));
        qunsetenv("XDG_DATA_HOME");
    }

    void linesFromManyThreadsStayWhole() {
        constexpr int kThreads = 8, kLines = 400;
        const auto line = [](int t, int i) {
            return QStringLiteral("fil%1 ligne%2 ").arg(t).arg(i) + QString(300, QChar(u'a' + t));
        };
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([t, line] {
                for (int i = 0; i < kLines; ++i)
                    Log::write(line(t, i));
            });
        for (auto& th : threads)
            th.join();

        const QList<QByteArray> lines = journal().split('\n');
        QCOMPARE(lines.size(), kThreads * kLines + 1);
        std::vector<int> next(kThreads, 0); // each thread's lines come in its own order
        for (int i = 0; i < kThreads * kLines; ++i) {
            const int t = qBound(0, lines[i].size() > 28 ? lines[i].at(28) - '0' : 0, kThreads - 1);
            QCOMPARE(QString::fromUtf8(lines[i]),
                     QStringLiteral("2026-03-14T09:26:53.000Z ") + line(t, next[size_t(t)]++));
        }
    }
};

QTEST_GUILESS_MAIN(TstLog)
#include "tst_log.moc"
