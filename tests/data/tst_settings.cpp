#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QFile>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPalette>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using test::readAll;
using test::writeAll;

class TstSettings : public QObject {
    Q_OBJECT
    test::FakePlatform platform;
    QTemporaryDir dir;
    QString file;
    std::unique_ptr<KeyStore> keys; // no key anywhere

    // The settings read from a defaults file holding `stored`.
    std::unique_ptr<AppSettings> settingsWith(const QJsonObject& stored) {
        QFile::remove(file);
        if (!stored.isEmpty()) writeAll(file, QJsonDocument(stored).toJson());
        defaults = std::make_unique<UserDefaults>(file);
        return std::make_unique<AppSettings>(*defaults, keys.get());
    }
    std::unique_ptr<UserDefaults> defaults;

private Q_SLOTS:
    void init() {
        file = dir.filePath(QStringLiteral("defaults.json"));
        qunsetenv("OMBRY_SITE_URL");
        keys = std::make_unique<KeyStore>(dir.filePath(QStringLiteral("keys.json")));
    }

    void emptyDomainGivesTheDefaultsAndWritesNothing() {
        const auto s = settingsWith({});
        QCOMPARE(s->key(), DictationKey::RightOption);
        QCOMPARE(s->language(), Language::Fr);
        QVERIFY(s->sounds() && s->restoreClipboard() && s->correctionShortcut());
        QCOMPARE(s->theme(), Theme::Light);
        QCOMPARE(s->correctionKeyCode(), 8);
        QCOMPARE(s->correctionModifiers(), quint64(786432));
        QCOMPARE(s->correctionLabel(), QStringLiteral("Ctrl+Alt+C"));
        QVERIFY(s->correctionDoubleCopy() && s->correctorUsesApple());
        QCOMPARE(s->translateTarget(), QStringLiteral("anglais"));
        QVERIFY(s->translateApps().isEmpty());
        QVERIFY(s->voiceCommands() && s->adaptTone());
        QVERIFY(!s->livePreview() && !s->ownKeyMode());
        QVERIFY(!s->microphoneUID());
        QCOMPARE(s->performanceMode(), PerformanceMode::Auto);
        QVERIFY(s->useLanguageTool());
        QCOMPARE(s->punctuation(), PunctuationLevel::Light);
        QCOMPARE(s->correctionScope(), 15);
        QCOMPARE(s->typingWPM(), 40);
        QCOMPARE(s->rewriteEngine(), RewriteEngine::Apple);
        QCOMPARE(s->deepgramModel(), QStringLiteral("nova-3"));
        QCOMPARE(s->openRouterModel(), QStringLiteral("mistralai/mistral-small-3.2-24b-instruct"));
        QVERIFY(!QFile::exists(file));
    }

    void readingRules_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<QString>("reads"); // the getter's value, as text
        QTest::newRow("unknown language") << "language" << QJsonValue("zz") << "fr";
        QTest::newRow("known language") << "language" << QJsonValue("de") << "de";
        QTest::newRow("unknown key") << "key" << QJsonValue("zz") << "rightOption";
        QTest::newRow("key as number") << "key" << QJsonValue(2) << "rightOption";
        QTest::newRow("Dark is not dark") << "theme" << QJsonValue("Dark") << "light";
        QTest::newRow("dark") << "theme" << QJsonValue("dark") << "dark";
        QTest::newRow("scope 0 reads 15") << "correctionScope" << QJsonValue(0) << "15";
        QTest::newRow("style only stays") << "correctionScope" << QJsonValue(16) << "16";
        QTest::newRow("scope as text") << "correctionScope" << QJsonValue("3") << "15";
        QTest::newRow("bool as text") << "sounds" << QJsonValue("false") << "true";
        QTest::newRow("bool as number") << "livePreview" << QJsonValue(1) << "false";
        QTest::newRow("stored false") << "sounds" << QJsonValue(false) << "false";
        QTest::newRow("typing speed") << "typingWPM" << QJsonValue(65) << "65";
        QTest::newRow("typing speed not whole") << "typingWPM" << QJsonValue(65.5) << "40";
        QTest::newRow("punctuation full") << "punctuation" << QJsonValue("full") << "full";
        QTest::newRow("rewrite case matters")
            << "rewriteEngine" << QJsonValue("OpenRouter") << "apple";
        QTest::newRow("model as number") << "deepgramModel" << QJsonValue(3) << "nova-3";
        QTest::newRow("apps with a number")
            << "translateApps" << QJsonValue(QJsonArray{"a", 1}) << "";
        QTest::newRow("apps") << "translateApps" << QJsonValue(QJsonArray{"a", "b"}) << "a,b";
        QTest::newRow("microphone")
            << "microphoneUID" << QJsonValue("alsa_input.usb") << "alsa_input.usb";
        QTest::newRow("microphone not text") << "microphoneUID" << QJsonValue(true) << "none";
        QTest::newRow("modifiers") << "correctionModifiers" << QJsonValue(1179648) << "1179648";
    }
    void readingRules() {
        QFETCH(QString, key);
        QFETCH(QJsonValue, stored);
        QFETCH(QString, reads);
        const auto s = settingsWith({{key, stored}});
        const QHash<QString, std::function<QString()>> getters{
            {"language", [&] { return rawValue(s->language()); }},
            {"key", [&] { return rawValue(s->key()); }},
            {"theme", [&] { return rawValue(s->theme()); }},
            {"correctionScope", [&] { return QString::number(s->correctionScope()); }},
            {"sounds", [&] { return QVariant(s->sounds()).toString(); }},
            {"livePreview", [&] { return QVariant(s->livePreview()).toString(); }},
            {"typingWPM", [&] { return QString::number(s->typingWPM()); }},
            {"punctuation", [&] { return rawValue(s->punctuation()); }},
            {"rewriteEngine", [&] { return rawValue(s->rewriteEngine()); }},
            {"deepgramModel", [&] { return s->deepgramModel(); }},
            {"translateApps", [&] { return s->translateApps().join(u','); }},
            {"microphoneUID", [&] { return s->microphoneUID().value_or(QStringLiteral("none")); }},
            {"correctionModifiers", [&] { return QString::number(s->correctionModifiers()); }},
        };
        QCOMPARE(getters.value(key)(), reads);
        // A bad stored value stays where it is until the property is next set.
        QCOMPARE(UserDefaults(file).value(key), stored);
    }

    void settersWriteAtOnceKeepingTypesAndNotify() {
        auto s = settingsWith({});
        QSignalSpy languageSpy(s.get(), &AppSettings::languageChanged);
        QSignalSpy scopeSpy(s.get(), &AppSettings::correctionScopeChanged);
        s->setLanguage(Language::En);
        s->setLanguage(Language::En); // every write notifies
        s->setCorrectionScope(0);
        s->setSounds(false);
        s->setTranslateApps({QStringLiteral("org.mozilla.firefox")});
        s->setCorrectionModifiers(0x140000);
        s->setRewriteEngine(RewriteEngine::OpenRouter);
        QCOMPARE(languageSpy.count(), 2);
        QCOMPARE(scopeSpy.count(), 1);
        QCOMPARE(s->correctionScope(), 0); // as set; it reads back as 15 at the next start

        const QJsonObject onDisk = QJsonDocument::fromJson(readAll(file)).object();
        QCOMPARE(onDisk.value("language"), QJsonValue("en"));
        QCOMPARE(onDisk.value("correctionScope"), QJsonValue(0));
        QCOMPARE(onDisk.value("sounds"), QJsonValue(false));
        QCOMPARE(onDisk.value("translateApps"), QJsonValue(QJsonArray{"org.mozilla.firefox"}));
        QCOMPARE(onDisk.value("correctionModifiers"), QJsonValue(0x140000));
        QCOMPARE(onDisk.value("rewriteEngine"), QJsonValue("openRouter"));

        UserDefaults again(file);
        const AppSettings next(again, keys.get());
        QCOMPARE(next.language(), Language::En);
        QCOMPARE(next.correctionScope(), 15);
        QVERIFY(!next.sounds());
        QCOMPARE(next.correctionModifiers(), quint64(0x140000));
        QCOMPARE(next.rewriteEngine(), RewriteEngine::OpenRouter);
    }

    void settingNoMicrophoneRemovesTheKey() {
        auto s = settingsWith({});
        QSignalSpy spy(s.get(), &AppSettings::microphoneUIDChanged);
        s->setMicrophoneUID(QStringLiteral("alsa_input.usb"));
        QVERIFY(UserDefaults(file).contains("microphoneUID"));
        s->setMicrophoneUID(std::nullopt);
        QVERIFY(!UserDefaults(file).contains("microphoneUID"));
        QCOMPARE(spy.count(), 2);
    }

    void transcriptionEngineDefault_data() {
        QTest::addColumn<QString>("site");
        QTest::addColumn<QString>("openRouterKey");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<TranscriptionEngine>("engine");
        QTest::newRow("no site, no key") << ""
                                         << ""
                                         << "" << TranscriptionEngine::Apple;
        QTest::newRow("no site, own key") << ""
                                          << "sk-or-1"
                                          << "" << TranscriptionEngine::Gemini;
        QTest::newRow("site") << "https://ombry.example"
                              << ""
                              << "" << TranscriptionEngine::Gemini;
        QTest::newRow("site not a URL") << "pas une adresse"
                                        << ""
                                        << "" << TranscriptionEngine::Apple;
        QTest::newRow("site not http") << "ftp://ombry.example"
                                       << ""
                                       << "" << TranscriptionEngine::Apple;
        QTest::newRow("stored wins") << ""
                                     << ""
                                     << "deepgram" << TranscriptionEngine::Deepgram;
        QTest::newRow("unknown stored") << ""
                                        << ""
                                        << "whisper" << TranscriptionEngine::Apple;
    }
    void transcriptionEngineDefault() {
        QFETCH(QString, site);
        QFETCH(QString, openRouterKey);
        QFETCH(QString, stored);
        QFETCH(TranscriptionEngine, engine);
        qputenv("OMBRY_SITE_URL", site.toUtf8());
        keys->save(openRouterKey, APIService::OpenRouter);
        QJsonObject values;
        if (!stored.isEmpty()) values.insert("transcriptionEngine", stored);
        QCOMPARE(settingsWith(values)->transcriptionEngine(), engine);
    }

    void damagedDefaultsFileReadsEmptyAndIsKept_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("broken JSON") << QByteArray("{\"language\": \"en\"");
        QTest::newRow("not an object") << QByteArray("[\"language\"]");
        QTest::newRow("not UTF-8") << QByteArray("{\"translateTarget\": \"fran\xe7"
                                                 "ais\"}");
    }
    void damagedDefaultsFileReadsEmptyAndIsKept() {
        QFETCH(QByteArray, bytes);
        QFile::remove(file + ".damaged");
        writeAll(file, bytes);
        UserDefaults d(file);
        QVERIFY(d.all().isEmpty());
        AppSettings s(d, keys.get());
        QCOMPARE(s.language(), Language::Fr);
        QCOMPARE(readAll(file), bytes); // untouched until something is set
        QVERIFY(!QFile::exists(file + ".damaged"));
        s.setTypingWPM(55);
        QCOMPARE(readAll(file + ".damaged"), bytes);
        QCOMPARE(UserDefaults(file).value("typingWPM"), QJsonValue(55));
        s.setTypingWPM(60); // the copy is made once
        QCOMPARE(readAll(file + ".damaged"), bytes);
    }

    void enumerationsAndLabels() {
        QCOMPARE(allCases<Language>().size(), 6);
        for (const Language l : allCases<Language>())
            QCOMPARE(fromRaw<Language>(rawValue(l)), std::optional(l));
        QCOMPARE(label(Language::Auto), QStringLiteral("Automatique (je parle plusieurs langues)"));
        QCOMPARE(label(PunctuationLevel::Full), QStringLiteral("Complète"));
        QCOMPARE(label(PerformanceMode::Light), QStringLiteral("Léger"));
        QCOMPARE(label(Theme::Dark), QStringLiteral("Sombre"));
        QCOMPARE(rawValue(RewriteEngine::OpenRouter), QStringLiteral("openRouter"));
        QCOMPARE(fromRaw<RewriteEngine>(QStringLiteral("openrouter")), std::nullopt);
        QCOMPARE(allCases<DictationKey>().last(), DictationKey::Fn);
        QCOMPARE(localeCode(Language::Auto), QStringLiteral("fr"));
        QCOMPARE(deepgramCode(Language::Auto), QStringLiteral("multi"));
        QCOMPARE(deepgramCode(Language::It), QStringLiteral("it"));
        QCOMPARE(CorrectionScope::label(CorrectionScope::Typography),
                 QStringLiteral("Majuscules et espaces"));
        int all = 0;
        for (int o : CorrectionScope::options())
            all |= o;
        QCOMPARE(all, 31);
    }

    void costs() {
        QCOMPARE(AppSettings::openRouterModels().size(), 7);
        QCOMPARE(AppSettings::openRouterModels().at(3).name, QStringLiteral("Mistral Small 3.2"));
        QCOMPARE(AppSettings::deepgramModels().at(1).note, QStringLiteral("ancien modèle"));
        QVERIFY(qFuzzyCompare(
            *AppSettings::costPer1000OpenRouter("mistralai/mistral-small-3.2-24b-instruct"),
            0.0529));
        QCOMPARE(AppSettings::costPer1000OpenRouter("google/gemma-4-31b-it:free"),
                 std::optional(0.0));
        QCOMPARE(AppSettings::costPer1000OpenRouter("unknown/model"), std::nullopt);
        QVERIFY(qFuzzyCompare(AppSettings::costPer1000Deepgram("nova-2"), 1.075));
        QVERIFY(qFuzzyCompare(AppSettings::costPer1000Deepgram("nova-9"), 1.075));
    }

    void themeSetsThePalette() {
        auto s = settingsWith({});
        QVERIFY(qobject_cast<QGuiApplication*>(QCoreApplication::instance()));
        s->setTheme(Theme::Dark);
        QVERIFY(QGuiApplication::palette().color(QPalette::Window).lightness() < 80);
        QVERIFY(QGuiApplication::palette().color(QPalette::WindowText).lightness() > 180);
        s->setTheme(Theme::Light);
        QVERIFY(QGuiApplication::palette().color(QPalette::Window).lightness() > 150);
    }
};

QTEST_MAIN(TstSettings)
#include "tst_settings.moc"
