#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include "DesktopSession.h"
#include "SwaySession.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include "wlr-data-control-unstable-v1-client-protocol.h"
#include <wayland-client.h>

using namespace ombry;
using namespace ombry::wayland;
using ombry::test::DesktopSession;

namespace {

// Another client that takes CLIPBOARD with a text it never gives: it offers the formats,
// then never reads its connection again.
class SilentOwner {
public:
    bool take() {
        if (!connection_.open(1000)) return false;
        manager_ = static_cast<zwlr_data_control_manager_v1*>(
            connection_.bind(&zwlr_data_control_manager_v1_interface, 1));
        seat_ = static_cast<wl_seat*>(connection_.bind(&wl_seat_interface, 1));
        if (!manager_ || !seat_) return false;
        device_ = zwlr_data_control_manager_v1_get_data_device(manager_, seat_);
        source_ = zwlr_data_control_manager_v1_create_data_source(manager_);
        zwlr_data_control_source_v1_offer(source_, "text/plain;charset=utf-8");
        zwlr_data_control_source_v1_offer(source_, "image/png");
        zwlr_data_control_device_v1_set_selection(device_, source_);
        return connection_.roundtrip(1000);
    }
    ~SilentOwner() {
        if (source_) zwlr_data_control_source_v1_destroy(source_);
        if (device_) zwlr_data_control_device_v1_destroy(device_);
        if (seat_) wl_seat_destroy(seat_);
        if (manager_) zwlr_data_control_manager_v1_destroy(manager_);
    }

private:
    Connection connection_;
    zwlr_data_control_manager_v1* manager_ = nullptr;
    wl_seat* seat_ = nullptr;
    zwlr_data_control_device_v1* device_ = nullptr;
    zwlr_data_control_source_v1* source_ = nullptr;
};

} // namespace

// The services of a wlroots session on a real headless sway: keys through the virtual keyboard
// into a Qt field, the clipboard and PRIMARY through data-control without any window of ours,
// the window in front from sway's IPC.
class TstWaylandSway : public QObject {
    Q_OBJECT

    test::SwaySession sway_;
    QTemporaryDir data_; // XDG_DATA_HOME, with the target's desktop file
    std::unique_ptr<KeyPoster> keys_;
    std::unique_ptr<Clipboard> clipboard_;

    QString paste(const QStringList& args) {
        const auto r = sway_.run(QStringLiteral("wl-paste"), QStringList{"-n"} + args);
        return r.exitCode == 0 ? QString::fromUtf8(r.out) : QStringLiteral("<rien>");
    }

private Q_SLOTS:
    void initTestCase() {
        if (!test::SwaySession::installed()) QSKIP("sway, wtype ou wl-clipboard absent");
        QVERIFY2(sway_.start(), qPrintable(sway_.error()));
        // The desktop file that names the target for people (GIO lists only an entry whose
        // program is there).
        qputenv("XDG_DATA_HOME", data_.path().toLocal8Bit());
        const QString applications = data_.path() + "/applications";
        QDir().mkpath(applications);
        QFile desktop(applications + "/ombry_wayland_target.desktop");
        QVERIFY(desktop.open(QIODevice::WriteOnly));
        desktop.write("[Desktop Entry]\nType=Application\nName=Cible de test\nExec=" +
                      QFile::encodeName(test::FieldProcess::program()) + "\n");
        desktop.close();
        QVERIFY(sway_.field.open());
        keys_ = makeVirtualKeyboard();
        clipboard_ = makeDataControlClipboard();
    }

    void compositorOffersItsProtocols() {
        const std::optional<CompositorGlobals> globals = probeCompositor();
        QVERIFY(globals);
        QVERIFY(globals->virtualKeyboard);
        QVERIFY(globals->dataControl);
        QVERIFY(globals->dataControlPrimary);
        QVERIFY(globals->layerShell);
    }

    void theFieldInFrontByName() {
        const std::optional<AppWindow> front = swayFocused();
        QVERIFY(front);
        QCOMPARE(front->appId, QStringLiteral("ombry_wayland_target"));
        QCOMPARE(front->name, QStringLiteral("Cible de test"));
        QCOMPARE(front->pid, int64_t(sway_.field.pid()));
        QVERIFY(front->id != 0);
    }

    // The paste of a dictation: the text set without focus, Ctrl+V posted, the field has it;
    // a text typed key by key comes out whatever the layout, and keys posted after it are
    // read in the user's layout again.
    void postedPasteAndTypedText() {
        QList<int> fetched;
        clipboard_->setText(QStringLiteral("Bonjour é"), true, [&](const ClipboardFetch& fetch) {
            fetched.append(!fetch.readerOwns);
        });
        QElapsedTimer clock;
        clock.start();
        QVERIFY(keys_->post(keycode::V, modifier::Control));
        const qint64 posted = clock.nsecsElapsed();
        QVERIFY(DesktopSession::waitUntil([&] { return sway_.field.text() == "Bonjour é"; }));
        qInfo("post(Ctrl+V) : %.1f ms, texte dans le champ après %.1f ms", posted / 1e6,
              clock.nsecsElapsed() / 1e6);
        QVERIFY(DesktopSession::waitUntil([&] { return !fetched.isEmpty(); }));
        QCOMPARE(fetched.first(), 1); // the reader is not told on Wayland

        QVERIFY(keys_->typeText(QStringLiteral(", ça « va » ?")));
        QVERIFY(DesktopSession::waitUntil(
            [&] { return sway_.field.text() == "Bonjour é, ça « va » ?"; }));
        clock.restart();
        QVERIFY(keys_->post(keycode::V, modifier::Control));
        qInfo("post(Ctrl+V) suivant : %.1f ms", clock.nsecsElapsed() / 1e6);
        QVERIFY(DesktopSession::waitUntil(
            [&] { return sway_.field.text() == "Bonjour é, ça « va » ?Bonjour é"; }));
    }

    void setTextIsReadWithoutFocus() {
        int fetched = 0;
        clipboard_->setText(QStringLiteral("texte posé"), true,
                            [&](const ClipboardFetch&) { ++fetched; });
        QCOMPARE(paste({}), QStringLiteral("texte posé"));
        QCOMPARE(paste({"-p"}), QStringLiteral("texte posé"));
        QCOMPARE(paste({"-t", "UTF8_STRING"}), QStringLiteral("texte posé"));
        // The field reads it too, as it watches the clipboard.
        QVERIFY(DesktopSession::waitUntil([&] { return fetched >= 3; }));
        QCOMPARE(clipboard_->text().value_or("<rien>"), QStringLiteral("texte posé"));
        // PRIMARY set by this program is no selection of the user's.
        QVERIFY(!clipboard_->selectedText());
    }

    // What another client held comes back exactly, every format, on both selections.
    void snapshotAndRestoreEveryFormat() {
        const ClipboardSnapshot formats = {
            {"text/plain;charset=utf-8", "ligne 1\nligne 2 é"},
            {"text/html", "<b>gras</b>"},
            {"application/x-ombry-binaire", QByteArray("\x00\x01\xff\x00", 4)},
            {"image/png", QByteArray(200000, 'p')}, // more than a pipe holds
        };
        // Another owner, on a thread of its own: it serves while this one waits for it.
        QThread thread;
        thread.start();
        QObject there;
        there.moveToThread(&thread);
        std::unique_ptr<Clipboard> other;
        const auto onThread = [&](const std::function<void()>& work) {
            QMetaObject::invokeMethod(&there, work, Qt::BlockingQueuedConnection);
        };
        onThread([&] {
            other = makeDataControlClipboard();
            other->restore(formats);
            other->restoreSelection(formats.mid(0, 2));
        });
        QVERIFY(
            DesktopSession::waitUntil([&] { return clipboard_->text() == "ligne 1\nligne 2 é"; }));

        QElapsedTimer clock;
        clock.start();
        const ClipboardSnapshot saved = clipboard_->snapshot();
        qInfo("snapshot() de 4 formats (200 Ko) : %.1f ms", clock.nsecsElapsed() / 1e6);
        QCOMPARE(saved, formats);
        const ClipboardSnapshot savedPrimary = clipboard_->selectionSnapshot();
        QCOMPARE(savedPrimary, formats.mid(0, 2));
        QCOMPARE(clipboard_->selectedText().value_or("<rien>"),
                 QStringLiteral("ligne 1\nligne 2 é"));

        clipboard_->setText(QStringLiteral("dictée"), true);
        onThread([&] { other.reset(); }); // the first owner is gone: only our copy is left
        thread.quit();
        thread.wait();
        QCOMPARE(paste({}), QStringLiteral("dictée"));
        clipboard_->restore(saved);
        clipboard_->restoreSelection(savedPrimary);
        QCOMPARE(paste({"-t", "text/html"}), QStringLiteral("<b>gras</b>"));
        QCOMPARE(sway_.run("wl-paste", {"-t", "application/x-ombry-binaire"}).out,
                 formats[2].second);
        QCOMPARE(sway_.run("wl-paste", {"-t", "image/png"}).out.size(), 200000);
        QCOMPARE(paste({"-p"}), QStringLiteral("ligne 1\nligne 2 é"));
        const QStringList types =
            QString::fromUtf8(sway_.run("wl-paste", {"-l"}).out).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(types.size(), formats.size());

        // An empty snapshot put back leaves nothing.
        clipboard_->restore({});
        QVERIFY(clipboard_->snapshot().isEmpty());
        QCOMPARE(sway_.run("wl-paste", {}).exitCode == 0, false);
    }

    void changesOfAnotherClientAreCounted() {
        const uint64_t before = clipboard_->changeCount();
        const uint64_t primaryBefore = clipboard_->selectionChangeCount();
        sway_.launch("wl-copy", {"--foreground", "copie d'un autre"});
        QVERIFY(DesktopSession::waitUntil([&] { return clipboard_->changeCount() > before; }));
        QElapsedTimer clock;
        clock.start();
        const ClipboardSnapshot copied = clipboard_->snapshot();
        qInfo("snapshot() d'un wl-copy : %.1f ms", clock.nsecsElapsed() / 1e6);
        QCOMPARE(copied.value(0).second, QByteArray("copie d'un autre"));
        QCOMPARE(clipboard_->selectionChangeCount(), primaryBefore);
        sway_.launch("wl-copy", {"--foreground", "-p", "sélection"});
        QVERIFY(DesktopSession::waitUntil(
            [&] { return clipboard_->selectionChangeCount() > primaryBefore; }));
        QCOMPARE(clipboard_->selectedText().value_or("<rien>"), QStringLiteral("sélection"));
        // Our own changes count too.
        const uint64_t ours = clipboard_->changeCount();
        clipboard_->setText(QStringLiteral("à nous"), false);
        QVERIFY(clipboard_->changeCount() > ours);
    }

    void ownerThatNeverAnswersCostsOneSecond() {
        const uint64_t c0 = clipboard_->changeCount();
        SilentOwner silent;
        QVERIFY(silent.take());
        // The compositor has told of the new owner.
        QVERIFY(DesktopSession::waitUntil([&] { return clipboard_->changeCount() > c0; }));
        QElapsedTimer clock;
        clock.start();
        const ClipboardSnapshot saved = clipboard_->snapshot();
        const qint64 elapsed = clock.elapsed();
        qInfo("snapshot() d'un propriétaire muet (2 formats) : %lld ms", elapsed);
        QVERIFY(saved.isEmpty());
        QVERIFY2(elapsed < 1200, qPrintable(QString::number(elapsed)));
        QVERIFY(!clipboard_->text()); // the same deadline for a text alone
        QVERIFY(clock.elapsed() < 2400);
    }

    // A compositor that goes away leaves the services empty, without a crash; the next one is
    // used as soon as it is there.
    void compositorGoneThenBack() {
        sway_.stop();
        QVERIFY(!keys_->post(keycode::V, modifier::Control));
        QVERIFY(clipboard_->snapshot().isEmpty());
        clipboard_->setText(QStringLiteral("perdu"), true);
        QVERIFY(!clipboard_->text());
        QVERIFY(!swayFocused());
        QVERIFY(!probeCompositor());

        QVERIFY2(sway_.start(), qPrintable(sway_.error()));
        clipboard_->setText(QStringLiteral("de retour"), false);
        QCOMPARE(paste({}), QStringLiteral("de retour"));
        QVERIFY(keys_->post(keycode::Escape, 0));
    }
};

QTEST_MAIN(TstWaylandSway)
#include "tst_waylandsway.moc"
