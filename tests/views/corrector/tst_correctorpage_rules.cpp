// The corrector's rules without a screen, and its live count against a server playing the
// grammar service.
#include "../../correction/ServiceReplies.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Store.h"
#include "views/corrector/CorrectorLogic.h"

#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

Fix fix(const QString& original, const QString& correction) {
    Fix f;
    f.original = original;
    f.correction = correction;
    f.kind = QStringLiteral("orthographe");
    return f;
}

CorrectionRecord record(const QList<Fix>& fixes) {
    CorrectionRecord r;
    r.action = QStringLiteral("Corriger");
    r.fixes = fixes;
    return r;
}

} // namespace

class TstCorrectorRules : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

    // Lets timers and replies run for a moment of real time.
    void spin(int ms = 30) { QTest::qWait(ms); }

private Q_SLOTS:
    void initTestCase() { pointServicesAt(server); }
    void init() {
        server.reset();
        AppSettings::shared().setUseLanguageTool(true);
        AppSettings::shared().setCorrectionScope(CorrectionScope::Default);
    }

    void score_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("fixes");
        QTest::addColumn<int>("score");
        const QString forty = QStringLiteral("mot ").repeated(40);
        QTest::newRow("no fix") << "Un texte propre." << 0 << 100;
        QTest::newRow("one in forty rounds 6.25 to 6") << forty << 1 << 94;
        QTest::newRow("one word one fix never below zero") << "mot" << 1 << 0;
        QTest::newRow("empty text counts as one word") << "" << 1 << 0;
        QTest::newRow("forty percent gives zero") << "a b c d e f g h i j" << 4 << 0;
        QTest::newRow("one in ten") << "a b c d e f g h i j" << 1 << 75;
        QTest::newRow("blank runs are not words") << "  a \n\n b\t " << 0 << 100;
        // French puts non-breaking spaces before « ; : ! ? » and in numbers: they part words.
        QTest::newRow("non-breaking spaces part words")
            << QStringLiteral("mot\u00A0").repeated(20) + QStringLiteral("mot\u202F").repeated(20)
            << 1 << 94;
    }
    void score() {
        QFETCH(QString, text);
        QFETCH(int, fixes);
        Analysis a{text, {}};
        for (int i = 0; i < fixes; ++i)
            a.fixes << fix("x", "y");
        QTEST(CorrectorRules::score(text, a), "score");
    }

    // Refused changes are taken back by a search of their correction: the first occurrence,
    // even when it is not the one the change made, and never a change with an empty side.
    void finalText() {
        const Fix a = fix("ces", "ses");
        const Fix b = fix("à", "a");
        const Fix empty = fix("∅", ",");
        const Fix gone = fix("foo", "absent");
        const Analysis analysis{QStringLiteral("Il a pris ses affaires, il a fini."),
                                {a, b, empty, gone}};
        QCOMPARE(CorrectorRules::finalText(analysis, {}), analysis.corrected);
        QCOMPARE(CorrectorRules::finalText(analysis, {a.id}),
                 QStringLiteral("Il a pris ces affaires, il a fini."));
        // The second "a" was the change; the first occurrence is put back.
        QCOMPARE(CorrectorRules::finalText(analysis, {b.id}),
                 QStringLiteral("Il à pris ses affaires, il a fini."));
        QCOMPARE(CorrectorRules::finalText(analysis, {empty.id, gone.id}), analysis.corrected);
    }

    void frequentMistakes() {
        QList<CorrectionRecord> records;
        records << record({fix("Ces", "Ses"), fix("a", "à"), fix("∅", ","), fix("x", "∅")});
        records << record({fix("ces", "ses"), fix(QStringLiteral("l").repeated(30), "court")});
        records << record({fix("CES", "SES"), fix("a", "à"), fix("b", "c"), fix("d", "e"),
                           fix("f", "g"), fix("h", "i"), fix("j", "k")});
        const QList<CorrectorRules::Mistake> list = CorrectorRules::frequentMistakes(records);
        QCOMPARE(list.size(), 6);
        QCOMPARE(list[0].original, QStringLiteral("Ces")); // the first seen spelling is kept
        QCOMPARE(list[0].correction, QStringLiteral("Ses"));
        QCOMPARE(list[0].count, 3);
        QCOMPARE(list[1].original, QStringLiteral("a"));
        QCOMPARE(list[1].count, 2);
        for (const auto& m : list) {
            QVERIFY(m.original != QStringLiteral("∅") && m.correction != QStringLiteral("∅"));
            QVERIFY(m.original.size() < 30);
        }
        QVERIFY(CorrectorRules::frequentMistakes({}).isEmpty());
    }

    // French plurals: zero takes the singular.
    void labels() {
        QCOMPARE(CorrectorRules::wordsLabel(0), QStringLiteral("0 mot"));
        QCOMPARE(CorrectorRules::liveLabel(std::nullopt), QString());
        QCOMPARE(CorrectorRules::liveLabel(0), QStringLiteral("Aucune faute repérée"));
        QCOMPARE(CorrectorRules::liveLabel(1), QStringLiteral("1 faute repérée"));
        QCOMPARE(CorrectorRules::correctionsLabel(1), QStringLiteral("1 correction"));
    }

    // A letter every 500 ms sends nothing; a pause of 900 ms sends one check, whose count
    // keeps only the findings the settings want. One word, or another mode, clears the count.
    void liveCount() {
        QTemporaryDir dir;
        Store store(dir.path());
        CorrectorModel model(store);
        const QString text = QStringLiteral("Il a pris ces affaire.");
        server.on(kLanguageTool, ltReply({ltFinding(text, "ces", {"ses"}, "TYPOS"),
                                          ltFinding(text, "affaire", {"affaires"}, "GRAMMAR"),
                                          ltFinding(text, "Il", {"Elle"}, "STYLE")}));
        QString typed;
        for (QChar c : text) {
            typed += c;
            model.setText(typed);
            platform.clock().advance(500);
            spin(5);
        }
        QCOMPARE(server.count(), 0);
        platform.clock().advance(400);
        QVERIFY(server.waitForRequests(1));
        QTRY_COMPARE(model.liveCount(), std::optional<int>(2));
        QCOMPARE(server.last().formValue("text"), text);

        model.setText(QStringLiteral("Bonjour"));
        QCOMPARE(model.liveCount(), std::nullopt);
        platform.clock().advance(2000);
        spin();
        QCOMPARE(server.count(), 1);

        model.setText(text);
        model.setMode(CorrectorMode::Rephrase);
        model.setText(text + QStringLiteral(" Merci."));
        QCOMPARE(model.liveCount(), std::nullopt);
        platform.clock().advance(2000);
        spin();
        QCOMPARE(server.count(), 1);
    }

    // An answer for a text that has changed since never sets the count; a failed check keeps
    // the count it had.
    void staleAndFailedChecks() {
        QTemporaryDir dir;
        Store store(dir.path());
        CorrectorModel model(store);
        server.enqueue(
            kLanguageTool,
            ltReply({ltMatch(0, 2, {"Le"}, "TYPOS"), ltMatch(3, 3, {"a"}, "TYPOS")}).after(400));
        server.enqueue(kLanguageTool, ltReply({ltMatch(7, 4, {"dors"}, "TYPOS")}));
        server.enqueue(kLanguageTool, Reply::text("panne", 500));
        model.setText(QStringLiteral("La chat dort"));
        platform.clock().advance(900);
        QVERIFY(server.waitForRequests(1));
        model.setText(QStringLiteral("Le chat dort"));
        platform.clock().advance(900);
        QVERIFY(server.waitForRequests(2));
        QTRY_COMPARE(model.liveCount(), std::optional<int>(1));
        QTest::qWait(600); // the slow first answer arrives and is dropped
        QCOMPARE(model.liveCount(), std::optional<int>(1));

        model.setText(QStringLiteral("Le chat dort bien"));
        platform.clock().advance(900);
        QVERIFY(server.waitForRequests(3));
        spin(100);
        QCOMPARE(model.liveCount(), std::optional<int>(1));
    }

    // A second run replaces the analysis while the first one's explanations are on the way:
    // they arrive late and are dropped; each run stores its own record.
    void lateExplanationsAreDropped() {
        openRouterOn();
        AppSettings::shared().setUseLanguageTool(false);
        server.setHandler([](const RecordedRequest& r) {
            const bool first = userOf(r).contains(QStringLiteral("maison"));
            if (systemOf(r).contains(QStringLiteral("professeur"))) {
                const QString word = first ? QStringLiteral("vieille") : QStringLiteral("neuve");
                Reply reply = chatReply(
                    QStringLiteral(R"({"items":[{"kind":"orthographe","explanation":"%1"}]})")
                        .arg(word));
                return first ? reply.after(600) : reply;
            }
            return chatReply(first ? QStringLiteral("Je vais à la maison.")
                                   : QStringLiteral("Il a mangé."));
        });
        QTemporaryDir dir;
        Store store(dir.path());
        CorrectorModel model(store);
        model.setText(QStringLiteral("Je vais a la maison."));
        model.run();
        QTRY_VERIFY(model.explaining());
        model.setText(QStringLiteral("Il a manger."));
        model.run();
        QTRY_COMPARE(store.fixes().size(), 2);
        QVERIFY(!model.explaining() && !model.working());
        QCOMPARE(model.analysis()->corrected, QStringLiteral("Il a mangé."));
        QCOMPARE(model.analysis()->fixes.size(), 1);
        QCOMPARE(model.analysis()->fixes.first().explanation, QStringLiteral("neuve"));
        QCOMPARE(CorrectorRules::finalText(*model.analysis(), model.ignored()),
                 QStringLiteral("Il a mangé."));
        AppSettings::shared().setUseLanguageTool(true);
    }
};

QTEST_GUILESS_MAIN(TstCorrectorRules)
#include "tst_correctorpage_rules.moc"
