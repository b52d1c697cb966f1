// Translation and voice commands against a server playing OpenRouter and the local model.
#include "FakePlatform.h"
#include "ServiceReplies.h"

#include "correction/Translator.h"
#include "correction/VoiceCommand.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

// The result of a task, or its error prefixed with "!".
QString outcome(QCoro::Task<QString> task) {
    try {
        return await(std::move(task));
    } catch (const std::exception& e) {
        return QStringLiteral("!") + QString::fromUtf8(e.what());
    }
}

const char* const kEnglish = "I will send you the report tomorrow morning before the meeting.";
const char* const kFrench = "Je t'envoie le rapport demain matin avant la réunion avec l'équipe.";
const char* const kRussian = "Я отправлю тебе отчёт завтра утром перед встречей с командой.";

} // namespace

class TstTranslator : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;

private Q_SLOTS:
    void initTestCase() { pointServicesAt(server); }
    void init() {
        server.reset();
        server.on(kOpenRouter, chatReply("distant"));
        playLocalModel(server, chatReply("local"));
        openRouterOn();
        AppSettings::shared().setRewriteEngine(RewriteEngine::Local);
    }

    void detect_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("name");
        auto row = [](const char* tag, const char* text, const char* name) {
            QTest::newRow(tag) << text << name;
        };
        row("en", kEnglish, "anglais");
        row("fr", kFrench, "français");
        row("es", "Te enviaré el informe mañana antes de la reunión.", "espagnol");
        row("de", "Ich schicke dir den Bericht morgen vor der Besprechung.", "allemand");
        row("it", "Ti mando il rapporto domani prima della riunione.", "italien");
        row("pt", "Vou te enviar o relatório amanhã antes da reunião.", "portugais");
        row("nl", "Ik stuur je het verslag morgenochtend voor de vergadering.", "néerlandais");
        row("ja", "明日の会議の前に報告書をお送りします。", "japonais");
        row("zh-Hant", "我明天早上在和團隊開會之前把報告發給你。", "chinois");
        row("one word", "Bonjour", "français");
        row("outside the table", kRussian, "");
        row("no letters", "12 + 30 = 42 !", "");
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
        QTest::newRow("no reverse asked") << kEnglish << "anglais" << false << "anglais";
        QTest::newRow("other language") << kFrench << "anglais" << true << "anglais";
        QTest::newRow("undetected") << kRussian << "anglais" << true << "anglais";
    }
    void direction() {
        QFETCH(QString, text);
        QFETCH(QString, target);
        QFETCH(bool, autoReverse);
        QFETCH(QString, to);
        QCOMPARE(outcome(Translator::translate(text, target, autoReverse)), "distant");
        QVERIFY(systemOf(server.last()).startsWith("Traduis ce texte en " + to + ".\n"));
        QCOMPARE(userOf(server.last()), text);
        QCOMPARE(modelOf(server.last()), QStringLiteral("google/gemini-2.5-flash-lite"));
    }

    void failingRemoteHandsOverToLocal() {
        server.on(kOpenRouter, Reply::text("upstream down", 502));
        QCOMPARE(outcome(Translator::translate(kFrench, "anglais", true)), "local");
        QCOMPARE(outcome(VoiceCommand::apply("résume", "un texte")), "local");
        // The local model gets the same instructions and text as the remote did.
        const QList<RecordedRequest> remote = server.requests(kOpenRouter);
        const QList<RecordedRequest> local = server.requests(kLocal);
        QCOMPARE(remote.size(), 2);
        QCOMPARE(local.size(), 2);
        QCOMPARE(systemOf(local[0]), systemOf(remote[0]));
        QCOMPARE(userOf(local[1]), userOf(remote[1]));
        server.on(kLocal, Reply::text("model crashed", 500));
        QCOMPARE(outcome(Translator::translate(kFrench, "anglais", true)),
                 "!IA locale : erreur 500 model crashed");
    }
};

QTEST_GUILESS_MAIN(TstTranslator)
#include "tst_translator.moc"
