// Many runs of the real program at once on one data folder: each ends well, no cost is lost.
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/Records.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <memory>
#include <vector>

using namespace ombry;
using namespace ombry::test;

class TstConcurrentRuns : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sixteenRunsAtOnceEndWellAndKeepEveryCost() {
        TestHttpServer server;
        server.on("/api/v1/chat/completions",
                  chatCompletion(R"({"raw": "bonjour", "clean": "Bonjour."})", 0.25).after(1000));
        QTemporaryDir home;
        const QString wav = home.filePath("a.wav");
        {
            QFile f(wav);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(AudioRecorder::wav(QByteArray(32000, '\3')));
        }
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_DATA_HOME", home.filePath("data"));
        env.insert("XDG_CONFIG_HOME", home.filePath("config"));
        env.insert("OMBRY_OPENROUTER_URL", server.url().toString());
        env.insert("OPENROUTER_API_KEY", "sk-or-test");

        constexpr int kRuns = 16;
        std::vector<std::unique_ptr<QProcess>> runs;
        for (int i = 0; i < kRuns; ++i) {
            auto p = std::make_unique<QProcess>();
            p->setProcessEnvironment(env);
            p->start(qEnvironmentVariable("OMBRY_BINARY"), {"--fasttest", wav});
            runs.push_back(std::move(p));
        }
        // The event loop turns meanwhile, so that the server answers them.
        const auto allEnded = [&] {
            return std::all_of(runs.begin(), runs.end(),
                               [](const auto& p) { return p->state() == QProcess::NotRunning; });
        };
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(), 60000);
        for (auto& p : runs) {
            const QString out = QString::fromUtf8(p->readAllStandardOutput());
            QVERIFY2(p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0,
                     qPrintable(QString("status %1, code %2, printed: %3")
                                    .arg(p->exitStatus())
                                    .arg(p->exitCode())
                                    .arg(out)));
            QVERIFY2(out.startsWith("rapide ("), qPrintable(out));
        }
        QFile costs(home.filePath("data/Ombry Voice/costs.json"));
        QVERIFY(costs.open(QIODevice::ReadOnly));
        const auto entries = decodeList<CostEntry>(costs.readAll());
        QVERIFY(entries);
        QCOMPARE(entries->size(), kRuns);
    }
};

QTEST_GUILESS_MAIN(TstConcurrentRuns)
#include "tst_concurrentruns.moc"
