// The strip and the card on a real headless sway's layer surfaces: above the focused field, which
// keeps the focus and takes a paste, no window added, buffers reused, the card's buttons clicked.
#include "DesktopSession.h"
#include "SwaySession.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"
#include "views/overlay/BubbleView.h"
#include "views/overlay/OverlayView.h"
#include "views/overlay/Placement.h"
#include "views/overlay/SurfaceHost.h"

#include <QApplication>
#include <QFile>
#include <QImage>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <linux/input-event-codes.h>
#include <wayland-client.h>

using namespace ombry;
using ombry::test::DesktopSession;

namespace {

QImage stripPicture(const QColor& color) {
    QImage image(300, 44, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

// The shared-memory pictures this process has mapped for the strip.
int stripMappings() {
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly)) return -1;
    return int(maps.readAll().count("memfd:ombry-voice-strip"));
}

// A mouse for the headless seat, which has none: sway's virtual-pointer protocol, written out
// for the requests the test plays.
extern const wl_interface virtualPointer;
const wl_interface* noTypes[5] = {};
const wl_interface* createTypes[] = {&wl_seat_interface, &virtualPointer};
const wl_message managerRequests[] = {{"create_virtual_pointer", "?on", createTypes}};
const wl_interface pointerManager = {
    "zwlr_virtual_pointer_manager_v1", 1, 1, managerRequests, 0, nullptr};
const wl_message pointerRequests[] = {{"motion", "uff", noTypes},
                                      {"motion_absolute", "uuuuu", noTypes},
                                      {"button", "uuu", noTypes},
                                      {"axis", "uuf", noTypes},
                                      {"frame", "", noTypes}};
const wl_interface virtualPointer = {"zwlr_virtual_pointer_v1", 1, 5, pointerRequests, 0, nullptr};

class Mouse {
public:
    bool open() {
        if (!connection_.open(2000)) return false;
        auto* seat = static_cast<wl_proxy*>(connection_.bind(&wl_seat_interface, 1));
        auto* manager = static_cast<wl_proxy*>(connection_.bind(&pointerManager, 1));
        if (!seat || !manager) return false;
        pointer_ = wl_proxy_marshal_flags(manager, 0, &virtualPointer, 1, 0, seat, nullptr);
        return connection_.roundtrip(2000);
    }
    void click(const QPoint& at, const QSize& output) {
        wl_proxy_marshal_flags(pointer_, 1, nullptr, 1, 0, 0u, uint32_t(at.x()), uint32_t(at.y()),
                               uint32_t(output.width()), uint32_t(output.height()));
        wl_proxy_marshal_flags(pointer_, 4, nullptr, 1, 0);
        for (const uint32_t state : {1u, 0u}) {
            wl_proxy_marshal_flags(pointer_, 2, nullptr, 1, 0, 0u, uint32_t(BTN_LEFT), state);
            wl_proxy_marshal_flags(pointer_, 4, nullptr, 1, 0);
        }
        connection_.roundtrip(2000);
    }

private:
    wayland::Connection connection_;
    wl_proxy* pointer_ = nullptr;
};

} // namespace

class TstStripLayer : public QObject {
    Q_OBJECT

    test::SwaySession sway_;
    QTemporaryDir dir_;

    // The output as the user sees it now.
    QImage screenshot() {
        const QString path = dir_.filePath(QStringLiteral("ecran.png"));
        QFile::remove(path);
        const auto r = sway_.run(QStringLiteral("grim"), {path});
        if (r.exitCode != 0) return {};
        return QImage(path);
    }

    // The windows in sway's tree (views have an app_id or a window class).
    int windowCount() {
        const auto r = sway_.run(QStringLiteral("swaymsg"), {"-t", "get_tree", "-r"});
        return int(r.out.count("\"app_id\":"));
    }

    bool fieldInFront() {
        const std::optional<AppWindow> front = wayland::swayFocused();
        return front && front->appId == QStringLiteral("ombry_wayland_target");
    }

    // The colour at the middle of where the strip stands: its bottom edge 24 px above the
    // bottom of the output, 44 px high.
    QColor stripColour(const QImage& screen) {
        return screen.pixelColor(screen.width() / 2,
                                 screen.height() - Placement::kOverlayLift - 22);
    }

private Q_SLOTS:
    void initTestCase() {
        if (!test::SwaySession::installed()) QSKIP("sway, wtype ou wl-clipboard absent");
        if (QStandardPaths::findExecutable(QStringLiteral("grim")).isEmpty()) QSKIP("grim absent");
        QVERIFY2(sway_.start(), qPrintable(sway_.error()));
        QVERIFY(sway_.field.open());
        QVERIFY(fieldInFront());
    }

    void stripShowsAboveTheFieldWithoutTakingTheFocus() {
        const int windows = windowCount();
        std::unique_ptr<OverlaySurface> surface = wayland::makeLayerSurface();
        QVERIFY(surface);
        QVERIFY(surface->show(stripPicture(QColor(200, 30, 40)), Placement::kOverlayLift));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return stripColour(screenshot()) == QColor(200, 30, 40); }));
        QVERIFY(fieldInFront());
        QCOMPARE(windowCount(), windows);

        // A paste while the strip shows goes to the field.
        auto clipboard = wayland::makeDataControlClipboard();
        auto keys = wayland::makeVirtualKeyboard();
        QVERIFY(clipboard && keys);
        clipboard->setText(QStringLiteral("sous la bande"), true, [](const ClipboardFetch&) {});
        QVERIFY(keys->post(keycode::V, modifier::Control));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return sway_.field.text().endsWith(QStringLiteral("sous la bande")); }));
        QVERIFY(fieldInFront());

        surface->hide();
        QVERIFY(DesktopSession::waitUntil(
            [&] { return stripColour(screenshot()) != QColor(200, 30, 40); }));
        // Shown again after hiding, with another picture.
        QVERIFY(surface->show(stripPicture(QColor(20, 160, 60)), Placement::kOverlayLift));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return stripColour(screenshot()) == QColor(20, 160, 60); }));
        QVERIFY(fieldInFront());
    }

    // The real strip, recording, at its 30 frames a second: the two buffers are reused, the
    // field keeps the focus and no window appears.
    void recordingStripReusesItsBuffers() {
        const int windows = windowCount();
        OverlayView view;
        view.setSurface(wayland::makeLayerSurface());
        QVERIFY(view.onSurface());
        OverlayInput in;
        in.stage = OverlayStage::Recording;
        in.startedAt = Platform::current().clock().now();
        in.level = 0.5;
        view.setInput(in);
        QTest::qWait(1000); // 30 frames
        const int mappings = stripMappings();
        QVERIFY2(mappings >= 1 && mappings <= 2, qPrintable(QString::number(mappings)));

        QTest::qWait(5000);
        QCOMPARE(stripMappings(), mappings);
        QVERIFY(fieldInFront());
        QCOMPARE(windowCount(), windows);
        QVERIFY(!view.isVisible());
    }

    // The result card on its layer surface takes the seat's clicks (sway's own cursor here):
    // its copy button puts the text on the clipboard, its close button takes it away, and the
    // field keeps the keyboard all along.
    void cardTakesClicksWithoutTheFocus() {
        const int windows = windowCount();
        BubbleView card(QStringLiteral("Texte non collé"), {}, QStringLiteral("collègues, été"),
                        false, false);
        card.resize(Placement::kBubbleWidth, Placement::kBubbleMinHeight);
        bool closed = false;
        card.onClose = [&] { closed = true; };
        Mouse mouse; // before the card: the card's seat gains a pointer
        QVERIFY(mouse.open());
        const QImage before = screenshot();
        const QPoint middle(before.width() / 2, before.height() - Placement::kBubbleLift - 20);
        SurfaceHost host(card, wayland::makeLayerSurface(OverlaySurface::Role::Card));
        host.show(Placement::kBubbleLift);
        QImage screen;
        QVERIFY(DesktopSession::waitUntil([&] {
            screen = screenshot();
            return !screen.isNull() && screen.pixel(middle) != before.pixel(middle);
        }));
        const QPoint origin((screen.width() - card.width()) / 2,
                            screen.height() - Placement::kBubbleLift - card.height());
        const auto click = [&](const QString& tip) {
            for (auto* b : card.findChildren<QAbstractButton*>()) {
                if (b->toolTip() == tip)
                    mouse.click(origin + b->mapTo(&card, b->rect().center()), screen.size());
            }
        };
        click(QStringLiteral("Copier"));
        QVERIFY(DesktopSession::waitUntil([&] { return card.copied(); }));
        QCOMPARE(sway_.run(QStringLiteral("wl-paste"), {"-n"}).out,
                 QStringLiteral("collègues, été").toUtf8());
        click(QStringLiteral("Fermer"));
        QVERIFY(DesktopSession::waitUntil([&] { return closed; }));
        QVERIFY(fieldInFront());
        QCOMPARE(windowCount(), windows);
    }

    // The compositor goes away under a shown strip: nothing breaks, the strip shows nothing.
    void compositorGone() {
        std::unique_ptr<OverlaySurface> surface = wayland::makeLayerSurface();
        QVERIFY(surface);
        QVERIFY(surface->show(stripPicture(Qt::blue), Placement::kOverlayLift));
        QTest::qWait(200);
        sway_.stop();
        QTest::qWait(300);
        QVERIFY(!surface->show(stripPicture(Qt::red), Placement::kOverlayLift));
        surface->hide();
    }

    void cleanupTestCase() { sway_.stop(); }
};

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TstStripLayer t;
    return QTest::qExec(&t, argc, argv);
}

#include "tst_striplayer.moc"
