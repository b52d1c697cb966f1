// What the settings say of this desktop: the lines to paste for sway and Hyprland with the
// program's path as the shell reads it, the command of a GNOME shortcut, and what a refusal of
// the desktop changes.
#include "desktop/SessionGuide.h"

#include <QTest>

using namespace ombry;

namespace {

GuideInput on(SessionOffer::Desktop desktop) {
    GuideInput in;
    in.offer.display = SessionOffer::Display::Wayland;
    in.offer.desktop = desktop;
    in.roads = chooseRoads(in.offer);
    in.program = shellWord(QStringLiteral("/opt/Ombry Voice/ombry-voice"));
    in.portalShortcut = QStringLiteral("CTRL+ALT+D");
    return in;
}

} // namespace

class TstSessionGuide : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void linesToPasteAndWhatToDo() {
        QCOMPARE(shellWord("/usr/bin/ombry-voice"), QString("/usr/bin/ombry-voice"));
        QCOMPARE(shellWord("/home/zoé/l'app"), QString("'/home/zoé/l'\\''app'"));

        GuideInput sway = on(SessionOffer::Desktop::Sway);
        sway.key = DictationKey::RightControl;
        QCOMPARE(
            sessionGuide(sway).first().lines,
            QStringList(
                {"bindsym --no-repeat Control_R exec '/opt/Ombry Voice/ombry-voice' --press",
                 "bindsym --release Control_R exec '/opt/Ombry Voice/ombry-voice' --release"}));

        QCOMPARE(sessionGuide(on(SessionOffer::Desktop::Hyprland)).first().lines.value(1),
                 QString("bindr = , Alt_R, exec, '/opt/Ombry Voice/ombry-voice' --release"));

        GuideInput gnome = on(SessionOffer::Desktop::GNOME);
        gnome.offer.remoteDesktopPortalVersion = 1;
        gnome.roads = chooseRoads(gnome.offer);
        const QList<GuideRow> rows = sessionGuide(gnome);
        QCOMPARE(rows[0].lines, QStringList{"'/opt/Ombry Voice/ombry-voice' --toggle"});
        QVERIFY(rows[0].todo.contains("le suivant la termine"));
        QVERIFY(rows[1].works && rows[2].road.contains("tapé"));
        GuideInput gnome48 = gnome;
        gnome48.offer.clipboardPortal = true;
        gnome48.roads = chooseRoads(gnome48.offer);
        QVERIFY(sessionGuide(gnome48)[2].todo.contains("autoriser le presse-papiers"));

        // The desktop refused: said where the road is, with what still works.
        gnome.postProblem = QStringLiteral("Tu as refusé l'envoi des touches");
        const GuideRow post = sessionGuide(gnome)[1];
        QVERIFY(!post.works && post.todo.startsWith("Tu as refusé") &&
                post.todo.contains("Ctrl+V"));

        GuideInput kde = on(SessionOffer::Desktop::KDE);
        kde.offer.globalShortcutsPortal = true;
        kde.roads = chooseRoads(kde.offer);
        kde.trigger = QStringLiteral("Meta+D");
        QVERIFY(sessionGuide(kde)[0].road.endsWith("Meta+D"));
        const QString missing = missingOnDesktop(kde).join(' ');
        QVERIFY(missing.contains("Échap") && !missing.contains("Ctrl+Alt+V"));
        QVERIFY(missingOnDesktop(sway).join(' ').contains("Ctrl+Alt+V"));
    }
};

QTEST_GUILESS_MAIN(TstSessionGuide)
#include "tst_sessionguide.moc"
