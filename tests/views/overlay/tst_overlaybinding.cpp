// The strip bound to a real controller on the fake desktop: it follows the recording, the
// cancel and the flash that follows, and names the window the text goes to.
#include "FakePlatform.h"
#include "dictation/DictationController.h"
#include "views/overlay/OverlayBinding.h"
#include "views/overlay/OverlayView.h"

#include <QApplication>
#include <QTest>

using namespace ombry;
using Look = OverlayModel::Look;

class TstOverlayBinding : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;

private Q_SLOTS:
    void stripFollowsADictation() {
        platform_.windows().front =
            AppWindow{42, QStringLiteral("org.gnome.TextEditor"), QStringLiteral("Éditeur"),
                      QStringLiteral("Gnome-text-editor"), 4242};
        DictationController controller;
        OverlayView view;
        auto* binding = new OverlayBinding(controller, view);
        QCOMPARE(OverlayModel::look(view.input()), Look::Empty);
        QVERIFY(!view.isVisible());

        const QDateTime pressed = platform_.clock().now();
        controller.begin();
        QTRY_COMPARE(controller.state(), DictationController::State::Recording);
        QCOMPARE(OverlayModel::look(view.input()), Look::Recording);
        QCOMPARE(view.input().appId, QStringLiteral("org.gnome.TextEditor"));
        QCOMPARE(view.input().startedAt, pressed);
        QVERIFY(view.isVisible());
        QVERIFY(view.animating());

        // The time runs from the start of the recording, not from the last change.
        platform_.clock().advance(9500);
        QCOMPARE(OverlayModel::elapsedText(binding->read().startedAt, platform_.clock().now()),
                 QStringLiteral("0:09"));

        controller.cancel();
        QTRY_COMPARE(controller.state(), DictationController::State::Idle);
        QCOMPARE(OverlayModel::look(view.input()), Look::Flash);
        QCOMPARE(view.input().flash, std::optional<QString>(QStringLiteral("Dictée annulée")));
        QVERIFY(!view.animating());

        controller.fail(QStringLiteral("Micro indisponible"));
        QVERIFY(view.input().flashIsError);
        QCOMPARE(view.input().flash, std::optional<QString>(QStringLiteral("Micro indisponible")));

        // The flash goes after 2 s, and the strip with it.
        platform_.clock().advance(2100);
        QTRY_VERIFY(!view.input().flash);
        QVERIFY(!view.isVisible());
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstOverlayBinding t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_overlaybinding.moc"
