// The correction pipeline against a server that plays LanguageTool, OpenRouter and the local
// model: which findings are applied blindly, what the model is shown, the fallback from the
// remote model to the local one, and the repairs made to the model's answer.
#include "FakePlatform.h"
#include "ServiceReplies.h"
#include "TestHttpServer.h"

#include "correction/Corrector.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
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
    int run = 0;

    AppSettings& settings() { return AppSettings::shared(); }

    QString journal() {
        Log::sync();
        QFile f(dir.filePath(QStringLiteral("journal-%1.log").arg(run)));
        if (!f.open(QIODevice::ReadOnly)) return {};
        return QString::fromUtf8(f.readAll());
    }

    // The remote model is open: own key, own-key mode, rewrite engine OpenRouter.
    void openRouterOn() {
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        settings().setOwnKeyMode(true);
        settings().setRewriteEngine(RewriteEngine::OpenRouter);
    }

    Corrector::Detailed correct(const QString& text, const QStringList& words = {}) {
        return await(Corrector::correctDetailed(text, QStringLiteral("français"), words));
    }

private Q_SLOTS:
    void initTestCase() {
        const QByteArray url = server.url().toString().toUtf8();
        qputenv("OMBRY_LANGUAGETOOL_URL", url);
        qputenv("OMBRY_OPENROUTER_URL", url);
        qputenv("OMBRY_LOCAL_LLM_URL", url);
    }
    void init() {
        server.reset();
        Log::resetForTests(dir.filePath(QStringLiteral("journal-%1.log").arg(++run)));
        settings().setUseLanguageTool(true);
        settings().setCorrectorUsesApple(true);
        settings().setRewriteEngine(RewriteEngine::Apple);
        settings().setOwnKeyMode(false);
        settings().setCorrectionScope(CorrectionScope::Default);
        settings().setPunctuation(PunctuationLevel::Normal);
        settings().setLanguage(Language::Fr);
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
        const Corrector::Detailed out = correct(text, {QStringLiteral("Ombry")});
        QCOMPARE(out.text, QStringLiteral("Ça va, les enfants ? ok je vois OMBRY bien bien."));
        QCOMPARE(out.matches.size(), 3);
        QCOMPARE(out.matches[1].original, QStringLiteral("les enfant"));
        QCOMPARE(server.last().formValue("language"), QStringLiteral("fr"));
        QCOMPARE(server.requests(kOpenRouter).size() + server.requests(kLocal).size(), 0);
        QVERIFY(journal().contains(QStringLiteral(" languagetool: 3 fautes repérées\n")));
    }

    void withoutLanguageToolTheModelGetsThePlainText() {
        settings().setUseLanguageTool(false);
        settings().setLanguage(Language::Auto);
        playLocalModel(server, chatReply(QStringLiteral("Il pleut.")));
        const Corrector::Detailed out = correct(QStringLiteral("il pleu"));
        QCOMPARE(out.text, QStringLiteral("Il pleut."));
        QVERIFY(out.matches.isEmpty());
        QCOMPARE(server.requests(kLanguageTool).size(), 0);
        const RecordedRequest r = server.requests(kLocal).first();
        QCOMPARE(userOf(r), QStringLiteral("il pleu"));
        QVERIFY(!systemOf(r).contains(QStringLiteral("vérificateur")));
    }

    void safeFindingsAloneLeaveNoFrame() {
        const QString text = QStringLiteral("ca marche");
        server.on(kLanguageTool, ltReply({ltFinding(text, "ca", {"ça"}, "TYPOS")}));
        playLocalModel(server, chatReply(QStringLiteral("ça marche")));
        QCOMPARE(correct(text).text, QStringLiteral("Ça marche."));
        const RecordedRequest r = server.requests(kLocal).first();
        QCOMPARE(userOf(r), QStringLiteral("ça marche"));
        QVERIFY(!systemOf(r).contains(QStringLiteral("vérificateur")));
    }

    void leftoversAreFramedForTheRemoteModel() {
        openRouterOn();
        settings().setOpenRouterModel(QStringLiteral("mistralai/mistral-nemo"));
        const QString text = QStringLiteral("tkt, je les est vu hier soir");
        server.on(kLanguageTool,
                  ltReply({
                      ltFinding(text, "les est", {"les ai", "l'ai", "les es"}, "CAT_GRAMMAIRE",
                                "Auxiliaire avoir."),
                      ltFinding(text, "soir", {}, "CAT_GRAMMAIRE", "Soir ou soirée ?"),
                  }));
        // The model echoes the frame around its answer and shouts the slang.
        server.on(kOpenRouter, chatReply(QStringLiteral(
                                   "Texte à corriger :\n<<<\nTKT, je les ai vus hier soir\n>>>")));
        const Corrector::Detailed out = correct(text);
        QCOMPARE(out.text, QStringLiteral("Tkt, je les ai vus hier soir."));

        const RecordedRequest r = server.requests(kOpenRouter).first();
        QCOMPARE(r.json().value("model").toString(), QStringLiteral("mistralai/mistral-nemo"));
        QVERIFY(systemOf(r).endsWith(QStringLiteral(
            "\nUn vérificateur a repéré des fautes possibles. Elles peuvent être incomplètes ou "
            "fausses :\npour chacune, choisis la correction juste selon le contexte, et corrige "
            "aussi toute autre faute.")));
        // Lines run from the end of the text to its start.
        QCOMPARE(userOf(r), QStringLiteral("Texte à corriger :\n<<<\n%1\n>>>\n\nFautes repérées :\n"
                                           "- « soir » : Soir ou soirée ?\n"
                                           "- « les est » : Auxiliaire avoir. (propositions : "
                                           "les ai / l'ai / les es)")
                                .arg(text));
        QCOMPARE(server.requests(kLocal).size(), 0);
    }

    void remoteFailureFallsBackOnTheLocalModel() {
        openRouterOn();
        server.on(kLanguageTool, Reply::text("indisponible", 503));
        server.on(kOpenRouter, Reply::text("{\"error\":\"rate\"}", 429));
        playLocalModel(server, chatReply(QStringLiteral("Bonjour à tous.")));
        const Corrector::Detailed out = correct(QStringLiteral("bonjour a tous"));
        QCOMPARE(out.text, QStringLiteral("Bonjour à tous."));
        QVERIFY(out.matches.isEmpty());
        QCOMPARE(userOf(server.requests(kLocal).first()),
                 userOf(server.requests(kOpenRouter).first()));
        QCOMPARE(systemOf(server.requests(kLocal).first()),
                 systemOf(server.requests(kOpenRouter).first()));
        const QString log = journal();
        QVERIFY(log.contains(
            QStringLiteral(" languagetool: LanguageTool : erreur 503 indisponible\n")));
        QVERIFY(log.contains(
            QStringLiteral(" correction: OpenRouter indisponible, Local prend le "
                           "relais (OpenRouter : erreur 429 {\"error\":\"rate\"})\n")));
    }

    void localFailureReachesTheCaller() {
        settings().setUseLanguageTool(false);
        server.on("/v1/models", Reply::text("non", 404));
        try {
            correct(QStringLiteral("un texte"));
            QFAIL("without any model the correction must fail");
        } catch (const EngineError& e) {
            QCOMPARE(e.service(), QStringLiteral("IA locale"));
        }
    }

    void guardChanges_data() {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("guarded");
        QTest::newRow("slang back in lower case") << "tkt on verra"
                                                  << "TKT on verra."
                                                  << "tkt on verra.";
        QTest::newRow("one letter and six letters stay") << "a jsp bonjour"
                                                         << "A JSP BONJOUR"
                                                         << "A jsp BONJOUR";
        QTest::newRow("only where no letter touches") << "mdr"
                                                      << "MDRR MDR éMDR"
                                                      << "MDRR mdr éMDR";
        QTest::newRow("a word written with a capital is not guarded") << "Jsp"
                                                                      << "JSP"
                                                                      << "JSP";
        QTest::newRow("question lost") << "tu viens ?"
                                       << "Tu viens."
                                       << "Tu viens ?";
        QTest::newRow("question invented") << "tu viens"
                                           << "Tu viens \t?"
                                           << "Tu viens.";
        QTest::newRow("only points for a question") << " ok ? "
                                                    << "..."
                                                    << " ?";
        QTest::newRow("trimmed first") << "tu viens"
                                       << "\n Tu viens.\n"
                                       << "Tu viens.";
    }
    void guardChanges() {
        QFETCH(QString, original);
        QFETCH(QString, answer);
        QFETCH(QString, guarded);
        QCOMPARE(Corrector::guardChanges(original, answer), guarded);
    }

    void instructionsFollowTheScope() {
        settings().setCorrectionScope(CorrectionScope::Default);
        const QString full = Corrector::instructions(
            QStringLiteral("français"),
            {QStringLiteral("Ombry"), QStringLiteral(" \t"), QStringLiteral(" Kévin")});
        QVERIFY(full.startsWith(QStringLiteral(
            "Corrige ce texte en français. Corrige uniquement : l'orthographe, la grammaire, la "
            "conjugaison et les accords, la ponctuation, les majuscules et les espaces. "
            "Ponctuation "
            "normale : points, virgules et points d'interrogation là où ils sont nécessaires. Ne "
            "change ni le sens")));
        QVERIFY(full.endsWith(QStringLiteral(
            "sans guillemets ni commentaire.\nOrthographe à respecter pour ces mots : Ombry,  "
            "Kévin.")));

        settings().setCorrectionScope(CorrectionScope::Spelling | CorrectionScope::Style);
        const QString spelling = Corrector::instructions(QStringLiteral("anglais"), {});
        QVERIFY(spelling.startsWith(QStringLiteral(
            "Corrige ce texte en anglais. Corrige uniquement : l'orthographe. Ne touche pas à : la "
            "grammaire, la ponctuation exactement telle quelle, les majuscules et les espaces. Tu "
            "peux rendre les phrases un peu plus fluides, sans changer le sens ni le ton.\n")));
        QVERIFY(!spelling.contains(QStringLiteral("Orthographe à respecter")));
    }
};

QTEST_GUILESS_MAIN(TstCorrector)
#include "tst_corrector.moc"
