#include "data/KeyStore.h"
#include "data/Problems.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>

using namespace ombry;
using test::readAll;
using test::writeAll;

class TstSettings : public QObject {
    Q_OBJECT
    test::FakePlatform platform;
    QTemporaryDir dir;
    QString file;
    std::unique_ptr<KeyStore> keys; // no key anywhere
    std::unique_ptr<UserDefaults> defaults;

    // The settings read from a defaults file holding `stored`.
    std::unique_ptr<AppSettings> settingsWith(const QJsonObject& stored) {
        QFile::remove(file);
        if (!stored.isEmpty()) writeAll(file, QJsonDocument(stored).toJson());
        defaults = std::make_unique<UserDefaults>(file);
        return std::make_unique<AppSettings>(*defaults, keys.get());
    }

private Q_SLOTS:
    void init() {
        file = dir.filePath(QStringLiteral("defaults.json"));
        qunsetenv("OMBRY_SITE_URL");
        keys = std::make_unique<KeyStore>(dir.filePath(QStringLiteral("keys.json")));
    }

    void readingRules_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<QString>("reads"); // the getter's value, as text
        const auto row = [](const char* name, QString key, QJsonValue stored, QString reads) {
            QTest::newRow(name) << key << stored << reads;
        };
        row("unknown raw text", "language", "zz", "fr");
        row("raw text as number", "language", 2, "fr");
        row("raw text case matters", "language", "EN", "fr");
        row("Dark is not dark", "theme", "Dark", "light");
        row("dark", "theme", "dark", "dark");
        row("scope 0 reads 15", "correctionScope", 0, "15");
        row("scope 16 stays", "correctionScope", 16, "16");
        row("scope as text", "correctionScope", "3", "15");
        row("bool as text", "sounds", "false", "true");
        row("speed not whole", "typingWPM", 65.5, "40");
        row("list with a number", "translateApps", QJsonArray{"a", 1}, "");
        row("microphone not text", "microphoneUID", true, "none");
    }
    void readingRules() {
        QFETCH(QString, key);
        QFETCH(QJsonValue, stored);
        QFETCH(QString, reads);
        const auto s = settingsWith({{key, stored}});
        const QHash<QString, std::function<QString()>> getters{
            {"language", [&] { return rawValue(s->language()); }},
            {"theme", [&] { return rawValue(s->theme()); }},
            {"correctionScope", [&] { return QString::number(s->correctionScope()); }},
            {"sounds", [&] { return QVariant(s->sounds()).toString(); }},
            {"typingWPM", [&] { return QString::number(s->typingWPM()); }},
            {"translateApps", [&] { return s->translateApps().join(u','); }},
            {"microphoneUID", [&] { return s->microphoneUID().value_or(QStringLiteral("none")); }},
        };
        QCOMPARE(getters.value(key)(), reads);
        // A bad stored value stays where it is until the property is next set.
        QCOMPARE(UserDefaults(file).value(key), stored);
    }

    void dictationKeysInLinuxWords() {
        // Right Alt as the layout has it: AltGr on French layouts, a plain Alt on US ones;
        // AltGr when the keyboard cannot tell.
        const auto names = [](std::optional<bool> altGr) {
            QStringList out;
            for (const DictationKey k : allCases<DictationKey>())
                out << label(k, altGr);
            return out.join(", ");
        };
        QCOMPARE(names(true), "Alt Gr, Super droite, Ctrl droite, Menu");
        QCOMPARE(names(std::nullopt), names(true));
        QCOMPARE(names(false), "Alt droite, Super droite, Ctrl droite, Menu");
    }

    void settersWriteAtOnceKeepingTypes() {
        auto s = settingsWith({});
        QVERIFY(!QFile::exists(file)); // reading the defaults writes nothing
        s->setCorrectionScope(0);
        s->setTranslateApps({QStringLiteral("org.mozilla.firefox")});
        s->setRewriteEngine(RewriteEngine::OpenRouter);
        s->setMicrophoneUID(QStringLiteral("alsa_input.usb"));
        QVERIFY(UserDefaults(file).contains("microphoneUID"));
        s->setMicrophoneUID(std::nullopt);
        QCOMPARE(QJsonDocument::fromJson(readAll(file)).object(),
                 (QJsonObject{{"correctionScope", 0},
                              {"translateApps", QJsonArray{"org.mozilla.firefox"}},
                              {"rewriteEngine", "openRouter"}}));
        QCOMPARE(s->correctionScope(), 0); // as set; it reads back as 15 at the next start
        QCOMPARE(AppSettings(*defaults, keys.get()).correctionScope(), 15);
    }

    void transcriptionEngineDefault() {
        const auto engine = [&](const char* site, const char* key, const char* stored = nullptr) {
            qputenv("OMBRY_SITE_URL", site);
            keys->save(QString::fromLatin1(key), APIService::OpenRouter);
            return settingsWith(stored ? QJsonObject{{"transcriptionEngine", stored}}
                                       : QJsonObject())
                ->transcriptionEngine();
        };
        QCOMPARE(engine("", ""), TranscriptionEngine::Local);
        QCOMPARE(engine("", "sk-or-1"), TranscriptionEngine::Gemini);
        QCOMPARE(engine("https://ombry.example", ""), TranscriptionEngine::Gemini);
        QCOMPARE(engine("ftp://ombry.example", ""), TranscriptionEngine::Local);
        QCOMPARE(engine("", "sk-or-1", "deepgram"), TranscriptionEngine::Deepgram);
        QCOMPARE(engine("", "", "whisper"), TranscriptionEngine::Local);
    }

    void localEnginesKeepTheirStoredValues() {
        // Files written before the local engines had their names still mean the same.
        auto s = settingsWith({{"transcriptionEngine", "apple"},
                               {"rewriteEngine", "apple"},
                               {"correctorUsesApple", false}});
        QCOMPARE(s->transcriptionEngine(), TranscriptionEngine::Local);
        QCOMPARE(s->rewriteEngine(), RewriteEngine::Local);
        QVERIFY(!s->correctorUsesLocalModel());
        s->setCorrectorUsesLocalModel(true);
        const QJsonObject stored = QJsonDocument::fromJson(readAll(file)).object();
        QCOMPARE(stored.value("correctorUsesApple"), QJsonValue(true));
        QCOMPARE(stored.value("transcriptionEngine"), QJsonValue("apple"));
    }

    void damagedDefaultsFileIsCopiedAsideAtTheFirstWrite() {
        for (const QByteArray& bytes :
             {QByteArray("{\"language\": \"en\""), QByteArray("[\"language\"]"),
              QByteArray("{\"a\": \"\xe7\"}")}) {
            QFile::remove(file + ".damaged");
            writeAll(file, bytes);
            UserDefaults d(file);
            QVERIFY(d.all().isEmpty());
            AppSettings s(d, keys.get());
            QVERIFY(!QFile::exists(file + ".damaged"));
            s.setTypingWPM(55);
            s.setTypingWPM(60); // the copy is made once
            QCOMPARE(readAll(file + ".damaged"), bytes);
            QCOMPARE(UserDefaults(file).value("typingWPM"), QJsonValue(60));
        }
    }

    // A settings file that is too large, a device or a pipe is neither waited on nor read: the
    // defaults stand, the journal says so, and the file is left as it is (no copy of it).
    void specialOrLargeDefaultsFileIsLeftAlone() {
        QStringList problems;
        DataProblems::setReporter([&problems](const QString& line) { problems << line; });
        const auto quiet = qScopeGuard([] { DataProblems::setReporter({}); });
        const std::function<bool()> makers[] = {
            [&] { return QFile(file).open(QIODevice::WriteOnly) && QFile(file).resize(2 << 20); },
            [&] { return QFile::link(QStringLiteral("/dev/zero"), file); },
            [&] { return mkfifo(QFile::encodeName(file).constData(), 0600) == 0; },
        };
        for (const auto& make : makers) {
            QFile::remove(file);
            QFile::remove(file + ".damaged");
            QVERIFY(make());
            const QFileInfo before(file);
            UserDefaults d(file);
            QVERIFY(d.all().isEmpty());
            AppSettings(d, keys.get()).setTypingWPM(55);
            QVERIFY(!QFile::exists(file + ".damaged"));
            QCOMPARE(QFileInfo(file).lastModified(), before.lastModified());
            QVERIFY(problems.takeFirst().contains(QStringLiteral("réglages par défaut")));
        }
        QFile::remove(file);
    }
};

QTEST_GUILESS_MAIN(TstSettings)
#include "tst_settings.moc"
