// The main window on the fake desktop: first-launch steps, sidebar, status card, banners,
// the window closed and made again, and the login item.
#include "../PageTesting.h"
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/UserDefaults.h"
#include "desktop/LoginItem.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "online/Credits.h"
#include "online/Updater.h"
#include "platform/Paths.h"
#include "views/shell/MainView.h"
#include "views/shell/MainWindow.h"
#include "views/shell/Navigation.h"
#include "views/shell/OnboardingView.h"
#include "views/shell/ShellModel.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using State = DictationController::State;

namespace {

QJsonObject settingsFile() {
    return UserDefaults::readFile(Paths::defaultsFile()).value_or(QJsonObject());
}

void click(QWidget* root, const QString& text) {
    QTest::mouseClick(test::buttonWithText(root, text), Qt::LeftButton);
}

// The banner's close button, marked by its role.
QPushButton* closeButton(QWidget* banner, const char* role) {
    for (QPushButton* b : banner->findChildren<QPushButton*>())
        if (b->property("role").toString() == QLatin1String(role)) return b;
    return nullptr;
}

// One second of loud PCM (a square wave at 12,000).
QByteArray loudPcm() {
    QByteArray pcm(32000, 0);
    auto* s = reinterpret_cast<int16_t*>(pcm.data());
    for (int i = 0; i < 16000; ++i)
        s[i] = (i / 20) % 2 ? 12000 : -12000;
    return pcm;
}

} // namespace

class TstWindow : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;

private Q_SLOTS:
    void initTestCase() {
        QFile::remove(Paths::defaultsFile());
        QDir(Paths::configHome() + QStringLiteral("/autostart")).removeRecursively();
    }

    // The texts the window's model makes where no page test reaches them.
    void shellTexts() {
        using ShellModel::creditsBanner;
        const double now = 1'800'000'000;
        QVERIFY(!creditsBanner(true, 10, 0, now));
        QCOMPARE(creditsBanner(true, 1, 0, now)->title, QStringLiteral("Plus que 1 crédit Ombry"));
        QCOMPARE(creditsBanner(true, 0, 0, now)->title, QStringLiteral("Plus de crédits Ombry"));
        QCOMPARE(ShellModel::firstName(QStringLiteral("  Jean Pierre Martin")),
                 QStringLiteral("Jean"));
        QCOMPARE(ShellModel::greeting(QString()), QStringLiteral("Salut"));
        QCOMPARE(ShellModel::statusTitle(State::Correcting, true, false),
                 QStringLiteral("Traduction…"));
    }

    void onboardingClickedThrough() {
        AppSettings& settings = AppSettings::shared();
        DictationController controller;
        controller.start();
        Navigation nav;
        MainView view(nav, settings, controller);
        view.resize(1100, 760);
        view.show();
        OnboardingView* onboarding = view.onboarding();
        QVERIFY(onboarding && onboarding->isVisible());
        QVERIFY(!test::buttonWithText(onboarding, QStringLiteral("Retour")));
        // No microphone: "Autoriser" says what to check, the sound server first.
        platform_.audio().available = false;
        platform_.clock().advance(1000);
        QTRY_VERIFY(test::buttonWithText(onboarding, QStringLiteral("Autoriser")));
        click(onboarding, QStringLiteral("Autoriser"));
        QVERIFY(test::showsLabel(onboarding, *ShellModel::microphoneAdvice(false, false)));
        platform_.audio().available = true;
        platform_.audio().defaultName = QStringLiteral("speakers.monitor");
        click(onboarding, QStringLiteral("Autoriser"));
        QVERIFY(test::showsLabel(onboarding, *ShellModel::microphoneAdvice(true, false)));
        platform_.audio().defaultName = QStringLiteral("test-mic");
        QTRY_VERIFY(test::showsLabel(onboarding, QStringLiteral("Autorisé")));

        // Step 1 listens to the microphone: what it hears moves the meter.
        auto* meter = onboarding->findChild<QProgressBar*>(QStringLiteral("micLevel"));
        QTRY_VERIFY(platform_.audio().capturing());
        platform_.audio().feed(loudPcm());
        QTRY_VERIFY(meter->value() > 50);

        click(onboarding, QStringLiteral("Continuer"));
        QCOMPARE(onboarding->step(), 1);
        QTRY_VERIFY(!platform_.audio().capturing()); // the listening ends with its step

        // Step 2: another key, then the live check hears it.
        auto* key = onboarding->findChild<QComboBox*>(QStringLiteral("onboardingKey"));
        key->setFocus();
        QTest::keyClick(key, Qt::Key_Down);
        QTest::keyClick(key, Qt::Key_Down);
        QCOMPARE(settingsFile().value("key").toString(), QStringLiteral("rightControl"));
        QVERIFY(!onboarding->keyHeard());
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl,
                                   modifier::Control | modifier::RightControlDown});
        platform_.clock().advance(DictationController::kHoldMs); // shown once it is no chord
        QTRY_VERIFY(onboarding->keyHeard());
        controller.cancel();
        QTRY_COMPARE(controller.state(), State::Idle);
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl, 0});

        // Back and forth, then the last step finishes.
        click(onboarding, QStringLiteral("Retour"));
        QCOMPARE(onboarding->step(), 0);
        click(onboarding, QStringLiteral("Continuer"));
        click(onboarding, QStringLiteral("Continuer"));
        QVERIFY(!settingsFile().contains("onboarded"));
        click(onboarding, QStringLiteral("Commencer"));
        QCOMPARE(settingsFile().value("onboarded"), QJsonValue(true));
        QTRY_VERIFY(!view.onboarding());
        QVERIFY(!MainView(nav, settings, controller).onboarding()); // a new view has no steps
        settings.setKey(DictationKey::RightOption);
    }

    void sidebarStatusAndBanners() {
        AppSettings& settings = AppSettings::shared();
        settings.defaults().setValue(QStringLiteral("onboarded"), true);
        DictationController controller;
        Navigation nav;
        MainView view(nav, settings, controller);
        view.show();
        // Before the controller hears the keyboard, the banner says so and leads to the settings.
        QVERIFY(view.keyboardBanner()->isVisible());
        QVERIFY(!view.creditsBanner()->isVisible()); // no hosted service: credits never show
        controller.start();
        QTRY_VERIFY(!view.keyboardBanner()->isVisible());

        QTest::mouseClick(view.sidebarRow(Page::History), Qt::LeftButton);
        QCOMPARE(nav.page(), Page::History);
        QVERIFY(view.sidebarRow(Page::History)->isChecked());
        // The page on show stays as it is (its search, its filters) when chosen again.
        const QPointer<QWidget> history = view.page();
        QTest::mouseClick(view.sidebarRow(Page::History), Qt::LeftButton);
        nav.setPage(Page::History);
        QCoreApplication::processEvents();
        QCOMPARE(view.page(), history.data());
        // The page follows Navigation whoever sets it (the tray menu, the controller).
        nav.setPage(Page::Settings);
        QVERIFY(view.page()->objectName() == QLatin1String("settingsPage"));

        controller.begin();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("J'écoute…"));
        controller.cancel();
        // A meeting being recorded shows on the card, whatever the dictation does.
        MeetingRecorder::shared().start();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("Réunion en cours"));
        MeetingRecorder::shared().stop();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("Prêt"));
        settings.setKey(DictationKey::Fn);
        QVERIFY(test::showsLabel(&view, QStringLiteral("Maintiens Menu")));
        // Right Alt as the keyboard layout names it.
        platform_.keyboard().altGr = false;
        settings.setKey(DictationKey::RightOption);
        QVERIFY(test::showsLabel(&view, QStringLiteral("Maintiens Alt droite")));
        platform_.keyboard().altGr.reset();
    }

    void creditsBannerShowsClosesAndStaysAway() {
        AppSettings& settings = AppSettings::shared();
        settings.defaults().setValue(QStringLiteral("onboarded"), true);
        qputenv("OMBRY_SITE_URL", "http://127.0.0.1:9"); // a hosted service: credits pay
        DictationController controller;
        Navigation nav;
        {
            MainView view(nav, settings, controller);
            view.show();
            QVERIFY(!view.creditsBanner()->isVisible()); // balance not known yet
            Credits::shared().update(3);
            QTRY_VERIFY(view.creditsBanner()->isVisible());
            // An own key saved in the advanced mode: credits no longer pay, the banner goes.
            settings.setOwnKeyMode(true);
            QVERIFY(KeyStore::shared().save(QStringLiteral("sk-or-essai"), APIService::OpenRouter));
            QVERIFY(!view.creditsBanner()->isVisible());
            QVERIFY(KeyStore::shared().save(QString(), APIService::OpenRouter));
            QVERIFY(view.creditsBanner()->isVisible());
            settings.setOwnKeyMode(false);
            QVERIFY(
                test::showsLabel(view.creditsBanner(), QStringLiteral("Plus que 3 crédits Ombry")));
            QVERIFY(test::showsLabel(view.creditsBanner(),
                                     QStringLiteral("Environ 15 minutes de dictée.")));
            // The pack's button opens its page with the account to credit.
            click(view.creditsBanner(), QStringLiteral("100 crédits · 1,99 €"));
            QVERIFY(platform_.browser().opened.last().toString().contains(
                QStringLiteral("acheter/credits/100")));
            QTest::mouseClick(closeButton(view.creditsBanner(), "dismissCredits"), Qt::LeftButton);
            QVERIFY(!view.creditsBanner()->isVisible());
            QCOMPARE(settingsFile().value("lowCreditsDismissedAt").toDouble(),
                     platform_.clock().now().toMSecsSinceEpoch() / 1000.0);
        }
        // Away for a day, also in a new window; back after it.
        platform_.clock().advance(86000 * 1000);
        MainView later(nav, settings, controller);
        later.show();
        QVERIFY(!later.creditsBanner()->isVisible());
        platform_.clock().advance(1000 * 1000);
        MainView dayAfter(nav, settings, controller);
        dayAfter.show();
        QVERIFY(dayAfter.creditsBanner()->isVisible());
        qunsetenv("OMBRY_SITE_URL");
    }

    // A newer build: its notes lead to its page, its button installs (and fails), its cross closes.
    void updateBannerFollowsTheUpdater() {
        AppSettings& settings = AppSettings::shared();
        settings.defaults().setValue(QStringLiteral("onboarded"), true);
        test::TestHttpServer site;
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
        const QString archive = QStringLiteral("/releases/ombry-voice.tar.gz");
        site.on(
            QStringLiteral("/api/updates"),
            test::Reply::json(QJsonObject{
                {"version", "9.9"},
                {"build", qint64(Updater::currentBuild() + 1)},
                {"notes", QJsonArray{"Plus rapide", "Moins de bruit"}},
                {"page", "https://ombry.example/notes/9.9"},
                {"downloads", QJsonObject{{Updater::processorKey(),
                                           QStringLiteral("https://cdn.example.org") + archive}}},
            }));
        // Not an archive, and slow: the installation is seen running, then failing.
        site.on(archive, test::Reply::text("pas une archive").after(400));
        QTemporaryDir installed;
        Updater& updater = Updater::shared();
        updater.setInstalledFolder(installed.path());

        DictationController controller;
        Navigation nav;
        MainView view(nav, settings, controller);
        view.show();
        QVERIFY(!view.updateBanner()->isVisible());
        QVERIFY(test::await(updater.check()));
        QVERIFY(view.updateBanner()->isVisible());
        QVERIFY(test::showsLabel(view.updateBanner(),
                                 QStringLiteral("Ombry Voice 9.9 est disponible")));

        click(view.updateBanner(), QStringLiteral("Nouveautés"));
        auto* notes = view.findChild<QMenu*>(QStringLiteral("releaseNotes"));
        QVERIFY(notes && QTest::qWaitForWindowExposed(notes));
        QStringList lines;
        for (QAction* a : notes->actions())
            if (!a->isSeparator()) lines << a->text();
        QCOMPARE(lines,
                 (QStringList{"• Plus rapide", "• Moins de bruit", "Voir la page de la version"}));
        notes->actions().last()->trigger();
        QCOMPARE(platform_.browser().opened.last(), QUrl("https://ombry.example/notes/9.9"));
        notes->close();

        QAbstractButton* install =
            test::buttonWithText(view.updateBanner(), QStringLiteral("Mettre à jour"));
        QTest::mouseClick(install, Qt::LeftButton);
        QTRY_COMPARE(install->text(), QStringLiteral("Installation…"));
        QVERIFY(!install->isEnabled());
        QTRY_COMPARE_WITH_TIMEOUT(install->text(), QStringLiteral("Mettre à jour"), 10000);
        QVERIFY(install->isEnabled() && updater.error());
        QVERIFY(test::showsLabel(view.updateBanner(), *updater.error()));

        QTest::mouseClick(closeButton(view.updateBanner(), "dismissUpdate"), Qt::LeftButton);
        QVERIFY(updater.dismissed() && !view.updateBanner()->isVisible());
        // This copy (a build tree) cannot update itself: the offer says how, with no button.
        updater.setInstalledFolder(QString());
        updater.setDismissed(false);
        QVERIFY(test::showsLabel(view.updateBanner(), *updater.manualUpdate()));
        QVERIFY(!test::buttonWithText(view.updateBanner(), QStringLiteral("Mettre à jour")));
        qunsetenv("OMBRY_SITE_URL");
    }

    void closedWindowLetsItsContentGoAndComesBack() {
        AppSettings& settings = AppSettings::shared();
        settings.defaults().setValue(QStringLiteral("onboarded"), true);
        DictationController controller;
        Navigation nav;
        MainWindow window(nav, settings, controller);
        window.showWindow();
        QVERIFY(window.view());
        // 1100 × 760 where it fits, never under the minimum (the test screen is small).
        QVERIFY(window.width() >= MainView::kMinWidth && window.width() <= 1100);
        QVERIFY(window.height() >= MainView::kMinHeight && window.height() <= 760);
        nav.setPage(Page::Dictionary);
        window.resize(1234, 800);
        // The menu bar: "Réglages…" asks the shell; Ctrl+W closes like the title bar's button.
        QSignalSpy settingsAsked(&window, &MainWindow::settingsRequested);
        QMenu* appMenu = window.menuBar()->actions().first()->menu();
        for (QAction* a : appMenu->actions())
            if (a->text() == QStringLiteral("Réglages…")) a->trigger();
        QCOMPARE(settingsAsked.size(), 1);
        // The frame is kept once the moves and resizes pause, the window still open.
        const auto keptWidth = [&] {
            platform_.clock().advance(MainWindow::kFrameSaveDelayMs);
            return MainWindow(nav, settings, controller).width();
        };
        QTRY_COMPARE(keptWidth(), 1234);
        // "Masquer" hides the window with its pages as they are.
        const QPointer<QWidget> page = window.view()->page();
        for (QAction* a : appMenu->actions())
            if (a->text() == QStringLiteral("Masquer Ombry Voice")) a->trigger();
        QVERIFY(!window.isVisible());
        QCoreApplication::processEvents();
        QVERIFY(page && window.view() && window.view()->page() == page);
        window.showWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QTest::keyClick(&window, Qt::Key_W, Qt::ControlModifier);
        QTRY_VERIFY(!window.isVisible());
        QTRY_VERIFY(!window.view());
        QVERIFY(settingsFile().contains("windowFrame"));

        window.showWindow();
        QVERIFY(window.view()->sidebarRow(Page::Dictionary)->isChecked());
        // Resized just before the program quits: the frame is kept all the same.
        {
            MainWindow other(nav, settings, controller);
            other.showWindow();
            other.resize(1111, 777);
            QTRY_COMPARE(other.width(), 1111);
        }
        QCOMPARE(MainWindow(nav, settings, controller).width(), 1111);
    }

    void loginItemAtFirstStartOnly() {
        const QString entry = LoginItem::path();
        QVERIFY(!QFile::exists(entry));
        LoginItem::applyDefault();
        QVERIFY(LoginItem::isEnabled());
        QFile f(entry);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(f.readAll());
        QVERIFY(text.contains(QStringLiteral("Exec=") + QCoreApplication::applicationFilePath()));
        // The user said no: a later start respects it.
        LoginItem::set(false);
        LoginItem::applyDefault();
        QVERIFY(!QFile::exists(entry));
        QCOMPARE(settingsFile().value("loginItemSetOmbry"), QJsonValue(true));
        // Blanks quoted, % doubled; inside quotes a backslash is four, $ is \\$, and a line end
        // an escape that neither breaks the line nor adds a key.
        const QList<std::pair<const char*, const char*>> exec{
            {"/opt/Ombry Voice/bin/ombry-voice", "Exec=\"/opt/Ombry Voice/bin/ombry-voice\"\n"},
            {"/opt/a%b/ombry-voice", "Exec=/opt/a%%b/ombry-voice\n"},
            {"/opt/a\\b$/ombry-voice", "Exec=\"/opt/a\\\\\\\\b\\\\$/ombry-voice\"\n"},
            {"/opt/x\nHidden=true/ombry", "Exec=\"/opt/x\\nHidden=true/ombry\"\n"}};
        for (const auto& [path, line] : exec) {
            const QString got = LoginItem::entryText(QString::fromUtf8(path));
            QVERIFY2(got.contains(QString::fromUtf8(line)) && !got.contains("\nHidden=true"), path);
        }
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstWindow t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_window.moc"
