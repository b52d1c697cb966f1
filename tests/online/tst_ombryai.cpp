// The chat door on both roads (own key, hosted) against local servers, and OpenRouter::complete.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "net/Errors.h"
#include "net/OpenRouter.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"
#include "online/OmbryAI.h"
#include "online/OpenRouterComplete.h"

#include <QJsonArray>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kChat = QStringLiteral("/api/v1/chat/completions");
const QString kVoice = QStringLiteral("/api/voice");

QJsonObject body() {
    return OpenRouter::requestBody("Consigne", "bonjour", "m/x");
}

QByteArray chat(double timeout = 10.0) {
    return await(OmbryAI::chat(body(), timeout, "Gemini"));
}

QString chatFailure() {
    return failureOf<EngineError>([] { chat(); });
}

} // namespace

class TstOmbryAI : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer openRouter;
    TestHttpServer site;

    void road(bool keyStored, bool ownKeyMode, bool siteOn) {
        KeyStore::shared().save(keyStored ? "sk-or-test" : QString(), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(ownKeyMode);
        qputenv("OMBRY_SITE_URL", siteOn ? site.url().toString().toUtf8() : QByteArray());
    }
    void setBalance(int credits) {
        Credits::shared().update(credits);
        QTRY_COMPARE(Credits::shared().balance(), std::optional<int>(credits));
    }

private Q_SLOTS:
    void initTestCase() {
        qputenv("OMBRY_OPENROUTER_URL", openRouter.url().toString().toUtf8());
        setBalance(500); // far from the warning threshold
    }
    void init() {
        openRouter.reset();
        site.reset();
    }

    void whichRoad() {
        // key stored, own-key mode, site on -> uses own key, uses credits
        const bool rows[][5] = {{true, true, true, true, false},
                                {true, false, true, false, true},  // a key left switched off
                                {false, true, true, false, true},  // the mode without a key
                                {true, false, false, true, false}, // no site: the key anyway
                                {false, false, false, false, false}};
        for (const auto& row : rows) {
            road(row[0], row[1], row[2]);
            QCOMPARE(OmbryAI::usesOwnKey(), row[3]);
            QCOMPARE(OmbryAI::usesCredits(), row[4]);
        }
        // No road at all: nothing is sent.
        QCOMPARE(chatFailure(), "Clé OpenRouter absente");
        QCOMPARE(openRouter.count() + site.count(), 0);
    }

    void ownKeyRequestOnTheWire() {
        road(true, true, true);
        openRouter.on(kChat, chatCompletion("Bonjour.", 0.00042));
        const qsizetype costsBefore = Store::shared().costs().size();
        QVERIFY(chat().contains("Bonjour."));
        QCOMPARE(site.count(), 0);
        const RecordedRequest r = openRouter.last();
        QCOMPARE(r.header("authorization"), QByteArray("Bearer sk-or-test"));
        QCOMPARE(r.header("content-type"), QByteArray("application/json"));
        QCOMPARE(r.header("x-title"), QByteArray("Ombry Voice"));
        QJsonObject expected = body();
        expected.insert("usage", QJsonObject{{"include", true}});
        QCOMPARE(r.json(), expected); // nothing of the device identity
        QTRY_COMPARE(Store::shared().costs().size(), costsBefore + 1);
        QCOMPARE(Store::shared().costs().last().amount, 0.00042);
    }

    void hostedRequestOnTheWire() {
        road(true, false, true); // a stored key that is not switched on stays home
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
        setBalance(500);
    }

    void hostedWaitsFiveSecondsLonger() {
        road(false, false, true);
        site.on(kVoice, chatCompletion("lent").after(600));
        openRouter.on(kChat, chatCompletion("lent").after(600));
        QVERIFY(chat(0.2).contains("lent"));
        road(true, true, true);
        QVERIFY_THROWS_EXCEPTION(TransportError, chat(0.2));
    }

    void hostedStatuses() {
        road(false, false, true);
        // Any other status is an error named after the service, whatever the caller's label.
        site.on(kVoice, Reply::json(QByteArray(R"({"error":"surcharge"})"), 503));
        QCOMPARE(chatFailure(), "Ombry : erreur 503 surcharge");
        site.on(kVoice, Reply::json(QByteArray(R"({"error":{"x":1}})"), 400));
        QCOMPARE(chatFailure(), "Ombry : erreur 400 ");
        QVERIFY(!Credits::shared().exhausted());

        site.on(kVoice, Reply::json(QJsonObject{{"error", "solde nul"}}, 402));
        QCOMPARE(chatFailure(), "Plus de crédits Ombry");
        QTRY_VERIFY(Credits::shared().exhausted());
        QCOMPARE(Credits::shared().balance(), std::optional<int>(0));
        // From now on nothing is sent: chat fails at once, complete even before chat.
        site.clearRequests();
        QCOMPARE(chatFailure(), "Plus de crédits Ombry");
        QCOMPARE(failureOf<EngineError>([] { await(OpenRouter::complete("s", "texte", "m")); }),
                 "Clé OpenRouter absente");
        QCOMPARE(site.count(), 0);
        setBalance(500);
    }

    void completeReadsTheFirstChoice() {
        road(true, true, false);
        openRouter.on(kChat, chatCompletion("  \n Bonjour, ça va ?\n "));
        QCOMPARE(await(OpenRouter::complete("s", "euh bonjour ça va", "m")), "Bonjour, ça va ?");
        // A remote that says nothing must not eat the user's words.
        openRouter.on(kChat, Reply::json(QJsonObject{{"choices", QJsonArray()}}));
        QCOMPARE(await(OpenRouter::complete("s", "  mot pour mot ", "m")), "  mot pour mot ");
        openRouter.on(kChat, chatCompletion(" \n "));
        QCOMPARE(await(OpenRouter::complete("s", "texte", "m")), QString());
    }
};

QTEST_GUILESS_MAIN(TstOmbryAI)
#include "tst_ombryai.moc"
