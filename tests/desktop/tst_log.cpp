// The support journal: line format, the once-per-run size rule, and whole lines from many
// threads.
#include "FakePlatform.h"
#include "desktop/Log.h"

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
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(data);
}

void writeAndWait(const QString& message) {
    Log::write(message);
    Log::sync();
}

} // namespace

class TstLog : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString path_;
    // The clock stands at 2026-03-14T09:26:53.000Z.
    std::unique_ptr<test::FakePlatform> platform_;

private Q_SLOTS:
    void init() {
        // A journal in a folder that does not exist yet, opened afresh as by a new run.
        platform_ = std::make_unique<test::FakePlatform>();
        path_ = dir_.filePath(QStringLiteral("%1%2/journal.log")
                                  .arg(QLatin1String(QTest::currentTestFunction()),
                                       QLatin1String(QTest::currentDataTag())));
        Log::resetForTests(path_);
    }
    void cleanup() { platform_.reset(); }
    void cleanupTestCase() { Log::resetForTests(); }

    void lineFormat() {
        platform_->clock().advance(123);
        Log::write(QStringLiteral("audio: début"));
        platform_->clock().advance(1000); // the stamp is the moment of the call
        writeAndWait(QStringLiteral("deux\nlignes"));
        QCOMPARE(readAll(path_), QByteArray("2026-03-14T09:26:53.123Z audio: d\xc3\xa9"
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
        writeBytes(path_, QByteArray(existing, 'x'));
        writeAndWait(QStringLiteral("premier"));
        const QByteArray line = "2026-03-14T09:26:53.000Z premier\n";
        QCOMPARE(readAll(path_), (kept ? QByteArray(existing, 'x') : QByteArray()) + line);

        // Growing past the limit within the run deletes nothing; the next run drops it.
        writeAndWait(QString(2'100'000, QLatin1Char('y')));
        QVERIFY(readAll(path_).startsWith(kept ? "xxx" : "2026"));
        Log::resetForTests(path_);
        writeAndWait(QStringLiteral("nouveau"));
        QCOMPARE(readAll(path_), QByteArray("2026-03-14T09:26:53.000Z nouveau\n"));
    }

    void unopenableJournalDropsLinesForTheRun() {
        // The journal's folder cannot be made: a plain file stands in its way.
        const QString blocker = dir_.filePath(QStringLiteral("blocker"));
        writeBytes(blocker, "file");
        Log::resetForTests(blocker + QStringLiteral("/journal.log"));
        writeAndWait(QStringLiteral("perdu"));
        // Even once the way is clear, this run does not try again.
        QVERIFY(QFile::remove(blocker) && QDir().mkpath(blocker));
        writeAndWait(QStringLiteral("perdu aussi"));
        QVERIFY(!QFile::exists(blocker + QStringLiteral("/journal.log")));
    }

    void linesFromManyThreadsStayWhole() {
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
        const QRegularExpression shape(
            QStringLiteral("^\\S+Z fil(\\d) ligne(\\d+) ([a-h])\\3{299}$"));
        std::vector<int> next(kThreads, 0);
        for (int i = 0; i < kThreads * kLines; ++i) {
            const QRegularExpressionMatch m = shape.match(QString::fromUtf8(lines[i]));
            QVERIFY2(m.hasMatch(), lines[i].left(80).constData());
            const int t = m.captured(1).toInt();
            QCOMPARE(m.captured(3).at(0), QChar(u'a' + t));
            QCOMPARE(m.captured(2).toInt(), next[size_t(t)]++); // each thread's own order
        }
    }
};

QTEST_GUILESS_MAIN(TstLog)
#include "tst_log.moc"
