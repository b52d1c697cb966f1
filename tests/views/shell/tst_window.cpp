// The main window on the fake desktop: the first-launch steps clicked through (the level of
// the microphone, the live check of the key), the sidebar, the status card, the banners, the
// window that lets its content go when closed and makes it again, and the login item.
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
#include <QLabel>
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

QPushButton* visibleButton(QWidget* root, const QString& text) {
    for (QPushButton* b : root->findChildren<QPushButton*>())
        if (b->text() == text && b->isVisible()) return b;
    return nullptr;
}

bool showsText(QWidget* root, const QString& text) {
    for (QLabel* l : root->findChildren<QLabel*>())
        if (l->isVisible() && l->text() == text) return true;
    return false;
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

    void shellTexts() {
        using ShellModel::creditsBanner;
        const double now = 1'800'000'000;
        QVERIFY(!creditsBanner(true, 10, 0, now));
        QCOMPARE(creditsBanner(true, 9, 0, now)->title, QStringLiteral("Plus que 9 crédits Ombry"));
        QCOMPARE(creditsBanner(true, 9, 0, now)->text,
                 QStringLiteral("Environ 45 minutes de dictée."));
        QCOMPARE(creditsBanner(true, 1, 0, now)->title, QStringLiteral("Plus que 1 crédit Ombry"));
        QCOMPARE(creditsBanner(true, 0, 0, now)->title, QStringLiteral("Plus de crédits Ombry"));
        QCOMPARE(creditsBanner(true, 0, 0, now)->button, QStringLiteral("100 crédits · 1,99 €"));
        // Closed: away for a day; own keys or an unknown balance: never.
        QVERIFY(!creditsBanner(true, 3, now - 3600, now));
        QVERIFY(creditsBanner(true, 3, now - 86401, now));
        QVERIFY(!creditsBanner(false, 0, 0, now));
        QVERIFY(!creditsBanner(true, std::nullopt, 0, now));

        QCOMPARE(ShellModel::firstName(QStringLiteral("Camille")), QStringLiteral("Camille"));
        QCOMPARE(ShellModel::firstName(QStringLiteral("  Jean Pierre Martin")),
                 QStringLiteral("Jean"));
        QCOMPARE(ShellModel::greeting(QString()), QStringLiteral("Salut"));
        QCOMPARE(ShellModel::statusTitle(State::Correcting, true, false),
                 QStringLiteral("Traduction…"));
        QCOMPARE(ShellModel::statusTitle(State::Recording, false, true),
                 QStringLiteral("Réunion en cours"));
    }

    void updateBannerTexts() {
        using ShellModel::updateBanner;
        Release r;
        r.version = QStringLiteral("2.4");
        r.notes = {QStringLiteral("Plus rapide")};
        QVERIFY(!updateBanner(std::nullopt, false, std::nullopt, false));
        QVERIFY(!updateBanner(r, false, std::nullopt, true)); // closed by the user
        const auto offer = updateBanner(r, false, std::nullopt, false);
        QCOMPARE(offer->title, QStringLiteral("Ombry Voice 2.4 est disponible"));
        QCOMPARE(offer->install, QStringLiteral("Mettre à jour"));
        QVERIFY(offer->installEnabled && !offer->error);
        const auto running = updateBanner(r, true, std::nullopt, false);
        QCOMPARE(running->install, QStringLiteral("Installation…"));
        QVERIFY(!running->installEnabled);
        QCOMPARE(updateBanner(r, false, QStringLiteral("panne"), false)->error,
                 std::optional<QString>(QStringLiteral("panne")));
        // A copy that cannot update itself is told how, without install button.
        QCOMPARE(updateBanner(r, false, std::nullopt, false, QStringLiteral("comment"))->manual,
                 std::optional<QString>(QStringLiteral("comment")));
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
        QVERIFY(showsText(onboarding, QStringLiteral("1 sur 3")));
        QVERIFY(!visibleButton(onboarding, QStringLiteral("Retour")));
        QVERIFY(showsText(onboarding, QStringLiteral("Autorisé")));
        // No microphone: "Autoriser" says what to check, the sound server first.
        platform_.audio().available = false;
        platform_.clock().advance(1000);
        QTRY_VERIFY(visibleButton(onboarding, QStringLiteral("Autoriser")));
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Autoriser")), Qt::LeftButton);
        QVERIFY(showsText(onboarding, *ShellModel::microphoneAdvice(false, false)));
        platform_.audio().available = true;
        platform_.audio().defaultName = QStringLiteral("speakers.monitor");
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Autoriser")), Qt::LeftButton);
        QVERIFY(showsText(onboarding, *ShellModel::microphoneAdvice(true, false)));
        platform_.audio().defaultName = QStringLiteral("test-mic");
        QTRY_VERIFY(showsText(onboarding, QStringLiteral("Autorisé")));

        // Step 1 listens to the microphone: what it hears moves the meter.
        auto* meter = onboarding->findChild<QProgressBar*>(QStringLiteral("micLevel"));
        QTRY_VERIFY(platform_.audio().capturing());
        platform_.audio().feed(loudPcm());
        QTRY_VERIFY(meter->value() > 50);

        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Continuer")), Qt::LeftButton);
        QCOMPARE(onboarding->step(), 1);
        QTRY_VERIFY(!platform_.audio().capturing()); // the listening ends with its step
        QVERIFY(showsText(onboarding, QStringLiteral("2 sur 3")));

        // Step 2: another key, then the live check hears it.
        auto* key = onboarding->findChild<QComboBox*>(QStringLiteral("onboardingKey"));
        key->setFocus();
        QTest::keyClick(key, Qt::Key_Down);
        QTest::keyClick(key, Qt::Key_Down);
        QCOMPARE(settings.key(), DictationKey::RightControl);
        QCOMPARE(settingsFile().value("key").toString(), QStringLiteral("rightControl"));
        QVERIFY(!onboarding->keyHeard());
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl,
                                   modifier::Control | modifier::RightControlDown});
        platform_.clock().advance(DictationController::kHoldMs); // shown once it is no chord
        QTRY_VERIFY(onboarding->keyHeard());
        QVERIFY(
            showsText(onboarding,
                      QStringLiteral("C'est bon : ta touche est entendue. Parle, puis relâche.")));
        controller.cancel();
        QTRY_COMPARE(controller.state(), State::Idle);
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl, 0});

        // Back and forth, then the last step finishes.
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Retour")), Qt::LeftButton);
        QCOMPARE(onboarding->step(), 0);
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Continuer")), Qt::LeftButton);
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Continuer")), Qt::LeftButton);
        QVERIFY(showsText(onboarding, QStringLiteral("3 sur 3")));
        QVERIFY(!settingsFile().contains("onboarded"));
        QTest::mouseClick(visibleButton(onboarding, QStringLiteral("Commencer")), Qt::LeftButton);
        QCOMPARE(settingsFile().value("onboarded"), QJsonValue(true));
        QTRY_VERIFY(!view.onboarding());
        QVERIFY(!platform_.audio().capturing());

        // Onboarded: a new view has no steps.
        MainView next(nav, settings, controller);
        QVERIFY(!next.onboarding());
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
        QVERIFY(!view.sidebarRow(Page::Dashboard)->isChecked());
        QVERIFY(showsText(view.page(), QStringLiteral("Historique")));
        // The page on show stays as it is (its search, its filters) when chosen again.
        const QPointer<QWidget> history = view.page();
        QTest::mouseClick(view.sidebarRow(Page::History), Qt::LeftButton);
        nav.setPage(Page::History);
        QCoreApplication::processEvents();
        QCOMPARE(view.page(), history.data());
        QVERIFY(view.sidebarRow(Page::History)->isChecked());
        // The page follows Navigation whoever sets it (the tray menu, the controller).
        nav.setPage(Page::Settings);
        QVERIFY(view.page()->objectName() == QLatin1String("settingsPage"));

        QCOMPARE(view.statusTitle()->text(), QStringLiteral("Prêt"));
        controller.begin();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("J'écoute…"));
        controller.cancel();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("Prêt"));
        // A meeting being recorded shows on the card, whatever the dictation does.
        MeetingRecorder::shared().start();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("Réunion en cours"));
        MeetingRecorder::shared().stop();
        QTRY_COMPARE(view.statusTitle()->text(), QStringLiteral("Prêt"));
        settings.setKey(DictationKey::Fn);
        QVERIFY(showsText(&view, QStringLiteral("Maintiens Menu")));
        // Right Alt as the keyboard layout names it.
        platform_.keyboard().altGr = false;
        settings.setKey(DictationKey::RightOption);
        QVERIFY(showsText(&view, QStringLiteral("Maintiens Alt droite")));
        QVERIFY(showsText(&view, QStringLiteral("Alt droite"))); // the status card
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
            QVERIFY(showsText(view.creditsBanner(), QStringLiteral("Plus que 3 crédits Ombry")));
            QVERIFY(
                showsText(view.creditsBanner(), QStringLiteral("Environ 15 minutes de dictée.")));
            // The pack's button opens its page with the account to credit.
            QTest::mouseClick(
                visibleButton(view.creditsBanner(), QStringLiteral("100 crédits · 1,99 €")),
                Qt::LeftButton);
            QCOMPARE(platform_.browser().opened.size(), 1);
            QVERIFY(platform_.browser().opened.first().toString().contains(
                QStringLiteral("acheter/credits/100")));
            QPushButton* close = nullptr;
            for (QPushButton* b : view.creditsBanner()->findChildren<QPushButton*>())
                if (b->property("role") == QStringLiteral("dismissCredits")) close = b;
            QTest::mouseClick(close, Qt::LeftButton);
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

    // The product site offers a newer build: the banner shows it, its notes lead to the
    // release's page, its button installs (and shows a failure), its cross closes it.
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
        // Not an archive, and slow to come: the installation is seen running, then failing.
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
        QVERIFY(showsText(view.updateBanner(), QStringLiteral("Ombry Voice 9.9 est disponible")));

        QTest::mouseClick(visibleButton(view.updateBanner(), QStringLiteral("Nouveautés")),
                          Qt::LeftButton);
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

        QPushButton* install = visibleButton(view.updateBanner(), QStringLiteral("Mettre à jour"));
        QVERIFY(install);
        QTest::mouseClick(install, Qt::LeftButton);
        QTRY_COMPARE(install->text(), QStringLiteral("Installation…"));
        QVERIFY(!install->isEnabled());
        QTRY_COMPARE_WITH_TIMEOUT(install->text(), QStringLiteral("Mettre à jour"), 10000);
        QVERIFY(install->isEnabled());
        QVERIFY(updater.error());
        QVERIFY(showsText(view.updateBanner(), *updater.error()));
        QVERIFY(!site.requests(archive).isEmpty());

        QPushButton* close = nullptr;
        for (QPushButton* b : view.updateBanner()->findChildren<QPushButton*>())
            if (b->property("role") == QStringLiteral("dismissUpdate")) close = b;
        QTest::mouseClick(close, Qt::LeftButton);
        QVERIFY(updater.dismissed());
        QVERIFY(!view.updateBanner()->isVisible());
        // This copy (a build tree) cannot update itself: the offer says how, with no button.
        updater.setInstalledFolder(QString());
        updater.setDismissed(false);
        QVERIFY(showsText(view.updateBanner(), *updater.manualUpdate()));
        QVERIFY(!visibleButton(view.updateBanner(), QStringLiteral("Mettre à jour")));
        updater.setDismissed(false);
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
        QVERIFY(window.menuBar()->actions().size() == 3);
        nav.setPage(Page::Dictionary);
        window.resize(1234, 800);
        // The menu bar: "Réglages…" asks the shell; Ctrl+W closes like the title bar's button.
        QSignalSpy settingsAsked(&window, &MainWindow::settingsRequested);
        QMenu* appMenu = window.menuBar()->actions().first()->menu();
        for (QAction* a : appMenu->actions())
            if (a->text() == QStringLiteral("Réglages…")) a->trigger();
        QCOMPARE(settingsAsked.size(), 1);
        // The frame is kept once the moves and resizes pause (the window manager's come late),
        // the window still open.
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
        QVERIFY(window.view());
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
        QVERIFY(QFile::exists(entry));
        QVERIFY(LoginItem::isEnabled());
        QFile f(entry);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(f.readAll());
        QVERIFY(text.contains(QStringLiteral("Exec=") + QCoreApplication::applicationFilePath()));
        // The user said no: a later start respects it.
        LoginItem::set(false);
        QVERIFY(!QFile::exists(entry));
        LoginItem::applyDefault();
        QVERIFY(!QFile::exists(entry));
        QCOMPARE(settingsFile().value("loginItemSetOmbry"), QJsonValue(true));
        // A path with blanks is quoted; a percent sign is doubled.
        QVERIFY(LoginItem::entryText(QStringLiteral("/opt/Ombry Voice/bin/ombry-voice"))
                    .contains(QStringLiteral("Exec=\"/opt/Ombry Voice/bin/ombry-voice\"\n")));
        QVERIFY(LoginItem::entryText(QStringLiteral("/opt/a%b/ombry-voice"))
                    .contains(QStringLiteral("Exec=/opt/a%%b/ombry-voice\n")));
        // Inside the quotes a backslash is four in the file and a dollar sign \\$; a line end
        // is an escape, which neither breaks the line nor adds a key.
        QVERIFY(LoginItem::entryText(QStringLiteral("/opt/a\\b$/ombry-voice"))
                    .contains(QStringLiteral("Exec=\"/opt/a\\\\\\\\b\\\\$/ombry-voice\"\n")));
        const QString injected = LoginItem::entryText(QStringLiteral("/opt/x\nHidden=true/ombry"));
        QVERIFY(injected.contains(QStringLiteral("Exec=\"/opt/x\\nHidden=true/ombry\"\n")));
        QVERIFY(!injected.contains(QStringLiteral("\nHidden=true")));
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstWindow t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_window.moc"
