// Translation and voice commands against a loopback server playing OpenRouter and another
// playing the local model: which language is detected, which direction and model are asked
// for, and how a failing remote hands over to the local model.
#include "correction/Translator.h"
#include "correction/VoiceCommand.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "desktop/Log.h"

#include "FakePlatform.h"
#include "ServiceReplies.h"

#include <QCoroTask>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using ombry::test::chatReply;
using ombry::test::messageOf;
using ombry::test::RecordedRequest;
using ombry::test::Reply;
using ombry::test::TestHttpServer;

namespace {

// The result of a task, or its error prefixed with "!".
QString outcome(QCoro::Task<QString> task) {
    try {
        return test::await(std::move(task));
    } catch (const std::exception& e) {
        return QStringLiteral("!") + QString::fromUtf8(e.what());
    }
}

const char* const kEnglish = "I will send you the report tomorrow morning before the meeting.";
const char* const kFrench = "Je t'envoie le rapport demain matin avant la réunion avec l'équipe.";
const char* const kSpanish = "Te enviaré el informe mañana por la mañana antes de la reunión.";
const char* const kRussian = "Я отправлю тебе отчёт завтра утром перед встречей с командой.";

} // namespace

class TstTranslator : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;
    QTemporaryDir dir_;
    TestHttpServer openRouter_;
    TestHttpServer local_;

    QString journal() {
        Log::sync();
        QFile file(dir_.filePath("journal.log"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    void useOwnKey(bool on) {
        KeyStore::shared().save(on ? QStringLiteral("k") : QString(), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(on);
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(dir_.isValid());
        Log::resetForTests(dir_.filePath("journal.log"));
        qputenv("OMBRY_OPENROUTER_URL", openRouter_.url().toString().toUtf8());
        qputenv("OMBRY_LOCAL_LLM_URL", local_.url().toString().toUtf8());
        test::playLocalModel(local_, chatReply("local"));
    }

    void init() {
        openRouter_.reset();
        openRouter_.on("/api/v1/chat/completions", chatReply("distant"));
        local_.clearRequests();
        useOwnKey(true);
        AppSettings::shared().setRewriteEngine(RewriteEngine::Apple);
    }

    void detect_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        QTest::newRow("en") << kEnglish << "anglais";
        QTest::newRow("fr") << kFrench << "français";
        QTest::newRow("es") << kSpanish << "espagnol";
        QTest::newRow("de")
            << "Ich schicke dir den Bericht morgen früh vor der Besprechung mit dem Team."
            << "allemand";
        QTest::newRow("it")
            << "Ti mando il rapporto domani mattina prima della riunione con la squadra."
            << "italien";
        QTest::newRow("pt")
            << "Vou te enviar o relatório amanhã de manhã antes da reunião com a equipe."
            << "portugais";
        QTest::newRow("nl")
            << "Ik stuur je het verslag morgenochtend voor de vergadering met het team."
            << "néerlandais";
        QTest::newRow("ja")
            << "明日の朝、チームとの会議の前に報告書をお送りします。よろしくお願いします。"
            << "japonais";
        QTest::newRow("zh") << "我明天早上在和团队开会之前把报告发给你，请注意查收。"
                            << "chinois";
        QTest::newRow("zh-Hant")
            << "我明天早上在和團隊開會之前把報告發給你，請注意查收。我們明天見面吧。"
            << "chinois";
        QTest::newRow("outside the table") << kRussian << "";
        QTest::newRow("no letters") << "12 + 30 = 42 !"
                                    << "";
        QTest::newRow("one word") << "Bonjour"
                                  << "français";
        QTest::newRow("empty") << ""
                               << "";
    }
    void detect() {
        QFETCH(QString, text);
        QFETCH(QString, name);
        QCOMPARE(Translator::detect(text).value_or(QString()), name);
    }

    void direction_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("autoReverse");
        QTest::addColumn<QString>("to");
        QTest::newRow("english to english turns") << kEnglish << "anglais" << true << "français";
        QTest::newRow("french to french turns") << kFrench << "français" << true << "anglais";
        QTest::newRow("spanish to spanish turns") << kSpanish << "espagnol" << true << "français";
        QTest::newRow("no reverse asked") << kEnglish << "anglais" << false << "anglais";
        QTest::newRow("other language") << kFrench << "anglais" << true << "anglais";
        QTest::newRow("undetected") << kRussian << "anglais" << true << "anglais";
    }
    void direction() {
        QFETCH(QString, text);
        QFETCH(QString, target);
        QFETCH(bool, autoReverse);
        QFETCH(QString, to);
        QCOMPARE(outcome(Translator::translate(text, target, autoReverse)),
                 QStringLiteral("distant"));
        QCOMPARE(openRouter_.count(), 1);
        const RecordedRequest request = openRouter_.last();
        QVERIFY(
            messageOf(request, 0).startsWith("Traduis ce texte en " + to + ".\nTraduis de façon"));
        QCOMPARE(messageOf(request, 1), text);
        QCOMPARE(local_.count(), 0);
    }

    void modelFollowsRewriteEngineForTranslationOnly() {
        AppSettings::shared().setOpenRouterModel("anthropic/claude-haiku-4.5");
        test::await(Translator::translate(kFrench, "anglais", true));
        QCOMPARE(openRouter_.last().json().value("model").toString(),
                 QStringLiteral("google/gemini-2.5-flash-lite"));

        AppSettings::shared().setRewriteEngine(RewriteEngine::OpenRouter);
        test::await(Translator::translate(kFrench, "anglais", true));
        QCOMPARE(openRouter_.last().json().value("model").toString(),
                 QStringLiteral("anthropic/claude-haiku-4.5"));

        QCOMPARE(outcome(VoiceCommand::apply("rends-le plus poli", "donne moi ça")),
                 QStringLiteral("distant"));
        const RecordedRequest command = openRouter_.last();
        QCOMPARE(command.json().value("model").toString(),
                 QStringLiteral("google/gemini-2.5-flash-lite"));
        QVERIFY(messageOf(command, 0).startsWith("Tu modifies un texte selon l'instruction"));
        QCOMPARE(messageOf(command, 1),
                 QStringLiteral("Instruction : rends-le plus poli\n\nTexte :\ndonne moi ça"));
    }

    void failingRemoteHandsOverToLocal() {
        openRouter_.on("/api/v1/chat/completions", Reply::text("upstream down", 502));
        QCOMPARE(outcome(Translator::translate(kFrench, "anglais", true)), QStringLiteral("local"));
        QCOMPARE(outcome(VoiceCommand::apply("résume", "un texte")), QStringLiteral("local"));
        QCOMPARE(openRouter_.count(), 2);
        // The local model gets the same instructions and text as the remote did.
        const auto localCalls = local_.requests("/v1/chat/completions");
        QCOMPARE(localCalls.size(), 2);
        QCOMPARE(messageOf(localCalls[0], 0), messageOf(openRouter_.requests()[0], 0));
        QCOMPARE(messageOf(localCalls[1], 1), messageOf(openRouter_.requests()[1], 1));
        const QString log = journal();
        QVERIFY(log.contains(" traduction: OpenRouter indisponible, Local prend le relais\n"));
        QVERIFY(log.contains(" commande: OpenRouter indisponible, Local prend le relais\n"));
        QVERIFY(!log.contains("upstream down")); // the remote error is dropped
    }

    void localFailureReachesCaller() {
        openRouter_.on("/api/v1/chat/completions", Reply::text("upstream down", 502));
        local_.on("/v1/chat/completions", Reply::text("model crashed", 500));
        QCOMPARE(outcome(Translator::translate(kFrench, "anglais", true)),
                 QStringLiteral("!IA locale : erreur 500 model crashed"));
        local_.on("/v1/chat/completions", chatReply("local"));
    }

    void withoutRemoteNothingIsSent() {
        useOwnKey(false);
        const qsizetype handovers = journal().count("prend le relais");
        QCOMPARE(outcome(Translator::translate(kFrench, "anglais", true)), QStringLiteral("local"));
        QCOMPARE(outcome(VoiceCommand::apply("résume", "un texte")), QStringLiteral("local"));
        QCOMPARE(openRouter_.count(), 0);
        QCOMPARE(journal().count("prend le relais"), handovers); // a first choice, no fallback
    }
};

QTEST_GUILESS_MAIN(TstTranslator)
#include "tst_translator.moc"
