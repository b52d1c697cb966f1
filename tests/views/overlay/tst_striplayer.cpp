// The strip on a real headless sway's layer surface: above the focused field, which keeps the
// focus and takes a paste, no window added, and an animation that reuses its two buffers.
#include "DesktopSession.h"
#include "SwaySession.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/wayland/WaylandPlatform.h"
#include "views/overlay/OverlayView.h"
#include "views/overlay/Placement.h"

#include <QApplication>
#include <QFile>
#include <QImage>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

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
