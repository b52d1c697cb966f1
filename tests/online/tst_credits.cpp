// The balance and the account link against a local server playing the product site, with the
// fake clock deciding when a day has passed and when the next link poll is due.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "data/Settings.h"
#include "desktop/Log.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUrlQuery>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kStatus = QStringLiteral("/api/link/status");
const QString kStart = QStringLiteral("/api/link/start");

Credits& credits() {
    return Credits::shared();
}

QString journal() {
    Log::sync();
    QFile f(Log::url());
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

} // namespace

class TstCredits : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer site;

    void applyUpdate(std::optional<int> n) {
        credits().update(n);
        QCoreApplication::processEvents(); // update lands on a later turn of the loop
    }
    QStringList notifications() {
        QStringList out;
        for (const auto& p : platform.notifier().posted())
            out << p.title + " | " + p.body;
        return out;
    }
    // Keeps the fake clock moving while a link attempt waits between polls.
    std::unique_ptr<QTimer> clockPusher() {
        auto timer = std::make_unique<QTimer>();
        QObject::connect(timer.get(), &QTimer::timeout, [this] { platform.clock().advance(1000); });
        timer->start(2);
        return timer;
    }

private Q_SLOTS:
    void initTestCase() { qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8()); }
    void init() {
        site.reset();
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
    }

    void deviceIdentity() {
        QCOMPARE(
            CreditsConfig::deviceIDOf("0123456789abcdef0123456789abcdef"),
            QStringLiteral("ad228e56339496b2df54b78212cce1e318cfa1605fa8192f51ad75734970f95e"));
        QCOMPARE(
            CreditsConfig::deviceIDOf(QString()),
            QStringLiteral("66e0ec85709869d3d6f9820e9dd93082b2414e3dda62865bd154c2d8472ea504"));
        QCOMPARE(CreditsConfig::deviceID(),
                 CreditsConfig::deviceIDOf(platform.machine().machineIdentifier()));
    }

    void buyingLinks() {
        const QUrl page = CreditsConfig::packURL(CreditsConfig::packs()[1]);
        QCOMPARE(page.path(), QStringLiteral("/acheter/credits/500"));

        const std::optional<QUrl> checkout = CreditsConfig::checkoutURL(page.toString() + "?a=1");
        QVERIFY(checkout);
        const QUrlQuery query(*checkout);
        QCOMPARE(query.queryItemValue("a"), QStringLiteral("1"));
        QCOMPARE(query.queryItemValue("checkout[custom][account]", QUrl::FullyDecoded),
                 CreditsConfig::account());
        QCOMPARE(CreditsConfig::checkoutURL("http://exa mple.fr/%zz"), std::nullopt);
    }

    void lowBalanceNotifiesOnceADay() {
        AppSettings::shared().defaults().remove("lowCreditsNotifiedAt");
        const int before = int(platform.notifier().posted().size());
        applyUpdate(10);
        QCOMPARE(platform.notifier().posted().size(), before);
        QCOMPARE(credits().balance(), std::optional<int>(10));

        applyUpdate(9);
        platform.clock().advance(60 * 1000);
        applyUpdate(9);
        QCOMPARE(notifications().mid(before),
                 QStringList{
                     "Plus que 9 crédits Ombry | Recharge depuis Réglages › Compte, en un clic."});
        QCOMPARE(AppSettings::shared().defaults().doubleValue("lowCreditsNotifiedAt"),
                 std::optional<double>(double(platform.clock().now().toSecsSinceEpoch() - 60)));

        // Exactly a day later is not "more than a day".
        platform.clock().advance(86400 * 1000 - 60 * 1000);
        applyUpdate(0);
        QCOMPARE(notifications().size(), before + 1);
        QVERIFY(credits().exhausted());
        platform.clock().advance(1000);
        applyUpdate(0);
        QCOMPARE(notifications().last(),
                 QStringLiteral(
                     "Plus de crédits Ombry | La dictée continue avec Local, sur ton ordinateur."));

        // Nothing heard: nothing changes, nothing is said.
        platform.clock().advance(2 * 86400 * 1000);
        applyUpdate(std::nullopt);
        QCOMPARE(credits().balance(), std::optional<int>(0));
        QVERIFY(credits().exhausted());
        QCOMPARE(notifications().size(), before + 2);
        applyUpdate(200);
        QVERIFY(!credits().exhausted());
    }

    void refreshAppliesWhatTheSiteSays() {
        applyUpdate(200);
        site.on(kStatus, Reply::json(QJsonObject{{"credits", 42}, {"email", "lea@exemple.fr"}}));
        await(credits().refresh());
        const RecordedRequest r = site.last();
        QCOMPARE(r.path, kStatus);
        QCOMPARE(r.json(),
                 (QJsonObject{{"app", "voice"}, {"device_id", CreditsConfig::deviceID()}}));
        QCOMPARE(credits().balance(), std::optional<int>(42));
        QCOMPARE(credits().linkedEmail(), std::optional<QString>("lea@exemple.fr"));

        // A site that fails in any way leaves the state as it was.
        const QList<Reply> failures = {Reply::text("panne", 500), Reply::dropped(),
                                       Reply::json(QByteArray("[1,2]"))};
        for (const Reply& failure : failures) {
            site.on(kStatus, failure);
            await(credits().refresh());
            QCOMPARE(credits().balance(), std::optional<int>(42));
            QCOMPARE(credits().linkedEmail(), std::optional<QString>("lea@exemple.fr"));
        }

        // Unlinked on the site: unlinked here. A zero balance from refresh says nothing.
        const int notified = int(platform.notifier().posted().size());
        platform.clock().advance(3 * 86400 * 1000);
        site.on(kStatus, Reply::json(QJsonObject{{"credits", 0}}));
        await(credits().refresh());
        QCOMPARE(credits().linkedEmail(), std::nullopt);
        QVERIFY(credits().exhausted());
        QCOMPARE(platform.notifier().posted().size(), notified);
        applyUpdate(200);
    }

    void linkWithoutAPageGivesUp() {
        const qsizetype opened = platform.browser().opened.size();
        for (const Reply& answer :
             {Reply::json(QJsonObject{{"ok", true}}),
              Reply::json(QJsonObject{{"url", "pas une adresse"}}), Reply::text("panne", 503)}) {
            site.reset();
            site.on(kStart, answer);
            QSignalSpy linking(&credits(), &Credits::linkingChanged);
            await(credits().link());
            QVERIFY(!credits().linking());
            QCOMPARE(linking.size(), 2); // on, then off
            QCOMPARE(site.requests(kStatus).size(), 0);
        }
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
        await(credits().link());

        const RecordedRequest first = site.requests(kStart).first();
        QCOMPARE(first.json().value("app").toString(), QStringLiteral("voice"));
        QCOMPARE(first.json().value("device_id").toString(), CreditsConfig::deviceID());
        QVERIFY(!first.json().value("name").toString().isEmpty());
        QCOMPARE(platform.browser().opened.last(), QUrl("https://ombry.example/relier?c=7"));
        QCOMPARE(pollTimes.size(), 3);
        QVERIFY(pollTimes[0] - start >= 3000);
        QVERIFY(pollTimes[1] - pollTimes[0] >= 3000);
        QCOMPARE(credits().linkedEmail(), std::optional<QString>("max@exemple.fr"));
        QVERIFY(!credits().linking());
        QVERIFY(journal().contains(QStringLiteral("compte: ordinateur relié\n")));
    }

    void linkStopsAfterAHundredPolls() {
        site.on(kStart, Reply::json(QJsonObject{{"url", "https://ombry.example/relier"}}));
        site.on(kStatus, Reply::json(QJsonObject{{"credits", 5}}));
        const auto pusher = clockPusher();
        await(credits().link());
        QCOMPARE(site.requests(kStatus).size(), Credits::kLinkPolls);
        QVERIFY(!credits().linking());
        QCOMPARE(credits().linkedEmail(), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TstCredits)
#include "tst_credits.moc"
