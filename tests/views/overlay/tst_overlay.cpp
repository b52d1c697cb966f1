// The dictation strip and the result card: what shows in which state, the time and waveform
// rules, where the surfaces go, and the window properties that keep the focus where it is.
#include "FakePlatform.h"
#include "views/overlay/BubbleController.h"
#include "views/overlay/BubbleView.h"
#include "views/overlay/OverlayController.h"
#include "views/overlay/OverlayModel.h"
#include "views/overlay/OverlayView.h"
#include "views/overlay/Placement.h"

#include <QApplication>
#include <QImage>
#include <QTest>
#include <QWindow>
#include <cmath>

using namespace ombry;
using Look = OverlayModel::Look;

Q_DECLARE_METATYPE(ombry::OverlayStage)
Q_DECLARE_METATYPE(ombry::OverlayModel::Look)

namespace {

// Plays the session's clicks and Escape.
class FakeInputWatch final : public InputWatch {
public:
    int starts = 0;
    bool on = false;
    Handler handler;
    bool start(Handler h) override {
        ++starts;
        on = true;
        handler = std::move(h);
        return true;
    }
    void stop() override {
        on = false;
        handler = {};
    }
    bool running() const override { return on; }
    void send(bool escape) {
        if (handler) handler(escape);
    }
};

// The compositor's surface for the strip: keeps what it was given.
struct SurfaceLog {
    QList<QImage> pictures;
    QList<int> margins;
    int hides = 0;
    std::function<void(const SurfacePointer&)> pointer;
};

class FakeSurface final : public OverlaySurface {
public:
    explicit FakeSurface(SurfaceLog& log) : log_(log) {}
    bool show(const QImage& image, int bottomMargin) override {
        log_.pictures.append(image);
        log_.margins.append(bottomMargin);
        return true;
    }
    void hide() override { ++log_.hides; }
    void setPointerHandler(std::function<void(const SurfacePointer&)> handler) override {
        log_.pointer = std::move(handler);
    }

private:
    SurfaceLog& log_;
};

OverlayInput recording(const QString& live = {}) {
    OverlayInput in;
    in.stage = OverlayStage::Recording;
    in.startedAt = Platform::current().clock().now().addSecs(-75);
    in.level = 0.4;
    in.liveText = live;
    return in;
}

} // namespace

class TstOverlay : public QObject {
    Q_OBJECT

    test::FakePlatform platform_;

private Q_SLOTS:
    void whatTheStripShows_data() {
        QTest::addColumn<OverlayStage>("stage");
        QTest::addColumn<QString>("flash");
        QTest::addColumn<QString>("live");
        QTest::addColumn<bool>("command");
        QTest::addColumn<bool>("translating");
        QTest::addColumn<Look>("look");
        QTest::addColumn<QString>("phase");
        QTest::addColumn<QString>("working");

        const auto S = OverlayStage::Idle;
        QTest::newRow("idle, nothing") << S << ""
                                       << "" << false << false << Look::Empty << ""
                                       << "Mise au propre";
        QTest::newRow("idle, flash") << S << "12 mots"
                                     << "" << false << false << Look::Flash << "12 mots"
                                     << "Mise au propre";
        QTest::newRow("recording") << OverlayStage::Recording << ""
                                   << "" << false << false << Look::Recording << "rec"
                                   << "Mise au propre";
        // A flash left over from before does not cover the recording.
        QTest::newRow("recording with words and a flash")
            << OverlayStage::Recording << "Dictée annulée"
            << "bonjour" << false << false << Look::Recording << "rec-text"
            << "Mise au propre";
        QTest::newRow("processing") << OverlayStage::Processing << ""
                                    << "" << false << false << Look::Working << "proc"
                                    << "Mise au propre";
        QTest::newRow("processing a command") << OverlayStage::Processing << ""
                                              << "" << true << false << Look::Working << "proc"
                                              << "J'applique";
        QTest::newRow("processing ignores translating")
            << OverlayStage::Processing << ""
            << "" << false << true << Look::Working << "proc"
            << "Mise au propre";
        QTest::newRow("correcting") << OverlayStage::Correcting << ""
                                    << "" << true << false << Look::Working << "corr"
                                    << "Correction";
        QTest::newRow("translating") << OverlayStage::Correcting << ""
                                     << "" << false << true << Look::Working << "corr"
                                     << "Traduction";
    }

    void whatTheStripShows() {
        QFETCH(OverlayStage, stage);
        QFETCH(QString, flash);
        QFETCH(QString, live);
        QFETCH(bool, command);
        QFETCH(bool, translating);
        OverlayInput in;
        in.stage = stage;
        if (!flash.isEmpty()) in.flash = flash;
        in.liveText = live;
        if (command) in.commandText = QStringLiteral("texte choisi");
        in.translating = translating;
        QTEST(OverlayModel::look(in), "look");
        QTEST(OverlayModel::phase(in), "phase");
        QTEST(OverlayModel::workingText(in), "working");
    }

    void elapsedTime() {
        const QDateTime start = QDateTime::fromSecsSinceEpoch(1773480413, Qt::UTC);
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(75)), QStringLiteral("1:15"));
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(9)), QStringLiteral("0:09"));
        // Whole seconds: 59.999 s is still 0:59, an hour is sixty minutes.
        QCOMPARE(OverlayModel::elapsedText(start, start.addMSecs(59999)), QStringLiteral("0:59"));
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(3600)), QStringLiteral("60:00"));
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(-5)), QStringLiteral("0:00"));
        QCOMPARE(OverlayModel::elapsedText(QDateTime(), start), QStringLiteral("0:00"));
    }

    void waveformBreathesAndKeepsItsShape() {
        // In silence each bar moves between half and all of 4 + 0.12 × 18 × weight above 4.
        for (double t = 0; t < 2; t += 0.013) {
            const auto quiet = OverlayModel::barHeights(0, t);
            for (size_t i = 0; i < quiet.size(); ++i) {
                const double full = 0.12 * 18 * OverlayModel::kWeights[i];
                QVERIFY(quiet[i] >= 4 + 0.5 * full - 1e-9);
                QVERIFY(quiet[i] <= 4 + full + 1e-9);
            }
            // Below the floor, the level counts as 0.12.
            QCOMPARE(OverlayModel::barHeights(0.05, t), quiet);
        }
        // The bars move over time even in silence.
        QVERIFY(OverlayModel::barHeights(0, 0)[3] != OverlayModel::barHeights(0, 0.1)[3]);
        // A full level: the middle bar reaches 4 + 18 at the top of its swing (9t + 2.7 = π/2).
        const double top = (M_PI / 2 + 2 * M_PI - 2.7) / 9;
        QCOMPARE(OverlayModel::barHeights(1, top)[3], 22.0);
        // The lens: over a full swing the middle bar rises highest, the ends least.
        std::array<double, 7> highest{};
        for (double t = 0; t < 1; t += 0.001) {
            const auto h = OverlayModel::barHeights(0.8, t);
            for (size_t i = 0; i < h.size(); ++i)
                highest[i] = std::max(highest[i], h[i]);
        }
        QVERIFY(highest[3] > highest[2] && highest[2] > highest[1] && highest[1] > highest[0]);
        QVERIFY(highest[3] > highest[4] && highest[4] > highest[5] && highest[5] > highest[6]);
    }

    void stripPlacement() {
        // A second screen right of the first, with a panel at its bottom: the strip stands 24
        // px above the usable area, centred on it.
        const QRect visible(1920, 0, 2560, 1400);
        const QPoint anchor = Placement::overlayAnchor(visible);
        QCOMPARE(anchor, QPoint(1920 + 1280, 1400 - 24));
        QCOMPARE(Placement::overlayRect(anchor, QSize(300, 60)),
                 QRect(1920 + 1280 - 150, 1400 - 24 - 60, 300, 60));
    }

    void bubblePlacement() {
        const QRect visible(0, 30, 1280, 770); // a top bar of 30 px
        // Under the pointer, centred on it.
        QCOMPARE(Placement::bubbleRect({600, 300}, visible, 200), QRect(410, 318, 380, 200));
        // Near the bottom: above the pointer instead.
        QCOMPARE(Placement::bubbleRect({600, 700}, visible, 200), QRect(410, 482, 380, 200));
        // Exactly 8 px left at the bottom still fits under the pointer.
        QCOMPARE(Placement::bubbleRect({600, 574}, visible, 200).top(), 592);
        QCOMPARE(Placement::bubbleRect({600, 575}, visible, 200).top(), 357);
        // At the right edge it keeps 8 px from it; at the left edge too.
        QCOMPARE(Placement::bubbleRect({1279, 300}, visible, 200).right() + 1, 1280 - 8);
        QCOMPARE(Placement::bubbleRect({0, 300}, visible, 200).left(), 8);
        // On a screen that does not start at 0.
        QCOMPARE(Placement::bubbleRect({-1900, 300}, QRect(-1920, 0, 1920, 1080), 200).left(),
                 -1920 + 8);
        QCOMPARE(Placement::bubbleHeight(40), 120);
        QCOMPARE(Placement::bubbleHeight(300), 300);
        QCOMPARE(Placement::bubbleHeight(2000), 420);
    }

    void stripNeverTakesTheFocus() {
        OverlayView view;
        const Qt::WindowFlags f = view.windowFlags();
        for (Qt::WindowType needed : {Qt::Tool, Qt::FramelessWindowHint, Qt::WindowStaysOnTopHint,
                                      Qt::WindowDoesNotAcceptFocus, Qt::WindowTransparentForInput,
                                      Qt::X11BypassWindowManagerHint})
            QVERIFY2(f.testFlag(needed), qPrintable(QString::number(needed, 16)));
        QVERIFY(view.testAttribute(Qt::WA_ShowWithoutActivating));
        QVERIFY(view.testAttribute(Qt::WA_TranslucentBackground));
        QCOMPARE(view.focusPolicy(), Qt::NoFocus);
    }

    void stripFollowsTheState() {
        OverlayView view;
        OverlayController::shared().setPanel(&view);
        OverlayController::shared().position();
        const QPoint anchor = view.anchor();
        QVERIFY(!anchor.isNull());

        // Nothing to show: hidden, and no timer wakes the process.
        QVERIFY(!view.isVisible());
        QVERIFY(!view.animating());

        OverlayInput flash;
        flash.flash = QStringLiteral("Dictée annulée");
        view.setInput(flash);
        QVERIFY(view.isVisible());
        QVERIFY(!view.animating());
        // The window stands on the anchor, centred.
        QVERIFY(qAbs(view.geometry().center().x() - anchor.x()) <= 1);
        QCOMPARE(view.geometry().y() + view.height(), anchor.y());
        // Only the rounded strip belongs to the window: its corners stay the desktop's even
        // without a compositing manager.
        QVERIFY(!view.mask().contains(QPoint(0, 0)));
        QVERIFY(!view.mask().contains(QPoint(view.width() - 1, view.height() - 1)));
        QVERIFY(view.mask().contains(view.rect().center()));

        view.setInput(recording());
        QVERIFY(view.animating());
        QTRY_COMPARE(view.size(), view.sizeHint());
        const QSize oneRow = view.size();
        view.setInput(recording(QStringLiteral("alors je voulais te dire que demain on pourrait")));
        // A new face: the strip springs to its size, centred on the anchor all along.
        QTRY_COMPARE(view.size(), view.sizeHint());
        QVERIFY(view.height() > oneRow.height());
        QVERIFY(qAbs(view.geometry().center().x() - anchor.x()) <= 1);
        QCOMPARE(view.geometry().y() + view.height(), anchor.y());

        OverlayInput working;
        working.stage = OverlayStage::Processing;
        view.setInput(working);
        QVERIFY(view.animating());

        view.setInput(OverlayInput{});
        QVERIFY(!view.isVisible());
        QVERIFY(!view.animating());
        OverlayController::shared().setPanel(nullptr);
    }

    // Where the compositor has a layer shell the strip is never a window: the controller gives
    // it the surface, it is drawn offscreen at the screen's ratio, each face and each frame of
    // the animation reaches the surface, and nothing to show takes it off.
    void stripOnTheLayerSurface() {
        SurfaceLog log;
        platform_.session().offered.display = SessionOffer::Display::Wayland;
        platform_.session().offered.layerShell = true;
        Platform::current().setOverlaySurfaces(
            [&log](OverlaySurface::Role) { return std::make_unique<FakeSurface>(log); });
        OverlayView view;
        OverlayController::shared().setPanel(&view);
        OverlayController::shared().position();
        QVERIFY(view.onSurface());

        OverlayInput flash;
        flash.flash = QStringLiteral("Dictée annulée");
        view.setInput(flash);
        QVERIFY(view.shown());
        QTRY_VERIFY(!log.pictures.isEmpty());
        QVERIFY(!view.isVisible());
        QVERIFY(!view.windowHandle()); // no window was ever made
        const QImage first = log.pictures.last();
        const qreal ratio = std::ceil(view.devicePixelRatioF() - 0.001);
        QCOMPARE(first.devicePixelRatio(), ratio);
        QCOMPARE(first.size(), view.sizeHint() * ratio);
        QCOMPARE(log.margins.last(), Placement::kOverlayLift);
        // The strip itself is drawn, its rounded corners left clear.
        QCOMPARE(qAlpha(first.pixel(0, 0)), 0);
        QVERIFY(qAlpha(first.pixel(first.width() / 2, first.height() / 2)) > 200);

        // Recording: the waveform moves, so new pictures keep coming; a longer face grows.
        view.setInput(recording(QStringLiteral("alors je voulais te dire")));
        const int before = int(log.pictures.size());
        QTRY_VERIFY(log.pictures.size() >= before + 5);
        QTRY_COMPARE(log.pictures.last().size(), view.sizeHint() * ratio);
        QVERIFY(!view.isVisible());

        view.setInput(OverlayInput{});
        QVERIFY(!view.shown());
        QCOMPARE(log.hides, 1);
        const int hidden = int(log.pictures.size());
        QTest::qWait(100);
        QCOMPARE(log.pictures.size(), hidden); // nothing drawn while off the screen

        OverlayController::shared().setPanel(nullptr);
        Platform::current().setOverlaySurfaces(nullptr);
        platform_.session().offered = test::FakeSession().offered;
    }

    // On a layer shell the card is a surface too: drawn offscreen above the strip, its buttons
    // worked by the pointer the compositor reports over it.
    void bubbleOnTheLayerSurface() {
        SurfaceLog log;
        platform_.session().offered.display = SessionOffer::Display::Wayland;
        platform_.session().offered.layerShell = true;
        Platform::current().setOverlaySurfaces([&log](OverlaySurface::Role role) {
            return role == OverlaySurface::Role::Card ? std::make_unique<FakeSurface>(log)
                                                      : nullptr;
        });
        BubbleController& bubble = BubbleController::shared();
        bubble.show(QStringLiteral("Texte non collé"), {}, QStringLiteral("à coller"));
        QPointer<BubbleView> card = bubble.panel();
        QTRY_COMPARE(log.pictures.size(), 1);
        QVERIFY(!card->isVisible() && !card->windowHandle());
        QCOMPARE(log.margins.last(), Placement::kBubbleLift);
        QCOMPARE(log.pictures.last().size(), card->size() * log.pictures.last().devicePixelRatio());
        QVERIFY(log.pointer);

        const auto click = [&](const QString& tip) {
            for (auto* b : card->findChildren<QAbstractButton*>()) {
                if (b->toolTip() != tip) continue;
                const QPointF at = b->mapTo(card.data(), b->rect().center());
                log.pointer({SurfacePointer::Kind::Move, at});
                log.pointer({SurfacePointer::Kind::Press, at});
                log.pointer({SurfacePointer::Kind::Release, at});
            }
        };
        click(QStringLiteral("Copier"));
        QVERIFY(card->copied());
        QCOMPARE(platform_.clipboard().text(), std::optional<QString>(QStringLiteral("à coller")));
        QTRY_COMPARE(log.pictures.size(), 2); // the check mark is drawn
        click(QStringLiteral("Fermer"));
        QVERIFY(!bubble.panel());
        QCOMPARE(log.hides, 1);

        Platform::current().setOverlaySurfaces(nullptr);
        platform_.session().offered = test::FakeSession().offered;
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void bubbleCardBehaviour() {
        BubbleController& bubble = BubbleController::shared();
        bubble.show(QStringLiteral("Traduction"), QStringLiteral("bonjour"),
                    QStringLiteral("hello"));
        QPointer<BubbleView> first = bubble.panel();
        QVERIFY(first);
        QVERIFY(first->isVisible());
        // A one-word text gives the smallest card.
        QCOMPARE(first->height(), 120);

        // A second card replaces the first: never two.
        const QString longText = QString(QStringLiteral("Une phrase assez longue pour remplir "
                                                        "plusieurs lignes de la carte. "))
                                     .repeated(40);
        bubble.show(QStringLiteral("Correction"), QStringLiteral("une frase"), longText);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!first);
        BubbleView* card = bubble.panel();
        QVERIFY(card);
        QCOMPARE(card->height(), 420);
        QCOMPARE(card->shownText(), longText);

        // Copy puts the text on the clipboard and stays open.
        card->clickCopy();
        QCOMPARE(platform_.clipboard().text(), std::optional<QString>(longText));
        QVERIFY(card->copied());
        QVERIFY(bubble.panel() == card);

        // Its close button closes it; a close with nothing open is harmless.
        QPointer<BubbleView> last = card;
        card->clickClose();
        QVERIFY(!bubble.panel());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!last);
        bubble.close();
    }

    // The session's clicks and keys are watched only while a card is open; the clicks and
    // Escape themselves are played on a real desktop.
    void inputIsWatchedOnlyWhileACardIsOpen() {
        auto owned = std::make_unique<FakeInputWatch>();
        FakeInputWatch* watch = owned.get();
        BubbleController& bubble = BubbleController::shared();
        bubble.setInputWatch(std::move(owned));
        QVERIFY(!watch->running());
        const auto open = [&] {
            bubble.show(QStringLiteral("Traduction"), QStringLiteral("bonjour"),
                        QStringLiteral("hello"));
        };
        open();
        QVERIFY(watch->running());
        watch->send(true); // Escape
        QVERIFY(!bubble.panel());
        QVERIFY(!watch->running());

        // A card replacing another leaves one watch running.
        open();
        open();
        QCOMPARE(watch->starts, 3);
        QVERIFY(watch->running());
        bubble.close();
        QVERIFY(!watch->running());
        bubble.setInputWatch(nullptr);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TstOverlay t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_overlay.moc"
