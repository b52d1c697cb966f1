// The settings page driven as a user would on the fake desktop, checked in the settings file,
// the key store, the store and the controller; and the texts the page computes.
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "desktop/HotkeyMonitor.h"
#include "desktop/LoginItem.h"
#include "dictation/DictationController.h"
#include "platform/Paths.h"
#include "views/settings/SettingsModel.h"
#include "views/settings/SettingsPage.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace ombry;
namespace SM = SettingsModel;

namespace {

QJsonObject settingsFile() {
    return UserDefaults::readFile(Paths::defaultsFile()).value_or(QJsonObject());
}

// Moves a closed drop-down to the item with this text by keys, as a user does.
bool pick(QComboBox* box, const QString& text) {
    const int target = box->findText(text);
    if (target < 0) return false;
    box->setFocus();
    while (box->currentIndex() < target)
        QTest::keyClick(box, Qt::Key_Down);
    while (box->currentIndex() > target)
        QTest::keyClick(box, Qt::Key_Up);
    return box->currentIndex() == target;
}

// The label the page marked with this role.
QLabel* withRole(QWidget* root, const char* role) {
    for (QLabel* l : root->findChildren<QLabel*>())
        if (l->property("role").toString() == QLatin1String(role)) return l;
    return nullptr;
}

void showTab(SettingsPage& page, SM::Tab tab) {
    for (QPushButton* b : page.findChildren<QPushButton*>(QStringLiteral("tab")))
        if (b->property("tab").toString() == SM::rawValue(tab))
            QTest::mouseClick(b, Qt::LeftButton);
}

} // namespace

class TstSettingsPage : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;
    std::unique_ptr<DictationController> controller_;
    std::unique_ptr<SettingsPage> page_;

    AppSettings& settings() { return AppSettings::shared(); }
    DictationController& controller() { return *controller_; }
    // A page shown on `tab`, over the shared settings and a started controller of its own.
    SettingsPage& open(SM::Tab tab) {
        controller_ = std::make_unique<DictationController>();
        controller_->start();
        page_ = std::make_unique<SettingsPage>(settings(), *controller_);
        page_->resize(1000, 800);
        page_->show();
        showTab(*page_, tab);
        return *page_;
    }

private Q_SLOTS:
    void initTestCase() {
        // Each run starts from a new user: no settings, no keys, no history.
        QFile::remove(Paths::defaultsFile());
        QDir(Paths::dataFolder()).removeRecursively();
    }
    void cleanup() {
        page_.reset();
        controller_.reset();
    }

    void engineTextsAndCost() {
        using TE = TranscriptionEngine;
        using RE = RewriteEngine;
        // Gemini cleans up in its own call: the clean-up engine adds nothing.
        QCOMPARE(SM::costText(false, TE::Gemini, RE::OpenRouter, "nova-3", "openai/gpt-4o-mini"),
                 QStringLiteral("0,050 $ / 1 000 dictées"));
        QCOMPARE(SM::costText(false, TE::Local, RE::OpenRouter, "nova-3", "unknown/model"),
                 QStringLiteral("Gratuit"));
        QCOMPARE(SM::costText(true, TE::Deepgram, RE::None, "nova-3", "x"),
                 QStringLiteral("1 crédit ≈ 5 min de dictée"));

        QCOMPARE(SM::sttLabel(TE::Deepgram, true, "nova-2"), QStringLiteral("Deepgram · Nova-2"));
        QCOMPARE(SM::rewriteLabel(RE::OpenRouter, true, false, "mistralai/mistral-nemo"),
                 QStringLiteral("OpenRouter · Mistral Nemo"));
        QCOMPARE(SM::rewriteLabel(RE::Local, false, false, "x"),
                 QStringLiteral("IA locale · non disponible"));

        QCOMPARE(SM::translateMenuTitle("anglais"), QStringLiteral("Vers l'anglais"));
        QCOMPARE(SM::translateMenuTitle("français"), QStringLiteral("Vers le français"));

        // Shortcuts need Ctrl, Alt or Super; Shift alone would take a capital letter away.
        QVERIFY(!SM::shortcutFromQt(Qt::Key_K, Qt::ShiftModifier));
        QVERIFY(!SM::shortcutFromQt(Qt::Key_Control, Qt::ControlModifier));
        QCOMPARE(SM::shortcutFromQt(Qt::Key_F5, Qt::MetaModifier | Qt::ShiftModifier)->label,
                 QStringLiteral("Maj+Super+F5"));
    }

    void generalTabWritesThroughAndMovesTheKey() {
        SettingsPage& page = open(SM::Tab::General);

        QVERIFY(pick(test::named<QComboBox>(&page, "keyPicker"), QStringLiteral("Super droite")));
        QCOMPARE(settingsFile().value("key").toString(), QStringLiteral("rightCommand"));
        // The new key is heard at once; the former one no longer dictates.
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightOption,
                                   modifier::Option | modifier::RightOptionDown});
        QTest::qWait(50);
        QCOMPARE(controller().state(), DictationController::State::Idle);
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightOption, 0});
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightCommand,
                                   modifier::Command | modifier::RightCommandDown});
        platform_.clock().advance(DictationController::kHoldMs); // shown once it is no chord
        QTRY_COMPARE(controller().state(), DictationController::State::Recording);
        controller().cancel();

        auto* sounds = test::named<QCheckBox>(&page, "soundsSwitch");
        QTest::mouseClick(sounds, Qt::LeftButton);
        QCOMPARE(settingsFile().value("sounds"), QJsonValue(false));
        QVERIFY(pick(test::named<QComboBox>(&page, "languagePicker"), QStringLiteral("Espagnol")));
        QCOMPARE(settings().language(), Language::Es);

        // A microphone plugged in while the page is open can be chosen; the system's one
        // removes the key again.
        auto* mics = test::named<QComboBox>(&page, "micPicker");
        platform_.audio().mics << AudioSource{QStringLiteral("usb-mic"),
                                              QStringLiteral("Micro USB")};
        platform_.audio().micsChanged();
        QTRY_COMPARE(mics->count(), 3);
        QVERIFY(pick(mics, QStringLiteral("Micro USB")));
        QCOMPARE(settingsFile().value("microphoneUID").toString(), QStringLiteral("usb-mic"));
        QVERIFY(pick(mics, QStringLiteral("Micro du système")));
        QVERIFY(!settingsFile().contains("microphoneUID"));

        // Starting with the session: the autostart entry comes and goes with the switch.
        auto* login = test::named<QCheckBox>(&page, "loginSwitch");
        const bool was = login->isChecked();
        QTest::mouseClick(login, Qt::LeftButton);
        QCOMPARE(QFile::exists(LoginItem::path()), !was);
        QTest::mouseClick(login, Qt::LeftButton);
        settings().setKey(DictationKey::RightOption);
        settings().setSounds(true);
    }

    void shortcutRecorderCapturesAKeyWithModifiers() {
        SettingsPage& page = open(SM::Tab::Correction);
        auto* recorder = test::named<ShortcutRecorder>(&page, "shortcutRecorder");
        QCOMPARE(recorder->text(), QStringLiteral("Ctrl+Alt+C"));

        // Escape gives up and leaves the shortcut alone.
        QTest::mouseClick(recorder, Qt::LeftButton);
        QVERIFY(controller().hotkey().recording());
        QTest::keyClick(recorder, Qt::Key_Escape);
        QVERIFY(!controller().hotkey().recording());
        QCOMPARE(settings().correctionLabel(), QStringLiteral("Ctrl+Alt+C"));

        // Without the Ctrl+C run, the hook takes the shortcut away from the application.
        QTest::mouseClick(test::named<QCheckBox>(&page, "doubleCopySwitch"), Qt::LeftButton);
        QVERIFY(!settings().correctionDoubleCopy());
        QVERIFY(platform_.keyboard().swallows(keycode::C, modifier::Control | modifier::Option));

        // A plain letter is not taken; Ctrl+Alt+K is, and the hook takes it from now on.
        QTest::mouseClick(recorder, Qt::LeftButton);
        QCOMPARE(recorder->text(), QStringLiteral("Tape le raccourci…"));
        // While it listens, the present shortcut reaches this window instead of the hook.
        QVERIFY(!platform_.keyboard().swallows(keycode::C, modifier::Control | modifier::Option));
        QTest::keyClick(recorder, Qt::Key_K);
        QVERIFY(recorder->armed());
        QTest::keyClick(recorder, Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
        QVERIFY(!controller().hotkey().recording());
        const QJsonObject file = settingsFile();
        QCOMPARE(file.value("correctionKeyCode").toInteger(), 40);
        QCOMPARE(file.value("correctionModifiers").toInteger(), 0xC0000);
        QCOMPARE(file.value("correctionLabel").toString(), QStringLiteral("Ctrl+Alt+K"));
        QVERIFY(platform_.keyboard().swallows(40, modifier::Control | modifier::Option));
        QVERIFY(!platform_.keyboard().swallows(keycode::C, modifier::Control | modifier::Option));

        // Chips: every one switched off stores 0 (read back as the default at the next start).
        for (QPushButton* chip : page.findChildren<QPushButton*>(QStringLiteral("chip")))
            if (chip->isChecked()) QTest::mouseClick(chip, Qt::LeftButton);
        QCOMPARE(settingsFile().value("correctionScope").toInteger(), 0);
        settings().setCorrectionKeyCode(keycode::C);
        settings().setCorrectionLabel(QStringLiteral("Ctrl+Alt+C"));
        settings().setCorrectionScope(CorrectionScope::Default);
        settings().setCorrectionDoubleCopy(true);
    }

    void ownKeysAreSavedAndTheEngineTextsFollow() {
        SettingsPage& page = open(SM::Tab::Account);
        auto* own = test::named<QCheckBox>(&page, "ownKeySwitch");
        QWidget* openRouterRow = nullptr;
        for (QWidget* w : page.findChildren<QWidget*>())
            if (w->property("service").toString() == QLatin1String("openRouter")) openRouterRow = w;
        QVERIFY(!openRouterRow->isVisible());
        QTest::mouseClick(own, Qt::LeftButton);
        QVERIFY(settings().ownKeyMode() && openRouterRow->isVisible());
        QLabel* keyState = withRole(openRouterRow, "keyState");
        QCOMPARE(keyState->text(), QStringLiteral("Absente"));

        QTest::mouseClick(test::buttonWithText(openRouterRow, QStringLiteral("Modifier")),
                          Qt::LeftButton);
        auto* field = openRouterRow->findChild<QLineEdit*>();
        QCOMPARE(field->echoMode(), QLineEdit::Password);
        QTest::keyClicks(field, QStringLiteral("  sk-or-test  "));
        QTest::mouseClick(test::buttonWithText(openRouterRow, QStringLiteral("Enregistrer")),
                          Qt::LeftButton);
        QCOMPARE(keyState->text(), QStringLiteral("••••"));
        QFile keys(KeyStore::shared().file());
        QVERIFY(keys.open(QIODevice::ReadOnly));
        QCOMPARE(QJsonDocument::fromJson(keys.readAll()).object().value("openRouter").toString(),
                 QStringLiteral("sk-or-test"));

        // With the own key in use, the engine card names the paid engines.
        showTab(page, SM::Tab::Dictation);
        settings().setTranscriptionEngine(TranscriptionEngine::Gemini);
        QLabel* stt = withRole(&page, "stt");
        QCOMPARE(stt->text(), QStringLiteral("Gemini 2.5 Flash Lite · OpenRouter"));
        // Without a hosted service a stored key stays in use whatever the switch says; once
        // it is removed, the hosted names come back.
        own->setChecked(false); // its tab is hidden now: the switch is set directly
        QCOMPARE(stt->text(), QStringLiteral("Gemini 2.5 Flash Lite · OpenRouter"));
        KeyStore::shared().save(QString(), APIService::OpenRouter);
        QCOMPARE(stt->text(), QStringLiteral("Ombry IA"));
    }

    void engineChosenFromTheCard() {
        settings().setTranscriptionEngine(TranscriptionEngine::Local);
        settings().setRewriteEngine(RewriteEngine::Local);
        SettingsPage& page = open(SM::Tab::Dictation);
        QLabel* cost = nullptr;
        for (QLabel* l : page.findChildren<QLabel*>())
            if (l->text() == QStringLiteral("Gratuit")) cost = l;
        QVERIFY(cost); // local speech and local clean-up cost nothing
        // "Changer" opens the choices; the user clicks Deepgram in the menu.
        QTimer::singleShot(200, this, [&page] {
            auto* menu = page.findChild<QMenu*>(QStringLiteral("sttMenu"));
            if (!menu) return;
            for (QAction* a : menu->actions())
                if (a->text() == QStringLiteral("Deepgram · ≈ 0,26 $ / h"))
                    QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(a).center());
        });
        QTest::mouseClick(test::named<QPushButton>(&page, "changeStt"), Qt::LeftButton);
        QCOMPARE(settingsFile().value("transcriptionEngine").toString(),
                 QStringLiteral("deepgram"));
        QCOMPARE(cost->text(), QStringLiteral("1,08 $ / 1 000 dictées"));
        settings().setTranscriptionEngine(TranscriptionEngine::Local);
        QCOMPARE(cost->text(), QStringLiteral("Gratuit"));
        // A paid clean-up behind local speech: its model is picked in the same card.
        settings().setRewriteEngine(RewriteEngine::OpenRouter);
        QVERIFY(pick(test::named<QComboBox>(&page, "openRouterModelPicker"),
                     QStringLiteral("Mistral Nemo · le moins cher")));
        QCOMPARE(settingsFile().value("openRouterModel").toString(),
                 QStringLiteral("mistralai/mistral-nemo"));
        QCOMPARE(cost->text(), QStringLiteral("0,013 $ / 1 000 dictées"));
        settings().setRewriteEngine(RewriteEngine::Local);
    }

    void erasingAsksFirstAndTheTabIsKept() {
        Dictation d;
        d.finalText = QStringLiteral("Bonjour à tous.");
        d.appName = QStringLiteral("Éditeur");
        d.bundleID = QStringLiteral("org.gnome.TextEditor");
        Store::shared().add(d);
        SettingsPage& page = open(SM::Tab::Advanced);
        bool asked = false;
        bool answer = false;
        page.confirmErase = [&](QWidget*) {
            asked = true;
            return answer;
        };
        auto* erase = test::named<QPushButton>(&page, "eraseButton");
        QTest::mouseClick(erase, Qt::LeftButton);
        QVERIFY(asked);
        QCOMPARE(Store::shared().dictations().size(), 1);
        answer = true;
        QTest::mouseClick(erase, Qt::LeftButton);
        QVERIFY(Store::shared().dictations().isEmpty());
        QCOMPARE(erase->text(), QStringLiteral("Effacé"));
        page_.reset();
        // The next page opens on the same tab.
        SettingsPage again(settings(), controller());
        QCOMPARE(again.tab(), SM::Tab::Advanced);
        again.setTab(SM::Tab::General);
    }

    void permissionsSayWhatTheSoundServerAllows() {
        // The server records (a microphone) but has no output whose sound can be captured.
        platform_.audio().outputAvailable = false;
        DictationController controller;
        SettingsPage page(AppSettings::shared(), controller);
        const auto state = [&](const QString& title) {
            for (QLabel* l : page.findChildren<QLabel*>())
                if (l->text() == title)
                    for (QLabel* s : l->parentWidget()->findChildren<QLabel*>())
                        if (s->text().endsWith(QStringLiteral("utorisé"))) return s->text();
            return QString();
        };
        QCOMPARE(state(QStringLiteral("Micro")), QStringLiteral("Autorisé"));
        QCOMPARE(state(QStringLiteral("Audio système (sous-titres d'appel)")),
                 QStringLiteral("Non autorisé"));
        platform_.audio().outputAvailable = true;
    }

    // Each local server's "Tester" tries the address in its field and says, later, whether
    // anything answers there; the page keeps working meanwhile.
    void localServersAreTested() {
        test::TestHttpServer server;
        server.on(QStringLiteral("/"), test::Reply::text("ok").after(300));
        SettingsPage& page = open(SM::Tab::Advanced);
        for (const char* name : {"localSpeechServer", "localModelServer"}) {
            const QString n = QLatin1String(name);
            auto* field = test::named<QLineEdit>(&page, name);
            auto* test = test::named<QPushButton>(&page, qPrintable(n + "Test"));
            auto* result = test::named<QLabel>(&page, qPrintable(n + "Result"));
            field->clear();
            QTest::mouseClick(test, Qt::LeftButton);
            QCOMPARE(result->text(), QStringLiteral("Aucune adresse"));

            field->setText(server.url().toString());
            QTest::mouseClick(test, Qt::LeftButton);
            // The click returns before the server has answered.
            QCOMPARE(result->text(), QStringLiteral("Test…"));
            QVERIFY(!test->isEnabled());
            QTRY_COMPARE(result->text(), QStringLiteral("Le serveur répond"));
            QCOMPARE(settingsFile().value(n).toString(), server.url().toString());

            field->setText(QStringLiteral("http://127.0.0.1:9"));
            QTest::mouseClick(test, Qt::LeftButton);
            QTRY_COMPARE_WITH_TIMEOUT(result->text(), QStringLiteral("Le serveur ne répond pas"),
                                      10000);
            field->clear();
            QTest::mouseClick(test, Qt::LeftButton);
        }
        page.setTab(SM::Tab::General);
    }

    void translateAppsFromTheHistory() {
        Dictation a;
        a.appName = QStringLiteral("Discord");
        a.bundleID = QStringLiteral("discord");
        Dictation b = a;
        b.id = QUuid::createUuid();
        Store::shared().setDictations({a, b});
        SettingsPage& page = open(SM::Tab::Correction);
        const auto switches = page.findChildren<QCheckBox*>(QStringLiteral("translateAppSwitch"));
        QCOMPARE(switches.size(), 1); // one row per application
        QTest::mouseClick(switches.first(), Qt::LeftButton);
        QCOMPARE(settingsFile().value("translateApps").toArray().first().toString(),
                 QStringLiteral("discord"));
        QTest::mouseClick(switches.first(), Qt::LeftButton);
        QVERIFY(settingsFile().value("translateApps").toArray().isEmpty());
        Store::shared().setDictations({});
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstSettingsPage t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_settings_page.moc"
