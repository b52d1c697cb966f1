// The balance and the account link against a local server playing the product site, with the
// fake clock deciding when a day has passed and when the next link poll is due.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Settings.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"

#include <QTest>
#include <QTimer>

using namespace ombry;
using namespace ombry::test;

namespace {
const QString kStatus = QStringLiteral("/api/link/status");
const QString kStart = QStringLiteral("/api/link/start");
} // namespace

class TstCredits : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer site;
    Credits& credits = Credits::shared();

    void applyUpdate(std::optional<int> n) {
        credits.update(n);
        QCoreApplication::processEvents(); // update lands on a later turn of the loop
    }
    qsizetype notified() { return platform.notifier().posted().size(); }
    QString lastNotification() {
        const auto last = platform.notifier().posted().last();
        return last.title + " | " + last.body;
    }
    // Keeps the fake clock moving while a link attempt waits between polls.
    std::unique_ptr<QTimer> clockPusher() {
        auto timer = std::make_unique<QTimer>();
        QObject::connect(timer.get(), &QTimer::timeout, [this] { platform.clock().advance(1000); });
        timer->start(2);
        return timer;
    }

private Q_SLOTS:
    void init() {
        site.reset();
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
    }

    void deviceIdentity() {
        QCOMPARE(
            CreditsConfig::deviceIDOf("0123456789abcdef0123456789abcdef"),
            QStringLiteral("ad228e56339496b2df54b78212cce1e318cfa1605fa8192f51ad75734970f95e"));
    }

    void lowBalanceNotifiesOnceADay() {
        AppSettings::shared().defaults().remove("lowCreditsNotifiedAt");
        const qsizetype before = notified();
        applyUpdate(10);
        QCOMPARE(notified(), before);
        applyUpdate(9);
        QCOMPARE(lastNotification(),
                 "Plus que 9 crédits Ombry | Recharge depuis Réglages › Compte, en un clic.");
        // Exactly a day later is not "more than a day".
        platform.clock().advance(86400 * 1000);
        applyUpdate(0);
        QCOMPARE(notified(), before + 1);
        QVERIFY(credits.exhausted());
        platform.clock().advance(1000);
        applyUpdate(0);
        QVERIFY(lastNotification().startsWith("Plus de crédits Ombry | La dictée continue"));

        // Nothing heard: nothing changes.
        applyUpdate(std::nullopt);
        QCOMPARE(credits.balance(), std::optional<int>(0));
    }

    void refreshAppliesWhatTheSiteSays() {
        site.on(kStatus, Reply::json(QJsonObject{{"credits", 42}, {"email", "lea@exemple.fr"}}));
        await(credits.refresh());
        QCOMPARE(site.last().json(),
                 (QJsonObject{{"app", "voice"}, {"device_id", CreditsConfig::deviceID()}}));
        QCOMPARE(credits.balance(), std::optional<int>(42));
        QCOMPARE(credits.linkedEmail(), std::optional<QString>("lea@exemple.fr"));

        // A site that fails in any way leaves the state as it was.
        for (const Reply& failure :
             {Reply::text("panne", 500), Reply::dropped(), Reply::json(QByteArray("[1,2]"))}) {
            site.on(kStatus, failure);
            await(credits.refresh());
            QCOMPARE(credits.balance(), std::optional<int>(42));
            QCOMPARE(credits.linkedEmail(), std::optional<QString>("lea@exemple.fr"));
        }
    }

    void linkWithoutAPageGivesUp() {
        const qsizetype opened = platform.browser().opened.size();
        for (const Reply& answer :
             {Reply::json(QJsonObject{{"url", "pas une adresse"}}), Reply::text("panne", 503)}) {
            site.on(kStart, answer);
            await(credits.link());
            QVERIFY(!credits.linking());
        }
        QCOMPARE(site.requests(kStatus).size(), 0);
        QCOMPARE(platform.browser().opened.size(), opened);
    }

    void linkOpensThePageAndPollsUntilLinked() {
        QList<int64_t> pollTimes;
        site.on(kStart, Reply::json(QJsonObject{{"url", "https://ombry.example/relier?c=7"}}));
        // The status polls: a failing site at first, then the answer of a linked account.
        site.setHandler([&](const RecordedRequest&) {
            pollTimes << platform.clock().elapsedMs();
            if (pollTimes.size() < 3) return Reply::text("panne", 500);
            return Reply::json(QJsonObject{{"credits", 5}, {"email", "max@exemple.fr"}});
        });
        const int64_t start = platform.clock().elapsedMs();
        const auto pusher = clockPusher();
        await(credits.link());

        QCOMPARE(site.requests(kStart).first().json().value("device_id").toString(),
                 CreditsConfig::deviceID());
        QCOMPARE(platform.browser().opened.last(), QUrl("https://ombry.example/relier?c=7"));
        QCOMPARE(pollTimes.size(), 3);
        QVERIFY(pollTimes[0] - start >= 3000);
        QVERIFY(pollTimes[1] - pollTimes[0] >= 3000);
        QCOMPARE(credits.linkedEmail(), std::optional<QString>("max@exemple.fr"));
        QVERIFY(!credits.linking());
    }

    void linkStopsAfterAHundredPolls() {
        site.on(kStart, Reply::json(QJsonObject{{"url", "https://ombry.example/relier"}}));
        site.on(kStatus, Reply::json(QJsonObject{{"credits", 5}}));
        const auto pusher = clockPusher();
        await(credits.link());
        QCOMPARE(site.requests(kStatus).size(), Credits::kLinkPolls);
        QVERIFY(!credits.linking());
        QCOMPARE(credits.linkedEmail(), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TstCredits)
#include "tst_credits.moc"
