// The corrector page used as a user would, offscreen, against servers playing the services.
#include "../../correction/ServiceReplies.h"
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Store.h"
#include "views/corrector/CorrectorLogic.h"
#include "views/corrector/CorrectorPage.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kText = QStringLiteral("Il a pris ces clés et il est partis hier soir.");
const QString kCorrected = QStringLiteral("Il a pris ses clés et il est parti hier soir.");

} // namespace

class TstCorrectorPage : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<Store> store;
    std::unique_ptr<CorrectorPage> page;

    QPlainTextEdit* editor() { return named<QPlainTextEdit>(page.get(), "editor"); }
    void type(const QString& text) { typeText(editor(), text); }
    void click(const QString& text) {
        QAbstractButton* b = buttonWithText(page.get(), text);
        QVERIFY2(b, qPrintable(text));
        QVERIFY2(b->isEnabled(), qPrintable(text));
        QTest::mouseClick(b, Qt::LeftButton);
    }
    // The page's main action, whose label follows the mode.
    void run(const QString& label) {
        auto* b = named<QPushButton>(page.get(), "primary");
        QCOMPARE(b->text(), label);
        QVERIFY(b->isEnabled());
        QTest::mouseClick(b, Qt::LeftButton);
    }
    QString shownResult() { return named<QTextBrowser>(page.get(), "result")->toPlainText(); }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        openRouterOn();
    }
    void init() {
        server.reset();
        // The grammar service finds two mistakes, one of them without a message; the model
        // corrects both and explains the one left unexplained.
        server.on(kLanguageTool,
                  ltReply({ltFinding(kText, "ces", {"ses"}, "TYPOS", "Confusion ces/ses."),
                           ltFinding(kText, "partis", {"parti"}, "GRAMMAR", "")}));
        server.setHandler([](const RecordedRequest& r) {
            const QString system = systemOf(r);
            if (system.contains(QStringLiteral("professeur")))
                return chatReply(QStringLiteral(
                    R"({"items":[{"kind":"accord","explanation":"Participe passé au singulier."}]})"));
            if (system.contains(QStringLiteral("plus courte")))
                return chatReply(QStringLiteral("Il a pris ses affaires."));
            return chatReply(kCorrected);
        });
        dir = std::make_unique<QTemporaryDir>();
        store = std::make_unique<Store>(dir->path());
        page = std::make_unique<CorrectorPage>(*store);
        page->resize(1000, 800);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page.get()));
    }
    void cleanup() {
        page.reset();
        store.reset();
        dir.reset();
    }

    void typingShowsWordsAndLiveCount() {
        type(QStringLiteral("Il"));
        QVERIFY(showsLabel(page.get(), QStringLiteral("1 mot")));

        type(kText.mid(2));
        QVERIFY(showsLabel(page.get(), QStringLiteral("11 mots")));
        platform.clock().advance(900);
        QTRY_VERIFY(showsLabel(page.get(), QStringLiteral("2 fautes repérées")));
        QCOMPARE(server.requests(kLanguageTool).size(), 1);

        click(QStringLiteral("Effacer"));
        QVERIFY(editor()->toPlainText().isEmpty() &&
                !buttonWithText(page.get(), QStringLiteral("Effacer")));
        QVERIFY(!named<QLabel>(page.get(), "liveCount")->isVisible());
    }

    void correctionRefuseAndCopy() {
        editor()->setPlainText(kText);
        run(QStringLiteral("Corriger"));
        QTRY_VERIFY(showsLabel(page.get(), QStringLiteral("2 corrections")));
        QCOMPARE(shownResult(), kCorrected);
        // 2 fixes in 11 words: 100 - 45.45 rounded.
        QVERIFY(showsLabel(page.get(), QStringLiteral("55")));
        QVERIFY(showsLabel(page.get(), QStringLiteral("100 / 100 après correction")));
        // The explanation arrives, and the record is stored with it.
        QTRY_COMPARE(store->fixes().size(), 1);
        const CorrectionRecord record = store->fixes().first();
        QCOMPARE(record.appName, QStringLiteral("Ombry Voice"));
        QCOMPARE(record.original + record.result, kText + kCorrected);
        QCOMPARE(record.fixes[1].explanation, QStringLiteral("Participe passé au singulier."));
        QTRY_VERIFY(
            showsLabel(page.get(), QStringLiteral("accord · Participe passé au singulier.")));

        // Refusing the first change puts "ces" back in the text offered.
        QList<QAbstractButton*> toggles;
        for (QAbstractButton* b : page->findChildren<QAbstractButton*>(QStringLiteral("fixToggle")))
            if (b->isVisibleTo(page.get())) toggles << b;
        QCOMPARE(toggles.size(), 2);
        QTest::mouseClick(toggles.first(), Qt::LeftButton);
        QTRY_COMPARE(shownResult(),
                     QStringLiteral("Il a pris ces clés et il est parti hier soir."));
        QTRY_VERIFY(buttonWithText(page.get(), QStringLiteral("Rétablir")));
        click(QStringLiteral("Tout accepter"));
        QCOMPARE(shownResult(), kCorrected);
        click(QStringLiteral("Tout ignorer"));
        QCOMPARE(shownResult(), kText);
        click(QStringLiteral("Tout accepter"));

        click(QStringLiteral("Copier"));
        QCOMPARE(platform.clipboard().text(), std::optional<QString>(kCorrected));
        QVERIFY(buttonWithText(page.get(), QStringLiteral("Copié")));
        QTRY_VERIFY_WITH_TIMEOUT(buttonWithText(page.get(), QStringLiteral("Copier")), 3000);

        // The panel of frequent mistakes reads the stored record.
        QVERIFY(showsLabel(page.get(), QStringLiteral("ces → <b>ses</b>")));
    }

    void rephraseAndFailure() {
        editor()->setPlainText(kText);
        click(QStringLiteral("Reformuler"));
        click(QStringLiteral("Plus court"));
        run(QStringLiteral("Reformuler"));
        QTRY_COMPARE(shownResult(), QStringLiteral("Il a pris ses affaires."));
        QTRY_COMPARE(store->fixes().size(), 1);
        QCOMPARE(store->fixes().first().action, QStringLiteral("Plus court"));
        QVERIFY(store->fixes().first().fixes.isEmpty());
        QVERIFY(!named<QWidget>(page.get(), "bigNumber")->isVisibleTo(page.get()));

        server.setHandler([](const RecordedRequest&) { return Reply::text("panne", 500); });
        click(QStringLiteral("Résumer"));
        run(QStringLiteral("Résumer"));
        QTRY_VERIFY(named<QLabel>(page.get(), "bad")->isVisible());
        QVERIFY(named<QLabel>(page.get(), "bad")->text().contains(QStringLiteral("500")));
        QCOMPARE(store->fixes().size(), 1);
    }

    // Typing goes on while checks wait on a slow service: the window keeps answering.
    void typingNeverWaitsForTheService() {
        server.on(kLanguageTool, ltReply({}).after(1500));
        LoopProbe probe;
        probe.start();
        const QString sentence =
            QStringLiteral("Le rapport est presque fini, je te l'envoie demain. ");
        // At each pause a check goes out.
        typeWithPauses(editor(), sentence, 12, [this] { platform.clock().advance(1000); });
        QVERIFY(server.waitForRequests(4));
        QTest::qWait(200);
        probe.stop();
        QVERIFY2(probe.worstGapMs() < 50, qPrintable(QString::number(probe.worstGapMs())));
        QVERIFY(probe.ticks() > 20);
    }
};

QTEST_MAIN(TstCorrectorPage)
#include "tst_correctorpage.moc"
