// The result card on a real X desktop: it appears without taking the focus from the window
// in front, typing there leaves it open, and a click elsewhere or Escape closes it.
#include "DesktopSession.h"
#include "platform/x11/X11Platform.h"
#include "views/overlay/BubbleController.h"
#include "views/overlay/BubbleView.h"

#include <QCursor>

using namespace ombry;
using test::DesktopSession;

class TstBubbleDesktop : public QObject {
    Q_OBJECT

    DesktopSession& desktop() { return *DesktopSession::current(); }

    BubbleView* open(const QPoint& pointer) {
        QCursor::setPos(pointer);
        DesktopSession::waitUntil([&] { return QCursor::pos() == pointer; }, 2000);
        BubbleController::shared().show(QStringLiteral("Traduction"), QStringLiteral("bonjour"),
                                        QStringLiteral("hello"));
        BubbleView* card = BubbleController::shared().panel();
        DesktopSession::waitUntil([&] { return card && card->isVisible(); }, 2000);
        return card;
    }

private Q_SLOTS:
    void initTestCase() {
        OMBRY_REQUIRE_DESKTOP();
        QVERIFY(desktop().openTarget());
        BubbleController::shared().setInputWatch(x11::makeInputWatch());
    }

    void cleanupTestCase() { BubbleController::shared().setInputWatch(nullptr); }

    void closesOnEscapeNotOnTyping() {
        const qulonglong target = desktop().targetWindow();
        QVERIFY(open(QPoint(400, 200)));
        QTest::qWait(200);
        // The window in front keeps the focus, and typing in it leaves the card open.
        QCOMPARE(desktop().activeWindow(), target);
        QVERIFY(desktop().keyboardType(QStringLiteral("abc")));
        QTest::qWait(300);
        QVERIFY(BubbleController::shared().panel());
        QVERIFY(desktop().keyboardPress(desktop().keycode("Escape")));
        QVERIFY(desktop().keyboardRelease(desktop().keycode("Escape")));
        QVERIFY(DesktopSession::waitUntil([] { return !BubbleController::shared().panel(); }));
    }

    void closesOnAClickElsewhereNotOnItself() {
        BubbleView* card = open(QPoint(600, 300));
        QVERIFY(card);
        QTest::qWait(200);
        const QPoint inside = card->geometry().center();
        QVERIFY(desktop().xdotool({QStringLiteral("mousemove"), QString::number(inside.x()),
                                   QString::number(inside.y()), QStringLiteral("click"),
                                   QStringLiteral("1")}));
        QTest::qWait(300);
        QVERIFY(BubbleController::shared().panel() == card);
        QVERIFY(desktop().xdotool({QStringLiteral("mousemove"), QStringLiteral("50"),
                                   QStringLiteral("700"), QStringLiteral("click"),
                                   QStringLiteral("1")}));
        QVERIFY(DesktopSession::waitUntil([] { return !BubbleController::shared().panel(); }));
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstBubbleDesktop)
#include "tst_bubbledesktop.moc"
