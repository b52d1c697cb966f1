// The translation page used as a user would, offscreen, against a server playing the model.
#include "../../correction/ServiceReplies.h"
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "calls/CallTranslator.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "views/translator/TranslatorLogic.h"
#include "views/translator/TranslatorPage.h"

#include <QComboBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kFrench = QStringLiteral("Je t'envoie le rapport demain matin avant la réunion.");

// The model's answer names the target and the text, so a test sees which request it answers.
Reply translation(const RecordedRequest& r) {
    const QString system = systemOf(r);
    QString to = QStringLiteral("?");
    for (const QString& name : TranslatorRules::targets())
        if (system.contains(name)) to = name;
    return chatReply(QStringLiteral("[%1] %2").arg(to, userOf(r)));
}

} // namespace

class TstTranslatorPage : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<Store> store;
    std::unique_ptr<CallTranslator> call;
    std::unique_ptr<TranslatorPage> page;

    QPlainTextEdit* source() { return named<QPlainTextEdit>(page.get(), "source"); }
    QString result() { return named<QPlainTextEdit>(page.get(), "result")->toPlainText(); }
    QComboBox* target() { return named<QComboBox>(page.get(), "target"); }
    void click(const char* name) {
        auto* b = named<QAbstractButton>(page.get(), name);
        QVERIFY2(b && b->isEnabled(), name);
        QTest::mouseClick(b, Qt::LeftButton);
    }
    void openPage() {
        page = std::make_unique<TranslatorPage>(*store, *call);
        page->resize(1000, 800);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page.get()));
    }
    int translations() { return int(server.requests(kOpenRouter).size()); }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        openRouterOn();
    }
    void init() {
        server.reset();
        server.setHandler(translation);
        AppSettings::shared().setTranslateTarget(QStringLiteral("anglais"));
        TranslatorRules::setTab(AppSettings::shared().defaults(), TranslationTab::Text);
        dir = std::make_unique<QTemporaryDir>();
        store = std::make_unique<Store>(dir->path());
        call = std::make_unique<CallTranslator>();
        call->setTargetBundleID(std::nullopt);
        openPage();
    }
    void cleanup() {
        page.reset();
        call.reset();
        store.reset();
        dir.reset();
    }

    void translatesAfterAPause() {
        // A letter every 500 ms: nothing goes out.
        for (QChar c : kFrench.left(12)) {
            typeText(source(), QString(c));
            platform.clock().advance(500);
            QTest::qWait(3);
        }
        QCOMPARE(translations(), 0);
        QCOMPARE(TranslatorRules::charactersLabel(QStringLiteral("👍🏽 e\u0301")),
                 QStringLiteral("3 caractères"));
        typeText(source(), kFrench.mid(12));
        QVERIFY(showsLabel(page.get(), QStringLiteral("Détecté : français")));
        platform.clock().advance(700);
        QTRY_COMPARE(result(), QStringLiteral("[anglais] ") + kFrench);
        QCOMPARE(translations(), 1);

        // A new target translates at once and becomes the remembered one.
        target()->setCurrentText(QStringLiteral("espagnol"));
        QTRY_COMPARE(result(), QStringLiteral("[espagnol] ") + kFrench);
        QCOMPARE(AppSettings::shared().translateTarget(), QStringLiteral("espagnol"));

        // Emptying the text empties the result, with no request.
        const int before = translations();
        source()->clear();
        platform.clock().advance(2000);
        QTest::qWait(30);
        QCOMPARE(result(), QString());
        QCOMPARE(translations(), before);
    }

    // The answer for an older text comes last: it is dropped, the newer one stays.
    void lateAnswersAreDropped() {
        server.setHandler({});
        server.enqueue(kOpenRouter, chatReply(QStringLiteral("ancienne")).after(600));
        server.enqueue(kOpenRouter, chatReply(QStringLiteral("nouvelle")));
        typeText(source(), QStringLiteral("Bonjour tout le monde"));
        platform.clock().advance(700);
        QVERIFY(server.waitForRequests(1));
        typeText(source(), QStringLiteral(", ça va ?"));
        platform.clock().advance(700);
        QTRY_COMPARE(result(), QStringLiteral("nouvelle"));
        QTest::qWait(800);
        QCOMPARE(result(), QStringLiteral("nouvelle"));
        QVERIFY(
            !named<QLabel>(page.get(), "status")->text().contains(QStringLiteral("Traduction")));
    }

    void swapCopyRecentAndSpeak() {
        source()->setPlainText(kFrench);
        platform.clock().advance(700);
        QTRY_COMPARE(result(), QStringLiteral("[anglais] ") + kFrench);

        click("copy");
        QCOMPARE(platform.clipboard().text(), std::optional<QString>(result()));
        QTRY_COMPARE(store->fixes().size(), 1);
        QCOMPARE(store->fixes().first().action, QStringLiteral("Traduire · anglais"));
        QCOMPARE(store->fixes().first().original, kFrench);

        click("speakSource");
        QCOMPARE(platform.speech().spoken.last(), qMakePair(kFrench, QStringLiteral("fr")));
        click("speakSource"); // a second press stops the voice
        QVERIFY(!platform.speech().speaking());

        // Swap: the French text's language becomes the target.
        const QString translated = result();
        click("swap");
        QCOMPARE(source()->toPlainText(), translated);
        QCOMPARE(result(), kFrench);
        QCOMPARE(target()->currentText(), QStringLiteral("français"));

        // Six translations copied: five are listed, newest first.
        for (int i = 0; i < 5; ++i) {
            CorrectionRecord r;
            r.action = QStringLiteral("Traduire · allemand");
            r.original = QStringLiteral("texte %1").arg(i);
            r.result = QStringLiteral("Text %1").arg(i);
            store->addFix(r);
        }
        store->addFix(CorrectionRecord{.action = QStringLiteral("Corriger")});
        QTRY_COMPARE(page->findChildren<QWidget*>(QStringLiteral("recent")).size(), 5);
        QVERIFY(showsLabel(page.get(), QStringLiteral("Text 4")));
        QVERIFY(!showsLabel(page.get(), kFrench));

        // A text in a language outside the list keeps the target when swapped.
        const QString russian =
            QStringLiteral("Я отправлю тебе отчёт завтра утром перед встречей.");
        source()->setPlainText(russian);
        platform.clock().advance(700);
        QTRY_VERIFY(result().endsWith(russian) && result() != russian);
        click("swap");
        QCOMPARE(result(), russian);
        QCOMPARE(target()->currentText(), QStringLiteral("français"));
    }

    void tabIsKeptAndSubtitlesRun() {
        click("tabCalls");
        QCOMPARE(AppSettings::shared().defaults().value("translationTab").toString(),
                 QStringLiteral("calls"));
        page.reset();
        openPage();
        auto* conversation = named<QTextBrowser>(page.get(), "conversation");
        QVERIFY(conversation->isVisible());
        QVERIFY(conversation->toPlainText().startsWith(QStringLiteral("Choisis l'appli")));

        // The applications playing sound are offered, each once (the saved choice seen
        // playing for the first time renames its tile); the choice is what the capture follows.
        auto* apps = named<QComboBox>(page.get(), "callApps");
        call->setTargetBundleID(QStringLiteral("discord"));
        platform.audio().apps = {
            PlayingApp{QStringLiteral("discord"), QStringLiteral("Discord"), {}}};
        QTRY_COMPARE(apps->findText(QStringLiteral("Discord")), 1);
        QCOMPARE(apps->count(), 2);
        QCOMPARE(apps->itemText(0), QStringLiteral("Tout l'ordinateur"));
        call->setTargetBundleID(std::nullopt);
        apps->setCurrentIndex(1);
        Q_EMIT apps->activated(1);
        QCOMPARE(call->targetBundleID(), std::optional<QString>(QStringLiteral("discord")));

        click("callToggle");
        QTRY_VERIFY(call->running());
        QTRY_COMPARE(platform.audio().outputFor, QStringLiteral("discord"));
        QTRY_VERIFY(showsLabel(page.get(), QStringLiteral("En direct · Discord")));
        QVERIFY(!apps->isEnabled());
        QCOMPARE(named<QPushButton>(page.get(), "callToggle")->text(), QStringLiteral("Arrêter"));
        QVERIFY(conversation->toPlainText().startsWith(QStringLiteral("J'écoute")));
        click("callToggle");
        QTRY_VERIFY(!call->running());
        QCOMPARE(named<QPushButton>(page.get(), "callToggle")->text(), QStringLiteral("Démarrer"));

        click("tabText");
        QVERIFY(source()->isVisible());
        QCOMPARE(TranslatorRules::tab(AppSettings::shared().defaults()), TranslationTab::Text);
    }

    void typingNeverWaitsForTheModel() {
        server.setHandler([](const RecordedRequest& r) { return translation(r).after(1500); });
        LoopProbe probe;
        probe.start();
        const QString sentence = QStringLiteral("On se retrouve lundi pour finir le dossier. ");
        // At each pause a translation goes out.
        typeWithPauses(source(), sentence, 10, [this] { platform.clock().advance(700); });
        QVERIFY(server.waitForRequests(4));
        QTest::qWait(200);
        probe.stop();
        QVERIFY2(probe.worstGapMs() < 50, qPrintable(QString::number(probe.worstGapMs())));
        // Only the answer for the last text is shown.
        platform.clock().advance(700);
        QTRY_VERIFY_WITH_TIMEOUT(result().endsWith(source()->toPlainText().trimmed()), 5000);
    }
};

QTEST_MAIN(TstTranslatorPage)
#include "tst_translatorpage.moc"
