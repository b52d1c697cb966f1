#include "data/IdentityMigration.h"
#include "data/KeyStore.h"
#include "data/UserDefaults.h"
#include "platform/linux/LinuxPlatform.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using test::readAll;
using test::writeAll;

namespace {

QJsonObject readObject(const QString& path) {
    return QJsonDocument::fromJson(readAll(path)).object();
}

} // namespace

class TstKeyStore : public QObject {
    Q_OBJECT
    test::FakePlatform platform;
    std::unique_ptr<QTemporaryDir> dir;
    QString keysFile;

    void keychainHas(const QString& account, const QString& secret) {
        platform.keychain().items.insert({QStringLiteral("com.quennard.talvo"), account}, secret);
    }

private Q_SLOTS:
    void init() {
        dir = std::make_unique<QTemporaryDir>();
        keysFile = dir->filePath(QStringLiteral("keys.json"));
        platform.keychain().items.clear();
        qunsetenv("DEEPGRAM_API_KEY");
        qunsetenv("OPENROUTER_API_KEY");
    }

    void sourcesInOrder_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("keychain");
        QTest::addColumn<QString>("environment");
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("rewritten");
        QTest::newRow("file beats the others") << "f"
                                               << "k"
                                               << "e"
                                               << "f" << false;
        QTest::newRow("keychain beats environment") << ""
                                                    << "k"
                                                    << "e"
                                                    << "k" << true;
        QTest::newRow("environment last") << ""
                                          << ""
                                          << "e"
                                          << "e" << false;
        QTest::newRow("nowhere") << ""
                                 << ""
                                 << ""
                                 << "" << false;
    }
    void sourcesInOrder() {
        QFETCH(QString, file);
        QFETCH(QString, keychain);
        QFETCH(QString, environment);
        QFETCH(QString, key);
        QFETCH(bool, rewritten);
        // The file is written by hand, with spaces, so that a rewrite shows.
        const QByteArray original = QStringLiteral("{ \"deepgram\" : \"%1\" }").arg(file).toUtf8();
        writeAll(keysFile, original);
        if (!keychain.isEmpty()) keychainHas(QStringLiteral("deepgram"), keychain);
        qputenv("DEEPGRAM_API_KEY", environment.toUtf8());

        const KeyStore store(keysFile);
        QCOMPARE(store.key(APIService::Deepgram).value_or(QString()), key);
        QVERIFY(!store.key(APIService::OpenRouter));
        QCOMPARE(readAll(keysFile) != original, rewritten);
    }

    void keychainKeyBringsEveryKnownKeyIntoTheFile() {
        keychainHas(QStringLiteral("deepgram"), QStringLiteral("dg-from-keychain"));
        keychainHas(QStringLiteral("elsewhere"), QStringLiteral("ignored"));
        qputenv("OPENROUTER_API_KEY", "sk-or-from-env");
        const KeyStore store(keysFile);
        const QJsonObject written = readObject(keysFile);
        QCOMPARE(written.value("deepgram").toString(), QStringLiteral("dg-from-keychain"));
        QCOMPARE(written.value("openRouter").toString(), QStringLiteral("sk-or-from-env"));
        QCOMPARE(written.size(), 2);
        QCOMPARE(QFile::permissions(keysFile), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                   QFileDevice::ReadUser | QFileDevice::WriteUser);
    }

    void emptyFileEntryFallsToTheEnvironmentAndLeavesTheFile() {
        const QByteArray original("{\"openRouter\":\"\",\"deepgram\":\"dg\"}");
        writeAll(keysFile, original);
        qputenv("OPENROUTER_API_KEY", "sk-or-env");
        const KeyStore store(keysFile);
        QCOMPARE(store.key(APIService::OpenRouter), std::optional(QStringLiteral("sk-or-env")));
        QCOMPARE(store.key(APIService::Deepgram), std::optional(QStringLiteral("dg")));
        QCOMPARE(readAll(keysFile), original);
    }

    void unreadableFileCountsAsEmpty() {
        writeAll(keysFile, "pas du JSON");
        keychainHas(QStringLiteral("openRouter"), QStringLiteral("sk-or-kc"));
        const KeyStore store(keysFile);
        QCOMPARE(store.key(APIService::OpenRouter), std::optional(QStringLiteral("sk-or-kc")));
    }

    void saveTrimsAndRemoves() {
        writeAll(keysFile, "{\"deepgram\":\"dg\",\"openRouter\":\"or\"}");
        KeyStore store(keysFile);
        QSignalSpy changed(&store, &KeyStore::keysChanged);
        store.save(QStringLiteral(" \n sk-or-new\r\n\t"), APIService::OpenRouter);
        QCOMPARE(store.key(APIService::OpenRouter), std::optional(QStringLiteral("sk-or-new")));
        QCOMPARE(readObject(keysFile).value("openRouter").toString(), QStringLiteral("sk-or-new"));
        store.save(QStringLiteral("   "), APIService::Deepgram);
        QVERIFY(!store.key(APIService::Deepgram));
        QVERIFY(!readObject(keysFile).contains("deepgram"));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(QFile::permissions(keysFile) & (QFileDevice::ReadOther | QFileDevice::ReadGroup),
                 QFileDevice::Permissions());
    }

    void saveMakesTheFolder() {
        const QString nested = dir->filePath(QStringLiteral("Ombry Voice/keys.json"));
        KeyStore store(nested);
        store.save(QStringLiteral("dg"), APIService::Deepgram);
        QCOMPARE(readObject(nested).value("deepgram").toString(), QStringLiteral("dg"));
    }

    void secretServiceWithoutABusAnswersNothing() {
        const QByteArray saved = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        auto keychain = linux_platform::makeKeychain();
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        QVERIFY(!keychain->genericPassword(QStringLiteral("com.quennard.talvo"),
                                           QStringLiteral("deepgram")));
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        QVERIFY(!keychain->genericPassword(QStringLiteral("com.quennard.talvo"),
                                           QStringLiteral("deepgram")));
        if (saved.isNull())
            qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        else
            qputenv("DBUS_SESSION_BUS_ADDRESS", saved);
    }

    // Identity migration -------------------------------------------------------------------

    void dataFolderMoves_data() {
        QTest::addColumn<bool>("oldExists");
        QTest::addColumn<bool>("newExists");
        QTest::newRow("only the former") << true << false;
        QTest::newRow("both") << true << true;
        QTest::newRow("only the present") << false << true;
        QTest::newRow("neither") << false << false;
    }
    void dataFolderMoves() {
        QFETCH(bool, oldExists);
        QFETCH(bool, newExists);
        const QString oldFolder = dir->filePath(QStringLiteral("Talvo"));
        const QString newFolder = dir->filePath(QStringLiteral("Ombry Voice"));
        if (oldExists) {
            writeAll(oldFolder + "/history.json", "[]");
            writeAll(oldFolder + "/talvo.log", "old journal");
        }
        if (newExists) writeAll(newFolder + "/words.json", "[]");

        IdentityMigration::moveDataFolder(newFolder);

        const bool moved = oldExists && !newExists;
        QCOMPARE(QFile::exists(oldFolder), oldExists && !moved);
        QCOMPARE(QFile::exists(newFolder + "/history.json"), moved);
        QCOMPARE(readAll(newFolder + "/journal.log"),
                 moved ? QByteArray("old journal") : QByteArray());
        QVERIFY(!QFile::exists(newFolder + "/talvo.log"));
        if (oldExists && newExists) QVERIFY(QFile::exists(oldFolder + "/talvo.log"));
        QCOMPARE(QFile::exists(newFolder), moved || newExists);
    }

    void runCarriesTheFormerDefaultsOnce() {
        const QString former = dir->filePath(QStringLiteral("com.quennard.talvo.json"));
        const QString present = dir->filePath(QStringLiteral("com.quennard.ombryvoice.json"));
        const QString cache = dir->filePath(QStringLiteral("cache"));
        writeAll(former, R"({"language":"en","typingWPM":70,"onboarded":true})");
        writeAll(present, R"({"language":"de","loginItemSetOmbry":true})");
        writeAll(cache + "/com.quennard.talvo/fsCachedData/x", "x");

        UserDefaults defaults(present);
        IdentityMigration::run(defaults, former, cache);

        const QJsonObject after = readObject(present);
        QCOMPARE(after.value("language"), QJsonValue("de")); // kept
        QCOMPARE(after.value("typingWPM"), QJsonValue(70));  // carried, type kept
        QCOMPARE(after.value("onboarded"), QJsonValue(true));
        QVERIFY(!after.contains("loginItemSetOmbry"));
        QCOMPARE(after.value("identityMigrated"), QJsonValue(true));
        QVERIFY(!QFile::exists(former));
        QVERIFY(!QFile::exists(cache + "/com.quennard.talvo"));

        // Once migrated, a former domain that shows up again is left alone, but the caches of
        // the former identity go at every launch.
        writeAll(former, R"({"sounds":false})");
        writeAll(cache + "/com.quennard.talvo/x", "x");
        defaults.setValue("loginItemSetOmbry", true);
        IdentityMigration::run(defaults, former, cache);
        QVERIFY(QFile::exists(former));
        QVERIFY(!defaults.contains("sounds"));
        QCOMPARE(defaults.value("loginItemSetOmbry"), QJsonValue(true));
        QVERIFY(!QFile::exists(cache + "/com.quennard.talvo"));
    }

    void runWithoutFormerDomainStillMarksTheMove() {
        const QString present = dir->filePath(QStringLiteral("present.json"));
        UserDefaults defaults(present);
        IdentityMigration::run(defaults, dir->filePath(QStringLiteral("none.json")),
                               dir->filePath(QStringLiteral("cache")));
        QCOMPARE(UserDefaults(present).value("identityMigrated"), QJsonValue(true));
    }

    void damagedFormerDefaultsAreSetAside() {
        const QString former = dir->filePath(QStringLiteral("former.json"));
        writeAll(former, "{\"language\":");
        UserDefaults defaults(dir->filePath(QStringLiteral("present.json")));
        IdentityMigration::run(defaults, former, dir->filePath(QStringLiteral("cache")));
        QVERIFY(!QFile::exists(former));
        QCOMPARE(readAll(former + ".damaged"), QByteArray("{\"language\":"));
        QVERIFY(!defaults.contains("language"));
    }
};

QTEST_GUILESS_MAIN(TstKeyStore)
#include "tst_keystore.moc"
