// The data folder on disk: who may read it, what happens to files that do not decode or cannot
// be read, and two stores of two runs writing the same folder.
#include "data/KeyStore.h"
#include "data/Problems.h"
#include "data/Store.h"
#include "platform/Paths.h"
#include "platform/SerialQueue.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace ombry;
using test::readAll;
using test::writeAll;

namespace {

unsigned modeOf(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) return 0;
    return st.st_mode & 0777;
}

} // namespace

class TstDataFiles : public QObject {
    Q_OBJECT
    test::FakePlatform platform;
    std::unique_ptr<QTemporaryDir> dir;
    QString folder;
    QStringList reported;

    QString path(const QString& name) const { return folder + QLatin1Char('/') + name; }
    void settle(Store& store) {
        platform.clock().advance(Store::kSaveDelayMs);
        store.ioQueue().sync([] {});
    }

private Q_SLOTS:
    void init() {
        dir = std::make_unique<QTemporaryDir>();
        folder = dir->filePath(QStringLiteral("Ombry Voice"));
        reported.clear();
        DataProblems::setReporter([this](const QString& line) { reported << line; });
        qunsetenv("OPENROUTER_API_KEY");
        qunsetenv("DEEPGRAM_API_KEY");
        platform.keychain().items.clear();
    }
    void cleanup() { DataProblems::setReporter(nullptr); }

    void onlyTheUserMayReadTheData() {
        // Whatever the umask, a file is never readable by others, not even while it is written.
        const mode_t former = ::umask(0);
        QDir().mkpath(folder);
        QVERIFY(Paths::writeFileAtomically(path("a.json"), "[]"));
        QCOMPARE(modeOf(path("a.json")), 0600u);
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden).size(), 1); // no temporary

        // A keys.json left 0644 by someone else is narrowed as soon as it is read.
        writeAll(path("keys.json"), R"({"openRouter":"sk-or"})");
        QFile::setPermissions(path("keys.json"), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                     QFileDevice::ReadGroup |
                                                     QFileDevice::ReadOther);
        KeyStore keys(path("keys.json"));
        QCOMPARE(modeOf(path("keys.json")), 0600u);

        {
            Store store(folder);
            store.addCost(0.5);
            store.flush();
        }
        ::umask(former);
        QCOMPARE(modeOf(folder), 0700u);
        QCOMPARE(modeOf(path("costs.json")), 0600u);
        QCOMPARE(modeOf(path("history.json")), 0600u);
    }

    void keysAreTrimmedAndControlCharactersRefused() {
        writeAll(path("keys.json"),
                 R"({"openRouter":"sk-or\r\nX-Injected: yes","deepgram":" dg-file \n"})");
        qputenv("OPENROUTER_API_KEY", "sk-env\n");
        KeyStore keys(path("keys.json"));
        QCOMPARE(keys.key(APIService::Deepgram), std::optional<QString>("dg-file"));
        // The refused key of the file gives way to the next source, and the journal says why.
        QCOMPARE(keys.key(APIService::OpenRouter), std::optional<QString>("sk-env"));
        QCOMPARE(reported.size(), 1);
        QVERIFY(reported.first().contains("caractère de contrôle"));
        QVERIFY(!keys.save(QStringLiteral("sk\nX-Injected: yes"), APIService::OpenRouter));
        QVERIFY(!KeyStore::problem(QStringLiteral("a\u2028b")).isEmpty());
        QCOMPARE(keys.key(APIService::OpenRouter), std::optional<QString>("sk-env"));
    }

    void aFileThatCannotBeReadIsNeverReplaced() {
        // A link that loops cannot be opened, even by root; a file without read permission
        // neither, for anyone else.
        QDir().mkpath(folder);
        QVERIFY(QFile::link(path("history.json"), path("history.json")));
        writeAll(path("costs.json"), R"([{"date":"2026-03-14T09:26:53Z","amount":1}])");
        QFile::setPermissions(path("costs.json"), QFileDevice::Permissions());
        const bool permissionsBind = ::geteuid() != 0;
        {
            Store store(folder);
            store.add({.appName = "Firefox", .finalText = "un mot", .duration = 1});
            store.addCost(2);
            store.flush();
            settle(store);
        }
        QVERIFY(QFileInfo(path("history.json")).isSymLink());
        QVERIFY(std::any_of(reported.begin(), reported.end(), [](const QString& line) {
            return line.contains("history.json") && line.contains("laissé tel quel");
        }));
        if (permissionsBind) {
            QFile::setPermissions(path("costs.json"),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner);
            QCOMPARE(readAll(path("costs.json")),
                     QByteArray(R"([{"date":"2026-03-14T09:26:53Z","amount":1}])"));
        }
        QFile::remove(path("history.json"));
    }

    void twoRunsOnOneFolderKeepEachOthersEntries() {
        Store first(folder);
        Store second(folder);
        settle(first);
        settle(second);
        first.addCost(1);
        first.add({.appName = "A", .finalText = "premier", .duration = 1});
        settle(first);
        // The second run never saw the first one's entries: its writes merge them in.
        second.addCost(2);
        second.add({.appName = "B", .finalText = "second", .duration = 1});
        second.setWords({QStringLiteral("Ombry")});
        settle(second);
        const auto amounts = [&] {
            QList<double> out;
            for (const CostEntry& c :
                 decodeList<CostEntry>(readAll(path("costs.json"))).value_or(QList<CostEntry>()))
                out << c.amount;
            return out;
        };
        const auto texts = [&] {
            QStringList out;
            for (const Dictation& d :
                 decodeList<Dictation>(readAll(path("history.json"))).value_or(QList<Dictation>()))
                out << d.finalText;
            return out;
        };
        QCOMPARE(amounts(), (QList<double>{1, 2}));
        QCOMPARE(texts(), (QStringList{"second", "premier"}));

        // What a run removes goes; what the other added meanwhile stays.
        first.setWords({QStringLiteral("Léa")});
        first.setCosts({});
        settle(first);
        QCOMPARE(*decodeWords(readAll(path("words.json"))), (QStringList{"Ombry", "Léa"}));
        QCOMPARE(amounts(), (QList<double>{2}));

        // A record this run made (its date in memory finer than the file's second) and another
        // run changed stays one record, as the other left it.
        platform.clock().advance(250);
        first.add({.appName = "A", .finalText = "troisième", .duration = 1});
        settle(first);
        {
            Store third(folder);
            QList<Dictation> changed = third.dictations();
            changed.first().finalText = QStringLiteral("troisième, revue");
            third.setDictations(changed);
            settle(third);
        }
        first.add({.appName = "A", .finalText = "quatrième", .duration = 1});
        settle(first);
        QCOMPARE(texts(), (QStringList{"quatrième", "troisième, revue", "second", "premier"}));
    }
};

QTEST_GUILESS_MAIN(TstDataFiles)
#include "tst_datafiles.moc"
