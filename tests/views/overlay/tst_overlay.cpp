// The dictation strip and the result card: what shows in which state, where they go, and the
// window properties that keep the focus where it is.
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
#include <cmath>

using namespace ombry;
using Look = OverlayModel::Look;

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
    void whatTheStripShows() {
        const auto I = OverlayStage::Idle, R = OverlayStage::Recording;
        const auto P = OverlayStage::Processing, C = OverlayStage::Correcting;
        struct Case {
            OverlayStage stage;
            const char *flash, *live;
            bool command, translating;
            Look look;
            const char *phase, *working;
        };
        // A flash left over does not cover the recording; translating only counts on a command.
        const Case cases[] = {
            {I, "", "", false, false, Look::Empty, "", "Mise au propre"},
            {I, "12 mots", "", false, false, Look::Flash, "12 mots", "Mise au propre"},
            {R, "", "", false, false, Look::Recording, "rec", "Mise au propre"},
            {R, "Dictée annulée", "bonjour", false, false, Look::Recording, "rec-text",
             "Mise au propre"},
            {P, "", "", false, false, Look::Working, "proc", "Mise au propre"},
            {P, "", "", true, false, Look::Working, "proc", "J'applique"},
            {P, "", "", false, true, Look::Working, "proc", "Mise au propre"},
            {C, "", "", true, false, Look::Working, "corr", "Correction"},
            {C, "", "", false, true, Look::Working, "corr", "Traduction"},
        };
        for (const Case& c : cases) {
            OverlayInput in;
            in.stage = c.stage;
            if (*c.flash) in.flash = QString::fromUtf8(c.flash);
            in.liveText = QString::fromUtf8(c.live);
            if (c.command) in.commandText = QStringLiteral("texte choisi");
            in.translating = c.translating;
            const QString row = QStringLiteral("%1 %2").arg(int(c.stage)).arg(c.working);
            QVERIFY2(OverlayModel::look(in) == c.look, qPrintable(row));
            QCOMPARE(OverlayModel::phase(in), QString::fromUtf8(c.phase));
            QCOMPARE(OverlayModel::workingText(in), QString::fromUtf8(c.working));
        }
    }

    void elapsedTime() {
        const QDateTime start = QDateTime::fromSecsSinceEpoch(1773480413, Qt::UTC);
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(75)), QStringLiteral("1:15"));
        // Whole seconds: 59.999 s is still 0:59, an hour is sixty minutes.
        QCOMPARE(OverlayModel::elapsedText(start, start.addMSecs(59999)), QStringLiteral("0:59"));
        QCOMPARE(OverlayModel::elapsedText(start, start.addSecs(3600)), QStringLiteral("60:00"));
        QCOMPARE(OverlayModel::elapsedText(QDateTime(), start), QStringLiteral("0:00"));
    }

    void waveformBreathesAndKeepsItsShape() {
        // Below the floor, the level counts as 0.12.
        for (double t = 0; t < 2; t += 0.013)
            QCOMPARE(OverlayModel::barHeights(0.05, t), OverlayModel::barHeights(0, t));
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

    void placement() {
        // A second screen right of the first, with a panel at its bottom: the strip stands 24
        // px above the usable area, centred on it.
        const QPoint anchor = Placement::overlayAnchor(QRect(1920, 0, 2560, 1400));
        QCOMPARE(anchor, QPoint(1920 + 1280, 1400 - 24));
        QCOMPARE(Placement::overlayRect(anchor, QSize(300, 60)),
                 QRect(1920 + 1280 - 150, 1400 - 24 - 60, 300, 60));

        const QRect visible(0, 30, 1280, 770); // a top bar of 30 px
        // The card: under the pointer, centred on it; near the bottom, above it.
        QCOMPARE(Placement::bubbleRect({600, 300}, visible, 200), QRect(410, 318, 380, 200));
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
        QCOMPARE(Placement::bubbleHeight(300), 300); // 120 and 420 at the ends: the card test
    }

    void stripFollowsTheStateWithoutTakingTheFocus() {
        OverlayView view;
        QVERIFY(view.windowFlags().testFlags(
            Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
            Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput |
            Qt::X11BypassWindowManagerHint));
        QVERIFY(view.testAttribute(Qt::WA_ShowWithoutActivating) &&
                view.testAttribute(Qt::WA_TranslucentBackground));
        QCOMPARE(view.focusPolicy(), Qt::NoFocus);
        OverlayController::shared().setPanel(&view);
        OverlayController::shared().position();
        const QPoint anchor = view.anchor();
        QVERIFY(!anchor.isNull());
        // Centred on the anchor, standing on it.
        const auto onAnchor = [&] {
            return qAbs(view.geometry().center().x() - anchor.x()) <= 1 &&
                   view.geometry().y() + view.height() == anchor.y();
        };
        // Nothing to show: hidden, and no timer wakes the process.
        QVERIFY(!view.isVisible() && !view.animating());

        OverlayInput flash;
        flash.flash = QStringLiteral("Dictée annulée");
        view.setInput(flash);
        QVERIFY(view.isVisible() && !view.animating() && onAnchor());
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
        QVERIFY(view.height() > oneRow.height() && onAnchor());

        OverlayInput working;
        working.stage = OverlayStage::Processing;
        view.setInput(working);
        QVERIFY(view.animating());

        view.setInput(OverlayInput{});
        QVERIFY(!view.isVisible() && !view.animating());
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

    // One card at a time; the session's clicks and keys are watched only while one is open
    // (the clicks and Escape themselves are played on a real desktop).
    void bubbleCard() {
        auto owned = std::make_unique<FakeInputWatch>();
        FakeInputWatch* watch = owned.get();
        BubbleController& bubble = BubbleController::shared();
        bubble.setInputWatch(std::move(owned));
        QVERIFY(!watch->running());
        bubble.show(QStringLiteral("Traduction"), QStringLiteral("bonjour"),
                    QStringLiteral("hello"));
        QPointer<BubbleView> first = bubble.panel();
        QVERIFY(first && first->isVisible() && watch->running());
        QCOMPARE(first->height(), 120); // a one-word text gives the smallest card

        const QString longText = QString(QStringLiteral("Une phrase assez longue pour remplir "
                                                        "plusieurs lignes de la carte. "))
                                     .repeated(40);
        bubble.show(QStringLiteral("Correction"), QStringLiteral("une frase"), longText);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!first);
        QPointer<BubbleView> card = bubble.panel();
        QCOMPARE(card->height(), 420);
        QCOMPARE(card->shownText(), longText);
        QCOMPARE(watch->starts, 2);
        QVERIFY(watch->running());

        // Copy puts the text on the clipboard and stays open; the close button closes.
        card->clickCopy();
        QCOMPARE(platform_.clipboard().text(), std::optional<QString>(longText));
        QVERIFY(card->copied() && bubble.panel() == card);
        card->clickClose();
        QVERIFY(!bubble.panel() && !watch->running());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!card);
        bubble.close(); // nothing open: harmless

        bubble.show(QStringLiteral("Traduction"), QStringLiteral("bonjour"),
                    QStringLiteral("hello"));
        watch->send(true); // Escape
        QVERIFY(!bubble.panel() && !watch->running());
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
