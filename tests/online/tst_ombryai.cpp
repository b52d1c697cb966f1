// The chat door on both roads, against local servers playing OpenRouter and the product site:
// which road is taken, what goes on the wire, how each answer ends, and OpenRouter::complete on
// top of it.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "engines/client/Errors.h"
#include "engines/client/OpenRouter.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"
#include "online/OmbryAI.h"

#include <QFile>
#include <QJsonArray>
#include <QTest>
#include <functional>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kChat = QStringLiteral("/api/v1/chat/completions");
const QString kVoice = QStringLiteral("/api/voice");

QJsonObject body(const QString& text = QStringLiteral("bonjour")) {
    return OpenRouter::requestBody(QStringLiteral("Consigne"), text, QStringLiteral("m/x"));
}

QByteArray chat(double timeout = 10.0, const QString& label = QStringLiteral("Gemini")) {
    return await(OmbryAI::chat(body(), timeout, label));
}

QString journal() {
    Log::sync();
    QFile f(Log::url());
    if (!f.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(f.readAll());
}

} // namespace

class TstOmbryAI : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer openRouter;
    TestHttpServer site;

    void ownKey(bool stored, bool mode) {
        KeyStore::shared().save(stored ? QStringLiteral("sk-or-test") : QString(),
                                APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(mode);
    }
    void withSite(bool on) {
        qputenv("OMBRY_SITE_URL", on ? site.url().toString().toUtf8() : QByteArray());
    }
    void setBalance(int credits) {
        Credits::shared().update(credits);
        QTRY_COMPARE(Credits::shared().balance(), std::optional<int>(credits));
    }

private Q_SLOTS:
    void initTestCase() {
        qputenv("OMBRY_OPENROUTER_URL", openRouter.url().toString().toUtf8());
        // A balance far from the warning threshold, so no test trips over a notification.
        setBalance(500);
    }
    void init() {
        openRouter.reset();
        site.reset();
    }

    void whichRoad_data() {
        QTest::addColumn<bool>("keyStored");
        QTest::addColumn<bool>("ownKeyMode");
        QTest::addColumn<bool>("siteOn");
        QTest::addColumn<bool>("usesOwnKey");
        QTest::addColumn<bool>("usesCredits");
        QTest::newRow("key switched on") << true << true << true << true << false;
        QTest::newRow("key stored, mode off: credits") << true << false << true << false << true;
        QTest::newRow("mode on, no key: credits") << false << true << true << false << true;
        QTest::newRow("key, no site: own key anyway") << true << false << false << true << false;
        QTest::newRow("nothing at all") << false << false << false << false << false;
    }
    void whichRoad() {
        QFETCH(bool, keyStored);
        QFETCH(bool, ownKeyMode);
        QFETCH(bool, siteOn);
        ownKey(keyStored, ownKeyMode);
        withSite(siteOn);
        QTEST(OmbryAI::usesOwnKey(), "usesOwnKey");
        QTEST(OmbryAI::usesCredits(), "usesCredits");
    }

    void ownKeyRequestOnTheWire() {
        ownKey(true, true);
        withSite(true);
        openRouter.on(kChat, chatCompletion("Bonjour.", 0.00042));
        const qsizetype costsBefore = Store::shared().costs().size();

        QVERIFY(chat(10.0).contains("Bonjour."));
        QCOMPARE(site.count(), 0);
        const RecordedRequest r = openRouter.last();
        QCOMPARE(r.header("authorization"), QByteArray("Bearer sk-or-test"));
        QCOMPARE(r.header("content-type"), QByteArray("application/json"));
        QCOMPARE(r.header("x-title"), QByteArray("Ombry Voice"));
        QJsonObject expected = body();
        expected.insert("usage", QJsonObject{{"include", true}});
        QCOMPARE(r.json(), expected); // nothing of the device identity
        // The cost of the call lands in the spending record.
        QTRY_COMPARE(Store::shared().costs().size(), costsBefore + 1);
        QCOMPARE(Store::shared().costs().last().amount, 0.00042);
    }

    void ownKeyFailuresRecordNothing() {
        ownKey(true, true);
        const qsizetype costsBefore = Store::shared().costs().size();
        openRouter.on(kChat, Reply::text("ok", 201)); // only 200 is success
        QCOMPARE(failureOf<EngineError>([] { chat(10.0, "OpenRouter"); }),
                 QStringLiteral("OpenRouter : erreur 201 ok"));
        openRouter.on(kChat, Reply::text("\xff\xfe", 502)); // not UTF-8: no body at all
        QCOMPARE(failureOf<EngineError>([] { chat(); }), QStringLiteral("Gemini : erreur 502 "));
        QCoreApplication::processEvents();
        QCOMPARE(Store::shared().costs().size(), costsBefore);
    }

    void hostedRequestOnTheWire() {
        ownKey(true, false); // a stored key that is not switched on stays home
        withSite(true);
        site.on(kVoice,
                chatCompletion("Salut.", std::nullopt, {{"ombry", QJsonObject{{"credits", 321}}}}));
        QJsonObject sent = body();
        sent.insert("usage", QJsonObject{{"include", true}});
        sent.insert("app", "autre");
        sent.insert("device_id", "faux");
        QVERIFY(await(OmbryAI::chat(sent, 10.0, "OpenRouter")).contains("Salut."));
        QCOMPARE(openRouter.count(), 0);
        const RecordedRequest r = site.last();
        QVERIFY(!r.hasHeader("authorization"));
        QJsonObject expected = body();
        expected.insert("device_id", CreditsConfig::deviceID()); // the identity wins
        expected.insert("app", "voice");
        QCOMPARE(r.json(), expected); // and usage is gone
        QTRY_COMPARE(Credits::shared().balance(), std::optional<int>(321));
        QVERIFY(!Credits::shared().exhausted());
    }

    void hostedWaitsFiveSecondsLonger() {
        ownKey(false, false);
        withSite(true);
        site.on(kVoice, chatCompletion("lent").after(600));
        openRouter.on(kChat, chatCompletion("lent").after(600));
        QVERIFY(chat(0.2).contains("lent"));
        ownKey(true, true);
        QVERIFY_THROWS_EXCEPTION(TransportError, chat(0.2));
    }

    void usedUpBalance() {
        ownKey(false, false);
        withSite(true);
        site.on(kVoice, Reply::json(QJsonObject{{"error", "solde nul"}}, 402));
        QCOMPARE(failureOf<EngineError>([] { chat(); }), QStringLiteral("Plus de crédits Ombry"));
        QTRY_VERIFY(Credits::shared().exhausted());
        QCOMPARE(Credits::shared().balance(), std::optional<int>(0));
        QVERIFY(journal().contains(QStringLiteral("crédits Ombry épuisés : retour sur Local\n")));

        // From now on nothing is sent: chat fails at once, complete even before chat.
        site.clearRequests();
        QCOMPARE(failureOf<EngineError>([] { chat(); }), QStringLiteral("Plus de crédits Ombry"));
        QCOMPARE(failureOf<EngineError>([] { await(OpenRouter::complete("s", "texte", "m")); }),
                 QStringLiteral("Clé OpenRouter absente"));
        QCOMPARE(site.count(), 0);
        setBalance(500);
    }

    void otherHostedStatuses() {
        ownKey(false, false);
        withSite(true);
        site.on(kVoice, Reply::json(QByteArray(R"({"error":"surcharge"})"), 503));
        QCOMPARE(failureOf<EngineError>([] { chat(10.0, "Gemini"); }),
                 QStringLiteral("Ombry : erreur 503 surcharge")); // "Ombry", whatever the label
        site.on(kVoice, Reply::json(QByteArray(R"({"error":{"x":1}})"), 400));
        QCOMPARE(failureOf<EngineError>([] { chat(); }), QStringLiteral("Ombry : erreur 400 "));
        QVERIFY(!Credits::shared().exhausted());
    }

    void noRoadAtAll() {
        ownKey(false, false);
        withSite(false);
        QCOMPARE(failureOf<EngineError>([] { chat(); }), QStringLiteral("Clé OpenRouter absente"));
        QCOMPARE(failureOf<EngineError>([] { await(OpenRouter::complete("s", "texte", "m")); }),
                 QStringLiteral("Clé OpenRouter absente"));
        QCOMPARE(openRouter.count() + site.count(), 0);
    }

    void completeReadsTheFirstChoice() {
        ownKey(true, true);
        openRouter.on(kChat, chatCompletion("  \n Bonjour, ça va ?\n "));
        QCOMPARE(await(OpenRouter::complete("Consigne", "euh bonjour ça va", "a/b")),
                 QStringLiteral("Bonjour, ça va ?"));
        const QJsonObject sent = openRouter.last().json();
        QCOMPARE(sent.value("model").toString(), QStringLiteral("a/b"));
        QCOMPARE(sent.value("max_tokens").toInt(), 3 * 4 + 200);
        QCOMPARE(sent.value("messages").toArray()[0].toObject().value("content").toString(),
                 QStringLiteral("Consigne"));

        // A remote that says nothing must not eat the user's words.
        openRouter.on(kChat, Reply::json(QJsonObject{{"choices", QJsonArray()}}));
        QCOMPARE(await(OpenRouter::complete("s", "  mot pour mot ", "m")),
                 QStringLiteral("  mot pour mot "));
        openRouter.on(kChat, chatCompletion(" \n "));
        QCOMPARE(await(OpenRouter::complete("s", "texte", "m")), QString());
    }
};

QTEST_GUILESS_MAIN(TstOmbryAI)
#include "tst_ombryai.moc"
