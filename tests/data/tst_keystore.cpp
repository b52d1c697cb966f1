#include "data/IdentityMigration.h"
#include "data/KeyStore.h"
#include "data/UserDefaults.h"
#include "platform/linux/LinuxPlatform.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
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
        platform.keychain().items.insert({QString::fromLatin1(KeyStore::keychainService), account},
                                         secret);
    }

private Q_SLOTS:
    void init() {
        dir = std::make_unique<QTemporaryDir>();
        keysFile = dir->filePath(QStringLiteral("keys.json"));
        platform.keychain().items.clear();
        qunsetenv("DEEPGRAM_API_KEY");
        qunsetenv("OPENROUTER_API_KEY");
    }

    void sourcesInOrder() {
        // The Deepgram key found, and whether keys.json was rewritten (it is written with spaces).
        const auto load = [&](const QByteArray& file, const char* keychain, const char* env) {
            platform.keychain().items.clear();
            if (*keychain) keychainHas(QStringLiteral("deepgram"), QString::fromLatin1(keychain));
            qputenv("DEEPGRAM_API_KEY", env);
            writeAll(keysFile, file);
            const KeyStore store(keysFile);
            return std::pair(store.key(APIService::Deepgram).value_or(""),
                             readAll(keysFile) != file);
        };
        QCOMPARE(load(R"({ "deepgram" : "f" })", "k", "e"), std::pair(QString("f"), false));
        QCOMPARE(load(R"({ "deepgram" : "" })", "k", "e"), std::pair(QString("k"), true));
        QCOMPARE(load("pas du JSON", "k", ""), std::pair(QString("k"), true));
        QCOMPARE(load(R"({ "deepgram" : "f", "n" : 5 })", "k", ""), std::pair(QString("k"), true));
        QCOMPARE(load(R"({ "deepgram" : "" })", "", "e"), std::pair(QString("e"), false));
        QCOMPARE(load("", "", ""), std::pair(QString(), false));
    }

    void keychainKeyBringsEveryKnownKeyIntoTheFile() {
        keychainHas(QStringLiteral("deepgram"), QStringLiteral("dg-from-keychain"));
        keychainHas(QStringLiteral("elsewhere"), QStringLiteral("ignored"));
        qputenv("OPENROUTER_API_KEY", "sk-or-from-env");
        const KeyStore store(keysFile);
        QCOMPARE(readObject(keysFile),
                 (QJsonObject{{"deepgram", "dg-from-keychain"}, {"openRouter", "sk-or-from-env"}}));
    }

    void saveTrimsRemovesAndMakesTheFolder() {
        const QString nested = dir->filePath(QStringLiteral("Ombry Voice/keys.json"));
        KeyStore store(nested);
        store.save(QStringLiteral("dg"), APIService::Deepgram);
        store.save(QStringLiteral(" \n sk-or-new\r\n\t"), APIService::OpenRouter);
        store.save(QStringLiteral("   "), APIService::Deepgram);
        QVERIFY(!store.key(APIService::Deepgram));
        QCOMPARE(readObject(nested), (QJsonObject{{"openRouter", "sk-or-new"}}));
    }

    void secretServiceWithoutABusAnswersNothing() {
        const QByteArray saved = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        QVERIFY(!linux_platform::makeKeychain()->genericPassword(
            QString::fromLatin1(KeyStore::keychainService), QStringLiteral("deepgram")));
        qputenv("DBUS_SESSION_BUS_ADDRESS", saved);
    }

    void dataFolderMovesOnlyWhenThePresentOneIsMissing() {
        const QString oldFolder = dir->filePath(QStringLiteral("Talvo"));
        const QString newFolder = dir->filePath(QStringLiteral("Ombry Voice"));
        writeAll(oldFolder + "/talvo.log", "old journal");
        IdentityMigration::moveDataFolder(newFolder);
        QVERIFY(!QFile::exists(oldFolder));
        QCOMPARE(readAll(newFolder + "/journal.log"), QByteArray("old journal"));

        writeAll(oldFolder + "/talvo.log", "other journal");
        IdentityMigration::moveDataFolder(newFolder);
        QCOMPARE(readAll(oldFolder + "/talvo.log"), QByteArray("other journal"));
        QCOMPARE(readAll(newFolder + "/journal.log"), QByteArray("old journal"));
    }

    void runCarriesTheFormerDefaultsOnce() {
        const QString former = dir->filePath(QStringLiteral("talvo.json"));
        const QString present = dir->filePath(QStringLiteral("ombryvoice.json"));
        const QString cache = dir->filePath(QStringLiteral("cache"));
        writeAll(former, R"({"language":"en","typingWPM":70})");
        writeAll(present, R"({"language":"de","loginItemSetOmbry":true})");
        writeAll(cache + "/com.quennard.talvo/fsCachedData/x", "x");
        UserDefaults defaults(present);
        IdentityMigration::run(defaults, former, cache);
        QCOMPARE(readObject(present),
                 (QJsonObject{{"language", "de"}, {"typingWPM", 70}, {"identityMigrated", true}}));
        QVERIFY(!QFile::exists(former));
        QVERIFY(!QFile::exists(cache + "/com.quennard.talvo"));

        // Once migrated, a former domain that shows up again is left alone, but the former
        // identity's caches go at every launch.
        writeAll(former, R"({"sounds":false})");
        writeAll(cache + "/com.quennard.talvo/x", "x");
        IdentityMigration::run(defaults, former, cache);
        QVERIFY(QFile::exists(former) && !defaults.contains("sounds"));
        QVERIFY(!QFile::exists(cache + "/com.quennard.talvo"));

        // Unreadable former settings are set aside, not destroyed.
        writeAll(former, "{\"language\":");
        UserDefaults fresh(dir->filePath(QStringLiteral("fresh.json")));
        IdentityMigration::run(fresh, former, cache);
        QCOMPARE(readAll(former + ".damaged"), QByteArray("{\"language\":"));
        QVERIFY(!QFile::exists(former));
        QCOMPARE(fresh.all(), (QJsonObject{{"identityMigrated", true}}));
    }
};

QTEST_GUILESS_MAIN(TstKeyStore)
#include "tst_keystore.moc"
