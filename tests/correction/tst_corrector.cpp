// The correction pipeline against a server that plays LanguageTool, OpenRouter and the local
// model: which findings are applied blindly, what the model is shown, the fallback from the
// remote model to the local one, and the repairs made to the model's answer.
#include "FakePlatform.h"
#include "ServiceReplies.h"

#include "correction/Corrector.h"
#include "desktop/Log.h"
#include "engines/client/Errors.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

class TstCorrector : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    QTemporaryDir dir;

    AppSettings& settings() { return AppSettings::shared(); }
    QString journal() {
        Log::sync();
        QFile f(dir.filePath("journal.log"));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }
    Corrector::Detailed correct(const QString& text, const QStringList& words = {}) {
        return await(Corrector::correctDetailed(text, "français", words));
    }

private Q_SLOTS:
    void initTestCase() { pointServicesAt(server); }
    void init() {
        server.reset();
        QFile::remove(dir.filePath("journal.log"));
        Log::resetForTests(dir.filePath("journal.log"));
        settings().setUseLanguageTool(true);
        settings().setCorrectorUsesApple(true);
        settings().setRewriteEngine(RewriteEngine::Apple);
        settings().setCorrectionScope(CorrectionScope::Default);
        settings().setPunctuation(PunctuationLevel::Normal);
    }
    void cleanupTestCase() { Log::resetForTests(); }

    void withoutAModelTheBestProposalsAreApplied() {
        settings().setCorrectorUsesApple(false);
        const QString text = QStringLiteral("ca va, les enfant ? ok je vois OMBRY bien bien");
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "ca", {"ça"}, "TYPOS"),
                      ltFinding(text, "les enfant", {"le enfant", "les enfants"}, "AGREEMENT"),
                      ltFinding(text, "ok", {"OK"}, "TYPOS"),
                      ltFinding(text, "OMBRY", {"OMBRE"}, "TYPOS"),          // in the dictionary
                      ltFinding(text, "bien bien", {"bien"}, "REPETITIONS"), // style: out of scope
                  }));
        const Corrector::Detailed out = correct(text, {"Ombry"});
        QCOMPARE(out.text, QStringLiteral("Ça va, les enfants ? ok je vois OMBRY bien bien."));
        QCOMPARE(out.matches.size(), 3);
        QCOMPARE(server.last().formValue("language"), QStringLiteral("fr"));
        QCOMPARE(server.count(), 1); // no model
        QVERIFY(journal().contains(" languagetool: 3 fautes repérées\n"));
    }

    void theModelGetsThePlainTextWhenNothingIsLeft() {
        // Only safe findings: applied before the model, which sees no frame.
        const QString text = QStringLiteral("ca marche");
        server.on(kLanguageTool, ltReply({ltFinding(text, "ca", {"ça"}, "TYPOS")}));
        playLocalModel(server, chatReply("ça marche"));
        QCOMPARE(correct(text).text, QStringLiteral("Ça marche."));
        QCOMPARE(userOf(server.last()), QStringLiteral("ça marche"));
        QVERIFY(!systemOf(server.last()).contains("vérificateur"));
        // No LanguageTool at all: no request to it, no matches.
        settings().setUseLanguageTool(false);
        server.clearRequests();
        QVERIFY(correct(text).matches.isEmpty());
        QCOMPARE(userOf(server.last()), text);
        QCOMPARE(server.requests(kLanguageTool).size(), 0);
    }

    void leftoversAreFramedForTheRemoteModel() {
        openRouterOn();
        const QString text = QStringLiteral("tkt, je les est vu hier soir");
        server.on(kLanguageTool, ltReply({
                                     ltFinding(text, "les est", {"les ai", "l'ai", "les es"},
                                               "CAT_GRAMMAIRE", "Auxiliaire avoir."),
                                     ltFinding(text, "soir", {}, "GRAMMAR", "Soir ou soirée ?"),
                                 }));
        // The model echoes the frame around its answer and shouts the slang.
        server.on(kOpenRouter,
                  chatReply("Texte à corriger :\n<<<\nTKT, je les ai vus hier soir\n>>>"));
        QCOMPARE(correct(text).text, QStringLiteral("Tkt, je les ai vus hier soir."));

        const RecordedRequest r = server.last();
        QCOMPARE(r.json()["model"].toString(), QStringLiteral("mistralai/mistral-nemo"));
        QVERIFY(systemOf(r).endsWith("choisis la correction juste selon le contexte, et corrige "
                                     "aussi toute autre faute."));
        // Lines run from the end of the text to its start.
        QCOMPARE(userOf(r), "Texte à corriger :\n<<<\n" + text +
                                "\n>>>\n\nFautes repérées :\n- « soir » : Soir ou soirée ?\n"
                                "- « les est » : Auxiliaire avoir. (propositions : les ai / l'ai "
                                "/ les es)");
    }

    void remoteFailureFallsBackOnTheLocalModel() {
        openRouterOn();
        server.on(kLanguageTool, Reply::text("indisponible", 503));
        server.on(kOpenRouter, Reply::text("{\"error\":\"rate\"}", 429));
        playLocalModel(server, chatReply("Bonjour à tous."));
        const Corrector::Detailed out = correct("bonjour a tous");
        QCOMPARE(out.text, QStringLiteral("Bonjour à tous."));
        QVERIFY(out.matches.isEmpty());
        const RecordedRequest remote = server.requests(kOpenRouter).first();
        QCOMPARE(userOf(server.last()), userOf(remote));
        QCOMPARE(systemOf(server.last()), systemOf(remote));
        QVERIFY(journal().contains(" languagetool: LanguageTool : erreur 503 indisponible\n"));
        QVERIFY(journal().contains(" correction: OpenRouter indisponible, Local prend le relais "
                                   "(OpenRouter : erreur 429 {\"error\":\"rate\"})\n"));

        // Without any model, the local model's failure reaches the caller.
        server.on("/v1/models", Reply::text("non", 404));
        QVERIFY_THROWS_EXCEPTION(EngineError, correct("un texte"));
    }

    void guardChanges_data() {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("guarded");
        QTest::newRow("slang back") << "tkt on verra"
                                    << "TKT on verra."
                                    << "tkt on verra.";
        QTest::newRow("1 and 6 letters stay") << "a jsp bonjour"
                                              << "A JSP BONJOUR"
                                              << "A jsp BONJOUR";
        QTest::newRow("no letter touching") << "mdr"
                                            << "MDRR MDR éMDR"
                                            << "MDRR mdr éMDR";
        QTest::newRow("a capital in the original") << "Jsp"
                                                   << "JSP"
                                                   << "JSP";
        QTest::newRow("question lost") << "tu viens ?"
                                       << "Tu viens."
                                       << "Tu viens ?";
        QTest::newRow("question invented") << "tu viens"
                                           << "\n Tu viens \t?\n"
                                           << "Tu viens.";
        QTest::newRow("only points for a question") << " ok ? "
                                                    << "..."
                                                    << " ?";
    }
    void guardChanges() {
        QFETCH(QString, original);
        QFETCH(QString, answer);
        QFETCH(QString, guarded);
        QCOMPARE(Corrector::guardChanges(original, answer), guarded);
    }

    void instructionsFollowTheScope() {
        const QString full = Corrector::instructions("français", {"Ombry", " \t", " Kévin"});
        QVERIFY(full.startsWith("Corrige ce texte en français. Corrige uniquement : l'orthographe, "
                                "la grammaire, la conjugaison et les accords, la ponctuation, les "
                                "majuscules et les espaces. Ponctuation normale : "));
        QVERIFY(full.endsWith(".\nOrthographe à respecter pour ces mots : Ombry,  Kévin."));
        settings().setCorrectionScope(CorrectionScope::Spelling | CorrectionScope::Style);
        QVERIFY(Corrector::instructions("anglais", {})
                    .startsWith("Corrige ce texte en anglais. Corrige uniquement : l'orthographe. "
                                "Ne touche pas à : la "
                                "grammaire, la ponctuation exactement telle quelle, les majuscules "
                                "et les espaces. Tu "
                                "peux rendre les phrases un peu plus fluides, sans changer le sens "
                                "ni le ton.\nGarde"));
    }
};

QTEST_GUILESS_MAIN(TstCorrector)
#include "tst_corrector.moc"
