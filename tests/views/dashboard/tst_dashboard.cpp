// The dashboard's figures computed from a store in a temporary folder, then the page that
// follows the store.
#include "FakePlatform.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "views/dashboard/DashboardModel.h"
#include "views/dashboard/DashboardView.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;

namespace {

// Local noon of a day relative to the fake clock's today, in UTC.
QDateTime dayAt(int daysBack, int hour = 12) {
    const QDate today = Platform::current().clock().now().toLocalTime().date();
    return QDateTime(today.addDays(-daysBack), QTime(hour, 0)).toUTC();
}

Dictation words(int n, const QDateTime& date, const QString& app = QStringLiteral("Firefox"),
                double seconds = 6) {
    QStringList w;
    for (int i = 0; i < n; ++i)
        w << QStringLiteral("mot");
    return {.date = date, .appName = app, .finalText = w.join(u' '), .duration = seconds};
}

CorrectionRecord withFixes(int n) {
    CorrectionRecord r{.action = QStringLiteral("Corriger")};
    for (int i = 0; i < n; ++i)
        r.fixes.append(Fix{});
    return r;
}

QString labelText(QWidget& root, const QString& name) {
    auto* l = root.findChild<QLabel*>(name);
    return l ? l->text() : QStringLiteral("<none>");
}

} // namespace

class TstDashboard : public QObject {
    Q_OBJECT
    test::FakePlatform platform_;
    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<Store> store_;

private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "Europe/Paris"); }

    void init() {
        // Saturday 14 March 2026, 10:26 in Paris.
        platform_.clock().setNow(
            QDateTime::fromString(QStringLiteral("2026-03-14T09:26:53Z"), Qt::ISODate));
        dir_ = std::make_unique<QTemporaryDir>();
        store_ = std::make_unique<Store>(dir_->filePath(QStringLiteral("Ombry Voice")));
    }
    void cleanup() {
        store_.reset();
        dir_.reset();
    }

    void streakCountsBackFromTodayOrYesterday() {
        const QDate today = dayAt(0).toLocalTime().date();
        // Nothing yet today, three days in a row until yesterday: the streak still stands.
        store_->setDictations(
            {words(3, dayAt(1)), words(2, dayAt(2)), words(8, dayAt(3)), words(4, dayAt(5))});
        QCOMPARE(Dashboard::streak(*store_, today), 3);
        // Today and yesterday, none the day before.
        store_->setDictations({words(1, dayAt(0)), words(1, dayAt(1)), words(4, dayAt(3))});
        QCOMPARE(Dashboard::streak(*store_, today), 2);
        // A dictation of no word does not count as a day of dictation.
        store_->setDictations({words(1, dayAt(0)), words(0, dayAt(1))});
        QCOMPARE(Dashboard::streak(*store_, today), 1);
        store_->setDictations({});
        QCOMPARE(Dashboard::streak(*store_, today), 0);
        // A dictation late in the evening belongs to its local day, not to its UTC day.
        store_->setDictations({words(2, dayAt(0, 1)), words(2, dayAt(1, 23))});
        QCOMPARE(Dashboard::streak(*store_, today), 2);
    }

    void textsOfTheFigures() {
        QCOMPARE(Dashboard::deltaText(50, 100).value(), QStringLiteral("-50 % par rapport à hier"));
        QCOMPARE(Dashboard::deltaText(100, 100).value(), QStringLiteral("+0 % par rapport à hier"));
        QCOMPARE(Dashboard::deltaText(1, 3).value(), QStringLiteral("-67 % par rapport à hier"));
        QVERIFY(!Dashboard::deltaText(40, 0));

        QCOMPARE(Dashboard::savedText(80), QStringLiteral("1 h 20 min"));
        QCOMPARE(Dashboard::savedText(59.6), QStringLiteral("1 h 00 min"));

        // The chart's lines: round steps, the top at or above the tallest bar.
        QCOMPARE(Dashboard::chartLines(3), (QList<qint64>{0, 1, 2, 3}));
        QCOMPARE(Dashboard::chartLines(7), (QList<qint64>{0, 2, 4, 6, 8}));
        QCOMPARE(Dashboard::chartLines(50), (QList<qint64>{0, 10, 20, 30, 40, 50}));
        QCOMPARE(Dashboard::chartLines(1234), (QList<qint64>{0, 500, 1000, 1500}));
        QCOMPARE(Dashboard::chartLines(0), (QList<qint64>{0, 20, 40, 60, 80, 100}));

        // French thousands separator, whatever the locale of the process.
        QLocale::setDefault(QLocale::c());
        const QString n = Dashboard::number(1234567);
        QCOMPARE(QString(n).remove(QChar(0x202F)).remove(QChar(0xA0)).remove(u' '),
                 QStringLiteral("1234567"));
        QVERIFY(n.size() == 9);
        QCOMPARE(Dashboard::counted(0, QStringLiteral("mot"), QStringLiteral("mots")),
                 QStringLiteral("0 mots"));
    }

    void snapshotOfAStore() {
        // 4,000 words in 20 minutes, typing at 40 words a minute: 80 minutes saved.
        QList<Dictation> list;
        for (int i = 0; i < 10; ++i)
            list << words(400, dayAt(i % 2), QStringLiteral("Slack"), 120);
        list << words(0, dayAt(0), QStringLiteral("Terminal"), 0);
        store_->setDictations(list);
        store_->setFixes({withFixes(1)});
        const QDate today = dayAt(0).toLocalTime().date();

        DashboardSnapshot s = Dashboard::compute(*store_, 40, false, std::nullopt, today);
        QCOMPARE(s.hero.todayWords, 2000);
        QCOMPARE(s.cards.at(3).value, QStringLiteral("1 h 20 min"));
        QCOMPARE(s.cards.at(0).detail, QStringLiteral("11 dictées"));
        QCOMPARE(s.cards.at(1).detail, QStringLiteral("+0 % par rapport à hier"));
        QCOMPARE(s.cards.at(2).value, QStringLiteral("200"));
        QCOMPARE(s.pills.size(), 3);
        QCOMPARE(s.pills.at(2).label, QStringLiteral("API ce mois"));
        QCOMPARE(s.pills.at(2).value, QStringLiteral("0.00 $"));
        QCOMPARE(s.days.last().words, 2000);
        QCOMPARE(s.days.at(12).words, 2000);
        QCOMPARE(s.apps.first().percent, QStringLiteral("100 %"));

        // Credits: the balance when the site has told it, nothing before.
        s = Dashboard::compute(*store_, 40, true, 1, today);
        QCOMPARE(s.pills.at(2).label, QStringLiteral("crédit restant"));
        s = Dashboard::compute(*store_, 40, true, 1250, today);
        QCOMPARE(s.pills.at(2).label, QStringLiteral("crédits restants"));
        QVERIFY(s.pills.at(2).value.startsWith(u'1') && s.pills.at(2).value.endsWith(u"250"));
        s = Dashboard::compute(*store_, 40, true, std::nullopt, today);
        QCOMPARE(s.pills.size(), 2);

        // At most six applications.
        QList<Dictation> many;
        for (int i = 0; i < 9; ++i)
            many << words(10 - i, dayAt(0), QStringLiteral("App %1").arg(i));
        store_->setDictations(many);
        s = Dashboard::compute(*store_, 40, false, std::nullopt, today);
        QCOMPARE(s.apps.size(), 6);
        QCOMPARE(s.apps.first().name, QStringLiteral("App 0"));
    }

    void pageFollowsTheStore() {
        UserDefaults defaults(dir_->filePath(QStringLiteral("settings.json")));
        AppSettings settings(defaults);
        settings.setTypingWPM(40);
        DashboardView page(*store_, settings);
        page.resize(1000, 800);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));

        // An empty store: zeros and an empty chart.
        QCOMPARE(labelText(page, "todayWords"), QStringLiteral("0 mots"));
        for (int i = 0; i < 14; ++i)
            QCOMPARE(page.chart().barRect(i).height(), 0.0);
        QVERIFY(page.findChildren<QWidget*>(QStringLiteral("appLine")).isEmpty());

        // Yesterday's dictation, then one lands today: the page follows without being asked.
        store_->add(words(100, dayAt(1), QStringLiteral("Thunderbird"), 60));
        store_->add(words(50, dayAt(0), QStringLiteral("Firefox"), 30));
        QTRY_COMPARE(labelText(page, "todayWords"), QStringLiteral("50 mots"));
        QCOMPARE(labelText(page, "statValue0"), QStringLiteral("150"));
        QCOMPARE(labelText(page, "statDetail1"), QStringLiteral("-50 % par rapport à hier"));
        QCOMPARE(labelText(page, "pillValue0"), QStringLiteral("2"));
        // 150 / 40 − 1.5 = 2.25 minutes.
        QCOMPARE(labelText(page, "statValue3"), QStringLiteral("0 h 02 min"));
        settings.setTypingWPM(20);
        QTRY_COMPARE(labelText(page, "statValue3"), QStringLiteral("0 h 06 min"));

        // The chart: yesterday's bar twice today's, on the right, others empty.
        const WordsChart& chart = page.chart();
        QVERIFY(chart.barRect(13).left() > chart.barRect(12).left());
        QCOMPARE(qRound(chart.barRect(12).height()), qRound(2 * chart.barRect(13).height()));
        QVERIFY(chart.barRect(13).height() > 10);
        QCOMPARE(chart.barRect(11).height(), 0.0);

        const QList<QWidget*> apps = page.findChildren<QWidget*>(QStringLiteral("appLine"));
        QCOMPARE(apps.size(), 2);
        QCOMPARE(apps.first()->accessibleName() + apps.last()->accessibleName(),
                 QStringLiteral("Thunderbird 67 %Firefox 33 %"));

        // A correction counts as a fault corrected even without a list of fixes.
        store_->addFix(withFixes(0));
        QTRY_COMPARE(labelText(page, "pillValue1"), QStringLiteral("1"));
        QCOMPARE(labelText(page, "pillLabel1"), QStringLiteral("faute corrigée"));

        QSignalSpy history(&page, &DashboardView::showHistory);
        auto* all = page.findChild<QPushButton*>(QStringLiteral("showHistory"));
        QTest::mouseClick(all, Qt::LeftButton);
        QCOMPARE(history.size(), 1);
    }
};

QTEST_MAIN(TstDashboard)
#include "tst_dashboard.moc"
