// The tray menu's content, and the menu clicked as a user does through the program's shell.
#include "FakePlatform.h"
#include "app/AppShell.h"
#include "calls/CallTranslator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "platform/Paths.h"
#include "views/shell/MainView.h"
#include "views/shell/MainWindow.h"
#include "views/shell/Navigation.h"
#include "views/shell/TrayIcon.h"
#include "views/shell/TrayModel.h"
#include "views/subtitles/SubtitleWindow.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTest>

using namespace ombry;
using Entry = TrayModel::Entry;

namespace {

QJsonObject settingsFile() {
    return UserDefaults::readFile(Paths::defaultsFile()).value_or(QJsonObject());
}

QAction* actionNamed(QMenu* menu, const QString& text) {
    for (QAction* a : menu->actions())
        if (a->text() == text) return a;
    return nullptr;
}

QAction* actionStarting(QMenu* menu, const QString& prefix) {
    for (QAction* a : menu->actions())
        if (a->text().startsWith(prefix)) return a;
    return nullptr;
}

// Opens the tray menu as the desktop does and clicks an item, or an item of a submenu.
bool click(QMenu* menu, const QString& item, const QString& subItem = {}) {
    menu->popup(QPoint(20, 20));
    if (!QTest::qWaitForWindowExposed(menu)) return false;
    QAction* a = subItem.isEmpty() ? actionNamed(menu, item) : actionStarting(menu, item);
    if (!a) return false;
    if (subItem.isEmpty()) {
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(a).center());
        return true;
    }
    // A submenu opens with the arrow key on its item, as from the keyboard.
    QTest::mouseMove(menu, menu->actionGeometry(a).center());
    menu->setActiveAction(a);
    QTest::keyClick(menu, Qt::Key_Right);
    QMenu* sub = a->menu();
    if (!sub || !QTest::qWaitForWindowExposed(sub)) return false;
    QAction* s = actionNamed(sub, subItem);
    if (!s) return false;
    QTest::mouseClick(sub, Qt::LeftButton, {}, sub->actionGeometry(s).center());
    return true;
}

QStringList titles(const QList<Entry>& entries) {
    QStringList out;
    for (const Entry& e : entries)
        out << (e.kind == Entry::Kind::Separator ? QStringLiteral("-") : e.title);
    return out;
}

} // namespace

class TstTray : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;

private Q_SLOTS:
    void initTestCase() {
        QFile::remove(Paths::defaultsFile());
        QDir(Paths::dataFolder()).removeRecursively();
    }

    void menuContent() {
        TrayModel::Input in;
        // No dictation yet: the menu starts with the window.
        QList<Entry> menu = TrayModel::build(in);
        QCOMPARE(titles(menu).first(), QStringLiteral("Ouvrir Ombry Voice"));

        const QString sixty(60, QLatin1Char('a'));
        in.lastDictation = sixty;
        menu = TrayModel::build(in);
        QCOMPARE(titles(menu).mid(0, 4),
                 QStringList({"Dernière dictée", sixty, "-", "Ouvrir Ombry Voice"}));
        QVERIFY(!menu.first().enabled);
        in.lastDictation = sixty + QStringLiteral("é");
        QCOMPARE(TrayModel::build(in).at(1).title, sixty + QStringLiteral("…"));
        // Characters as the user sees them: an emoji with its skin tone is one, never cut.
        const QString emoji = QString(59, QLatin1Char('a')) + QStringLiteral("👍🏽");
        in.lastDictation = emoji;
        QCOMPARE(TrayModel::build(in).at(1).title, emoji);
        in.lastDictation = emoji + QStringLiteral("e\u0301");
        QCOMPARE(TrayModel::build(in).at(1).title, emoji + QStringLiteral("…"));
        // A failed dictation is offered again in the same block, also when it is the only one.
        in.lastFailed = QStringLiteral("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
        QCOMPARE(TrayModel::build(in).at(2).data, in.lastFailed);
        in.lastDictation.reset();
        QCOMPARE(titles(TrayModel::build(in)).mid(0, 3),
                 QStringList({"Dernière dictée", "Réessayer la dictée échouée", "-"}));
        in.lastFailed.reset();

        // The keys in Linux words, Right Alt as the keyboard layout names it.
        const auto keys = [&] {
            for (const Entry& e : TrayModel::build(in))
                if (e.title.startsWith(QLatin1String("Touche : "))) return e;
            return Entry{};
        };
        QCOMPARE(keys().title, QStringLiteral("Touche : Alt Gr"));
        in.rightAltIsAltGr = false;
        QCOMPARE(titles(keys().children),
                 QStringList({"Alt droite", "Super droite", "Ctrl droite", "Menu"}));
        in.rightAltIsAltGr = true;
        in.key = DictationKey::Fn;
        QCOMPARE(keys().title, QStringLiteral("Touche : Menu"));
        QCOMPARE(keys().children.first().title, QStringLiteral("Alt Gr"));

        // A stored microphone that is gone: nothing checked, not even the system's one.
        in.microphones = {{QStringLiteral("a"), QStringLiteral("Micro A")}};
        in.microphoneUID = QStringLiteral("gone");
        for (const Entry& e : TrayModel::build(in))
            if (e.title == QLatin1String("Micro"))
                for (const Entry& c : e.children)
                    QVERIFY2(!c.checked, qPrintable(c.title));
    }

    void menuActsThroughTheShell() {
        AppSettings& settings = AppSettings::shared();
        settings.defaults().setValue(QStringLiteral("onboarded"), true);
        DictationController controller;
        controller.start();
        AppShell shell(controller);
        shell.setUpTray();
        QMenu* menu = shell.tray()->menu();

        Dictation d;
        d.finalText = QStringLiteral("Rendez-vous demain à dix heures.");
        Store::shared().add(d);
        // A newer dictation that failed, with its audio: the paste keeps the text above.
        Dictation failed{.appName = "Firefox", .duration = 1, .audioFile = "échec.wav"};
        failed.failure = QStringLiteral("panne");
        QFile audio(Store::shared().audioFolder() + "/échec.wav");
        QVERIFY(audio.open(QIODevice::WriteOnly) && audio.write("RIFF") == 4);
        audio.close();
        Store::shared().add(failed);
        QVERIFY(click(menu, d.finalText));
        // The paste waits for the menu to close and the focus to go back.
        QTest::qWait(100);
        QVERIFY(platform_.keyPoster().posted.isEmpty());
        QTRY_VERIFY(!platform_.keyPoster().posted.isEmpty());
        QCOMPARE(platform_.keyPoster().posted.last(), (KeyCombo{keycode::V, modifier::Control}));
        QCOMPARE(platform_.clipboard().text(), std::optional<QString>(d.finalText));
        // Tried again without any engine: it fails again, for another reason.
        QVERIFY(click(menu, QStringLiteral("Réessayer la dictée échouée")));
        QTRY_COMPARE(controller.state(), DictationController::State::Idle);
        QCOMPARE(Store::shared().dictations().first().failure, controller.lastError());

        QVERIFY(click(menu, QStringLiteral("Langue : "), QStringLiteral("Anglais")));
        QCOMPARE(settingsFile().value("language").toString(), QStringLiteral("en"));
        menu->popup(QPoint(20, 20));
        QAction* languages = actionStarting(menu, QStringLiteral("Langue : "));
        QCOMPARE(languages->text(), QStringLiteral("Langue : Anglais"));
        QVERIFY(actionNamed(languages->menu(), QStringLiteral("Anglais"))->isChecked());
        menu->hide();

        QVERIFY(click(menu, QStringLiteral("Touche : "), QStringLiteral("Ctrl droite")));
        QCOMPARE(settingsFile().value("key").toString(), QStringLiteral("rightControl"));
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl,
                                   modifier::Control | modifier::RightControlDown});
        platform_.clock().advance(DictationController::kHoldMs); // shown once it is no chord
        QTRY_COMPARE(controller.state(), DictationController::State::Recording);
        // The icon shows the recording, then idle again.
        QCOMPARE(shell.tray()->iconName(), QStringLiteral("waveform.circle.fill"));
        controller.cancel();
        QTRY_COMPARE(shell.tray()->iconName(), QStringLiteral("waveform"));
        platform_.keyboard().send({KeyEvent::Type::FlagsChanged, keycode::RightControl, 0});

        QVERIFY(click(menu, QStringLiteral("Micro"), QStringLiteral("Micro de test")));
        QCOMPARE(settingsFile().value("microphoneUID").toString(), QStringLiteral("test-mic"));
        QVERIFY(click(menu, QStringLiteral("Micro"), QStringLiteral("Micro du système")));
        QVERIFY(!settingsFile().contains("microphoneUID"));

        // The window, then the settings in it.
        QVERIFY(!shell.window());
        QVERIFY(click(menu, QStringLiteral("Ouvrir Ombry Voice")));
        QVERIFY(shell.window() && shell.window()->isVisible());
        QVERIFY(click(menu, QStringLiteral("Réglages…")));
        QVERIFY(shell.window()->view()->sidebarRow(Page::Settings)->isChecked());

        // The controller's call for attention opens the settings too, even from a closed window.
        Navigation::shared().setPage(Page::History);
        shell.window()->close();
        QTRY_VERIFY(!shell.window()->view());
        shell.needsAttention();
        QVERIFY(shell.window()->isVisible());
        QCOMPARE(Navigation::shared().page(), Page::Settings);
        // No tray on this desktop: the first close says where the program went, once.
        shell.window()->close();
        shell.showWindow();
        int told = 0;
        for (const auto& n : platform_.notifier().posted())
            if (n.title == QStringLiteral("Ombry Voice reste lancé")) ++told;
        QCOMPARE(told, 1);
        // The tooltip follows the state like the icon.
        QCOMPARE(shell.tray()->icon()->toolTip(), QStringLiteral("Ombry Voice · Prêt"));

        settings.setKey(DictationKey::RightOption);
        settings.setLanguage(Language::Fr);
    }

    // The call subtitles and the meeting start and stop from the menu, whose items and icon
    // tooltip follow what runs.
    void callAndMeetingFromTheMenu() {
        DictationController controller;
        AppShell shell(controller);
        shell.setUpTray();
        QMenu* menu = shell.tray()->menu();
        CallTranslator& call = CallTranslator::shared();
        MeetingRecorder& recorder = MeetingRecorder::shared();
        using Kind = MeetingRecorder::State::Kind;

        QVERIFY(click(menu, QStringLiteral("Sous-titres d'appel en français")));
        QVERIFY(call.running());
        QVERIFY(SubtitleWindow::shared().panel() && SubtitleWindow::shared().panel()->isVisible());
        QVERIFY(click(menu, QStringLiteral("Arrêter les sous-titres")));
        QVERIFY(!call.running());
        QVERIFY(click(menu, QStringLiteral("Sous-titres d'appel en français")));
        call.stop();
        call.drainQueue();

        QVERIFY(click(menu, QStringLiteral("Démarrer une réunion")));
        QTRY_COMPARE(recorder.state().kind, Kind::Recording);
        QCOMPARE(shell.tray()->icon()->toolTip(), QStringLiteral("Ombry Voice · Réunion en cours"));
        menu->popup(QPoint(20, 20));
        QVERIFY(!actionNamed(menu, QStringLiteral("Démarrer une réunion")));
        menu->hide();
        // Stopped at once: too short to keep, the recorder goes back to idle.
        QVERIFY(click(menu, QStringLiteral("Arrêter la réunion")));
        QTRY_COMPARE(recorder.state().kind, Kind::Idle);
        QCOMPARE(shell.tray()->icon()->toolTip(), QStringLiteral("Ombry Voice · Prêt"));
        menu->popup(QPoint(20, 20));
        QVERIFY(actionNamed(menu, QStringLiteral("Démarrer une réunion")));
        menu->hide();
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstTray t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_tray.moc"
